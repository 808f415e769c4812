// From a host's listing reply to the pages that the platform gets.
#include "BenchPlatform.h"
#include "Listings.h"
#include "Paired.h"
#include "items/BrindlemarFileProviderItemEnumerator.h"
#include "items/ItemListing.h"

#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>

#include <malloc.h>

#include <fstream>

namespace brindlemar::bench {
namespace {

constexpr std::size_t kItems = 1'000'000;

const std::string& millionItems() {
    static const std::string text = listingText(kItems);
    return text;
}

double residentMegabytes(const char* field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field)) return std::stod(line.substr(line.find(':') + 1)) / 1024;
    return 0;
}

/// Reply text to finished records, against a plain parse of the same text into a document.
void recordsFromReply(benchmark::State& state) {
    BenchPlatform platform;
    const std::string& text = millionItems();
    std::shared_ptr<const ItemList> list;
    double kept = 0, peak = 0;
    paired(
        state, kItems,
        [&] {
            boost::json::monotonic_resource memory;
            benchmark::DoNotOptimize(boost::json::parse(text, &memory));
        },
        [&] {
            list = parseItemListing(text, {.withDomain = "c7"});
            if (list->size() != kItems) state.SkipWithError("records are missing");
        });
    list.reset();
    ::malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5; // the peak starts anew (proc(5))
    const double before = residentMegabytes("VmRSS");
    list = parseItemListing(text, {.withDomain = "c7"});
    kept = residentMegabytes("VmRSS") - before;
    peak = residentMegabytes("VmHWM") - before;
    state.counters["text_MB"] = static_cast<double>(text.size()) / 1e6;
    state.counters["kept_bytes_per_item"] = kept * 1024 * 1024 / kItems;
    state.counters["peak_MB_beside_text"] = peak;
}
BENCHMARK(recordsFromReply)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

struct LastPage final : NSFileProviderEnumerationObserver {
    std::int64_t suggestedPageSize() const override { return 200; }
    void didEnumerateItems(ItemBatch items) override { benchmark::DoNotOptimize(items.items().data()); }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage>) override {}
};

/// A store that holds one listing: what a page costs beside the store.
struct OneListing final : ObjectStores {
    struct Store final : ObjectStore {
        explicit Store(StoredObject list) : list(std::move(list)) {}
        StoredObject object(std::string_view) override { return list; }
        void setObject(StoredObject, std::string_view, Timestamp) override {}
        void setObjects(std::shared_ptr<const ObjectGroup>, Timestamp) override {}
        void removeAll() override {}
        void removeExpiredObjects() override {}
        StoredObject list;
    };
    explicit OneListing(std::shared_ptr<const ItemList> list) : list(std::const_pointer_cast<ItemList>(list)) {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration, ObjectCoder) override {
        return std::make_unique<Store>(list);
    }
    StoredObject list;
};

/// The next page of a cached listing of a million items, against one of a thousand.
void nextPage(benchmark::State& state) {
    BenchPlatform platform;
    constexpr int kPages = 10'000;
    const auto enumerator = [&](std::size_t count) {
        OneListing stores(parseItemListing(listingText(count), {.withDomain = "c7"}));
        auto provider = std::make_shared<ProviderState>();
        provider->caches = std::make_unique<const ItemCaches>(stores, platform.clock, "bench");
        return std::make_shared<BrindlemarFileProviderItemEnumerator>(BrindlemarFileProviderItemEnumerator::Container{
            .domain = "c7", .itemID = "photos", .provider = provider, .rawContainer = {}});
    };
    const auto shortList = enumerator(1000), longList = enumerator(kItems);
    const auto observer = std::make_shared<LastPage>();
    const auto pages = [&](const auto& list) {
        for (int i = 0; i < kPages; ++i) list->enumerateItems(observer, NSFileProviderPage(std::int64_t{400}));
    };
    paired(
        state, kPages, [&] { pages(shortList); }, [&] { pages(longList); });
}
BENCHMARK(nextPage)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace brindlemar::bench
