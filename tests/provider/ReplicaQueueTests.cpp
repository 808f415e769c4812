#include "provider/ReplicaWorld.h"

namespace brindlemar::replica {
namespace {

TEST(ReplicaQueueTests, AnAnswerThatTheDiskDidNotTakeIsTakenLater) {
    for (const auto& [steps, shown] : std::map<std::string, std::string>{{"create f,send,remove f", ""},
                                                                         {"create f,send,move f g", "g=n2/c1"},
                                                                         {"create f,send,move f a", "a=a/c1"}}) {
        SCOPED_TRACE(steps);
        World world;
        world.list(world.top, {item("a", "a")}, true);
        world.acts(steps);
        sqlite::Database(world.place / "items.sqlite")
            .execute("CREATE TRIGGER refusal BEFORE UPDATE ON items BEGIN SELECT RAISE(ABORT, 'full'); END");
        EXPECT_THROW(world.act("done"), sqlite::Error);
        EXPECT_FALSE(world.next()) << "it is under way";
        sqlite::Database(world.place / "items.sqlite").execute("DROP TRIGGER refusal");
        world.act("done");
        world.drain();
        EXPECT_EQ(world.shown(world.top).find("f="), std::string::npos) << world.shown(world.top);
        EXPECT_NE(world.shown(world.top).find(shown), std::string::npos) << world.shown(world.top);
    }
}

TEST(ReplicaQueueTests, OnlyTheJobThatIsUnderWayEnds) {
    World world;
    world.act("create f");
    const Job old = *world.next();
    world.replica->failed(old, std::nullopt);
    world.replica->refuse(old, cannotSynchronize());
    EXPECT_EQ(world.replica->failureCount(), 1);
    EXPECT_EQ(world.replica->retry(), 1);
    const Job job = *world.next();
    world.replica->failed(old, cannotSynchronize());
    world.replica->refuse(old, cannotSynchronize());
    EXPECT_EQ(world.replica->failureCount(), 0);
    world.act("write f");
    world.answer(job);
    EXPECT_EQ(world.drain(), "contents n1 W/f");
}

TEST(ReplicaQueueTests, WhatTheHostRefusesIsNotAskedForEver) {
    World world;
    world.list(world.top, {item("a", "a"), item("b", "b")}, true);
    world.acts("move a t,folder a,move t a/a,write b");
    int asked = 0;
    for (; asked < 9; ++asked) {
        const auto job = world.next();
        if (!job) break;
        world.replica->failed(*job, cannotSynchronize());
    }
    EXPECT_EQ(asked, 2) << "the contents of b, and a name between for the first a";
    EXPECT_EQ(world.replica->retry(), 2);
    EXPECT_EQ(world.drain(), "contents b W/b, place a W/a (2), create W/a, place a N1/a");
}

TEST(ReplicaQueueTests, WhatIsPreferredGoesFirst) {
    World world;
    world.acts("create a,create b,create c");
    const Inode first[] = {world.at("c")};
    const auto job = world.replica->next([](const Job&) { return false; }, first);
    ASSERT_TRUE(job);
    EXPECT_EQ(World::what(*job), "create W/c");
    world.answer(*job);
    EXPECT_EQ(world.drain(), "create W/a, create W/b") << "and the others keep their turn";
}

TEST(ReplicaQueueTests, BelowANamelessFolderNothingIsTold) {
    World world;
    world.list(world.top, {item("A", "A"), item("B", "B")});
    for (const std::string name : {"A", "B"}) {
        world.list(world.at(name), {item(name + "/S", "S")}, true);
        world.list(world.at(name + "/S"), {item(name + "/S/T", "T")}, true);
        world.list(world.at(name + "/S/T"), {item("f" + name, "f")}, true);
    }
    // They change places, and what is in them has the other's paths until it is listed, level by level.
    world.act("exchange A B");
    while (const auto job = world.next())
        world.replica->succeeded(*job, item(job->item.name, job->item.name).get(), world.now);
    const Inode inner = world.at("B/S/T"), file = world.at("B/S/T/f");
    world.replica->merge(inner, "A/S/T", ItemList{item("other", "other")}, world.now);
    EXPECT_EQ(world.shown(inner), "f=fA") << "it is another folder's listing";
    const ItemIdentifier gone[] = {"A/S/T"};
    EXPECT_TRUE(world.replica->remove(gone, world.now).empty()) << "and another folder that has gone";
    EXPECT_TRUE(world.replica->row(file));
    world.act("remove B/S/T/f");
    EXPECT_FALSE(world.next()) << "whose identifier may be the other one's";
    EXPECT_EQ(world.replica->outermostNameless(world.at("B/S/T"))->inode, world.at("B/S"));
    world.list(world.at("B"), {item("B/S", "S")}, true);
    EXPECT_FALSE(world.next());
    world.list(world.at("B/S"), {item("B/S/T", "T")}, true);
    EXPECT_FALSE(world.next());
    world.list(world.at("B/S/T"), {item("fA", "f")}, true);
    EXPECT_EQ(world.drain(), "delete fA ");
}

TEST(ReplicaQueueTests, ALongQueueIsTakenStepByStep) {
    World world;
    world.act("folder F");
    const Inode folder = world.at("F");
    const auto isHeld = [&](const Job& job) { return job.item.inode == folder; };
    for (int i = 0; i < 1200; ++i)
        world.replica->create(folder, std::to_string(i), "in" + std::to_string(i), {}, world.now);
    for (int i = 0; i < 500; ++i)
        world.replica->create(world.top, std::to_string(i), "c" + std::to_string(i), {}, world.now);
    int count = 0;
    for (; const auto job = world.replica->next(isHeld); ++count) world.answer(*job);
    EXPECT_EQ(count, 500) << "the others wait for their folder";
    for (; const auto job = world.next(); ++count) world.answer(*job);
    EXPECT_EQ(count, 1701);
}

} // namespace
} // namespace brindlemar::replica
