#include "fakes/FakeClock.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/store/HybridStore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <future>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

StoredObject text(std::string value) { return std::make_shared<std::string>(std::move(value)); }
std::string valueOf(const StoredObject& object) {
    return object ? *static_cast<const std::string*>(object.get()) : "(none)";
}

ObjectCoder textCoder() {
    return {.encode = [](const StoredObject& object, std::string& bytes) { bytes += "T" + valueOf(object); },
            .decode = [](std::string_view bytes) -> StoredObject {
                return bytes.starts_with("T") && bytes != "Tundecodable" ? text(std::string(bytes.substr(1))) : nullptr;
            },
            .estimatedSize = [](const StoredObject& object) { return valueOf(object) == "huge" ? 1u << 30 : 1u; }};
}

/// Keys k0, k1 …, or what `repeat` makes of the number; values are the generation's name and the number.
class Group : public ObjectGroup {
public:
    Group(std::string name, std::size_t count, std::size_t repeat = 0) : repeat_(repeat ? repeat : count) {
        for (std::size_t i = 0; i < count; ++i) objects_.push_back(text(name + std::to_string(i)));
    }
    std::size_t count() const override { return objects_.size(); }
    void appendKey(std::size_t index, std::string& key) const override { key += "k" + std::to_string(index % repeat_); }
    StoredObject object(std::size_t index) const override { return objects_[index]; }

private:
    std::vector<StoredObject> objects_;
    const std::size_t repeat_;
};

constexpr std::size_t kSmall = 20, kLarge = 3000; // taken apart, and adopted

struct StoreTest : ::testing::Test {
    TemporaryDirectory directory;
    FakeClock clock;
    HybridStores stores{directory.path() + "/cache", clock};
    std::unique_ptr<HybridStore> store = make({.name = "f-test", .memoryCountLimit = 10});

    std::unique_ptr<HybridStore> make(StoreConfiguration configuration) {
        auto made = stores.make(std::move(configuration), textCoder());
        return std::unique_ptr<HybridStore>(dynamic_cast<HybridStore*>(made.release()));
    }
    Timestamp in(std::chrono::nanoseconds duration) { return clock.now() + duration; }
    void set(const std::string& key, const std::string& value, std::chrono::nanoseconds life = 10s) {
        store->setObject(text(value), key, in(life));
    }
    void setGroup(const std::string& name, std::size_t count, std::chrono::nanoseconds life = 10s) {
        store->setObjects(std::make_shared<Group>(name, count), in(life));
    }
    std::string get(const std::string& key) { return valueOf(store->object(key)); }
    /// Everything before this is on the disk only.
    void crowdOut() {
        store->settle();
        for (int i = 0; i < 10; ++i) setGroup("crowd" + std::to_string(i) + "-", 300);
        for (int i = 0; i < 20; ++i) set("filler" + std::to_string(i), "f");
        store->settle();
    }
};

TEST_F(StoreTest, MemoryGivesTheObjectItself) {
    const StoredObject object = text("a");
    store->setObject(object, "key", in(10s));
    EXPECT_EQ(store->object("key"), object);
    store->settle();
    EXPECT_EQ(store->object("key"), object);
    EXPECT_EQ(get("other"), "(none)");
    for (const std::size_t count : {kSmall, kLarge}) {
        const auto group = std::make_shared<Group>("g", count);
        store->setObjects(group, in(10s));
        EXPECT_EQ(store->object("k7"), group->object(7)) << "before it was indexed";
        store->settle();
        if (count == kLarge) {
            EXPECT_EQ(store->object("k2999"), group->object(2999));
        }
    }
}

TEST_F(StoreTest, WhatMemoryLetGoComesDecodedFromTheDiskAndStays) {
    const StoredObject object = text("a");
    store->setObject(object, "key", in(10s));
    for (int i = 0; i < 50; ++i) set("filler" + std::to_string(i), "f");
    store->settle();
    const StoredObject copy = store->object("key");
    EXPECT_EQ(valueOf(copy), "a");
    EXPECT_NE(copy, object);
    EXPECT_EQ(store->object("key"), copy) << "promoted";
    clock.advance(11s);
    EXPECT_EQ(get("key"), "(none)") << "with its expiry";
}

TEST_F(StoreTest, GroupsLeaveMemoryAsAWholeAndAreReadFromTheDisk) {
    auto group = std::make_shared<Group>("g", kLarge);
    const std::weak_ptr<Group> watch = group;
    const StoredObject original = group->object(1234);
    store->setObjects(std::move(group), in(10s));
    for (int i = 0; i < 10; ++i)
        store->setObjects(std::make_shared<Group>("other", 300, 1), in(10s)); // all of one key, k0
    store->settle();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(get("k1234"), "g1234");
    EXPECT_NE(store->object("k1234"), original);
    EXPECT_EQ(get("k0"), "other299");
    EXPECT_EQ(get("k3000"), "(none)");
}

