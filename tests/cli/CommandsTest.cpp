#include "cli/FakeService.h"
#include "cli/LiveControl.h"
#include "cli/Text.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <thread>

namespace brindlemar::cli {
namespace {

const std::string kMissing = R"(. See what there is with "brindlemar ls".)";
const std::string kLaunch = "exit 4: Please Launch Brindlemar to continue syncing.";

Strings words(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

struct CommandsTest : ::testing::Test {
    CommandsTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        service.answers[std::string("browse ") + kRoot] =
            page(item("c7|0", "Work", true) + "," + item("h2|0", "Home", true));
        service.answers["browse c7|0"] =
            page(item("c7|photos", "photos", true), R"("AgAAAA==")") +
            page(item("c7|n.txt", "n.txt", false, 1234) + "," + item("c7|e\\u001b", "e\\u001b[0m", false, 5));
        service.answers["browse c7|photos"] = page(item("c7|photos/a", "a") + "," + item("c7|photos/in", "in", true));
        service.answers["browse c7|photos/in"] = page(item("c7|photos/in/b", "b"));
        service.answers["browse h2|0"] = page("");
    }
    std::string operator()(const std::string& line, bool terminal = false) {
        return run(service, words(line), terminal);
    }
    /// The calls of a command that change something.
    Strings changes(const std::string& line, const std::string& ending = "") {
        service.calls.clear();
        EXPECT_EQ((*this)(line), ending) << line;
        const auto forgets = [](const std::string& call) { return call == "forget {}"; };
        EXPECT_TRUE(service.calls.size() >= 2 && forgets(service.calls.front()) && forgets(service.calls.back()));
        std::erase_if(service.calls, forgets);
        return service.calls;
    }
    FakeService service;
    TemporaryDirectory here;
};

TEST_F(CommandsTest, PathsAreFoundByNames) {
    const std::pair<const char*, std::string> cases[] = {
        {"ls", "Home\nWork\n"},
        {"ls /Work//photos/", "a\nin\n"},
        {"ls Work/n.txt", "n.txt\n"},
        {"ls Home", ""},
        {"ls Work/missing/x", R"(exit 3: There is no "Work/missing")" + kMissing},
        {"ls Work/n.txt/x", R"(exit 3: "Work/n.txt" is no folder, so there is nothing in it.)"},
        {"ls work", R"(exit 3: There is no "work")" + kMissing},
        {"ls status", R"(exit 3: There is no "status")" + kMissing},
        {"ls Work/photos/in --json", item("c7|photos/in/b", "b") + "\n"},
        {"tree Work/photos", "Work/photos\n├── a\n└── in\n    └── b\n\n1 folder, 2 files\n"},
    };
    for (const auto& [line, printed] : cases) EXPECT_EQ((*this)(line), printed) << line;
    EXPECT_EQ((*this)("ls -l Work", true), "-    5  2022-08-03 14:51  e\\x1b[0m\n"
                                           "- 1234  2022-08-03 14:51  n.txt\n"
                                           "d    0  2022-08-03 14:51  photos\n");
    EXPECT_EQ(escaped("a\n\t\r\x07\x7f\\\xc2\x85\xffü\u2028"), "a\\n\\t\\r\\x07\\x7f\\\\\\xc2\\x85\\xffü\u2028");
}

TEST_F(CommandsTest, MissingHostIsSaid) {
    for (const char* status : {R"({"domain":{"state":"disconnected"},"configured":true})",
                               R"({"domain":{"state":"connected"},"configured":false})", "{}"}) {
        service.status = status;
        for (const char* line : {"ls Home", "ls Other", "search x", "mkdir Home/new"})
            EXPECT_EQ((*this)(line), kLaunch) << line << status;
        EXPECT_EQ((*this)("ls Work/photos/in"), "b\n") << "what is there is shown";
    }
    service.status = R"({"domain":{"identifier":"i","state":"disconnected","since":1659538288,"reason":"r"}})";
    EXPECT_NE((*this)("status").find("i, disconnected since 2022-08-03 14:51: r\n"), std::string::npos);
    service.answers["fetch"] = service.answers["create"] = error(-2005);
    for (const std::string line : {"get Work/n.txt ", "get Work/photos ", "put /etc/hostname Work/"})
        EXPECT_EQ((*this)(line + (line[0] == 'g' ? here / "x" : "")), kLaunch) << line << "lost in the middle";
}

TEST_F(CommandsTest, ErrorsOfTheServiceBecomeExitStatuses) {
    const std::string broken = R"(exit 1: The service did not answer in full: "item" of "c7|x" has no end)" +
                               std::string(R"(. Look at "brindlemar status".)");
    const std::pair<std::string, std::string> cases[] = {
        {error(-1005), R"(exit 3: There is no "c7|x")" + kMissing},
        {error(-1004), kLaunch},
        {error(-2005), R"(exit 1: "c7|x": The host could not do this. Look at what it says, then try again.)"},
        {error(640, "NSCocoaErrorDomain"),
         R"(exit 1: "c7|x": There is no room left on the disk. Free some with "brindlemar evict".)"},
        {error(642, "NSCocoaErrorDomain"), "exit 1: \"c7|x\": The operation couldn\u2019t be completed. "
                                           "(NSCocoaErrorDomain error 642.) The service's log may say more."},
        {"", broken},
        {"garbage\n[]\n{\"event\":7}\n", broken},
    };
    for (const auto& [answer, ending] : cases) {
        service.answers["c7|x"] = answer;
        EXPECT_EQ((*this)("call item c7|x"), ending);
        EXPECT_EQ((*this)("call item c7|x --json"), answer + ending) << "lines pass unchanged";
    }
    service.answers["browse c7|photos"] = "{\"event\":\"items\",\"items\":[]}\n";
    EXPECT_NE((*this)("ls Work/photos").find(R"(the listing of "Work/photos" has no end)"), std::string::npos);
}

TEST_F(CommandsTest, CallsPassTheirArgumentsAndShowTheirEvents) {
    const std::pair<const char*, std::string> cases[] = {
        {"call item c7|x", R"(item {"id":"c7|x"})"},
        {"call list c7|0", R"(list {"pageSize":200,"id":"c7|0"})"},
        {"call list c7|0 --page-size 3", R"(list {"pageSize":3,"id":"c7|0"})"},
        {"call changes c7|0", R"(changes {"id":"c7|0"})"},
        {"call anchor c7|0", R"(anchor {"id":"c7|0"})"},
        {"call fetch c7|x", R"(fetch {"id":"c7|x"})"},
        {"call delete c7|x", R"(delete {"id":"c7|x"})"},
        {"call create c7|0 new", R"(create {"parent":"c7|0","name":"new"})"},
        {"call create c7|0 new /f --mtime 5.25", R"(create {"parent":"c7|0","name":"new","file":"/f","mtime":"5.25"})"},
        {"call modify c7|x --fields contents,filename --file /f --name n --parent c7|0 --mtime -1 --atime 2 --flags 6",
         R"(modify {"id":"c7|x","fields":"contents,filename","name":"n","parent":"c7|0","file":"/f","mtime":"-1",)"
         R"("atime":"2","flags":6})"}};
    for (const auto& [line, call] : cases) {
        service.calls.clear();
        (*this)(line);
        EXPECT_EQ(service.calls, Strings{call}) << line;
    }
    const std::string listing = service.answers["list c7|0"] = service.answers["browse c7|0"];
    EXPECT_EQ((*this)("call list c7|0 --json"), listing);
    EXPECT_EQ((*this)("call list c7|0"), "c7|photos  folder  photos\n-- next page AgAAAA==\nc7|n.txt  1234 bytes  "
                                         "n.txt\nc7|e\x1b  5 bytes  e\x1b[0m\n-- 3 items in 2 pages\n");
    service.answers["changes"] = R"({"event":"updated","items":[)" + item("c7|y", "y") + "]}\n" +
                                 R"({"event":"deleted","identifiers":["c7|z"]})" + "\n" +
                                 R"({"event":"finish","anchor":"A","moreComing":false})" + "\n";
    EXPECT_EQ((*this)("call changes c7|0"), "updated  c7|y  0 bytes  y\ndeleted  c7|z\n-- anchor A\n");
    service.answers["watch"] = service.answers["changes"];
    service.answers["item c7|photos"] = completion(R"("item":{"filename":"photos","parentItemIdentifier":"c7|0"})");
    service.answers["watch"].replace(service.answers["watch"].find("\"filename\""), 0,
                                     R"("parentItemIdentifier":"c7|photos",)");
    EXPECT_TRUE(
        (*this)("watch").starts_with("updated  Work/photos/y\ndeleted  c7|z\nexit 1: The service ended the watch"));
    EXPECT_TRUE(
        (*this)("watch Work --json").starts_with(service.answers["watch"] + "exit 1: The service ended the watch"));
    service.answers["search"] = page(item("c7|q", "q")) + completion("\"error\":null");
    EXPECT_EQ((*this)("search q"), "c7|q\n");
    EXPECT_EQ((*this)("search q --json"), item("c7|q", "q") + "\n");
}

TEST_F(CommandsTest, WrongUsageIsRefusedBeforeTheServiceIsAsked) {
    for (const char* line : {"",
                             "nothing",
                             "ls a b",
                             "ls -x",
                             "get",
                             "put x",
                             "rm",
                             "mv a",
                             "call",
                             "call item",
                             "call modify c7|x",
                             "call modify c7|x --fields contents,colour",
                             "call create c7|0 n --mtime soon",
                             "call list c7|0 --page-size 0",
                             "call create c7|0 n --mtime 1e99",
                             "call modify c7|x --fields contents --flags many",
                             "admin",
                             "admin getAll",
                             "admin getACL",
                             "admin setBucketPolicy c7|b",
                             "admin getACL c7|b --policy x",
                             "admin getACL d|b --domain c7",
                             "admin setBucketVersioning c7|b --enable maybe",
                             "admin createBucket --name n --region r",
                             "admin getACL /",
                             "completion csh",
                             "\xff"})
        EXPECT_TRUE((*this)(line).starts_with("exit 2: ")) << line << ": " << (*this)(line);
    EXPECT_EQ(service.calls, Strings());
}

TEST_F(CommandsTest, EveryAdministrationMethodSendsItsKeys) {
    std::ofstream(here / "policy") << "{\"a\": 1}\n";
    const std::string file = "@" + here / "policy";
    const std::string id = R"("identifier":"b")";
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"getACL", "c7|b", id},
        {"getBucketPolicy", "c7|b", id},
        {"setBucketPolicy", "c7|b --policy " + file, id + R"(,"policy":"{\"a\": 1}\n")"},
        {"getBucketReplication", "c7|b", id},
        {"setBucketReplication", "c7|b --replication x", id + R"(,"replication":"x")"},
        {"getBucketCORS", "c7|b --domain c7", id},
        {"setBucketCORS", "c7|b --cors x", id + R"(,"cors":"x")"},
        {"getBucketLifecycle", "c7|b", id},
        {"setBucketLifecycle", "c7|b --lifecycle x", id + R"(,"lifecycle":"x")"},
        {"getBucketVersioning", "c7|b", id},
        {"setBucketVersioning", "c7|b --enable true", id + R"(,"enable":true)"},
        {"getBucketAcceleration", "c7|b", id},
        {"setBucketAcceleration", "c7|b --enable false", id + R"(,"enable":false)"},
        {"getBucketEncryption", "c7|b", id},
        {"setBucketEncryption", "c7|b --encryptionType t --encryptionKeyID k",
         id + R"(,"encryptionType":"t","encryptionKeyID":"k")"},
        {"getBucketLogging", "c7|b", id},
        {"signURL", "Work/photos/a", R"("identifier":"photos/a")"},
        {"createBucket", "--domain c7 --name n --region r", R"("name":"n","region":"r")"},
        {"getObjectMetadata", "Work", R"("identifier":"0")"},
        {"getObjectURL", "c7|b --expiration 60", id + R"(,"expiration":"60")"},
        {"initiateGlacierRestore", "c7|b --tier t --days 3", id + R"(,"tier":"t","days":"3")"},
        {"setObjectEncryption", "c7|b --encryptionKeyID k --encryptionType t",
         id + R"(,"encryptionKeyID":"k","encryptionType":"t")"},
        {"setObjectStorageClass", "c7|b --storageClass s", id + R"(,"storageClass":"s")"},
        {"listKMS", std::string(kRoot) + " --domain c7", R"("identifier":")" + std::string(kRoot) + "\""},
        {"listKMSKeys", "c7|b", id},
    };
    const std::string manual = (*this)("man"), script = (*this)("completion bash") + (*this)("completion fish");
    service.answers["admin"] = completion(R"("reply":"<a>\\\n\u0007</a>","error":null)");
    for (const auto& [method, arguments, sent] : rows) {
        service.calls.clear();
        EXPECT_EQ((*this)("admin " + std::string(method) + " " + arguments), "<a>\\\n\x07</a>\n") << method;
        ASSERT_EQ(service.calls.size(), 1u);
        const auto expected = R"({"method":")" + std::string(method) + R"(","domain":"c7",)" + sent + "}";
        EXPECT_EQ(boost::json::parse(service.calls[0].substr(6)), boost::json::parse(expected)) << service.calls[0];
        for (const std::string& text : {manual, script}) EXPECT_NE(text.find(method), std::string::npos) << method;
    }
    service.answers["admin"] = completion(R"("reply":"{\"error\":\"No\"}","error":null)");
    EXPECT_EQ((*this)("admin getACL c7|b"), "{\"error\":\"No\"}\nexit 1: The host refused: No");
    service.answers["admin"] = error(-1004);
    EXPECT_EQ((*this)("admin getACL c7|b"), kLaunch);
}

TEST_F(CommandsTest, FoldersAreMadeAndItemsMovedWithinTheirConnection) {
    const std::string there = R"( is there already)";
    const auto refused = [](const std::string& what) { return "exit 1: " + what; };
    const std::string exists = ". Remove it first, or name another.";
    EXPECT_TRUE(changes("mkdir Work/new")[0].starts_with(R"(create {"parent":"c7|0","name":"new","mtime":")"));
    EXPECT_EQ(changes("mkdir Work/photos", refused(R"(There is already "Work/photos")" + exists)), Strings());
    const std::pair<const char*, const char*> moves[] = {
        {"mv Work/n.txt Work/m.txt", R"(modify {"id":"c7|n.txt","name":"m.txt","fields":"filename"})"},
        {"mv Work/n.txt Work/photos",
         R"(modify {"id":"c7|n.txt","parent":"c7|photos","fields":"parentItemIdentifier"})"},
        {"mv Work/n.txt Work/photos/m",
         R"(modify {"id":"c7|n.txt","name":"m","parent":"c7|photos","fields":"filename,parentItemIdentifier"})"}};
    for (const auto& [line, call] : moves) EXPECT_EQ(changes(line), Strings{call}) << line;
    for (const auto& [line, why] : std::initializer_list<std::pair<const char*, const char*>>{
             {"mv Work/n.txt Work/photos/a", "already"},
             {"mv Work/photos Work/photos/in", "into itself"},
             {"mv Work/n.txt Home", "\"brindlemar put\""},
             {"mv Work Home", "Only a host application"},
             {"mv Work/n.txt /", "Only a host application"},
             {"mkdir New", "Only a host application"},
             {"put /etc/hostname /", "Only a host application"}}) {
        service.calls.clear();
        const std::string said = (*this)(line);
        EXPECT_TRUE(said.starts_with("exit 1: ") && said.find(why) != said.npos) << line << ": " << said;
        EXPECT_EQ(service.calls, (Strings{"forget {}", "forget {}"})) << line;
    }
}

TEST_F(CommandsTest, RemovalGoesFromTheInmostAndIsChecked) {
    const std::string deletion = R"(delete {"id":"c7|)", question = R"(path {"id":"c7|)";
    const Strings calls = changes("rm -r Work/photos Work/n.txt");
    ASSERT_EQ(calls.size(), 7u);
    EXPECT_EQ((std::set(calls.begin(), calls.begin() + 2)),
              (std::set{deletion + "photos/a\"}", deletion + "photos/in/b\"}"}));
    EXPECT_EQ(Strings(calls.begin() + 2, calls.end()),
              (Strings{deletion + "photos/in\"}", deletion + "photos\"}", deletion + "n.txt\"}", question + "photos\"}",
                       question + "n.txt\"}"}));
    service.answers["path"] = completion(R"("reply":"/photos","error":null)");
    EXPECT_NE((*this)("rm Work/n.txt").find(R"(exit 1: "Work/n.txt" is still there)"), std::string::npos);
    service.answers["delete c7|photos/in/b"] = error(-2005);
    service.calls.clear();
    EXPECT_TRUE((*this)("rm -r Work/photos").starts_with("exit 1: "));
    EXPECT_EQ(std::ranges::count(service.calls, deletion + "photos\"}"), 0) << "a folder whose contents stayed";
    EXPECT_EQ(changes("rm Work/photos Work/none Work",
                      R"(exit 1: "Work/photos" is a folder. Remove it and all below it with "brindlemar rm -r".)"
                      "\nThere is no \"Work/none\"" +
                          kMissing + "\n\"Work\" is not removed: only its host application can end a connection."),
              Strings());
}

TEST(Lines, ArriveWholeHoweverTheyAreCut) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    FileDescriptor reading(ends[0]), writing(ends[1]);
    const std::string longLine(200'000, 'x');
    std::jthread writer([&] {
        for (const std::string& piece : {std::string("a\nb"), std::string("c\n\n"), longLine, std::string("\nlast")})
            ASSERT_EQ(::write(writing.get(), piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        writing = FileDescriptor();
    });
    Strings lines;
    readLines(reading, [&](std::string_view line) {
        lines.emplace_back(line);
        return true;
    });
    EXPECT_EQ(lines, (Strings{"a", "bc", "", longLine, "last"}));
}

} // namespace
} // namespace brindlemar::cli
