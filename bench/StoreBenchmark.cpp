// 1,000,000 records of 250 bytes into an item store as one group: the caller's time, and the time until all are indexed
// and on the disk. The floor is what no store of single objects can do without: a hash map of the keys to the objects.
// To reach: at most 1,500 ns a record off the caller's path, microseconds on it.
#include "Paired.h"
#include "linux/queues/SystemClock.h"
#include "linux/store/HybridStore.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <unordered_map>

namespace brindlemar::bench {
namespace {

constexpr std::size_t kCount = 1'000'000;

struct TemporaryDirectory {
    TemporaryDirectory() { path = ::mkdtemp(path.data()); }
    ~TemporaryDirectory() { std::filesystem::remove_all(path); }
    std::string path = "/tmp/brindlemar-bench.XXXXXX";
};

/// A listing as the extension holds it: all records in one block.
class Listing final : public ObjectGroup {
public:
    struct Record {
        char key[48];
        char bytes[202];
    };
    explicit Listing(bool inOrder, const char* folder = "holiday", std::size_t count = kCount)
        : records_(std::make_shared<std::vector<Record>>(count)) {
        std::vector<std::size_t> numbers(count);
        for (std::size_t i = 0; i < count; ++i) numbers[i] = i;
        if (!inOrder) std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));
        for (std::size_t i = 0; i < count; ++i)
            std::snprintf((*records_)[i].key, sizeof Record::key, "c7-photos/2024/%s/IMG_%08zu.jpg", folder,
                          numbers[i]);
    }
    std::size_t count() const override { return records_->size(); }
    void appendKey(std::size_t index, std::string& key) const override { key.append((*records_)[index].key); }
    StoredObject object(std::size_t index) const override { return {records_, &(*records_)[index]}; }

private:
    std::shared_ptr<std::vector<Record>> records_;
};

ObjectCoder coder() {
    return {.encode =
                [](const StoredObject& object, std::string& bytes) {
                    bytes.append(static_cast<const char*>(object.get()), sizeof(Listing::Record));
                },
            .decode = [](std::string_view bytes) -> StoredObject { return std::make_shared<std::string>(bytes); }};
}

/// Of this thread, whoever else runs in between.
template <class Body>
double ownSeconds(Body&& body) {
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    body();
    return now() - start;
}

void adoptListing(benchmark::State& state) {
    const TemporaryDirectory directory;
    SystemClock clock;
    QueueTimers timers;
    HybridStores stores(directory.path, clock, timers, [](std::string_view) {});
    const auto listing = std::make_shared<Listing>(state.range(0) == 0);
    std::vector<double> onCaller, read;
    std::uint64_t onDisk = 0;
    const auto floor = [&] {
        std::unordered_map<std::string, StoredObject> map;
        map.reserve(kCount);
        std::string key;
        for (std::size_t i = 0; i < kCount; ++i) {
            key.clear();
            listing->appendKey(i, key);
            map.emplace(key, listing->object(i));
        }
        benchmark::DoNotOptimize(map);
    };
    std::unique_ptr<ObjectStore> store;
    const auto subject = [&] {
        store = stores.make({.name = "ff-bench", .memoryCountLimit = 1000}, coder());
        onCaller.push_back(ownSeconds([&] { store->setObjects(listing, clock.now() + std::chrono::minutes(10)); }));
        static_cast<HybridStore&>(*store).settle();
        onDisk = std::filesystem::file_size(stores.filePath("ff-bench"));
    };
    paired(state, kCount, floor, subject);
    if (onDisk < kCount * sizeof(Listing::Record)) state.SkipWithError("not all of it reached the disk");
    constexpr std::size_t kReads = 100'000;
    read.push_back(seconds([&] {
        std::string key;
        for (std::size_t i = 0; i < kReads; ++i) {
            key.clear();
            listing->appendKey(i * 7919 % kCount, key);
            if (!store->object(key)) state.SkipWithError("a record is missing");
        }
    }));
    state.counters["caller_us"] = median(onCaller) * 1e6;
    state.counters["get_ns"] = median(read) / kReads * 1e9;
    state.counters["removeAll_us"] = ownSeconds([&] { store->removeAll(); }) * 1e6;
}
BENCHMARK(adoptListing)
    ->ArgName("shuffled")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/// From the disk: the group has left memory.
void readFromDisk(benchmark::State& state) {
    const TemporaryDirectory directory;
    SystemClock clock;
    QueueTimers timers;
    HybridStores stores(directory.path, clock, timers, [](std::string_view) {});
    const auto store = stores.make({.name = "ff-bench", .memoryCountLimit = 1}, coder());
    const auto listing = std::make_shared<Listing>(true);
    const auto later = clock.now() + std::chrono::minutes(10);
    store->setObjects(listing, later);
    static_cast<HybridStore&>(*store).settle();
    store->setObjects(std::make_shared<Listing>(true, "other", 1000), later);
    static_cast<HybridStore&>(*store).settle();
    std::size_t i = 0;
    std::string key;
    for (auto _ : state) {
        key.clear();
        listing->appendKey(i++ * 7919 % kCount, key);
        if (!store->object(key)) state.SkipWithError("a record is missing");
    }
}
BENCHMARK(readFromDisk);

} // namespace
} // namespace brindlemar::bench
