#include "fakes/FakeClock.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/store/HybridStore.h"

#include <future>
#include <gtest/gtest.h>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;
using std::chrono::seconds, std::to_string;

StoredObject text(std::string value) { return std::make_shared<std::string>(std::move(value)); }
std::string valueOf(const StoredObject& object) { return object ? *static_cast<std::string*>(object.get()) : "-"; }

const ObjectCoder textCoder{
    .encode = [](const StoredObject& object, std::string& bytes) { bytes += "T" + valueOf(object); },
    .decode = [](std::string_view bytes) { return bytes == "Tbad" ? nullptr : text(std::string(bytes.substr(1))); },
    .estimatedSize = [](const StoredObject& object) { return valueOf(object).ends_with("huge") ? 1u << 30 : 1u; }};

/// Values are the name and the number, keys the numbers; but the last ten have those of the first ten.
struct Group final : ObjectGroup {
    Group(std::string name, std::size_t size) : name(name), size(size) {}
    std::size_t count() const override { return size; }
    void appendKey(std::size_t i, std::string& key) const override { key += "k" + to_string(i % (size - 10)); }
    StoredObject object(std::size_t i) const override { return text(name + to_string(i)); }
    const std::string name;
    const std::size_t size;
};

struct StoreTest : ::testing::Test {
    TemporaryDirectory directory;
    FakeClock clock;
    QueueTimers timers;
    std::atomic<int> failures{0};
    HybridStores stores{directory / "cache", clock, timers, [this](std::string_view) { ++failures; }};
    const std::string path = stores.filePath("f-test");
    std::unique_ptr<HybridStore> store = make(stores);
    static std::unique_ptr<HybridStore> make(HybridStores& stores, std::string name = "f-test", unsigned disk = 0) {
        auto made = stores.make({.name = name, .diskMaximumSize = disk, .memoryCountLimit = 10}, textCoder);
        return std::unique_ptr<HybridStore>(dynamic_cast<HybridStore*>(made.release()));
    }
    void set(std::string key, StoredObject value, seconds life) { store->setObject(value, key, clock.now() + life); }
    void set(std::string key, std::string value, seconds life = 10s) { set(key, text(value), life); }
    void setGroup(std::string name, std::size_t size, seconds life = 10s) {
        store->setObjects(std::make_shared<Group>(name, size), clock.now() + life);
    }
    std::string get(std::string key) { return valueOf(store->object(key)); }
    void crowdOut() { // what came before is on the disk only
        for (int i = 0; i < 10; ++i) set("filler" + to_string(i), "f");
        store->settle();
    }
    std::uintmax_t diskUsed() const { return std::filesystem::exists(path) ? std::filesystem::file_size(path) : 0; }
};

TEST_F(StoreTest, MemoryKeepsTheLastAndTheDiskTheOthers) {
    std::vector<StoredObject> objects;
    for (int i = 0; i < 50; ++i) {
        objects.push_back(text(to_string(i)));
        set("key" + to_string(i), objects.back(), 10s);
    }
    store->settle();
    EXPECT_EQ(std::ranges::count_if(objects, [](const auto& object) { return object.use_count() > 1; }), 10);
    const StoredObject copy = store->object("key7");
    EXPECT_EQ(valueOf(copy) + get("key49") + get("key50"), "749-");
    EXPECT_EQ(store->object("key7"), copy) << "kept";
    clock.advance(10s);
    EXPECT_EQ(get("key7") + get("key8") + get("key49"), "---");
}

