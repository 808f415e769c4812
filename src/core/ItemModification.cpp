#include "core/BrindlemarFileProvider.h"
#include "core/HostReply.h"
#include "core/ModificationDispatch.h"
#include "core/Staging.h"

#include "items/ConnectionRoots.h"
#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/OnceCompletion.h"
#include "support/TextForms.h"

namespace brindlemar {

namespace {
using Item = BrindlemarFileProviderItem;
using ItemPointer = std::shared_ptr<NSFileProviderItem>;
using Reply = std::optional<Payload>;

constexpr std::string_view kModify =
    "modifyItem(_:baseVersion:changedFields:contents:options:request:completionHandler:)";

std::string_view text(const Reply& reply) { return reply ? reply->bytes() : std::string_view(); }

/// One modification on its way: the item as the user has changed it, and where the result goes.
struct Modification {
    std::shared_ptr<ProviderState> provider;
    ItemPointer item;
    std::shared_ptr<NSProgress> progress;
    OnceCompletion<ItemPointer, ItemFields, bool, std::optional<NSError>> completion;
    LogScope log{Logger::shared(), kModify};

    ItemIdentifier identifier() const { return ItemIdentifier(item->itemIdentifier()); }
    std::string domain() const { return std::string(resolveIdentifier(item->itemIdentifier()).domain); }
    std::string itemID() const { return std::string(resolveIdentifier(item->itemIdentifier()).itemID); }
    std::string parentID() const { return std::string(parentIDForHost(item->parentItemIdentifier())); }

    void complete(ItemPointer result, std::optional<NSError> error = std::nullopt) const {
        if (!completion(std::move(result), 0, false, std::move(error)))
            log.warning("dropped a second result for ", item->itemIdentifier());
    }
    void fail(NSError error) const { complete(nullptr, std::move(error)); }
    /// Completes with the record of the host's fields, or cannot-synchronize when they make none.
    void completeWith(const std::shared_ptr<Item>& record) const {
        if (record)
            complete(record);
        else
            fail(cannotSynchronize());
    }
    std::shared_ptr<Item> record(const HostItemFields& fields) const {
        const std::string name = domain();
        return Item::fromFields(fields, {.withDomain = name, .writableRoot = provider->writableRoot});
    }

