#include "support/LogFormatter.h"
#include "support/LogNames.h"
#include "support/LogQuote.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace brindlemar {
namespace {

using namespace std::chrono;

std::string quoteOf(std::string_view value) {
    LogLine line;
    appendQuoted(line, value);
    return std::string(line.text());
}

TEST(LogQuote, WritesTheStringFormOfJSON) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> rows[] = {
        {"", R"("")"},
        {"plain, with / and blanks", R"("plain, with / and blanks")"},
        {"a\"b\\c\nd", R"("a\"b\\c\nd")"},
        {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
        {"\0\x01\x1f\x7f"s, "\"\\u0000\\u0001\\u001f\x7f\""},
        {"Größe 漢 \U0001F600 \u2028", "\"Größe 漢 \U0001F600 \u2028\""},
        {"ü\n", "\"ü\\n\""},
    };
    for (const auto& [value, expected] : rows) EXPECT_EQ(quoteOf(value), expected);
}

TEST(LogQuote, FindsAnEscapeAtEveryPlaceOfAWordAndLeavesWhatIsNotUTF8Raw) {
    for (const char special : {'"', '\\', '\n', '\x1f'})
        for (std::size_t place = 0; place < 20; ++place) {
            std::string value(20, '~');
            value[place] = special;
            const std::string text = quoteOf(value);
            EXPECT_EQ(text[1 + place], '\\') << place;
            EXPECT_EQ(text.back(), '"');
            EXPECT_EQ(text.find('\n'), text.npos);
        }
    for (const char* value : {"caf\xe9", "\xc0\xaf", "\xed\xa0\x80", "a\xff\"\nb", "cut \xe2\x82"})
        EXPECT_EQ(quoteOf(value), value);
}

void setZone(const char* name) { ::setenv("TZ", name, 1); }

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
        setZone(row.zone);
        LogLine line;
        LogDateFormat().append(line, row.date);
        EXPECT_EQ(line.text(), row.expected);
    }
}

TEST(LogFormatter, WritesTheFieldsInTheirOrder) {
    setZone("UTC0");
    const LogMetadata none, two{{"itemID", "c7|a \"b\""}, {"empty", ""}, {"domain", "c7"}};
    LogMessage message{.level = LogLevel::notice,
                       .message = "Bad \"answer\"\n",
                       .tag = "TAG",
                       .function = "port(forDomain:canRetry:)",
                       .file = "BrindlemarFileProvider/BxMessages.cpp",
                       .line = 412,
                       .information = none,
                       .label = "LABEL",
                       .date = sys_days{2024y / 3 / 6} + 42ms,
                       .threadID = 18446744073709551615u};
    EXPECT_EQ(LogFormatter().formatMessage(message),
              R"(t=2024-03-06T00:00:00.042Z level=NOTICE msg="Bad \"answer\"\n" thread=18446744073709551615  )"
              R"-(location="BrindlemarFileProvider/BxMessages:412" function="port(forDomain:canRetry:)")-");
    EXPECT_NE(LogFormatter()
                  .formatMessage({.information = two, .threadID = 7})
                  .find(R"( thread=7 itemID="c7|a \"b\"" domain="c7" location=)"),
              std::string::npos);
    EXPECT_NE(LogFormatter()
                  .formatMessage({.file = "Module/a/BrindlemarFileProvider+Servicing.x.cpp", .information = none})
                  .find(R"(location="Module/BrindlemarFileProvider+Servicing.x:0")"),
              std::string::npos);
}

TEST(LogNames, TheFileIsNamedByTheBundleIdentifiersLastPiece) {
    const std::pair<const char*, std::optional<std::string>> rows[] = {{"a.b.c", "Logs/Brindlemar/c.log"},
                                                                       {"a.b..", "Logs/Brindlemar/b.log"},
                                                                       {"one", "Logs/Brindlemar/one.log"},
                                                                       {"..", {}},
                                                                       {"", {}}};
    for (const auto& [identifier, file] : rows) EXPECT_EQ(LogNames::of(identifier).file, file) << identifier;
}

} // namespace
} // namespace brindlemar
