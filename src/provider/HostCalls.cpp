#include "provider/CallRows.h"

#include "items/ItemListing.h"
#include "messaging/BxMessages.h"
#include "provider/EventText.h"

#include <algorithm>

namespace brindlemar {

namespace {
BxMessages::TextHandler replyHandler(const Call& call) {
    return [call](const Payload& reply, const auto& error) { call.output->write(replyEvent(reply.bytes(), error)); };
}
} // namespace

void callAdmin(Call call) {
    const std::string method = call.text("method");
    const auto row = std::ranges::find(kAdminRequests, method, [](const RequestRow& each) { return each.method(); });
    if (row == kAdminRequests.end()) return call.fail(featureUnsupported());
    std::vector<JSON> values;
    for (std::size_t i = 0; i < row->keys.count; ++i) values.push_back(call.arguments[row->keys.names[i]]);
    BxMessages::sharedInstance().administer(*row, call.text("domain"), std::move(values), replyHandler(call));
}

void callSearch(Call call) {
    const ItemIdentifier identifier = call.id();
    const ResolvedIdentifier bucket = resolveIdentifier(identifier);
    BxMessages::sharedInstance().searchBucket(
        {.bucket = std::string(bucket.itemID),
         .searchString = call.text("text"),
         .withDomain = std::string(bucket.domain)},
        [call, domain = std::string(bucket.domain)](const Payload& reply, const auto& error) {
            const auto found = parseItemListing(reply.bytes(), {.withDomain = domain, .writableRoot = false});
            if (!found->empty()) call.output->write(itemsEvent(*found));
            call.output->write(completionEvent(nullptr, error));
            return kFinished;
        });
}

void callPath(Call call) {
    const ItemIdentifier identifier = call.id();
    const ResolvedIdentifier item = resolveIdentifier(identifier);
    BxMessages::sharedInstance().pathForIdentifier(
        {.forIdentifier = std::string(item.itemID), .withDomain = std::string(item.domain)}, replyHandler(call));
}

void callForget(Call call) {
    call.places.extension->caches->removeAll();
    call.output->write(completionEvent(nullptr, std::nullopt));
}

} // namespace brindlemar
