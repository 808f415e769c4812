#include "provider/ReplicaWorld.h"

namespace brindlemar::replica {
namespace {

TEST(MergeTests, NamesKeepTheirExtensionAndLength) {
    const std::string umlauts = [] {
        std::string text = "x";
        for (int i = 0; i < 127; ++i) text += "ü";
        return text;
    }();
    const Timestamp date{std::chrono::sys_days(std::chrono::year(2026) / 3 / 4) + 23h};
    const std::pair<std::string, std::string> copies[] = {
        {"a.txt", "a (remote copy 2026-03-04).txt"},
        {"a.tar.gz", "a.tar (remote copy 2026-03-04).gz"},
        {".bashrc", ".bashrc (remote copy 2026-03-04)"},
        {"plain", "plain (remote copy 2026-03-04)"},
    };
    for (const auto& [name, copy] : copies) EXPECT_EQ(remoteCopyName(name, date), copy);
    const std::string longest = remoteCopyName(umlauts, date);
    EXPECT_EQ(longest.size(), 254u) << "a piece of a letter is none";
    EXPECT_TRUE(longest.ends_with("ü (remote copy 2026-03-04)"));
    std::size_t taken = 0;
    EXPECT_EQ(freeName("a.b", [&](const std::string&) { return taken++ < 2; }), "a (3).b");
    for (const auto& name : std::vector<std::string>{"", ".", "..", "a/b", {"a\0b", 3}, "ok"})
        EXPECT_EQ(isFileName(name), name == "ok") << name;
}

TEST(ReplicaTests, LocalChangesBecomeTheFewestRequests) {
    // The host has a, b, D with D/x and E.
    const struct {
        std::string steps, told, shown;
    } cases[] = {
        {"create f,write f,move f g,write g", "create W/g", "D=D E=E a=a b=b g=n1/c3"},
        {"create f,write f,remove f", "", "D=D E=E a=a b=b"},
        {"folder F,folder F/G,create F/G/f", "create W/F, create N1/G, create N2/f", "D=D E=E F=N1 a=a b=b"},
        {"create a~,write a~,move a~ a", "contents a W/a", "D=D E=E a=a/c2 b=b"},
        {"move a a~,create a,write a,remove a~", "contents a W/a", "D=D E=E a=a/c2 b=b"},
        {"create t,write t,exchange t a,remove t", "contents a W/a", "D=D E=E a=a/c2 b=b"},
        {"write b,move b a", "contents a W/a, delete b ", "D=D E=E a=a/c1"},
        {"move b a", "delete a , place b W/a", "D=D E=E a=b"},
        {"write a,move a c", "place a W/c, contents a W/c", "D=D E=E b=b c=a/c1"},
        {"move a c,move c a", "", "D=D E=E a=a b=b"},
        {"exchange a b", "place b W/b (2), place a W/b, place b W/a", "D=D E=E a=b b=a"},
        {"move a t,move b a,move t b", "place a W/a (2), place b W/a, place a W/b", "D=D E=E a=b b=a"},
        {"move D/x x,remove D", "place x W/x, delete D ", "E=E a=a b=b x=x"},
        {"remove D/x,remove D", "delete x , delete D ", "E=E a=a b=b"},
        {"move D E/D", "place D E/D", "E=E a=a b=b"},
        {"folder F,folder F/G,drain,move F F2,move F2/G G,move F2 G/F", "place N2 W/G, place N1 N2/F",
         "D=D E=E G=N2 a=a b=b"},
        {"move a t,folder a,move t a/a", "place a W/a (2), create W/a, place a N1/a", "D=D E=E a=N1 b=b"},
        {"move D/x t,remove D,folder D,move t D/x", "place D W/D (2), create W/D, place x N1/x, delete D ",
         "D=N1 E=E a=a b=b"},
        {"move D E", "delete E , place D W/E", "E=D a=a b=b"},
        {"remove a,create a", "delete a , create W/a", "D=D E=E a=n1/c1 b=b"},
        {"create f,reopen,write f,reopen", "create W/f", "D=D E=E a=a b=b f=n1/c2"},
        // While a request is under way:
        {"create f,send,write f,done", "contents n1 W/f", "D=D E=E a=a b=b f=n1/c2"},
        {"create f,send,move f g,done", "place n1 W/g", "D=D E=E a=a b=b g=n1/c1"},
        {"create f,send,remove f,done", "delete n1 ", "D=D E=E a=a b=b"},
        {"create f,send,move f a,done", "delete n1 , contents a W/a", "D=D E=E a=a/c1 b=b"},
        {"create f,send,create g,move g f,done", "contents n1 W/f", "D=D E=E a=a b=b f=n1/c2"},
        {"write a,send,write a,done", "contents a W/a", "D=D E=E a=a/c2 b=b"},
        {"write a,send,create t,move t a,done", "contents a W/a", "D=D E=E a=a/c2 b=b"},
        {"move a a~,send,create a,remove a~,done", "place a W/a, contents a W/a", "D=D E=E a=a/c1 b=b"},
        {"create f,send,move f g,create f,done", "place n1 W/g, create W/f", "D=D E=E a=a b=b f=n2/c2 g=n1/c1"},
        {"write a,send,lost", "contents a W/a", "D=D E=E a=a/c1 b=b"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.steps);
        World world;
        world.list(world.top, {item("a", "a"), item("b", "b"), item("D", "D"), item("E", "E")}, true);
        world.list(world.at("D"), {item("x", "x")}, true);
        world.acts(test.steps);
        EXPECT_EQ(world.drain(), test.told);
        EXPECT_EQ(world.shown(world.top), test.shown);
    }
}

TEST(ReplicaTests, WhatTheHostTellsMeetsWhatIsHere) {
    const auto copy = [](const std::string& name) { return name + " (remote copy 1970-01-01)"; };
    const struct {
        std::string steps;
        std::vector<std::shared_ptr<ItemDraft>> listed;
        std::string shown, told;
    } cases[] = {
        {"", {item("b", "a"), item("c", "x/y")}, "a=a a (2)=b", ""},
        {"", {item("a", "b")}, "b=a", ""},
        {"write a", {item("a", "a")}, "a=a/c1+", "contents a W/a"},
        {"write a", {item("a", "a", 6)}, "a=-/c1+ " + copy("a") + "=a+", "place a W/" + copy("a") + ", create W/a"},
        {"write a,move a b", {item("a", "a", 6)}, "a=a b=-/c1+", "create W/b"},
        {"move a b", {item("a", "a", 6)}, "b=a+", "place a W/b"},
        {"move a b", {item("b", "b", 6)}, "b=a+ " + copy("b") + "=b+", "place b W/" + copy("b") + ", place a W/b"},
        {"remove a", {item("a", "a")}, "", "delete a "},
        {"remove a", {item("a", "a", 6)}, "a=a", ""},
        {"create f", {item("f", "f")}, "a=a f=-/c1+ " + copy("f") + "=f+", "place f W/" + copy("f") + ", create W/f"},
        {"create f", {item("a", "f")}, "f=-/c1+ " + copy("f") + "=a+", "place a W/" + copy("f") + ", create W/f"},
        {"create f,send", {item("f", "f")}, "a=a f=-/c1+", ""},
        {"create f,send,move f g,create f", {item("f", "f")}, "a=a f=-/c2+ g=-/c1+", ""},
        {"create f,send,remove f", {item("f", "f")}, "a=a", ""},
        {"folder F,create F/f", {item("F", "F")}, "F=F a=a", "create F/f"},
        // The host has done it, and the answer was lost:
        {"write a,send,reopen,write a", {item("a", "a", 1000)}, "a=a/c2+", "contents a W/a"},
        {"create f,write f,send,reopen", {item("f", "f", 1000)}, "a=a f=f/c2+", "contents f W/f"},
        {"move a b,send,reopen", {item("b", "b")}, "b=b", ""},
        {"create f,write f,send,lost,move f g", {item("f", "f", 1000)}, "a=a g=f/c2+", "place f W/g, contents f W/g"},
        {"create f,write f,send,reopen,move f g", {item("f", "f", 6)}, "a=a f=f g=-/c2+", "create W/g"},
        {"create f,write f,send,lost,remove f", {item("f", "f", 1000)}, "a=a", "delete f "},
        {"create f,write f,send,lost,remove f", {item("f", "f", 6)}, "a=a f=f", ""},
        {"create f,write f,send,lost,create g,move g f", {item("f", "f", 1000)}, "a=a f=f/c3+", "contents f W/f"},
        {"create f,write f,send,lost,move f a", {item("f", "f", 1000)}, "a=a/c2+", "delete f , contents a W/a"},
        {"create q,write q,send,lost,move a x,move q a,remove x",
         {item("q", "q", 1000)},
         "a=q/c2+",
         "delete a , place q W/a, contents q W/a"},
        {"move a b,send,lost,move b a,create t,move t a,send,done", {item("b", "b")}, "a=a/c1 b=b", ""},
        {"folder F,send,lost,move F G", {item("F", "F")}, "G=F+ a=a", "place F W/G"},
        {"folder F,send,lost,remove F", {item("F", "F")}, "a=a", "delete F "},
        {"move a b,send,lost,move b c", {item("b", "b")}, "c=b+", "place b W/c"},
        {"move a b,send,lost,move b a", {item("b", "b")}, "a=b+", "place b W/a"},
        {"move a b,send,lost,remove b", {item("b", "b")}, "", "delete b "},
        {"move a b,send,lost,create f,move f b", {item("b", "b")}, "b=b/c1+", "contents b W/b"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.steps + " then " + test.shown);
        World world;
        world.list(world.top, {item("a", "a")});
        world.acts(test.steps);
        world.replica->merge(world.top, "W", ItemList(test.listed.begin(), test.listed.end()), world.now);
        EXPECT_EQ(world.shown(world.top), test.shown);
        EXPECT_TRUE(
            world.replica->merge(world.top, "W", ItemList(test.listed.begin(), test.listed.end()), world.now).empty());
        EXPECT_EQ(world.sent ? "" : world.drain(), test.told);
    }
}

TEST(ReplicaTests, AListingFromBeforeAChangeIsNoNews) {
    const std::pair<std::string, std::string> cases[] = {
        {"remove a,drain", ""},
        {"move a b,drain", "b=a"},
        {"write a,drain", "a=a/c1"},
        {"write a,drain,write a", "a=a/c2+"},
    };
    for (const auto& [steps, shown] : cases) {
        SCOPED_TRACE(steps);
        World world;
        world.list(world.top, {item("a", "a")}, true);
        world.acts(steps);
        EXPECT_TRUE(world.list(world.top, {item("a", "a")}).empty());
        EXPECT_EQ(world.shown(world.top), shown);
        world.now += 31s;
        EXPECT_FALSE(world.list(world.top, {item("a", "a")}).empty());
    }
}

TEST(ReplicaTests, AFolderWithANewIdentifierIsKnownAgainByNames) {
    World world;
    world.list(world.top, {item("D", "D")});
    const Inode folder = world.at("D");
    world.list(folder, {item("D/a", "a"), item("D/b", "b"), item("D/c", "c"), item("D/d", "d"), item("D/e", "e")});
    const Inode a = world.at("D/a");
    world.acts("move D D2,move D2/e e,send,write D2/b,write D2/d");
    world.replica->succeeded(*world.sent, item("D2", "D2").get(), world.now);
    world.acts("remove D2/c,move D2/b b");
    EXPECT_FALSE(world.next()) << "nothing can be told without identifiers";
    EXPECT_EQ(world.replica->foldersToIdentify(), std::vector<Inode>{folder});
    EXPECT_TRUE(world.list(folder, {}, true).empty()) << "may be from before";
    EXPECT_TRUE(world.replica->hasNameless(folder));
    world.now += 16s;
    EXPECT_EQ(
        world.list(folder, {item("D2/a", "a"), item("D2/b", "b"), item("D2/c", "c"), item("D2/e", "e")}, true).size(),
        0u);
    EXPECT_EQ(world.replica->find("D2/a")->inode, a);
    EXPECT_EQ(world.drain(), "place D2/e W/e, place D2/b W/b, create D2/d, delete D2/c , contents D2/b W/b");
    EXPECT_TRUE(world.replica->foldersToIdentify().empty());
}

TEST(ReplicaTests, WhatIsGoneTakesAllWithItButLocalChanges) {
    World world;
    world.list(world.top, {item("D", "D"), item("E", "E"), item("a", "a")});
    world.list(world.at("D"), {item("x", "x"), item("y", "y")});
    world.list(world.at("E"), {item("z", "z")});
    world.acts("write D/x");
    const ItemIdentifier gone[] = {"D", "E", "a"}, connection[] = {"W"};
    EXPECT_EQ(world.replica->remove(gone, world.now).size(), 4u) << "y, z, E and a";
    EXPECT_EQ(world.shown(world.top), "D=-+");
    EXPECT_EQ(world.drain(), "create W/D, create N1/x");
    world.acts("write D/x,reopen");
    EXPECT_TRUE(world.replica->remove(connection, world.now).empty());
    EXPECT_FALSE(world.next());
    world.list(kRoot, {item("W2", "Work")});
    world.list(world.top, {item("N3", "D")});
    world.list(world.at("D"), {item("n4", "x", 1000)});
    EXPECT_EQ(world.drain(), "contents n4 N3/x");
}

TEST(ReplicaTests, ManyGoStepByStep) {
    constexpr std::size_t many = 2600; // in three steps
    World world;
    world.list(world.top, {item("D", "D"), item("E", "E"), item("a", "a")});
    world.list(world.at("D"), {item("F", "F"), item("y", "y"), item("z", "z")});
    ItemList items;
    for (std::size_t i = 0; i < many; ++i) items.push_back(item("f" + std::to_string(i), std::to_string(i)));
    world.replica->merge(world.at("D/F"), "F", items, world.now);
    world.acts("move D/F/2500 E/k,move E/k E/l,folder D/F/own,move a D/b,write D/z");
    const ItemIdentifier gone[] = {"D", "E"};
    EXPECT_EQ(world.replica->remove(gone, world.now).size(), many + 2) << "E, and 2500 that was moved into it, too";
    EXPECT_EQ(world.shown(world.top), "D=-+");
    EXPECT_EQ(world.shown(world.at("D")), "F=-+ b=a+ z=-/c1+");
    EXPECT_EQ(world.drain(), "create W/D, place a N1/b, create N1/z, create N1/F, create N3/own");
    EXPECT_TRUE(world.replica->foldersToIdentify().empty());
}

TEST(ReplicaTests, AnAnswerMayMeetWhatAListingBrought) {
    World world;
    world.acts("create f,send,move f g");
    world.list(world.top, {item("n1", "f")});
    EXPECT_EQ(world.shown(world.top), "g=-/c1+") << "f is that, most likely";
    world.act("done");
    EXPECT_EQ(world.shown(world.top), "g=n1/c1+");
    EXPECT_EQ(world.drain(), "place n1 W/g");
    world.acts("write g,send");
    world.replica->succeeded(*world.sent, nullptr, world.now);
    EXPECT_EQ(world.shown(world.top), "") << "the host has let it go";
    world.acts("create h,send");
    world.replica->failed(*world.sent, serverUnreachable());
    EXPECT_FALSE(world.next());
    EXPECT_EQ(world.replica->failures(9).size(), 1u);
    EXPECT_EQ(world.replica->retry(userCancelled()), 0);
    EXPECT_EQ(world.replica->retry(), 1);
    EXPECT_EQ(world.drain(), "create W/h");
    world.acts("create i,send,remove i");
    EXPECT_TRUE(world.replica->failed(*world.sent, userCancelled()));
    EXPECT_EQ(world.replica->waiting(), 1) << "it may be there";
    world.list(world.top, {}, true);
    EXPECT_EQ(world.replica->waiting(), 0);
}

TEST(ReplicaTests, AnAnswerMayComeWhenItsItemIsGone) {
    World world;
    world.list(world.top, {item("a", "a"), item("D", "D"), item("E", "E")});
    world.list(world.at("E"), {item("x", "x")});
    const ItemIdentifier gone[] = {"a"};
    world.acts("write a,send");
    world.replica->remove(gone, world.now);
    world.act("done");
    EXPECT_EQ(world.shown(world.top), "D=D E=E a=a/c1+");
    EXPECT_EQ(world.drain(), "contents a W/a") << "it may be gone";
    world.acts("move E/x D/x,remove D/x,remove D,folder D");
    const auto first = world.next(), second = world.next();
    world.answer(*second); // the removal of D, before that of x
    world.answer(*first);
    EXPECT_EQ(world.drain(), "create W/D");
    EXPECT_EQ(world.shown(world.top), "D=N1 E=E a=a/c1");
    world.acts("move a b,send,lost");
    EXPECT_TRUE(world.replica->remove(gone, world.now).empty()) << "it was moved, most likely";
    world.list(world.top, {item("b", "b", 1000)}, true);
    EXPECT_EQ(world.shown(world.top), "D=N1 E=E b=b/c1");
    world.acts(
        "folder D/G,drain,create D/G/k,drain,move D/G/k l,send,lost"); // and by another name in an unknown folder
    world.acts("move D/G H,send");
    world.replica->succeeded(*world.sent, item("H", "H").get(), world.now);
    world.now += 31s;
    world.list(world.at("H"), {}, true);
    world.list(world.top, {item("l", "l", 1000)}, true);
    EXPECT_EQ(world.shown(world.top), "D=N1 E=E H=H b=b/c1 l=l/c2");
    world.acts("move D F,send");
    const ItemIdentifier moved[] = {"N1"};
    world.replica->remove(moved, world.now);
    world.act("done");
    EXPECT_EQ(world.drain(), "date N1 W/F") << "a folder has no contents";
}

TEST(ReplicaTests, WhatHasAnotherKindIsAnotherItem) {
    World world;
    world.list(world.top, {item("D", "D")}, true);
    world.acts("create D/own,write D/own");
    const auto file = item("D", "D");
    file->type = UTType::content;
    world.list(world.top, {file}, true);
    EXPECT_EQ(world.shown(world.top), "D=-+ D (remote copy 1970-01-01)=D+");
    EXPECT_EQ(world.drain(), "place D W/D (remote copy 1970-01-01), create W/D, create N1/own");
}

TEST(ReplicaTests, FoldersThatAreInEachOtherStayApart) {
    World world;
    world.list(world.top, {item("D", "D"), item("E", "E")}, true);
    world.act("move E D/E");
    world.list(world.at("D/E"), {item("D", "D")}, true); // moved there by somebody else
    EXPECT_EQ(world.drain(), "place D W/D, place E D/E");
    const Inode inner = world.at("D/E");
    world.list(inner, {item("D", "D")}, true); // a listing from before
    world.list(inner, {item("F", "F")}, true);
    EXPECT_EQ(world.shown(inner), "F=F");
}

TEST(ReplicaTests, WhatCannotBeAnyMoreIsRefused) {
    const std::pair<std::string, std::errc> cases[] = {
        {"create D/f", std::errc::no_such_file_or_directory},
        {"move a D/f", std::errc::no_such_file_or_directory},
        {"exchange a D", std::errc::no_such_file_or_directory},
        {"remove D", std::errc::no_such_file_or_directory},
        {"create a", std::errc::file_exists},
        {"move E a", std::errc::not_a_directory},
        {"move a E", std::errc::is_a_directory},
        {"move F E", std::errc::directory_not_empty},
        {"remove E", std::errc::directory_not_empty},
        {"move E E/F", std::errc::invalid_argument},
        {"rename a E", std::errc::file_exists},
    };
    for (const auto& [step, error] : cases) {
        SCOPED_TRACE(step);
        World world;
        world.list(world.top, {item("a", "a"), item("D", "D"), item("E", "E"), item("F", "F")}, true);
        world.list(world.at("E"), {item("x", "x")}, true);
        world.known["D"] = world.at("D");
        const ItemIdentifier gone[] = {"D"};
        world.replica->remove(gone, world.now);
        std::error_code thrown;
        try {
            world.act(step);
        } catch (const std::system_error& refused) {
            thrown = refused.code();
        }
        EXPECT_EQ(thrown, error) << thrown.message();
        EXPECT_EQ(world.replica->waiting(), 0);
    }
}

TEST(ReplicaTests, AFolderThatSomebodyFillsIsNotRemoved) {
    World world;
    world.list(world.top, {item("D", "D")}, true);
    world.list(world.at("D"), {item("E", "E")}, true);
    const Inode inner = world.at("D/E");
    world.list(inner, {item("a", "a")}, true);
    world.acts("remove D/E/a,remove D/E,remove D,folder D");
    EXPECT_EQ(world.list(inner, {item("a", "a"), item("b", "b")}).size(), 3u) << "E, D and b";
    EXPECT_EQ(world.shown(world.top), "D=-+ D (2)=D+");
    EXPECT_EQ(world.shown(inner), "b=b");
    EXPECT_EQ(world.drain(), "delete a , place D W/D (2), create W/D");
}

TEST(ReplicaTests, AnAnswerMayTellOfOtherContents) {
    for (const auto& [steps, shown] : std::map<std::string, std::string>{
             {"move a b,send", "b=a"}, {"move a b,send,write b", "b=a/c1+"}, {"move a b", "b=a"}}) {
        SCOPED_TRACE(steps);
        World world;
        world.list(world.top, {item("a", "a")});
        ASSERT_TRUE(world.replica->setContents(world.at("a"), "a", "fetched", 3));
        world.acts(steps);
        if (!world.sent) world.act("send");
        world.replica->succeeded(*world.sent, item("a", "b", 6).get(), world.now);
        EXPECT_EQ(world.shown(world.top), shown);
        if (world.replica->row(world.at("b"))->contents) {
            const auto job = world.next();
            EXPECT_TRUE(world.replica->isConflict(*job, *item("a", "b", 6), world.now + 1min));
        }
    }
}

TEST(ReplicaTests, AListingOfAnotherTimeChangesNothing) {
    World world;
    world.list(world.top, {item("D", "D")});
    const Inode folder = world.at("D");
    world.list(folder, {item("D/a", "a")}, true);
    world.acts("move D E,send,write E/a");
    world.replica->succeeded(*world.sent, item("E", "E").get(), world.now);
    world.replica->merge(folder, "D", ItemList{item("D/a", "a"), item("D/b", "b")}, world.now);
    world.replica->setListed(folder, "D", world.now, world.now);
    EXPECT_EQ(world.shown(folder), "a=-/c1+");
    world.list(folder, {item("E/a", "a")}, true);
    EXPECT_EQ(world.drain(), "contents E/a E/a");
}

TEST(ReplicaTests, AFolderHasTheDateOfItsLastEntry) {
    World world;
    const auto date = [&] { return wholeSecondsSince1970(world.replica->row(world.top)->modified); };
    const auto host = [&](std::int64_t modified) { world.list(kRoot, {item("W", "Work", modified)}); };
    for (const std::string step : {"create a", "move a b", "create c", "exchange b c", "remove b"}) {
        world.now += 10s;
        world.act(step);
        EXPECT_EQ(date(), wholeSecondsSince1970(world.now)) << step;
        host(5);
    }
    world.act("write c");
    EXPECT_EQ(date(), wholeSecondsSince1970(world.now)) << "what the host does not renew is no news";
    host(1042);
    EXPECT_EQ(date(), 1042);
}

} // namespace
} // namespace brindlemar::replica
