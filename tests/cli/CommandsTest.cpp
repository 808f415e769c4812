#include "cli/Commands.h"
#include "cli/Failure.h"
#include "cli/Items.h"
#include "cli/LiveControl.h"
#include "cli/Text.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <functional>
#include <map>
#include <sstream>

namespace brindlemar::cli {
namespace {

constexpr const char* kRoot = "NSFileProviderRootContainerItemIdentifier";
using Strings = std::vector<std::string>;

std::string item(const std::string& id, const std::string& name, const std::string& kind, int size = 0) {
    return R"({"itemIdentifier":")" + id + R"(","filename":")" + name + R"(","contentType":"public.)" + kind +
           R"(","documentSize":)" + std::to_string(size) + R"(,"contentModificationDate":1659538288})";
}
std::string page(const std::string& items, const std::string& next = "null") {
    return R"({"event":"items","items":[)" + items + "]}\n" + R"({"event":"finish","page":)" + next + "}\n";
}
std::string error(int code, const std::string& domain = "NSFileProviderErrorDomain") {
    return R"({"event":"completion","item":null,"error":{"domain":")" + domain + R"(","code":)" + std::to_string(code) +
           "}}\n";
}

/// A service with scripted answers.
struct FakeControl : Control {
    std::optional<std::string> status() override { return statusText; }
    bool callItem(const std::string& identifier, const LineHandler& handler) override {
        const auto found = answers.find(identifier);
        if (found == answers.end()) return false;
        std::istringstream lines(found->second);
        for (std::string line; std::getline(lines, line) && handler(line);) {
        }
        return true;
    }
    bool callList(const std::string& identifier, std::uint32_t, const LineHandler& handler) override {
        return callItem(identifier, handler);
    }
    std::string error() const override { return "gone"; }
    std::map<std::string, std::string> answers;
    std::string statusText = R"({"domain":{"state":"connected"},"configured":true})";
};

struct CommandsTest : ::testing::Test {
    CommandsTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        control.answers[kRoot] = page(item("c7|0", "Work", "folder") + "," + item("h2|0", "Home", "folder"));
        control.answers["c7|0"] =
            page(item("c7|photos", "photos", "folder"), R"("AgAAAA==")") +
            page(item("c7|n.txt", "n.txt", "content", 1234) + "," + item("c7|e\\u001b", "e\\u001b[0m", "content", 5));
        control.answers["c7|photos"] = page(item("c7|photos/a", "a", "content"));
        control.answers["h2|0"] = page("");
    }
    /// What the command prints, then "exit N: message" when it fails.
    std::string run(const std::function<void(Output&)>& command, bool terminal = false) {
        char* text = nullptr;
        std::size_t size = 0;
        std::string ending;
        std::FILE* file = ::open_memstream(&text, &size);
        try {
            Output output(file, terminal);
            command(output);
        } catch (const Failure& failure) {
            ending = "exit " + std::to_string(static_cast<int>(failure.exit)) + ": " + failure.what();
        }
        std::fclose(file);
        ending.insert(0, text, size);
        std::free(text);
        return ending;
    }
    std::string ls(const std::string& path, bool details = false, bool json = false, bool terminal = false) {
        return run([&](Output& output) { printFolder(control, output, {path, details, json}); }, terminal);
    }
    FakeControl control;
};

TEST_F(CommandsTest, PathsAreFoundByNames) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "Home\nWork\n"},
        {"/Work//photos/", "a\n"},
        {"Work/n.txt", "n.txt\n"},
        {"Home", ""},
        {"Work/missing/x", R"(exit 3: There is no "Work/missing". See what there is with "brindlemar ls".)"},
        {"Work/n.txt/x", R"(exit 3: "Work/n.txt" is no folder, so there is nothing in it.)"},
        {"work", R"(exit 3: There is no "work". See what there is with "brindlemar ls".)"}};
    for (const auto& [path, printed] : cases) EXPECT_EQ(ls(path), printed) << path;
}

TEST_F(CommandsTest, ListingShowsDetailsAndEscapesOnATerminalOnly) {
    EXPECT_EQ(ls("Work", true, false, true), R"(-    5  2022-08-03 14:51  e\x1b[0m
- 1234  2022-08-03 14:51  n.txt
d    0  2022-08-03 14:51  photos
)");
    EXPECT_EQ(ls("Work/photos", false, true), item("c7|photos/a", "a", "content") + "\n");
    EXPECT_EQ(run([&](Output& output) { printTree(control, output, "", false); }, true), R"(/
├── Home
└── Work
    ├── e\x1b[0m
    ├── n.txt
    └── photos
        └── a

3 folders, 3 files
)");
    EXPECT_EQ(escaped("a\n\t\r\x07\x7f\\\xc2\x85\xffü\u2028"), "a\\n\\t\\r\\x07\\x7f\\\\\\xc2\\x85\\xffü\u2028");
}

TEST_F(CommandsTest, MissingHostIsSaid) {
    const std::string launch = "exit 4: Please Launch Brindlemar to continue syncing.";
    for (const char* status : {R"({"domain":{"state":"disconnected"},"configured":true})",
                               R"({"domain":{"state":"connected"},"configured":false})", "{}"}) {
        control.statusText = status;
        EXPECT_EQ(ls("Home"), launch) << status;
        EXPECT_EQ(ls("Other"), launch);
        EXPECT_EQ(ls("Work/photos"), "a\n") << "what is there is shown";
    }
}

TEST_F(CommandsTest, ErrorsOfTheServiceBecomeExitStatuses) {
    const std::string broken = "exit 1: The service did not answer in full: ";
    const std::pair<std::string, std::string> cases[] = {
        {error(-1005), R"(exit 3: There is no "c7|x".)"},
        {error(-1004), "exit 4: Please Launch Brindlemar to continue syncing."},
        {error(3072, "NSCocoaErrorDomain"),
         "exit 1: \"c7|x\": The operation couldn\u2019t be completed. (NSCocoaErrorDomain error 3072.)"},
        {"", broken + "the call has no end"},
        {"garbage\n[]\n{\"event\":7}\n", broken + "the call has no end"}};
    for (const auto& [answer, ending] : cases)
        for (const bool json : {false, true}) { // lines pass unchanged
            control.answers["c7|x"] = answer;
            const std::string text = run([&](Output& output) { callItem(control, output, "c7|x", json); });
            EXPECT_TRUE(text.starts_with((json ? answer : "") + ending)) << text;
        }
    control.answers["c7|photos"] = "{\"event\":\"items\",\"items\":[]}\n";
    EXPECT_TRUE(ls("Work/photos").starts_with(broken + R"(the listing of "Work/photos" has no end)"));
    control.answers.erase("c7|photos");
    EXPECT_EQ(ls("Work/photos"), broken + R"(gone. Look at "brindlemar status".)");
}

TEST(Lines, ArriveWholeHoweverTheyAreCut) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    FileDescriptor reading(ends[0]), writing(ends[1]);
    const std::string longLine(200'000, 'x'), text = "a\nbc\n\n" + longLine + "\nlast";
    std::jthread writer([&] {
        for (const std::string& piece : {text.substr(0, 3), text.substr(3)})
            ASSERT_EQ(::write(writing.get(), piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        writing = FileDescriptor();
    });
    Strings lines;
    readLines(reading, [&](std::string_view line) { return lines.emplace_back(line), true; });
    EXPECT_EQ(lines, (Strings{"a", "bc", "", longLine, "last"}));
}

} // namespace
} // namespace brindlemar::cli
