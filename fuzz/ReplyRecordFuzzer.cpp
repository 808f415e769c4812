// A host's reply, read by both roads that make records of it: the one pass over a listing and the dynamic value. They
// must agree, and neither may be brought down.
#include "fakes/ManualQueue.h"
#include "NoServices.h"
#include "items/ItemListing.h"

#include <cstdlib>

namespace {
using namespace brindlemar;

struct FixedClock final : Clock {
    Timestamp now() override { return timestampFromSeconds(1'700'000'000); }
    void sleep(std::chrono::nanoseconds) override {}
};

const bool installed = [] {
    static FixedClock clock;
    static ManualQueue queue;
    static NoPorts ports;
    static NoManagers managers;
    static NoXPC xpc;
    static NoFiles files;
    static NoStores stores;
    static NoLog log;
    Platform::install({clock, queue, queue, queue, ports, managers, xpc, files, stores, log});
    return true;
}();

void require(bool holds) {
    if (!holds) std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    require(installed);
    const std::string_view reply(reinterpret_cast<const char*>(data), size);
    const BrindlemarFileProviderItem::Context context{.withDomain = "d1"};
    const JSON json = JSON::parse(reply);

    std::vector<std::shared_ptr<BrindlemarFileProviderItem>> expected;
    if (json.isArray())
        json.forEach([&](std::string_view, const JSON& element) {
            if (auto item = BrindlemarFileProviderItem::fromJSON(element, context)) expected.push_back(std::move(item));
        });
    const auto list = parseItemListing(reply, context);
    require(list->size() == expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& item = static_cast<const BrindlemarFileProviderItem&>(*(*list)[i]);
        require(item.description() == expected[i]->description());
        require(item.permissions == expected[i]->permissions && item.aTime == expected[i]->aTime);
        require(item.userInfo() == expected[i]->userInfo() && item.decorations() == expected[i]->decorations());
        std::string bytes;
        KeyedEncoder encoder(bytes);
        item.encode(encoder);
        const auto copy = BrindlemarFileProviderItem::from(*KeyedDecoder::open(bytes));
        require(copy && copy->description() == item.description());
    }
    if (const auto decoder = KeyedDecoder::open(reply)) BrindlemarFileProviderItem::from(*decoder);
    json.description();
    return 0;
}
