#include "fakes/FakePlatform.h"
#include "items/ItemIdentifiers.h"
#include "platform/Enumerator.h"
#include "support/JSON.h"
#include "support/OnceCompletion.h"
#include "support/RepeatingTimer.h"
#include "support/StringHelpers.h"
#include "support/TextForms.h"

#include <gtest/gtest.h>

#include <cmath>
#include <latch>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

TEST(JSONTests, WhatIsMissingOrOfTheWrongKindIsNull) {
    const JSON json = JSON::parse(R"({"t":"x","n":1.5,"b":true,"z":null,"a":[1,"two"],"big":18446744073709551615})");
    EXPECT_EQ(json["t"].string(), "x");
    EXPECT_TRUE(json["t"]["deeper"][7].isNull());
    EXPECT_TRUE(json[0].isNull());
    EXPECT_EQ(json["a"][1].stringValue(), "two");
    EXPECT_EQ(json["a"][2].string(), std::nullopt);
    EXPECT_EQ(json["n"].stringValue() + json["b"].stringValue() + json["z"].stringValue(), "1.5true");
    EXPECT_EQ(json["b"].number()->int64Value(), 1);
    EXPECT_FALSE(json["t"].number());
    std::string pairs;
    json["a"].forEach(
        [&](std::string_view key, const JSON& value) { pairs.append(key) += "=" + value.stringValue() + ";"; });
    EXPECT_EQ(pairs, "0=1;1=two;");
    for (const char* invalid : {"", "7", "\"t\"", "null", "{", "[1,]", "{\"a\":\"\xff\"}", "[\"\\ud800\"]", "[1] x"})
        EXPECT_TRUE(JSON::parse(invalid).isNull()) << invalid;
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_FALSE(JSON::parse(nested(512)).isNull());
    EXPECT_TRUE(JSON::parse(nested(513)).isNull());
    EXPECT_TRUE(JSON::parse(nested(100'000)).isNull());
}

TEST(JSONTests, NumbersKeepTheirLowBits) {
    const std::pair<std::string, int> cases[] = {
        {"70000", 4464},   {"-1", 65535},  {"420.9", 420},   {"\"420abc\"", 420}, {"\"420.9\"", 420},
        {"\"-1\"", 65535}, {"\"abc\"", 0}, {"\"\"", 0},      {"\"inf\"", 0},      {"\"+7\"", 7},
        {"true", 1},       {"null", 0},    {"1e400", 65535}, {"-1e400", 0},       {"18446744073709551615", 65535}};
    for (const auto& [text, bits] : cases) EXPECT_EQ(JSON::parse("[" + text + "]")[0].uInt16Value(), bits) << text;
}

TEST(TextTests, PrintedAndSerialisedForms) {
    EXPECT_EQ(JSON::parse(R"({"a":["x/y",1.0,null],"e":[],"o":{}})").description(),
              "{\n  \"a\" : [\n    \"x\\/y\",\n    1,\n    null\n  ],\n  \"e\" : [\n\n  ],\n  \"o\" : {\n\n  }\n}");
    std::string grows(511, '['); // a thousandfold
    for (int i = 0; i < 140'000; ++i) grows += i ? ",0" : "0";
    EXPECT_EQ(JSON::parse(grows + std::string(511, ']')).description(), "unknown");
    EXPECT_EQ(JSON::object({{"n", 5}, {"t", "a/\"b"}}).serialized(), R"({"n":5,"t":"a/\"b"})");
    EXPECT_EQ(JSON::object({{"t", "\xff"}}).serialized(), std::nullopt);
    std::string doubles;
    for (const double value : {1.25, 3.0, 0.0, -0.75, 1e-4, 1e-5, 9007199254740992.0, 1e16, 0.1})
        doubles += shortestText(value) + " ";
    EXPECT_EQ(doubles, "1.25 3.0 0.0 -0.75 0.0001 1e-05 9007199254740992.0 1e+16 0.1 ");
    EXPECT_EQ(printedList({"a\"b", "c'\\\n\x7f\x01é"}), "[\"a\\\"b\", \"c\\'\\\\\\n\\u{7F}\\u{1}é\"]");
    EXPECT_EQ(absoluteString({"/a b/é#%+&.txt"}), "file:///a%20b/%C3%A9%23%25+&.txt");
    EXPECT_TRUE(propertyList({}).ends_with("\n<array/>\n</plist>\n"));
}

TEST(IdentifierTests, ResolutionPagesAndConnections) {
    EXPECT_EQ(resolveIdentifier("d1|42"), (ResolvedIdentifier{"d1", "42", true}));
    EXPECT_EQ(resolveIdentifier("d1|a|b"), (ResolvedIdentifier{"d1", "a", true}));
    EXPECT_EQ(resolveIdentifier("plain"), (ResolvedIdentifier{"brindlemar", "plain", false}));
    EXPECT_EQ(resolveIdentifier("|"), (ResolvedIdentifier{"", "", true}));
    EXPECT_EQ(NSFileProviderPage(std::string("\5\1\0\0\0\0\0\0zz", 10)).toInt64(), 261);
    EXPECT_EQ(NSFileProviderPage(std::string(8, '\xff')).toInt64(), -1);
    EXPECT_EQ(NSFileProviderPage(std::string(NSFileProviderInitialPageSortedByDate)).toInt64(), 0);
    EXPECT_EQ(connectedDomains({"x|d1|y", "plain", "p||q", "||", "|a|b"}), (std::vector<std::string>{"d1", "q", "b"}));
}

TEST(OnceCompletionTests, OneOfManyThreadsIsHeard) {
    for (int round = 0; round < 500; ++round) {
        std::atomic<int> calls{0}, won{0};
        std::latch start(3);
        {
            const OnceCompletion<int> completion([&](int) { ++calls; }, {-1});
            std::vector<std::jthread> threads;
            for (int i = 0; i < 3; ++i)
                threads.emplace_back([&, completion] {
                    start.arrive_and_wait();
                    won += completion(1);
                });
        }
        ASSERT_EQ(calls, 1);
        ASSERT_EQ(won, 1);
    }
    int result = 0;
    OnceCompletion<int>([&](int value) { result = value; }, {-2005}); // forgotten
    EXPECT_EQ(result, -2005);
}

TEST(StringHelperTests, Table) {
    const std::string flags = "🇩🇪🇫🇷", accent = "e\u0301";
    const struct {
        std::string text;
        std::ptrdiff_t length;
        std::string result;
    } cuts[] = {{"abc", 3, "abc"},
                {"abcd", 3, "abc…"},
                {"", 0, ""},
                {"a", 0, "…"},
                {"a", -1, "…"},
                {flags, 1, "🇩🇪…"},
                {flags, 2, flags},
                {accent + "x", 1, accent + "…"},
                {"\r\nx", 1, "\r\n…"},
                {"👩‍👩‍👧x", 1, "👩‍👩‍👧…"},
                {"\xff\xffx", 2, "\xff\xff…"}};
    for (const auto& [text, length, result] : cuts) EXPECT_EQ(trunc(text, length, "…"), result) << text;
    const std::array<std::string, 3> paths[] = {{"/a/b/c.tar.gz", "c.tar", "gz"},
                                                {"/a/b/c", "c", ""},
                                                {"/a/.bashrc", ".bashrc", ""},
                                                {"a.", "a.", ""},
                                                {"/a/..", "..", ""},
                                                {"/a/b.d//", "b", "d"},
                                                {"/", "/", ""},
                                                {"", "", ""},
                                                {"..x.y", "..x", "y"}};
    for (const auto& [path, name, extension] : paths) {
        EXPECT_EQ(fileName(path), name) << path;
        EXPECT_EQ(fileExtension(path), extension) << path;
    }
}

TEST(RepeatingTimerTests, PausesAndEnds) {
    FakePlatform platform;
    int ticks = 0;
    const auto after = [&](std::chrono::milliseconds time) {
        platform.backgroundQueue.advance(time);
        return std::exchange(ticks, 0);
    };
    auto timer = std::make_unique<RepeatingTimer>(0.5);
    timer->setEventHandler([&] { ++ticks; });
    timer->suspend();
    EXPECT_EQ(after(2s), 0);
    timer->resume();
    timer->resume();
    EXPECT_EQ(after(499ms), 0);
    EXPECT_EQ(after(1001ms), 3);
    timer->suspend();
    EXPECT_EQ(after(2s), 0);
    timer->resume();
    EXPECT_EQ(after(1ms), 1); // what fell into the pause comes once
    timer->setEventHandler(nullptr);
    EXPECT_EQ(after(2s), 0);
    timer->setEventHandler([&] { ++ticks; });
    EXPECT_EQ(after(500ms), 1);
    timer->setEventHandler([&, also = timer->eventHandler()] { also(), timer.reset(); });
    EXPECT_EQ(after(2s), 1); // a handler may end its timer
    for (const double never : {1e300, std::nan("")}) {
        timer = std::make_unique<RepeatingTimer>(never);
        timer->setEventHandler([&] { ++ticks; });
        timer->resume();
    }
    RepeatingTimer(1).suspend();
    EXPECT_EQ(after(2s), 0);
}

} // namespace
} // namespace brindlemar
