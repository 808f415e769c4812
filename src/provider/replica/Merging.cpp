#include "provider/replica/Merging.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace brindlemar::replica {

bool Replica::Merging::isPast(Inode folder, const NSFileProviderItem& item) const {
    if (replica.past_.isEmpty()) return false; // as with most listings
    Row told;
    told.folder = item.contentType() == UTType::directory;
    told.host = hostVersion(item);
    told.hostParent = folder;
    told.hostName = item.filename();
    return replica.past_.knows(item.itemIdentifier(), told, began);
}

std::optional<Row> Replica::Merging::known(std::string_view identifier) {
    auto row = statements.known(identifier);
    if (!row) return row;
    if (!hasNameless) hasNameless = statements.anyNameless.first(Statements::readInode).has_value();
    if (!*hasNameless || !replica.isStale(row->hostParent)) return row;
    statements.disown.run(row->inode);
    return std::nullopt;
}

/// The folder, if it is the one that a listing of this identifier is about.
std::optional<Row> Replica::folderOf(Inode folder, std::string_view identifier) {
    auto row = changes_->get(folder);
    if (row && (row->identifier != identifier || isStale(row->hostParent))) row.reset();
    return row;
}

void Replica::Merging::take(const Row& around, const NSFileProviderItem& item) {
    if (!isFileName(item.filename())) return; // no directory can show it
    const Inode folder = around.inode;
    if (isPast(folder, item)) return;
    const bool isFolder = item.contentType() == UTType::directory;
    auto row = known(item.itemIdentifier());
    if (row && row->folder != isFolder) { // another item
        if (replica.sent(row->inode) || statements.isAround(row->inode, folder)) return;
        forget(*row);
        row.reset();
    }
    if (!row) row = statements.lost.first(Statements::read, folder, item.filename());
    if (row && row->folder == isFolder) return meet(std::move(*row), around, item);
    if (!replica.isExpected(folder, item.filename())) insert(around, item);
}

/// An item that has a row, found by its identifier, or by its place when it has lost it.
void Replica::Merging::meet(Row row, const Row& around, const NSFileProviderItem& item) {
    const HostVersion version = hostVersion(item);
    const Row before = row;
    const LocalSide here{.known = row.folder ? version : row.host, // that of a folder changes with what is in it
                         .contentsChanged = (row.pending.fields & ItemField::contents) != 0,
                         .uploading = row.sent,
                         .deleted = row.pending.deletion,
                         .isSent = replica.sent(row.inode) != nullptr};
    const MergeAction action = chooseMerge(here, version);
    switch (action) {
    case MergeAction::keepBoth:
        return keepBoth(std::move(row), around, item);
    case MergeAction::restore:
        statements.erase.run(row.inode);
        return insert(around, item);
    case MergeAction::insert:
    case MergeAction::leave:
        row.identifier = item.itemIdentifier();
        row.hostParent = around.inode;
        row.hostName = item.filename();
        if (row.identifier == before.identifier) return;
        statements.put(row); // what was lost can be told now
        if (row.folder) replica.estrange(row.inode, began);
        return;
    case MergeAction::drop:
        row.contents.reset();
        break;
    case MergeAction::refresh:
        break;
    }
    takeProperties(row, item);
    show(row, around.inode, item.filename());
    if (row.folder && row.identifier != before.identifier) replica.estrange(row.inode, began);
    update(before, row, action == MergeAction::drop && !row.folder);
    if (around.pending.deletion && row.parent == around.inode) revive(around.inode);
}

void Replica::Merging::show(Row& row, Inode folder, std::string_view name) {
    const bool isMoved = row.folder && row.hostParent != folder;
    if (isMoved && statements.isAround(row.inode, folder, true))
        return; // each in the other: one of the listings is older
    row.hostParent = folder;
    row.hostName = name;
    if (row.sentParent == folder && row.sentName == name) row.sentParent = 0;
    if (row.pending.creation || row.pending.fields & kPlaceFields) return;
    if (row.parent == folder && row.name == name) return;
    if (isMoved && statements.isAround(row.inode, folder)) { // what it is in there has been put into it here
        row.pending.fields |= ItemField::parentItemIdentifier;
        return;
    }
    giveName(row, folder, name);
    row.parent = folder;
}

/// The host's, unless the entry of another item has it; then one that the host is to hear of when it would write that
/// other item over this one.
void Replica::Merging::giveName(Row& row, Inode folder, std::string_view name) {
    const auto other = statements.shown(folder, name);
    const bool isWanted =
        other && other->inode != row.inode && (other->pending.creation || other->pending.fields & kPlaceFields);
    const bool isTold = isWanted && folder != kRoot;
    if (isTold) row.pending.fields |= ItemField::filename;
    row.name = statements.freeNameFor(row, folder, isTold ? remoteCopyName(name, began) : std::string(name));
}

