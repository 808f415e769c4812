#include "core/BrindlemarFileProvider.h"
#include "core/HostReply.h"
#include "core/Staging.h"

#include "messaging/BxMessages.h"
#include "support/Logger.h"
#include "support/OnceCompletion.h"

namespace brindlemar {

namespace {
using Item = BrindlemarFileProviderItem;
using ItemPointer = std::shared_ptr<NSFileProviderItem>;

/// A folder's custom icon, which no remote storage wants.
constexpr std::string_view kIconFile = "Icon\r";

/// One creation on its way.
struct Creation {
    std::shared_ptr<ProviderState> provider;
    ItemPointer basedOn;
    std::shared_ptr<NSProgress> progress;
    OnceCompletion<ItemPointer, ItemFields, bool, std::optional<NSError>> completion;
    std::shared_ptr<const StagedCopy> staged{}; // for the host, until its last answer or its loss

    ResolvedIdentifier parent() const { return resolveIdentifier(basedOn->parentItemIdentifier()); }
    void fail(NSError error) const { finish(nullptr, std::move(error)); }
    void finish(ItemPointer item, std::optional<NSError> error = std::nullopt) const;
    int replyArrived(const std::optional<Payload>& reply, const std::optional<NSError>& error) const;
};

void Creation::finish(ItemPointer item, std::optional<NSError> error) const {
    const LogScope log{Logger::shared(), "createItem(basedOn:fields:contents:options:request:completionHandler:)"};
    if (!completion(std::move(item), 0, false, std::move(error)))
        log.warning("dropped a second result for ", basedOn->filename());
}

int Creation::replyArrived(const std::optional<Payload>& reply, const std::optional<NSError>& error) const {
    const std::string_view text = reply ? reply->bytes() : std::string_view();
    if (error || text.empty() || text == "{}") {
        fail(cannotSynchronize());
        return kFinished;
    }
    const JSON json = JSON::parse(text);
    if (isProgressReport(json)) return kKeepListening;
    provider->caches->removeAll();
    progress->setCompletedUnitCount(100);
    auto item = Item::fromJSON(json, {.withDomain = parent().domain, .writableRoot = provider->writableRoot});
    if (item)
        finish(std::move(item));
    else
        fail(cannotSynchronize());
    return kFinished;
}
} // namespace

std::shared_ptr<NSProgress> BrindlemarFileProvider::createItem(ItemTemplate basedOn, ChangeHandler completionHandler) {
    auto progress = std::make_shared<NSProgress>(100);
    const auto creation = std::make_shared<Creation>(
        Creation{.provider = shared_from_this(),
                 .basedOn = basedOn.item,
                 .progress = progress,
                 .completion = {std::move(completionHandler), {nullptr, 0, false, cannotSynchronize()}}});
    progress->setCancellationHandler([weak = std::weak_ptr(creation)] {
        if (const auto self = weak.lock()) self->completion(nullptr, 0, false, userCancelled());
    });
    const ItemIdentifier parentIdentifier(basedOn.item->parentItemIdentifier());
    const ResolvedIdentifier parent = resolveIdentifier(parentIdentifier);
    if (parent.qualified && !isConnected(parent.domain)) {
        creation->fail(fileProviderErrorForNonExistentItem(parentIdentifier));
        return std::make_shared<NSProgress>();
    }
    auto staged = StagedCopy::make(tempURL, basedOn.contents);
    if (auto* error = std::get_if<NSError>(&staged)) {
        creation->fail(std::move(*error));
        return progress;
    }
    if (basedOn.item->filename() == kIconFile || parentIdentifier == NSFileProviderRootContainerItemIdentifier) {
        creation->finish(basedOn.item);
        progress->setCompletedUnitCount(100);
        return progress;
    }
    creation->staged = std::get<0>(std::move(staged));
    BxMessages::sharedInstance().uploadItem(
        {.atPath = creation->staged->path(),
         .withParentID = std::string(parent.itemID),
         .theName = std::string(basedOn.item->filename()),
         .mtime = basedOn.item->contentModificationDate(),
         .withDomain = std::string(parent.domain)},
        [creation](const auto& reply, const auto& error) { return creation->replyArrived(reply, error); });
    return progress;
}

} // namespace brindlemar
