#include "provider/ReplicaWorld.h"

#include <filesystem>
#include <latch>
#include <optional>
#include <set>
#include <thread>

namespace brindlemar::replica {
namespace {

TEST(ReplicaFileTests, ContentsAreDiscardedOnceNothingHasThem) {
    World world;
    const auto kept = [&] {
        std::string text;
        world.replica->eachKept(
            [&](const std::string& name, std::string_view bytes) { text += name + "=" + std::string(bytes) + " "; });
        return text;
    };
    world.list(world.top, {item("a", "a"), item("b", "b")});
    const Inode b = world.at("b");
    EXPECT_FALSE(world.replica->setContents(b, "a", "fetched", 4));
    EXPECT_TRUE(world.replica->setContents(b, "b", "fetched", 4));
    EXPECT_FALSE(world.replica->setContents(b, "b", "again", 4));
    EXPECT_TRUE(world.replica->dropContents(b));
    world.acts("write a,write a,exchange a b");
    EXPECT_EQ(kept(), "c2=bytes ");
    EXPECT_FALSE(world.replica->dropContents(world.at("b"))) << "the host does not have them";
    world.reopen();
    const auto discarded = world.replica->takeDiscarded();
    EXPECT_EQ(std::set(discarded.begin(), discarded.end()), (std::set<std::string>{"c1", "fetched"}));
    EXPECT_TRUE(world.replica->takeDiscarded().empty());
    world.drain();
    EXPECT_EQ(kept(), "");
    world.act("remove b");
    EXPECT_EQ(world.replica->takeDiscarded(), std::vector<std::string>{"c2"});
}

TEST(ReplicaFileTests, AnOldFileIsMigrated) {
    World world;
    world.acts("folder F,create F/a,remove F/a,create F/b");
    world.replica->remember("boot", "one");
    world.replica.reset();
    sqlite::Database(world.place / "items.sqlite")
        .execute(
            "DROP INDEX nameless; DROP INDEX waiting; ALTER TABLE items DROP COLUMN changed; DROP INDEX sentPlaces; "
            "ALTER TABLE items DROP COLUMN sentParent; ALTER TABLE items DROP COLUMN sentName; PRAGMA user_version=1");
    world.reopen();
    EXPECT_TRUE(world.said.empty());
    EXPECT_EQ(world.replica->remembered("boot"), "one");
    EXPECT_EQ(world.drain(), "create W/F, create N1/b");
}

TEST(ReplicaFileTests, AChangeWaitsForAnotherConnectionsLock) {
    World world;
    sqlite::Database other(world.place / "items.sqlite");
    auto transaction = std::make_optional<sqlite::Transaction>(other);
    std::latch bothAreHere(2);
    std::jthread program([&] {
        bothAreHere.arrive_and_wait();
        EXPECT_NO_THROW(world.act("create a"));
    });
    bothAreHere.arrive_and_wait();
    for (int number = 0; number < 10'000; ++number) // the program tries meanwhile
        other.execute("UPDATE items SET used=" + std::to_string(number) + " WHERE inode=1");
    transaction.reset();
}

TEST(ReplicaFileTests, ADamagedFileIsSetAside) {
    World world;
    world.replica.reset();
    const std::string file = world.place / "items.sqlite";
    for (const std::string suffix : {"-wal", "-shm"}) std::filesystem::remove(file + suffix);
    std::filesystem::resize_file(file, 5000);
    world.reopen();
    EXPECT_EQ(world.said.size(), 1u);
    EXPECT_EQ(world.shown(kRoot), "");
    std::size_t aside = 0;
    for (const auto& entry : std::filesystem::directory_iterator(world.place.path()))
        aside += entry.path().filename().string().find(".aside-") != std::string::npos;
    EXPECT_GE(aside, 1u);
    world.replica.reset();
    sqlite::Database(file).execute("PRAGMA user_version=99");
    world.reopen();
    EXPECT_EQ(world.said.size(), 2u);
}

} // namespace
} // namespace brindlemar::replica