TEST_F(StoreTest, TheLastOfRepeatedKeysCounts) {
    for (const std::size_t count : {kSmall, kLarge}) {
        store->setObjects(std::make_shared<Group>("r", count, 10), in(10s));
        EXPECT_EQ(get("k3"), "r" + std::to_string(count - 7));
        store->settle();
        EXPECT_EQ(get("k3"), "r" + std::to_string(count - 7));
    }
}

/// The newest write of k5 wins, whatever came before it, wherever both lie and whenever the disk was reached.
TEST_F(StoreTest, TheLatestWriteWins) {
    const auto write = [&](char kind, const std::string& name) {
        if (kind == 's') set("k5", name + "5");
        if (kind == 'g') setGroup(name, kSmall);
        if (kind == 'G') setGroup(name, kLarge);
    };
    for (const std::string order : {"sg", "gs", "sG", "Gs", "gG", "Gg", "GG", "ss", "GsG", "sGs"})
        for (const bool settleBetween : {false, true})
            for (const bool onDisk : {false, true}) {
                store->removeAll();
                for (std::size_t i = 0; i < order.size(); ++i) {
                    write(order[i], "v" + std::to_string(i) + "-");
                    if (settleBetween) store->settle();
                }
                const std::string expected = "v" + std::to_string(order.size() - 1) + "-5";
                EXPECT_EQ(get("k5"), expected) << order;
                store->settle();
                EXPECT_EQ(get("k5"), expected) << order << " settled";
                if (!onDisk) continue;
                for (int i = 0; i < 30; ++i) set("filler" + std::to_string(i), "f");
                for (int i = 0; i < 10; ++i)
                    store->setObjects(std::make_shared<Group>("other", 300, 1), in(10s)); // k0 only
                store->settle();
                EXPECT_EQ(get("k5"), expected) << order << " from the disk";
            }
}

TEST_F(StoreTest, AnExpiredEntryIsAMissEverywhereAndItsSpaceComesBack) {
    auto group = std::make_shared<Group>("g", kLarge);
    const std::weak_ptr<Group> watchGroup = group;
    auto object = text("a");
    const std::weak_ptr<void> watch = object;
    store->setObject(std::move(object), "short", in(5s));
    store->setObjects(std::move(group), in(5s));
    set("long", "b", 20s);
    store->settle();
    EXPECT_GT(store->diskUsed(), 0u);
    clock.advance(5s);
    EXPECT_EQ(get("short"), "(none)") << "not even at its last moment";
    EXPECT_EQ(get("k1"), "(none)");
    EXPECT_EQ(get("long"), "b");
    store->removeExpiredObjects();
    store->settle();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(watchGroup.expired());
    clock.advance(20s);
    store->removeExpiredObjects();
    store->settle();
    EXPECT_EQ(store->diskUsed(), 0u);
    EXPECT_EQ(std::filesystem::file_size(stores.filePath("f-test")), 0u);
}

TEST_F(StoreTest, AnExpiredLatestWriteStillHidesEarlierOnes) {
    for (const bool settleBetween : {false, true})
        for (const std::size_t count : {kSmall, kLarge}) {
            store->removeAll();
            setGroup("old", count, 100s);
            if (settleBetween) store->settle();
            set("k1", "new", 5s);
            store->setObjects(std::make_shared<Group>("newer", count, 3), in(5s)); // k0 to k2
            if (settleBetween) store->settle();
            clock.advance(6s);
            for (int round = 0; round < 2; ++round) {
                for (const char* key : {"k0", "k1", "k2"}) EXPECT_EQ(get(key), "(none)") << key << round << count;
                EXPECT_EQ(get("k3"), "old3");
                store->removeExpiredObjects();
                store->settle();
            }
        }
}

TEST_F(StoreTest, ExpiredObjectsGoByThemselves) {
    struct RealTime : Clock {
        Timestamp now() override { return std::chrono::system_clock::now(); }
        void sleep(std::chrono::nanoseconds) override {}
    } real;
    HybridStore timed({.configuration = {}, .coder = textCoder(), .file = nullptr}, real);
    std::promise<void> gone;
    StoredObject object(new std::string("a"), [&](void* pointer) {
        delete static_cast<std::string*>(pointer);
        gone.set_value();
    });
    timed.setObject(std::move(object), "key", real.now() + 20ms);
    EXPECT_EQ(gone.get_future().wait_for(60s), std::future_status::ready);
}

TEST_F(StoreTest, RemoveAllCoversMemoryGroupsDiskAndWhatIsUnderWay) {
    set("single", "a");
    setGroup("g", kLarge);
    crowdOut();
    setGroup("h", kLarge);
    setGroup("i", kSmall);
    store->removeAll();
    for (int round = 0; round < 2; ++round) {
        for (const char* key : {"single", "k1", "filler3"}) EXPECT_EQ(get(key), "(none)") << key;
        store->settle();
    }
    EXPECT_EQ(store->diskUsed(), 0u);
    set("single", "b");
    EXPECT_EQ(get("single"), "b");
}

