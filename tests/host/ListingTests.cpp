#include "fakes/FakeMessagePorts.h"
#include "fakes/ManualQueue.h"
#include "host/HostFixture.h"
#include "host/ItemID.h"
#include "host/PortServer.h"

#include <sys/fsuid.h>

namespace brindlemar::host {
namespace {

using ListingTests = HostFixture;

TEST_F(ListingTests, ItemsHaveTheFieldsOfTheirFiles) {
    ::chmod((top / "photos/a.jpg").c_str(), 0640);
    const timespec times[2] = {{1000000000, 5}, {1659538288, 999}};
    ::utimensat(AT_FDCWD, (top / "photos/a.jpg").c_str(), times, 0);
    const std::string expected =
        expand("{'name':'a.jpg','size':5,'folder':false,'parentID':'photos',"
               "'itemID':'photos/a.jpg','mtime':1659538288,'atime':1000000000,'permissions':416}");
    EXPECT_EQ(ask("itemForIdentifier", id("photos/a.jpg")), expected);
    EXPECT_TRUE(ask("enumerateItemsJSON", id("photos")).ends_with("," + expected + "]"));
    for (const char* root : {"0", "root", "NSFileProviderRootContainerItemIdentifier"}) {
        run({{"itemForIdentifier", id(root), "{'itemID':'c7','parentID':'00','name':'Work','folder':true}"}});
        EXPECT_EQ(listed(root), (Strings{"note.txt", "photos"}));
    }
}

TEST_F(ListingTests, NothingLeadsOutOfTheDirectory) {
    fs::create_symlink(outside / "staged", top / "link");
    fs::create_directory_symlink(outside, top / "out");
    fs::create_directory_symlink("photos", top / "inside");
    ::mkfifo((top / "pipe").c_str(), 0600);
    for (const auto way : {TopDirectory::Way::whole, TopDirectory::Way::byName}) {
        start(way);
        for (const char* bad : {"../staged", "photos/../../staged", "/etc/passwd", "link", "out/staged", "out",
                                "inside/a.jpg", "pipe", "photos/", "photos//a.jpg", "./photos", "photos/../note.txt",
                                "", "%2E%2E/staged", "photos%2Fa.jpg", "photos%", "note.txt%0"})
            run({{"itemForIdentifier", id(bad), "{}"},
                 {"pathForIdentifier", id(bad), "{}"},
                 {"searchBucket", id(bad) + ",'searchString':''", "[]"},
                 {"fetchItem", id(bad) + ",'toFolder':'@'", "{'status':'failure_no_retry'}"},
                 {"updateItem", id(bad) + ",'parentID':'0','name':'taken','mtime':1", "{}"},
                 {"deleteItem", id(bad) + ",'recursive':'true'", "{}"},
                 {"uploadItemAtPath", "'path':'@/staged','name':'x','mtime':'0','parentID" + id(bad).substr(11),
                  "{}"}});
        for (const char* bad : {"..", "out", "inside", "note.txt", "missing"}) EXPECT_EQ(listed(bad), Strings{});
        EXPECT_EQ(listed("0"), (Strings{"note.txt", "photos"}));
    }
    fs::create_directory_symlink(outside, top / "photos/out");
    ask("deleteItem", "'identifier':'photos','recursive':'true'");
    EXPECT_EQ(listed("0"), Strings{"note.txt"});
    EXPECT_EQ(files(outside), "folder/ staged=new ");
}

TEST_F(ListingTests, AwkwardNamesGoThereAndBack) {
    const Strings names = {"%7C", "0",        "00",          "50%",  "NSFileProviderRootContainerItemIdentifier",
                           "a|b", "photos|x", "q\"\\\n\x01", "root", "\u00fc"};
    for (const std::string& name : names) write(name, "");
    for (const char* noText : {"bad\xff", "bad\xc0\x80"}) write(noText, "");
    Strings shown;
    for (const std::string& item : listed("0")) {
        EXPECT_FALSE(isTopID(item) || item == "00" || item.starts_with("NSFileProvider")) << item;
        EXPECT_EQ(item.find('|'), std::string::npos);
        shown.emplace_back(about("itemForIdentifier", item).at("name").as_string());
    }
    std::erase_if(shown, [](const std::string& name) { return name == "note.txt" || name == "photos"; });
    EXPECT_EQ(shown, names);
    EXPECT_EQ(warnings.at(0).substr(0, 10), "2 names in");
    std::string deep = "photos/2019"; // deeper than the kernel takes at once
    for (int depth = 0; depth < 25; ++depth) {
        const std::string name(200, 'd');
        ask("uploadItemAtPath", "'path':'@/folder','mtime':'0','parentID':'" + deep + "','name':'" + name + "'");
        deep += "/" + name;
    }
    run({{"itemForIdentifier", id(deep), "{'folder':true}"}, {"itemForIdentifier", id(std::string(300, 'n')), "{}"}});
}

TEST_F(ListingTests, VanishedNamesAreToldUntilAnAnswerWasSent) {
    const auto deleted = [&](std::string_view folder, bool sent = true) {
        return ask("enumerateDeletedJSON", id(folder), sent);
    };
    for (const char* name : {"photos/b", "photos/c|"}) write(name, "");
    EXPECT_EQ(deleted("photos"), "[]") << "never listed";
    listed("photos");
    fs::remove(top / "photos/b");
    listed("photos"); // a listing does not tell of b's end
    fs::remove(top / "photos/c|");
    write("photos/new", ""); // of which nobody has heard
    for (const bool sent : {false, false, true})
        EXPECT_EQ(deleted("photos", sent), R"(["c7|photos/b","c7|photos/c%7C"])");
    EXPECT_EQ(deleted("photos"), "[]");
    ask("uploadItemAtPath", "'path':'@/staged','mtime':'0','parentID':'photos','name':'d'");
    ask("updateItem", "'identifier':'photos/d','parentID':'photos','name':'e'");
    fs::remove(top / "photos/e");
    EXPECT_EQ(deleted("photos"), R"(["c7|photos/d","c7|photos/e"])") << "replies about single items told of them";
    listed("0");
    fs::remove(top / "note.txt");
    handler->handle("deletedItemIDs:0", [&](std::string_view reply) { return warnings.emplace_back(reply), true; });
    EXPECT_EQ(warnings, Strings{R"(["c7|note.txt"])"});

    fs::rename(top, base / "away"); // the directory is the one that was opened
    fs::create_directory_symlink(outside, top);
    EXPECT_EQ(listed("0"), Strings{"photos"});
    run({{"pathForIdentifier", id("photos"), "{'path':'" + (base / "away/photos").string() + "'}"}});
    fs::remove_all(base / "away"); // then nothing is known of what was in it
    EXPECT_EQ(deleted("0"), "[]");
    for (const char* command : {"enumerateItemsJSON", "itemForIdentifier"}) EXPECT_EQ(ask(command, id("photos")), "");
}

TEST_F(ListingTests, WhatCannotBeReadIsSaidAndNotGone) {
    listed("photos");
    fs::permissions(base, fs::perms(0755));
    fs::permissions(top / "photos", fs::perms::none);
    fs::permissions(top, fs::perms(0555));
    const int user = ::setfsuid(65534); // without the superuser's privileges, on this thread only
    EXPECT_EQ(ask("enumerateItemsJSON", id("photos")) + ask("itemForIdentifier", id("photos/a.jpg")), "");
    EXPECT_EQ(ask("enumerateDeletedJSON", id("photos")), "[]");
    EXPECT_EQ(ask("updateItem", id("note.txt") + ",'parentID':'0','name':'n'"), R"({"status":"failure"})");
    ::setfsuid(static_cast<uid_t>(user));
    for (const fs::path& folder : {top, top / "photos"}) fs::permissions(folder, fs::perms(0755)); // to be removed
    EXPECT_EQ(warnings.size(), 2u);
    EXPECT_NE(warnings[0].find("/photos\" cannot be read: Permission denied."), std::string::npos) << warnings[0];
}

TEST_F(ListingTests, WhatIsNoRequestGetsAnEmptyObject) {
    Strings replies;
    const auto note = [&](std::string_view text) { return replies.emplace_back(text), true; };
    const std::string texts[] = {"",
                                 "{",
                                 "[]",
                                 "7",
                                 "{}",
                                 "\xff",
                                 R"({"command":"fly"})",
                                 R"({"command":5})",
                                 R"({"command":"itemForIdentifier","identifier":5})",
                                 std::string(100'000, '['),
                                 std::string(17 << 20, ' ') + R"({"command":"status"})"};
    for (const std::string& text : texts) handler->handle(text, note);
    EXPECT_EQ(replies, Strings(std::size(texts), "{}"));
    request("shutdown", "", note); // held
    EXPECT_EQ(ask("getACL", id("photos")), R"({"error":"The request failed."})") << "told to, once";
    request("status", "", [&](std::string_view text) -> bool {
        if (text.find("ok") != text.npos) throw std::bad_alloc();
        return note(text);
    });
    EXPECT_EQ(replies.size(), std::size(texts) + 1);
    EXPECT_EQ(replies.back(), R"({"status":"failure"})");
}

TEST_F(ListingTests, RepliesGoToTheRequesterAndNotToItsSuccessor) {
    ManualQueue dispatch;
    FakeMessagePorts ports(dispatch);
    const std::string requester = "group.io.brindlemar.bxclient.c7", served = "group.io.brindlemar.bxserver.c7";
    const auto server = PortServer::open({ports, dispatch, {queue, copiers}, misbehaviour}, serve());
    const auto send = [&](std::int32_t msgid, const std::string& command) {
        ports.inject(served, msgid, expand("{'identifier':'note.txt','command':'" + command + "'}"));
        dispatch.runAll();
    };
    std::vector<std::int32_t> arrived;
    const auto keep = [&](const FakeMessagePorts::Sent& sent) { arrived.push_back(sent.msgid); };
    ports.addPeer(requester, keep);
    send(1, "status");
    copiers.paused = true;
    send(2, "fetchItem");
    ports.removePeer(requester);
    ports.addPeer(requester, keep);
    send(1, "status");
    copiers.waiting.at(0)();
    EXPECT_EQ(arrived, (std::vector<std::int32_t>{1, 1}));
}

} // namespace
} // namespace brindlemar::host