void Replica::Merging::update(const Row& before, Row& after, bool contents) {
    if (after == before && !contents) return;
    if (contents || after.modified != before.modified || after.size != before.size)
        after.changed = std::max(after.changed, began);
    statements.put(after);
    const bool isMoved = before.parent != after.parent || before.name != after.name;
    if (isMoved) effects.push_back({.parent = before.parent, .name = before.name, .inode = after.inode, .entry = true});
    if (isMoved || contents || after.modified != before.modified || after.size != before.size ||
        after.capabilities != before.capabilities || after.flags != before.flags)
        effects.push_back(
            {.parent = after.parent, .name = after.name, .inode = after.inode, .entry = isMoved, .contents = contents});
}

/// Whether what has come is what waits for the host here: by its version, as it has no identifier yet, or another one.
static bool isThisOne(const Row& waiting, const Row& come, bool wasSentThere) {
    if (waiting.folder != come.folder) return false;
    if (waiting.folder && (waiting.pending.creation || wasSentThere)) return true;
    return waiting.sent == come.host || (!waiting.pending.creation && waiting.host == come.host);
}

/// What was sent to that place, or waits to be.
std::optional<Row> Replica::Merging::expected(const Row& come) {
    for (Row& row : Statements::all(statements.sentTo, come.parent, std::string_view(come.hostName)))
        if (!replica.sent(row.inode) && isThisOne(row, come, true)) return std::move(row);
    auto row = statements.shown(come.parent, come.hostName);
    const bool isWaiting = row && (row->pending.creation || row->pending.fields & kPlaceFields);
    if (isWaiting && isThisOne(*row, come, false)) return row;
    return std::nullopt;
}

void Replica::Merging::insert(const Row& around, const NSFileProviderItem& item) {
    const Inode folder = around.inode;
    Row row;
    takeProperties(row, item);
    row.parent = row.hostParent = folder;
    row.hostName = item.filename();
    if (auto same = expected(row)) { // and the answer that said so was lost
        Pending& pending = same->pending;
        if (std::exchange(pending.creation, false) && !same->folder) pending.fields = kContentsFields;
        pending.fields &= ~kPlaceFields;
        if (!pending.deletion) pending.fields |= placeChanges(folder, row.hostName, same->parent, same->name);
        same->sentParent = 0; // known now
        return meet(std::move(*same), around, item);
    }
    giveName(row, folder, row.hostName);
    statements.put(row);
    // Before it is listed the kernel remembers neither all its entries nor names that it has not; and who looks for one
    // holds what a notice would wait for.
    if (around.listed) effects.push_back({.parent = folder, .name = row.name, .inode = row.inode, .entry = true});
    if (around.pending.deletion) revive(folder);
}

/// A folder that was removed here is not: somebody has put something into it.
void Replica::Merging::revive(Inode folder) {
    auto row = statements.get(folder);
    while (row && row->pending.deletion && !replica.sent(row->inode)) {
        if (row->hostParent != 0) {
            row->parent = row->hostParent; // the folder that it was moved to may be gone
            row->name = row->hostName;
        }
        row->name = statements.freeNameFor(*row, row->parent, row->name);
        row->pending = {.fields = row->name != row->hostName ? ItemField::filename : 0};
        row->sentParent = 0;
        statements.put(*row);
        effects.push_back({.parent = row->parent, .name = row->name, .inode = row->inode, .entry = true});
        row = statements.get(row->parent);
    }
}

/// The local file is new to the host from now on; the host's own appears beside it.
void Replica::Merging::keepBoth(Row mine, const Row& around, const NSFileProviderItem& item) {
    mine.identifier.reset();
    mine.host = {};
    mine.sent.reset();
    mine.sentParent = 0;
    mine.hostParent = 0;
    mine.hostName.clear();
    mine.pending = {.creation = true};
    statements.put(mine);
    insert(around, item);
}

Effects Replica::merge(Inode folder, std::string_view identifier,
                       std::span<const std::shared_ptr<NSFileProviderItem>> items, Timestamp began) {
    if (items.empty()) return {};
    return inSteps(began, &Replica::write, [&](Merging& merging) {
        const auto some = items.first(std::min(items.size(), kStep));
        items = items.subspan(some.size());
        const auto row = folderOf(folder, identifier);
        if (!row) return false;
        past_.forget(began);
        for (const auto& item : some) merging.take(*row, *item);
        return !items.empty();
    });
}

/// A transaction for each, until step() gives false; others get their turn between. taken() follows when it is written.
Effects Replica::inSteps(Timestamp began, Writer writer, const std::function<bool(Merging&)>& step,
                         const std::function<void()>& taken) {
    Effects effects;
    for (bool goesOn = true; goesOn;) {
        Merging merging(*this, began);
        try {
            const auto body = [&] {
                merging.effects.clear();
                goesOn = step(merging);
            };
            (this->*writer)(body, Safe::fromCrash);
            taken();
        } catch (...) {
            std::lock_guard lock(writing_);
            std::ranges::move(effects, std::back_inserter(untold_));
            throw;
        }
        std::ranges::move(merging.effects, std::back_inserter(effects));
    }
    std::lock_guard lock(writing_);
    std::ranges::move(std::exchange(untold_, {}), std::back_inserter(effects));
    return effects;
}

} // namespace brindlemar::replica