TEST_F(StoreTest, RemoveAllRacingWritersAndReadersResurrectsNothing) {
    std::atomic<int> round{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int writer = 0; writer < 2; ++writer)
        threads.emplace_back([&, writer] {
            for (int i = 0; !stop; ++i) {
                set("w" + std::to_string(i % 40), "v");
                if (i % 50 == 0) setGroup("g", writer ? kLarge : kSmall);
            }
        });
    threads.emplace_back([&] {
        for (int i = 0; !stop; ++i) {
            const int begun = round; // all earlier rounds have been removed
            const std::string value = get("marked");
            get("k" + std::to_string(i % 100));
            EXPECT_GE(value == "(none)" ? begun : std::stoi(value), begun);
        }
    });
    for (int i = 1; i <= 200; ++i) {
        set("marked", std::to_string(i));
        round = i;
        store->removeAll();
        EXPECT_EQ(get("marked"), "(none)");
    }
    stop = true;
    for (auto& thread : threads) thread.join();
}

TEST_F(StoreTest, BytesThatCannotBeDecodedAreAMiss) {
    set("bad", "undecodable");
    set("good", "fine");
    for (int i = 0; i < 50; ++i) set("filler" + std::to_string(i), "f");
    store->settle();
    EXPECT_EQ(get("bad"), "(none)");
    EXPECT_EQ(get("good"), "fine");
}

TEST_F(StoreTest, AVeryLargeValueStaysOffTheDiskAndHidesWhatIsThere) {
    set("key", "early");
    store->settle();
    set("key", "huge");
    store->settle();
    EXPECT_EQ(get("key"), "huge");
    for (int i = 0; i < 50; ++i) set("filler" + std::to_string(i), "f");
    store->settle();
    EXPECT_EQ(get("key"), "(none)");
}

TEST_F(StoreTest, TheDiskKeepsToItsMaximumSize) {
    store = make({.name = "small", .diskMaximumSize = 100'000, .memoryCountLimit = 10});
    for (int i = 0; i < 5000; ++i) set("key" + std::to_string(i), "value");
    store->settle();
    EXPECT_LE(store->diskUsed(), 100'000u);
    EXPECT_EQ(get("key4900"), "value");
    EXPECT_EQ(get("key1"), "(none)");
}

TEST_F(StoreTest, WithoutADiskMemoryServes) {
    std::ofstream(directory / "occupied") << "a file";
    HybridStores broken(directory / "occupied/cache", clock);
    const auto memoryOnly = broken.make({.name = "f", .memoryCountLimit = 10}, textCoder());
    ASSERT_NE(memoryOnly, nullptr);
    for (int i = 0; i < 5; ++i) memoryOnly->setObject(text("v"), "key" + std::to_string(i), in(10s));
    memoryOnly->setObjects(std::make_shared<Group>("g", kLarge), in(10s));
    dynamic_cast<HybridStore&>(*memoryOnly).settle();
    EXPECT_EQ(valueOf(memoryOnly->object("key3")), "v");
    EXPECT_EQ(valueOf(memoryOnly->object("k2500")), "g2500");
}

TEST_F(StoreTest, AFileFromEarlierIsReplacedAndTheOwnOneRemoved) {
    const std::string path = stores.filePath("f-test");
    store = nullptr;
    EXPECT_FALSE(std::filesystem::exists(path));
    std::ofstream(path) << std::string(100'000, '\xff');
    store = make({.name = "f-test", .memoryCountLimit = 10});
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
    auto second = make({.name = "f-test", .memoryCountLimit = 10}); // takes the name, not the contents
    set("key", "a");
    for (int i = 0; i < 50; ++i) set("filler" + std::to_string(i), "f");
    store->settle();
    EXPECT_EQ(get("key"), "a");
    store = nullptr;
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(StoreTest, AnyNameMakesAFileOfItsOwn) {
    std::vector<std::unique_ptr<ObjectStore>> all;
    const std::vector<std::string> names{
        "", "..", "../../x", std::string("\0\n", 2), std::string(5000, 'n'), std::string(5001, 'n')};
    for (const std::string& name : names) all.push_back(stores.make({.name = name}, textCoder()));
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path() + "/cache")) {
        EXPECT_TRUE(entry.is_regular_file());
        ++files;
    }
    EXPECT_EQ(files, names.size() + 1);
}

TEST_F(StoreTest, RecordsThatAreDamagedOnTheDiskAreAMiss) {
    set("key", "a");
    for (int i = 0; i < 50; ++i) set("filler" + std::to_string(i), "f");
    store->settle();
    const std::string path = stores.filePath("f-test");
    const auto size = std::filesystem::file_size(path);
    for (const char fill : {'\xff', '\0'}) {
        std::ofstream(path, std::ios::in | std::ios::binary) << std::string(size, fill);
        EXPECT_EQ(get("key"), "(none)");
    }
    std::filesystem::resize_file(path, 10);
    EXPECT_EQ(get("key"), "(none)");
}

} // namespace
} // namespace brindlemar
