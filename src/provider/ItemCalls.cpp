#include "provider/CallRows.h"

#include "items/ConnectionRoots.h"
#include "provider/EventText.h"
#include "provider/ItemDraft.h"
#include "provider/ServiceFiles.h"
#include "provider/mount/Mount.h"
#include "support/ItemFieldNames.h"
#include "support/Logger.h"

namespace brindlemar {

namespace {
/// Writes the progress out, and cancels it when nobody listens any more.
void follow(const Call& call, const std::shared_ptr<NSProgress>& progress) {
    progress->setObserver([output = call.output](std::int64_t completed, std::int64_t total) {
        output->write(progressEvent(completed, total));
    });
    call.output->onReaderGone([weak = std::weak_ptr(progress)] {
        if (const auto alive = weak.lock()) alive->cancel();
    });
}

/// The mount shows at once what was done: the item as it is now, if there is one, and not by its former identifier.
void showDone(const Call& call, const std::shared_ptr<NSFileProviderItem>& item, const ItemIdentifier& former) {
    if (!call.places.mount) return;
    ChangeSet changes;
    if (item) changes.updated.emplace_back(std::make_shared<ItemList>(ItemList{item}));
    if (!former.empty() && (!item || item->itemIdentifier() != former)) changes.deleted.push_back(former);
    call.places.mount->apply(changes);
}

/// `former`: empty for a new item.
NSFileProviderReplicatedExtension::ChangeHandler changeHandler(const Call& call, const ItemIdentifier& former) {
    return [call, former](const auto& item, ItemFields pending, bool shouldFetchContent, const auto& error) {
        if (!error) showDone(call, item, former);
        call.output->write(changeEvent(item.get(), pending, shouldFetchContent, error));
    };
}

/// The platform's rule for what an extension hands over: only a file from its own temporary directory.
void takeOver(const Call& call, const FileURL& file, const NSFileProviderItem* item) {
    FetchedFiles& fetched = call.places.fetched;
    const auto taken = fetched.take(file);
    if (const auto* why = std::get_if<std::string>(&taken)) {
        LogScope(Logger::shared(), "takeOver(_:)").warning(*why);
        call.output->write(fetchEvent(std::nullopt, nullptr, cannotSynchronize()));
        return;
    }
    const FileURL& contents = std::get<FileURL>(taken);
    if (call.arguments["lend"].uInt16Value()) fetched.lend(contents, call.output);
    if (!call.output->write(fetchEvent(contents, item, std::nullopt))) fetched.drop(contents);
}

/// The top folder of a connection, which lookups do not find.
std::shared_ptr<NSFileProviderItem> connectionFolder(const Call& call, const ItemIdentifier& identifier) {
    const auto roots = connectionRoots(call.places.extension->connections.copy(),
                                       {.withDomain = kDefaultDomain, .writableRoot = false});
    for (const auto& item : *roots)
        if (item->itemIdentifier() == identifier) return item;
    return nullptr;
}

void modify(const Call& call, ItemDraft draft) {
    const auto override = [&](std::string_view key, std::string& value) {
        if (const auto text = call.arguments[key].string()) value = *text;
    };
    override("name", draft.name);
    override("parent", draft.parent);
    if (const auto time = call.time("mtime")) draft.modified = time;
    if (const auto time = call.time("atime")) draft.used = time;
    if (const auto flags = call.arguments["flags"].number()) draft.flags = flags->uint32Value();
    const CopiesForCall copies([&] { return call.output->isOpen(); }, call.domain());
    const auto progress =
        call.places.extension->modifyItem({.item = std::make_shared<ItemDraft>(std::move(draft)),
                                           .changedFields = itemFields(call.text("fields")).value_or(0),
                                           .contents = call.file()},
                                          changeHandler(call, call.id()));
    follow(call, progress);
}
} // namespace

void callItem(Call call) {
    follow(call, call.places.extension->item(call.id(), [call](const auto& item, const auto& error) {
        call.output->write(completionEvent(item.get(), error));
    }));
}

void callDelete(Call call) {
    follow(call, call.places.extension->deleteItem(call.id(), [call](const auto& error) {
        if (!error) showDone(call, nullptr, call.id());
        call.output->write(completionEvent(nullptr, error));
    }));
}

void callFetch(Call call) {
    follow(call, call.places.extension->fetchContents(
                     call.id(), [call](const auto& contents, const auto& item, const auto& error) {
                         if (contents) return takeOver(call, *contents, item.get());
                         call.output->write(fetchEvent(std::nullopt, item.get(), error));
                     }));
}

void callCreate(Call call) {
    ItemDraft draft;
    draft.parent = call.text("parent");
    draft.name = call.text("name");
    draft.modified = call.time("mtime");
    const auto contents = call.file();
    if (!contents) draft.type = UTType::directory;
    const CopiesForCall copies([&] { return call.output->isOpen(); }, call.domain());
    follow(call, call.places.extension->createItem({std::make_shared<ItemDraft>(std::move(draft)), contents},
                                                   changeHandler(call, "")));
}

void callModify(Call call) {
    const ItemIdentifier identifier = call.id();
    if (const auto folder = connectionFolder(call, identifier)) return modify(call, ItemDraft(*folder));
    call.places.extension->item(identifier, [call, identifier](const auto& item, const std::optional<NSError>& error) {
        if (item) return modify(call, ItemDraft(*item));
        const bool isDescribed = call.arguments["name"].string() && call.arguments["parent"].string();
        if (!isDescribed) return call.fail(error.value_or(cannotSynchronize()));
        ItemDraft draft;
        draft.identifier = identifier;
        modify(call, std::move(draft));
    });
}

} // namespace brindlemar
