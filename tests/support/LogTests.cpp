#include "fakes/FakePlatform.h"
#include "support/LogDateFormat.h"
#include "support/LogQuote.h"
#include "support/Utf8.h"

#include <gtest/gtest.h>

#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono;

TEST(Utf8, AcceptsEveryCodePointInItsShortestFormOnly) {
    const std::uint32_t first[] = {0, 0, 0x80, 0x800, 0x10000}, leads[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (int length = 2; length <= 4; ++length)
        for (std::uint32_t code = 0; code < (1u << (5 * length + (length == 2))); ++code) {
            std::string bytes(1, static_cast<char>(leads[length] | (code >> (6 * (length - 1)))));
            for (int tail = length - 2; tail >= 0; --tail)
                bytes.push_back(static_cast<char>(0x80 | ((code >> (6 * tail)) & 0x3F)));
            const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
            if (isValidUtf8(bytes) != (code >= first[length] && code <= 0x10FFFF && !surrogate))
                FAIL() << length << " bytes for " << code;
        }
}

TEST(Utf8, RefusesBrokenSequencesWhereverTheyStand) {
    for (std::size_t place = 0; place < 140; ++place) {
        const std::string before(place, 'a');
        for (const std::string sequence : {"é", "漢", "\U0001F600"}) {
            EXPECT_TRUE(isValidUtf8(before + sequence + "tail of plain text"));
            for (std::size_t cut = 1; cut < sequence.size(); ++cut)
                for (const std::string& broken :
                     {sequence.substr(0, cut), sequence.substr(0, cut) + "a", sequence.substr(cut)})
                    EXPECT_FALSE(isValidUtf8(before + broken));
        }
        EXPECT_FALSE(isValidUtf8(before + "\xF8\x88\x80\x80\x80" + before));
        EXPECT_FALSE(isValidUtf8(before + "\xFF"));
    }
}

std::string quoteOf(std::string_view value) {
    LogLine line;
    appendQuoted(line, value);
    return std::string(line.text());
}

TEST(LogQuote, WritesTheStringFormOfJSONAndLeavesWhatIsNotUTF8Raw) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> rows[] = {
        {"", R"("")"},
        {"a\"b\\c\nd, with / and blanks", R"("a\"b\\c\nd, with / and blanks")"},
        {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
        {"\0\x01\x1f\x7f"s, "\"\\u0000\\u0001\\u001f\x7f\""},
        {"Größe 漢 \U0001F600 \u2028", "\"Größe 漢 \U0001F600 \u2028\""}};
    for (const auto& [value, expected] : rows) EXPECT_EQ(quoteOf(value), expected);
    for (const char* value : {"caf\xe9", "\xc0\xaf", "\xed\xa0\x80", "a\xff\"\nb", "cut \xe2\x82"})
        EXPECT_EQ(quoteOf(value), value);
    for (const char special : {'"', '\\', '\n', '\x1f'})
        for (std::size_t place = 0; place < 20; ++place) {
            const std::string text = quoteOf(std::string(place, '~') + special + std::string(19 - place, '~'));
            EXPECT_EQ(text[1 + place], '\\') << place;
            EXPECT_EQ(text.back(), '"');
            EXPECT_EQ(text.find('\n'), text.npos);
        }
}

TEST(LogDate, RoundsMillisecondsAndShowsTheZone) {
    const sys_seconds march = sys_days{2024y / 3 / 5} + 13h + 7min + 9s;
    const struct {
        const char* zone;
        Timestamp date;
        const char* expected;
    } rows[] = {
        // one second each, for a second's zone is looked up once
        {"CET-1", march + 1s + 42ms, "2024-03-05T14:07:10.042+01:00"},
        {"NST3:30", march + 2s + 42ms, "2024-03-05T09:37:11.042-03:30"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", march + hours(24 * 120), "2024-07-03T15:07:09.000+02:00"},
        {"UTC0", march + 10s + 41500us, "2024-03-05T13:07:19.042Z"},
        {"UTC0", march + 10s + 41499999ns, "2024-03-05T13:07:19.041Z"},
        {"UTC0", march + 11s + 999500us, "2024-03-05T13:07:21.000Z"},
        {"UTC0", sys_days{1969y / 12 / 31} + 23h + 59min + 59s + 250ms, "1969-12-31T23:59:59.250Z"},
    };
    for (const auto& row : rows) {
        ::setenv("TZ", row.zone, 1);
        LogLine line;
        LogDateFormat().append(line, row.date);
        EXPECT_EQ(line.text(), row.expected);
    }
}

/// Notes every line with the sink's name, urgent ones with "!", and every flush.
struct RecordingBackend : LogBackend {
    struct Sink : LogDestination {
        Sink(Guarded<Strings>& notes, std::string name) : notes(notes), name(std::move(name)) {}
        void write(std::string_view line, bool urgent) override { note((urgent ? "! " : " ") + std::string(line)); }
        void flush() override { note(" flushed"); }
        void note(const std::string& text) {
            notes.with([&](Strings& list) { list.push_back(name + text); });
        }
        Guarded<Strings>& notes;
        const std::string name;
    };
    std::unique_ptr<LogDestination> console() override { return std::make_unique<Sink>(notes, "console"); }
    std::unique_ptr<LogDestination> file(const RotatingLogFile& file) override {
        opened = file;
        return fileFails ? nullptr : std::make_unique<Sink>(notes, "file");
    }
    std::optional<std::string> libraryDirectory() override { return library; }
    std::uint64_t threadID() override { return 18446744073709551615u; }
    Guarded<Strings> notes;
    std::optional<std::string> library = "/library";
    bool fileFails = false;
    RotatingLogFile opened;
};

struct LoggerTest : ::testing::Test {
    LoggerTest() {
        auto& [clock, main, background, tasks, ports, managers, xpc, files, stores, log, manager] = platform;
        Platform::install({clock, main, background, tasks, ports, managers, xpc, files, stores, backend});
    }
    ~LoggerTest() override { Logger::reset(); }
    FakePlatform platform;
    RecordingBackend backend;
};

TEST_F(LoggerTest, WritesOneLineToBothSinks) {
    ::setenv("TZ", "UTC0", 1);
    const LogScope log{Logger::shared(), "a(b:)"};
    log.debug("pages: ", 3, " of ", std::string("four"));
    log.errorWith({{"itemID", "c7|a \"b\""}, {"empty", ""}, {"domain", "c7"}}, "Bad \"answer\"\n");
    const std::string end = "location=\"BrindlemarFileProvider/LogTests:" + std::to_string(__LINE__ - 1) +
                            "\" function=\"a(b:)\"",
                      start = " t=2023-11-14T22:13:20.000Z level=";
    Logger::shared().log(LogLevel::trace, {}, "not written");
    Logger::reset();
    const Strings all = backend.notes.copy();
    ASSERT_EQ(all.size(), 6u);
    EXPECT_TRUE(all[0].starts_with("console" + start + "DEBUG msg=\"pages: 3 of four\" thread=")) << all[0];
    EXPECT_EQ("file" + all[0].substr(7), all[1]);
    const std::string line = start + R"(ERROR msg="Bad \"answer\"\n" thread=18446744073709551615 )" +
                             R"(itemID="c7|a \"b\"" domain="c7" )" + end;
    EXPECT_EQ(Strings(all.begin() + 2, all.end()),
              (Strings{"console!" + line, "file!" + line, "console flushed", "file flushed"}));
    EXPECT_EQ(backend.opened.path, "/library/Logs/Brindlemar/FileProvider.log");
    EXPECT_EQ(backend.opened.permission, 0640u);
    EXPECT_EQ(backend.opened.maximumFileSize, 31457280u);
    EXPECT_EQ(backend.opened.maximumArchives, 7u);
}

TEST_F(LoggerTest, IsBuiltOnceHoweverManyThreadsAskFirstAndCarriesOnWithoutAFile) {
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i) threads.emplace_back([] { LogScope{Logger::shared(), "f()"}.info("here"); });
    }
    std::size_t count = 18; // two flushes, for one logger with two sinks was made
    for (const bool noLibrary : {true, false}) {
        Logger::reset();
        EXPECT_EQ(backend.notes.with([](Strings& notes) { return std::exchange(notes, {}); }).size(), count);
        count = 2; // and the flush
        backend.library = noLibrary ? std::nullopt : std::optional<std::string>("/library");
        backend.fileFails = !noLibrary;
        LogScope{Logger::shared(), "f()"}.info("still heard");
        ASSERT_EQ(backend.notes.copy().size(), 1u);
        EXPECT_TRUE(backend.notes.copy()[0].starts_with("console"));
    }
}

} // namespace
} // namespace brindlemar
