// What the host does not have any more.
#include "provider/replica/Merging.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace brindlemar::replica {

void Replica::Merging::forget(const Row& row) {
    std::size_t most = std::numeric_limits<std::size_t>::max();
    Going going = begin(row);
    goOn(going, most);
}

Replica::Going Replica::Merging::begin(const Row& row, bool isConnection) {
    return {.path = {{row.inode, row.identifier}}, .isConnection = isConnection};
}

void Replica::Merging::goOn(Going& going, std::size_t& most) {
    auto& path = going.path;
    const auto goes = [&](const Going::Folder& folder) {
        const auto row = statements.get(folder.inode);
        return row && (!row->identifier || row->identifier == folder.identifier);
    };
    path.erase(std::ranges::find_if_not(path, goes), path.end());
    for (; !path.empty() && most > 0; --most) {
        Going::Folder& folder = path.back();
        if (auto next = nextBelow(folder)) {
            if (next->folder)
                path.push_back({next->inode, next->identifier});
            else
                leave(*next, going.isConnection);
            continue;
        }
        if (const auto row = statements.get(folder.inode)) leave(*row, going.isConnection);
        path.pop_back();
    }
}

std::optional<Row> Replica::Merging::nextBelow(Going::Folder& folder) {
    if (!folder.moved) {
        if (auto next = statements.below.first(Statements::read, folder.inode, folder.last)) {
            folder.last = next->inode;
            return next;
        }
        folder.moved.emplace();
        for (const Row& row : Statements::all(statements.onHost, folder.inode))
            if (row.parent != folder.inode) folder.moved->push_back(row.inode);
    }
    while (!folder.moved->empty()) {
        auto next = statements.get(folder.moved->back());
        folder.moved->pop_back();
        if (next && next->hostParent == folder.inode) return next;
    }
    return std::nullopt;
}

void Replica::Merging::leave(const Row& row, bool isConnection) {
    // What is removed, and elsewhere on the host, needs no folder here.
    const bool isEmpty =
        !row.folder || !statements.anyBelow.first(Statements::readInode, row.inode, std::int64_t{isConnection});
    const bool isChanged = row.pending.any() && (isConnection || !row.pending.deletion) &&
                           (isConnection || row.folder || row.contents || row.pending.fields & ItemField::contents);
    // else there is nothing to make it from
    if (isEmpty && !isChanged) {
        statements.erase.run(row.inode);
        if (!row.pending.deletion)
            effects.push_back({.parent = row.parent, .name = row.name, .inode = row.inode, .entry = true});
        return;
    }
    if (Sent* const way = replica.sent(row.inode)) // its answer is not about this any more
        way->changed |= row.folder ? ItemField::contentModificationDate : kContentsFields;
    Row kept = row;
    kept.identifier.reset();
    if (!isConnection) {
        kept.host = {};
        kept.sent.reset();
        kept.sentParent = 0;
        kept.hostParent = 0;
        kept.hostName.clear();
        kept.pending = {.creation = true};
        kept.error.reset();
    }
    if (row.pending.deletion && !kept.pending.deletion) { // for what is in it
        kept.name = statements.freeNameFor(kept, kept.parent, kept.name);
        effects.push_back({.parent = kept.parent, .name = kept.name, .inode = kept.inode, .entry = true});
    }
    statements.put(kept);
}

/// For each of so many, which `begin` gives by its index, unless it does not go.
Effects Replica::forgetAll(std::size_t count, Timestamp now,
                           const std::function<std::optional<Going>(Merging&, std::size_t index)>& begin) {
    if (count == 0) return {};
    struct Place {
        std::size_t index = 0;
        std::optional<Going> going{};
    } done, next;
    const auto step = [&](Merging& merging) {
        next = done;
        const auto goesOn = [&] { return next.index < count || next.going; };
        for (std::size_t left = kStep; left > 0 && goesOn();) {
            if (!next.going) {
                next.going = begin(merging, next.index++);
                --left;
            } else {
                merging.goOn(*next.going, left);
                if (next.going->path.empty()) next.going.reset();
            }
        }
        return goesOn();
    };
    return inSteps(now, &Replica::writeToFree, step, [&] { done = std::move(next); });
}

Effects Replica::setListed(Inode folder, std::string_view identifier, Timestamp began, Timestamp now) {
    std::vector<Inode> lost;
    write([&] {
        auto row = folderOf(folder, identifier);
        if (!row) return;
        if (!row->listed) {
            row->listed = now;
            changes_->put(*row);
        }
        const auto estranged = estranged_.find(folder);
        if (estranged != estranged_.end() && began < estranged->second + Past::kCached) return;
        if (estranged != estranged_.end()) estranged_.erase(estranged);
        changes_->namelessIn.each([&](const auto& at) { lost.push_back(Statements::readInode(at)); }, folder);
    });
    return forgetAll(lost.size(), now, [&](Merging& merging, std::size_t index) {
        const auto row = changes_->get(lost[index]);
        const bool isLost = row && !row->identifier && row->hostParent == folder && !sent(row->inode);
        return isLost && !wasMoved(*row) ? std::optional(merging.begin(*row)) : std::nullopt;
    });
}

/// What is not where the host had it is where it was to be by a request whose answer was lost, most likely.
bool Replica::wasMoved(Row row) {
    const bool isSamePlace = row.sentParent == row.hostParent && row.sentName == row.hostName;
    if (isSamePlace || sent(row.inode) || !changes_->get(row.sentParent)) return false;
    row.hostParent = std::exchange(row.sentParent, 0);
    row.hostName = row.sentName;
    row.pending.fields &= ~kPlaceFields;
    if (!row.pending.deletion) row.pending.fields |= placeChanges(row.hostParent, row.hostName, row.parent, row.name);
    changes_->put(row);
    return isEstranged_ = true;
}

Effects Replica::remove(std::span<const ItemIdentifier> identifiers, Timestamp now) {
    return forgetAll(identifiers.size(), now, [&](Merging& merging, std::size_t index) -> std::optional<Going> {
        auto row = merging.known(identifiers[index]);
        if (!row || row->inode == kRoot) return std::nullopt;
        past_.add(*row, now);
        const bool isConnection = row->parent == kRoot;
        if (!isConnection) { // what has its identifier from now on is another one
            changes_->disown.run(row->inode);
            row->identifier.reset();
        }
        if (wasMoved(*row)) return std::nullopt;
        return merging.begin(*row, isConnection);
    });
}

} // namespace brindlemar::replica
