#include "support/Logger.h"
#include "fakes/FakePlatform.h"

#include <gtest/gtest.h>

#include <thread>

namespace brindlemar {
namespace {

using Lines = std::vector<std::string>;

/// Notes every line with the sink's name, urgent ones with "!", and every flush.
struct RecordingBackend : LogBackend {
    struct Destination : LogDestination {
        Destination(RecordingBackend& backend, std::string name) : backend(backend), name(std::move(name)) {}
        void write(std::string_view line, bool urgent) override { note((urgent ? "! " : " ") + std::string(line)); }
        void flush() override { note(" flushed"); }
        void note(const std::string& text) {
            backend.notes.with([&](Lines& notes) { notes.push_back(name + text); });
        }
        RecordingBackend& backend;
        const std::string name;
    };
    std::unique_ptr<LogDestination> console() override {
        ++consoles;
        return std::make_unique<Destination>(*this, "console");
    }
    std::unique_ptr<LogDestination> file(const RotatingLogFile& file) override {
        opened = file;
        return fileFails ? nullptr : std::make_unique<Destination>(*this, "file");
    }
    std::optional<std::string> libraryDirectory() override { return library; }
    std::uint64_t threadID() override { return 42; }

    Guarded<Lines> notes;
    std::atomic<int> consoles{0};
    std::optional<std::string> library = "/library";
    bool fileFails = false;
    std::optional<RotatingLogFile> opened;
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
    const LogScope log{Logger::shared(), "a(b:)"};
    log.debug("pages: ", 3, " of ", std::string("four"));
    const std::string location = "location=\"BrindlemarFileProvider/LoggerTest:" + std::to_string(__LINE__ - 1) + "\"";
    log.errorWith({{"itemID", "7"}}, "failed");
    Logger::shared().log(LogLevel::trace, {}, "not written");
    Logger::reset();
    const Lines all = backend.notes.copy();
    ASSERT_EQ(all.size(), 6u);
    EXPECT_NE(all[0].find("level=DEBUG msg=\"pages: 3 of four\" thread=42  " + location + " function=\"a(b:)\""),
              std::string::npos)
        << all[0];
    EXPECT_NE(all[2].find("level=ERROR msg=\"failed\" thread=42 itemID=\"7\" location="), std::string::npos);
    EXPECT_TRUE(all[0].starts_with("console t=") && all[2].starts_with("console! t="));
    EXPECT_EQ("file" + all[0].substr(7), all[1]);
    EXPECT_EQ("file" + all[2].substr(7), all[3]);
    EXPECT_EQ(all[4] + all[5], "console flushedfile flushed");
    EXPECT_EQ(backend.opened->path, "/library/Logs/Brindlemar/FileProvider.log");
    EXPECT_EQ(backend.opened->permission, 0640u);
    EXPECT_EQ(backend.opened->maximumFileSize, 31457280u);
    EXPECT_EQ(backend.opened->maximumArchives, 7u);
}

TEST_F(LoggerTest, CarriesOnWithTheConsoleWithoutAFile) {
    for (const bool noLibrary : {true, false}) {
        Logger::reset();
        backend.library = noLibrary ? std::nullopt : std::optional<std::string>("/library");
        backend.fileFails = !noLibrary;
        LogScope{Logger::shared(), "f()"}.info("still heard");
    }
    const Lines all = backend.notes.copy();
    ASSERT_EQ(all.size(), 3u); // and a flush
    for (const auto& each : all) EXPECT_TRUE(each.starts_with("console")) << each;
}

TEST_F(LoggerTest, IsBuiltOnceHoweverManyThreadsAskFirst) {
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i) threads.emplace_back([] { LogScope{Logger::shared(), "f()"}.info("here"); });
    }
    EXPECT_EQ(backend.consoles, 1);
    EXPECT_EQ(backend.notes.copy().size(), 16u);
}

} // namespace
} // namespace brindlemar