/// Whatever came before it, wherever both lie and whenever the disk was reached; and once expired it hides the others.
TEST_F(StoreTest, TheLatestWriteWins) {
    HybridStores broken("/dev/null/cache", clock, timers, [](std::string_view) {});
    for (const std::string order : {"sG", "Gs", "GG", "ss", "GsG", "sGs", "gs", "sg", "hs", "sh"})
        for (int variant = 0; variant < 8; ++variant) {
            const bool hasDisk = variant & 1, settleBetween = variant & 2, isShort = variant & 4;
            SCOPED_TRACE(order + to_string(variant));
            store = make(hasDisk ? stores : broken);
            std::string latest;
            for (std::size_t i = 0; i < order.size(); ++i) {
                const auto life = isShort && i + 1 == order.size() ? 5s : 10s;
                const std::size_t size = std::map<char, int>{{'g', 20}, {'G', 1100}}[order[i]];
                latest = to_string(i) + (size > 0 ? "-" + to_string(size - 5) : order[i] == 'h' ? "huge" : "single");
                size > 0 ? setGroup(to_string(i) + "-", size, life) : set("k5", latest, life);
                if (settleBetween) store->settle();
            }
            for (const auto pause : {0s, 6s}) {
                clock.advance(pause);
                if (isShort && pause > 0s) latest = "-";
                EXPECT_EQ(get("k5"), latest);
                store->settle();
                EXPECT_EQ(get("k5"), latest);
            }
            if (hasDisk) crowdOut();
            EXPECT_EQ(get("k5"), hasDisk && order.back() == 'h' ? "-" : latest);
        }
}

TEST_F(StoreTest, WhatExpiresIsGivenBackInAnyOrder) {
    std::promise<void> gone;
    set("short", StoredObject(nullptr, [&](std::nullptr_t) { gone.set_value(); }), 5s);
    setGroup("g", 30'000, 15s);
    setGroup("h", 20, 5s);
    set("long", "b", 30s);
    store->settle();
    clock.advance(5s);
    EXPECT_EQ(get("short") + get("k5") + get("k10") + get("long"), "--g10b");
    EXPECT_EQ(gone.get_future().wait_for(60s), std::future_status::ready) << "by itself";
    clock.advance(10s);
    crowdOut();
    EXPECT_LT(diskUsed(), 200'000u);
    EXPECT_EQ(get("k10") + get("long"), "-b");
    clock.advance(15s);
    store->settle();
    EXPECT_EQ(diskUsed(), 0u);
}

TEST_F(StoreTest, RemoveAllRacingWritersAndReadersResurrectsNothing) {
    std::atomic<int> round{0};
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([&](std::stop_token stop) {
            for (int i = 0; !stop.stop_requested(); ++i) {
                const int begun = round; // all earlier rounds have been removed
                const std::string value = get("marked");
                EXPECT_GE(value == "-" ? begun : std::stoi(value), begun);
                set("w" + to_string(i % 40), get("k" + to_string(i % 1090)));
                if (i % 50 == 0) setGroup("g", 1100);
                if (i % 50 == 25) store->settle();
            }
        });
    for (int i = 1; i <= 1000; ++i) {
        set("marked", to_string(i));
        if (i % 20 == 0) store->settle();
        round = i;
        store->removeAll();
        EXPECT_EQ(get("marked"), "-");
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

TEST_F(StoreTest, AFailingDiskIsReportedOnceAndNeverShows) {
    store = make(stores, "f-test", 500'000);
    for (int round = 0; round < 4; ++round) { // full
        setGroup("big", 30'000);
        store->settle();
        EXPECT_EQ(get("k5"), "big29995");
        EXPECT_LE(diskUsed(), 500'000u);
    }
    store = make(stores);
    setGroup(std::string(250, 'x'), 40'000); // more than SQLite keeps in memory
    crowdOut();
    std::fstream(path) << std::string(diskUsed(), '\xff'); // damaged
    EXPECT_EQ(get("k1"), "-");
    set("key", "b");
    set("undecodable", "bad");
    crowdOut();
    EXPECT_EQ(get("key") + get("undecodable"), "b-") << "in a new file";
    EXPECT_EQ(failures, 2) << "once for each store";
}

TEST_F(StoreTest, AnyNameHasAFileOfItsOwnAndNothingIsLeft) {
    std::vector<std::unique_ptr<HybridStore>> all;
    for (const std::string name : {"", "..", "../../x", "\n", "n", "N"}) {
        for (const char* companion : {"", "-journal", "-wal"})
            std::ofstream(stores.filePath(name) + companion) << std::string(100'000, '\xff');
        all.push_back(std::exchange(store, make(stores, name)));
        crowdOut();
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory / "cache"), {}), 6);
    EXPECT_EQ(std::filesystem::status(directory / "cache").permissions(), std::filesystem::perms::owner_all);
    all.clear();
    store = nullptr;
    EXPECT_TRUE(std::filesystem::is_empty(directory / "cache"));
}

} // namespace
} // namespace brindlemar
