#include "cli/FakeService.h"
#include "cli/ProgressBar.h"
#include "cli/ViewPath.h"

#include <gtest/gtest.h>

namespace brindlemar::cli {
namespace {

std::string said(const std::string& path, const ViewPlaces& places) {
    try {
        return pathInView(path, places);
    } catch (const Failure& failure) {
        return failure.exit == Exit::usage ? std::string("? ") + failure.what() : failure.what();
    }
}

TEST(ViewPaths, AreTheViewsOwnOrLeadBelowTheMount) {
    const ViewPlaces inside{{"/home/u/Brindlemar", "/disk/u/Brindlemar/"}, "/disk/u/Brindlemar/Work/deep"};
    const ViewPlaces outside{{"/home/u/Brindlemar"}, "/home/u"}, none{{}, "/home/u"};
    const std::tuple<const ViewPlaces&, const char*, const char*> rows[] = {
        {none, "Work/photos", "Work/photos"},
        {none, "Work//a/./b/../c/", "Work/a/c"},
        {none, "Work/..", ""},
        {none, ".hidden/..more", ".hidden/..more"},
        {none, "Work/../../x", "? \"Work/../../x\" leads out of the view"},
        {none, "", "? \"\" is no path"},
        {none, "/home/u/Brindlemar/a", "? \"/home/u/Brindlemar/a\" is none of the view's"},
        {none, "./a", "? \"./a\" is none of the view's"},
        {outside, "/home/u/Brindlemar/Work/a", "Work/a"},
        {outside, "/home//u/./x/../Brindlemar/", ""},
        {outside, "/home/u/Brindlemars/a",
         "? \"/home/u/Brindlemars/a\" is not below the service's mount, "
         "\"/home/u/Brindlemar\""},
        {outside, "/home/u/Brindlemar/../a", "? "},
        {outside, "/", "? "},
        {outside, "/../../home/u/Brindlemar/a", "a"},
        {outside, ".", "? "},
        {outside, "./Brindlemar/a", "a"},
        {outside, "Brindlemar/a", "Brindlemar/a"},
        {inside, ".", "Work/deep"},
        {inside, "./x", "Work/deep/x"},
        {inside, "..", "Work"},
        {inside, "../../Home", "Home"},
        {inside, "../../..", "? "},
        {inside, "/home/u/Brindlemar", ""},
    };
    for (const auto& [places, path, expected] : rows) {
        const std::string got = said(path, places), wanted = expected;
        EXPECT_TRUE(wanted.starts_with("? ") ? got.starts_with(wanted) : got == wanted) << path << ": " << got;
    }
}

struct ServiceCommandsTest : ::testing::Test {
    std::string operator()(const Strings& words, bool terminal = false) { return run(service, words, terminal); }
    FakeService service;
};

TEST_F(ServiceCommandsTest, StatusShowsWhatTheServiceTells) {
    const std::string before = (*this)({"status"});
    EXPECT_EQ(before.find("Mount"), before.npos) << "an older service tells of none";
    const std::pair<const char*, const char*> rows[] = {
        {R"("mount":null)", "Mount        none\n"},
        {R"("mount":{"path":"/m","mounted":true,"error":null})", "Mount        /m\n"},
        {R"("mount":{"path":"/m","mounted":false,"error":"no fuse"})", "Mount        /m, not mounted: no fuse\n"},
        {R"("mount":{"path":"/m\u001b"})", "Mount        /m\\x1b, not mounted\n"},
        {R"("queue":{"length":3})", "Queue        3 waiting\n"},
        {R"("queue":{"length":-3})", "Queue        0 waiting\n"},
        {R"("transfers":[{"kind":"fetch","path":"Work/a.bin","completed":2,"total":5},7,)"
         R"({"kind":"upload","path":"b","completed":9,"total":5},{"kind":"upload","path":"c","completed":0,"total":0}])",
         "Transfer     fetch Work/a.bin 40 %\nTransfer     upload b 100 %\nTransfer     upload c\n"},
        {R"("failures":[{"path":"a","text":"no"},{"path":"b","error":{"domain":"D","code":5}}],"failureCount":2)",
         "Failed       a: no\nFailed       b: The operation couldn\u2019t be completed. (D error 5.)\n"},
        {R"("failures":[{"path":"a","text":"no"}],"failureCount":104)",
         "Failed       a: no\n             and 103 more\n"},
        {R"("queue":7,"transfers":{},"failures":null,"failureCount":"x")", ""},
    };
    for (const auto& [members, printed] : rows) {
        service.status = std::string("{") + members + "}";
        const std::string text = (*this)({"status"}, true), start = "Requests     0 waiting\n";
        ASSERT_NE(text.find(start), text.npos);
        EXPECT_EQ(text.substr(text.find(start) + start.size()), printed) << members;
        EXPECT_EQ((*this)({"status", "--json"}), service.status + "\n");
    }
}

TEST_F(ServiceCommandsTest, CallsAboutTheMountSendTheirArgumentsAndShowWhatCame) {
    service.status = R"({"mount":{"path":"/home/u/Brindlemar","mounted":true}})";
    const std::string done = completion(R"("item":null,"error":null)");
    struct Row {
        Strings words;
        std::string call, event, printed;
    };
    const Row rows[] = {
        {{"evict", "Work/a"},
         R"(evict {"path":"Work/a"})",
         R"({"event":"evicted","files":12,"bytes":3400000})",
         "Freed 12 files, 3.4 MB\n"},
        {{"evict", "/home/u/Brindlemar/Work/a"},
         R"(evict {"path":"Work/a"})",
         R"({"event":"evicted","files":1,"bytes":0})",
         "Freed 1 file, 0 B\n"},
        {{"fetch", "/home/u/Brindlemar"},
         R"(bring {"path":""})",
         R"({"event":"progress","completed":1,"total":2})",
         ""},
        {{"retry"}, "retry {}", R"({"event":"retried","count":3})", "Trying 3 again\n"},
        {{"unmount"}, R"(unmount {"wait":false})", R"({"event":"queue","length":1})", ""},
        {{"unmount", "--wait"}, R"(unmount {"wait":true})", R"({"event":"queue","length":1})", ""},
    };
    for (const Row& row : rows) {
        const std::string operation = row.call.substr(0, row.call.find(' ')), line = row.event + "\n";
        const auto with = [&](const std::string& answer, bool json = false) {
            service.answers[operation] = answer;
            service.calls.clear();
            Strings words = row.words;
            if (json) words.push_back("--json");
            const std::string text = (*this)(words);
            EXPECT_EQ(service.calls, Strings{row.call});
            return text;
        };
        EXPECT_EQ(with(line + done), row.printed);
        EXPECT_EQ(with(line + done, true), line + done);
        EXPECT_TRUE(with(line).starts_with(row.printed + "exit 1: The service did not answer in full")) << row.call;
        EXPECT_EQ(with(error(-1004), true), error(-1004) + "exit 4: Please Launch Brindlemar to continue syncing.");
        EXPECT_TRUE(with(error(-1005)).starts_with("exit 3: There is no ")) << row.call;
        const std::string busy = error(-2005).insert(1, R"("text":"\"a\" is open.\u001b",)");
        EXPECT_EQ(with(line + busy), row.printed + "exit 1: \"a\" is open.\\x1b") << "the service's own words";
    }
    service.calls.clear();
    for (const Strings& wrong : std::initializer_list<Strings>{
             {"evict"}, {"evict", ""}, {"fetch", "/etc/x"}, {"fetch", "../../.."}, {"retry", "x"}, {"unmount", "x"}})
        EXPECT_TRUE((*this)(wrong).starts_with("exit 2: ")) << wrong.back();
    EXPECT_EQ(service.calls, Strings());
    const std::string manual = (*this)({"man"}), script = (*this)({"completion", "bash"});
    for (const char* name : {"evict", "fetch", "retry", "unmount"})
        EXPECT_TRUE(manual.find(std::string("brindlemar ") + name) != manual.npos && script.find(name) != script.npos);
}

TEST(FileProgress, CountsFilesAndNeverFalls) {
    EXPECT_EQ(progressLine({"Work", 6, 12, 50, 6, Amount::files}, 80),
              "Work  [##########          ]  50%  6 of 12 files  0:06 left");
    Text errors;
    Notices notices(errors.file, true);
    {
        ProgressBar bar(notices, "n", Amount::files);
        bar.set(3, 4);
    }
    EXPECT_NE(errors.get().find("75%  3 of 4 files"), std::string::npos);
    ProgressBar bar(notices, "n", Amount::files);
    bar.set(9, 4);
    EXPECT_NE(errors.get().find("100%  4 of 4 files"), std::string::npos) << errors.get();
}

} // namespace
} // namespace brindlemar::cli
