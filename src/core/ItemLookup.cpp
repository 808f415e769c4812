#include "core/BrindlemarFileProvider.h"

#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/Logger.h"
#include "support/OnceCompletion.h"

namespace brindlemar {

namespace {
using Item = BrindlemarFileProviderItem;
using ItemCompletion = OnceCompletion<std::shared_ptr<NSFileProviderItem>, std::optional<NSError>>;

constexpr std::string_view kItem = "item(for:request:completionHandler:)";

/// One lookup on its way: who asked for what, and where the answer goes.
struct Lookup {
    std::shared_ptr<ProviderState> provider;
    ItemIdentifier identifier;
    std::shared_ptr<NSProgress> progress;
    ItemCompletion completion;
    LogScope log{Logger::shared(), kItem};

    ResolvedIdentifier resolved() const { return resolveIdentifier(identifier); }
    void complete(std::shared_ptr<NSFileProviderItem> item, std::optional<NSError> error) const {
        if (!completion(std::move(item), std::move(error))) log.warning("dropped a second result for ", identifier);
        progress->setCompletedUnitCount(1);
    }
    void replyArrived(std::string_view reply) const;
    void run() const;
};

void Lookup::replyArrived(std::string_view reply) const {
    if (reply.empty()) return complete(nullptr, serverUnreachable());
    if (reply == "{}") return complete(nullptr, fileProviderErrorForNonExistentItem(identifier));
    const JSON json = JSON::parse(reply);
    log.info("itemJSON ", reply);
    auto item = Item::fromJSON(json, {.withDomain = resolved().domain, .writableRoot = provider->writableRoot});
    // A reply that is no item says nothing about the item; no-such-item would make the platform drop it.
    const auto error = item ? std::nullopt : std::optional(cannotSynchronize());
    complete(std::move(item), error);
}

void Lookup::run() const {
    const auto [domain, itemID, qualified] = resolved();
    const bool connected = provider->connections.with([](const auto& records) { return !records.empty(); });
    if (itemID == kHostRootID && connected) return complete(nullptr, fileProviderErrorForNonExistentItem(identifier));
    if (identifier == NSFileProviderTrashContainerItemIdentifier) {
        auto item = Item::trashItemForDomain(domain);
        log.info("Completing ", itemID);
        return complete(std::move(item), std::nullopt);
    }
    if (identifier == NSFileProviderRootContainerItemIdentifier) {
        auto item = Item::rootItemForDomain(domain, provider->writableRoot);
        log.info("Completing ", itemID);
        progress->setCompletedUnitCount(1);
        return complete(std::move(item), std::nullopt);
    }
    log.info("In info for ", itemID);
    if (auto item = provider->caches->item(cacheKey(domain, itemID))) return complete(std::move(item), std::nullopt);
    BxMessages::sharedInstance().itemJSON(
        {.forIdentifier = std::string(itemID), .withDomain = std::string(domain)},
        [lookup = *this](const Payload& reply, const auto&) { lookup.replyArrived(reply.bytes()); });
}
} // namespace

std::shared_ptr<NSProgress> BrindlemarFileProvider::item(ItemIdentifier identifier, ItemHandler completionHandler) {
    const ResolvedIdentifier resolved = resolveIdentifier(identifier);
    auto progress = std::make_shared<NSProgress>(1);
    LogScope(Logger::shared(), kItem).info("Item coming in for ", identifier);
    if (resolved.qualified && !isConnected(resolved.domain)) {
        completionHandler(nullptr, fileProviderErrorForNonExistentItem(identifier));
        return std::make_shared<NSProgress>();
    }
    const ItemCompletion completion(std::move(completionHandler), {nullptr, cannotSynchronize()});
    Platform::current().tasks.async(
        [lookup = Lookup{shared_from_this(), std::move(identifier), progress, completion}] { lookup.run(); });
    return progress;
}

} // namespace brindlemar