    void refresh(bool keepsLastUsedDate) const;
    void refreshed(std::string_view reply, bool keepsLastUsedDate) const;
    void completeWithConnection(const Connection& connection) const;
    void trash() const;
    void upload(const FileURL& contents) const;
    int uploadAnswered(const Reply& reply, const std::optional<NSError>& error) const;
    void update() const;
    int updateAnswered(const Reply& reply) const;
    void run(const ModifyDecision& decision, const std::optional<FileURL>& contents) const;
};

void Modification::refresh(bool keepsLastUsedDate) const {
    BxMessages::sharedInstance().itemJSON({.forIdentifier = itemID(), .withDomain = domain()},
                                          [self = *this, keepsLastUsedDate](Payload reply, const auto&) {
                                              self.refreshed(reply.bytes(), keepsLastUsedDate);
                                          });
}

void Modification::refreshed(std::string_view reply, bool keepsLastUsedDate) const {
    if (reply.empty()) return fail(serverUnreachable());
    if (reply == "{}") return fail(fileProviderErrorForNonExistentItem(identifier()));
    const JSON json = JSON::parse(reply);
    log.info("itemJSON ", reply);
    const auto result = record(HostItemFields::read(json));
    if (const auto used = item->lastUsedDate(); result && used && keepsLastUsedDate) result->aTime = *used;
    completeWith(result);
}

void Modification::completeWithConnection(const Connection& connection) const {
    complete(connectionRoot(connection, {.withDomain = kDefaultDomain, .writableRoot = provider->writableRoot}));
}

void Modification::trash() const {
    BxMessages::sharedInstance().deleteItem({.item = itemID(), .recursive = false, .withDomain = domain()},
                                            [self = *this](std::optional<NSError> error) {
                                                self.provider->caches->removeAll();
                                                self.complete(nullptr, std::move(error));
                                                return kFinished;
                                            });
}

void Modification::upload(const FileURL& contents) const {
    auto staged = StagedCopy::make(provider->tempURL, contents);
    if (auto* error = std::get_if<NSError>(&staged)) return fail(std::move(*error));
    const auto copy = std::get<0>(std::move(staged));
    BxMessages::sharedInstance().uploadItem(
        {.atPath = copy->path(),
         .withParentID = parentID(),
         .theName = std::string(item->filename()),
         .mtime = item->contentModificationDate(),
         .withDomain = domain()},
        [self = *this, copy](const Reply& reply, const auto& error) { return self.uploadAnswered(reply, error); });
}

int Modification::uploadAnswered(const Reply& reply, const std::optional<NSError>& error) const {
    if (completion.isDone()) {
        log.warning("dropped a second result for ", item->itemIdentifier());
        return kFinished;
    }
    progress->setCompletedUnitCount(100);
    if (error || text(reply).empty()) {
        fail(serverUnreachable());
        return kFinished;
    }
    const JSON json = JSON::parse(text(reply));
    if (isProgressReport(json)) {
        if (const auto percentage = progressPercentage(json)) progress->setCompletedUnitCount(*percentage);
        return kKeepListening;
    }
    const auto seconds = [](Timestamp time) { return JSONNumber(wholeSecondsSince1970(time)); };
    HostItemFields fields = HostItemFields::read(json);
    const auto modified = item->contentModificationDate();
    if (const auto used = item->lastUsedDate()) fields.atime = seconds(*used);
    if (modified) fields.mtime = seconds(*modified);
    const auto result = record(fields);
    if (result && modified) result->mTime = *modified;
    completeWith(result);
    return kFinished;
}

void Modification::update() const {
    BxMessages::sharedInstance().updateItem(
        {.theItemIdentifier = itemID(),
         .withParentID = parentID(),
         .theName = std::string(item->filename()),
         .theMtime = item->contentModificationDate().value_or(Platform::current().clock.now()),
         .withDomain = domain()},
        [self = *this](const Reply& reply, const auto&) { return self.updateAnswered(reply); });
}

int Modification::updateAnswered(const Reply& reply) const {
    progress->setCompletedUnitCount(100);
    if (text(reply) == "{}")
        fail(fileProviderErrorForNonExistentItem(identifier()));
    else if (text(reply).empty())
        fail(serverUnreachable());
    else
        completeWith(record(HostItemFields::read(JSON::parse(text(reply)))));
    return kFinished;
}

void Modification::run(const ModifyDecision& decision, const std::optional<FileURL>& contents) const {
    switch (decision.action) {
    case ModifyAction::refreshLastUsed:
        return refresh(true);
    case ModifyAction::connectionFolder:
        return completeWithConnection(*decision.connection);
    case ModifyAction::refresh:
        return refresh(false);
    case ModifyAction::trash:
        return trash();
    case ModifyAction::upload:
        return upload(*contents);
    case ModifyAction::update:
        return update();
    case ModifyAction::missingContents:
        return fail(cannotSynchronize());
    case ModifyAction::keep:
        return complete(item);
    }
}
} // namespace

std::shared_ptr<NSProgress> BrindlemarFileProvider::modifyItem(ItemChange change, ChangeHandler completionHandler) {
    const ItemIdentifier identifier(change.item->itemIdentifier());
    LogScope(Logger::shared(), kModify)
        .info("modifyItem: ", change.item->filename(), " changed ",
              printedList(changedFieldNames(change.changedFields)));
    const ResolvedIdentifier id = resolveIdentifier(identifier);
    if (id.qualified && !isConnected(id.domain)) {
        completionHandler(nullptr, 0, false, fileProviderErrorForNonExistentItem(identifier));
        return std::make_shared<NSProgress>();
    }
    auto progress = std::make_shared<NSProgress>(100);
    progress->setCompletedUnitCount(100);
    const std::vector<std::string> records = configured ? connections.copy() : std::vector<std::string>();
    const ModifyDecision decision = chooseModifyAction({.changedFields = change.changedFields,
                                                        .hasContents = change.contents.has_value(),
                                                        .itemIdentifier = identifier,
                                                        .parentItemIdentifier = change.item->parentItemIdentifier()},
                                                       records);
    const Modification modification{shared_from_this(),
                                    std::move(change.item),
                                    progress,
                                    {std::move(completionHandler), {nullptr, 0, false, cannotSynchronize()}}};
    modification.run(decision, change.contents);
    return progress;
}

} // namespace brindlemar
