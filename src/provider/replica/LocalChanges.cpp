// What programs do to the items.
#include "provider/replica/Statements.h"

#include <system_error>

namespace brindlemar::replica {

namespace {
void require(bool isSo, std::errc otherwise) {
    if (!isSo) throw std::system_error(std::make_error_code(otherwise));
}
bool isThere(const std::optional<Row>& row) { return row && !row->pending.deletion; }
} // namespace

Row Replica::create(Inode parent, std::string_view name, std::optional<std::string> contents,
                    std::optional<unsigned> mode, Timestamp now) {
    Row row;
    row.parent = parent;
    row.name = name;
    row.folder = !contents;
    row.contents = std::move(contents);
    row.modified = row.used = row.changed = now;
    row.mode = mode;
    row.capabilities = Capability::reading | Capability::writing | Capability::renaming | Capability::reparenting |
                       Capability::deleting;
    row.pending.creation = true;
    row.generation = 1;
    if (row.folder) row.listed = now; // there is nothing in it on the host
    write([&] {
        requireFolder(parent);
        require(!changes_->shown(parent, name), std::errc::file_exists);
        changes_->put(row);
        stamp(parent, now);
    });
    return row;
}

std::optional<Row> Replica::change(Inode inode, const std::function<bool(Row&)>& edit, ItemFields fields, Timestamp now,
                                   Safe safe, std::optional<std::string_view> bytes) {
    std::optional<Row> row;
    const auto apply = [&] {
        row = changes_->get(inode);
        if (row && (row->pending.deletion || !edit(*row))) row.reset();
        if (!row) return;
        // What is put into a folder changes its date: that is told by itself, at the end.
        if (row->folder && row->pending.creation) row->pending.fields |= fields & ItemField::contentModificationDate;
        note(*row, LocalChange::modification, row->parent == kRoot ? 0 : fields, now);
        if (bytes)
            changes_->keep.run(inode, sqlite::Blob{*bytes});
        else if (fields & ItemField::contents && safe == Safe::fromPowerLoss)
            changes_->unkeep.run(inode); // older ones
    };
    write(apply, safe);
    return row;
}

void Replica::move(Inode inode, Inode parent, std::string_view name, Timestamp now, bool replaces) {
    write([&] {
        auto row = changes_->get(inode);
        const auto victim = changes_->shown(parent, name);
        require(isThere(row), std::errc::no_such_file_or_directory);
        requireFolder(parent);
        requireOutside(*row, parent);
        if (victim && victim->inode == inode) return;
        if (victim) {
            require(replaces, std::errc::file_exists);
            require(victim->folder == row->folder,
                    row->folder ? std::errc::not_a_directory : std::errc::is_a_directory);
            requireEmpty(victim->inode);
        }
        stamp(row->parent, now);
        stamp(parent, now);
        if (victim && mayBeThere(*victim) && !victim->folder && !row->folder && row->contents) {
            // One modification of the old item, whatever the new contents were called while they were written.
            if (mayBeThere(*row)) bury(*row);
            return pass(*victim, *row, parent, name, now);
        }
        if (victim) {
            Row gone = *victim;
            note(gone, LocalChange::deletion, 0, now);
        }
        relocate(*row, parent, name, now);
    });
}

void Replica::exchange(Inode one, Inode other, Timestamp now) {
    write([&] {
        auto first = changes_->get(one), second = changes_->get(other);
        require(isThere(first) && isThere(second), std::errc::no_such_file_or_directory);
        requireFolder(first->parent);
        requireFolder(second->parent);
        requireOutside(*first, second->parent);
        requireOutside(*second, first->parent);
        if (one == other) return;
        stamp(first->parent, now);
        stamp(second->parent, now);
        Row away = *first;
        away.name.clear();
        changes_->put(away);
        const Row place = *second;
        relocate(*second, first->parent, first->name, now);
        relocate(*first, place.parent, place.name, now);
    });
}

void Replica::remove(Inode inode, Timestamp now) {
    writeToFree([&] {
        auto row = changes_->get(inode);
        require(isThere(row), std::errc::no_such_file_or_directory);
        requireEmpty(inode);
        stamp(row->parent, now);
        if (!row->folder && row->hostParent != 0 && (row->sentParent == 0 || sent(inode))) {
            auto heir = changes_->shown(row->hostParent, row->hostName);
            if (heir && heir->pending.creation && heir->contents && !mayBeThere(*heir)) {
                const Inode parent = heir->parent;
                const std::string name = heir->name;
                return pass(*row, *heir, parent, name, now);
            }
        }
        note(*row, LocalChange::deletion, 0, now);
    });
}

/// What a program has looked at may be otherwise by now.
void Replica::requireFolder(Inode folder) {
    require(folder != kRoot, std::errc::permission_denied);
    const auto row = changes_->get(folder);
    require(isThere(row), std::errc::no_such_file_or_directory);
    require(row->folder, std::errc::not_a_directory);
}

void Replica::requireOutside(const Row& item, Inode folder) {
    require(!item.folder || !changes_->isAround(item.inode, folder), std::errc::invalid_argument);
}

void Replica::requireEmpty(Inode folder) {
    require(!changes_->entries.first(Statements::readInode, folder, std::int64_t{0}, std::int64_t{1}),
            std::errc::directory_not_empty);
}

/// On the host, or once a request is carried out that is or was under way.
bool Replica::mayBeThere(const Row& row) {
    return !row.pending.creation || sent(row.inode) || changes_->get(row.sentParent);
}

/// A row to be removed that was to be made, and may have been: only a listing tells.
void Replica::lookFor(Row& row, const Sent* way) {
    if (row.hostParent == 0) {
        row.hostParent = way ? way->parent : row.sentParent;
        row.hostName = way ? way->name : row.sentName;
    }
    if (way) return; // its answer does, too
    row.pending.creation = false;
    isEstranged_ = true;
}

/// Writes the row after one more change.
void Replica::note(Row& row, LocalChange change, ItemFields fields, Timestamp now) {
    Sent* const way = sent(row.inode);
    const bool isRemoved = change == LocalChange::deletion;
    const auto pending =
        afterLocalChange(row.pending, change, fields, way || (isRemoved && row.pending.creation && mayBeThere(row)));
    if (!pending) return changes_->erase.run(row.inode);
    if (way) way->changed |= isRemoved ? kContentsFields : fields;
    row.pending = *pending;
    if (isRemoved) {
        row.contents.reset();
        if (row.pending.creation) lookFor(row, way);
    }
    row.error.reset(); // a new change is a new try
    ++row.generation;
    row.changed = now;
    changes_->put(row);
}

/// Gives the row another place. Nothing waits any more when it is the one that the host has it in.
void Replica::relocate(Row& row, Inode parent, std::string_view name, Timestamp now) {
    ItemFields fields = placeChanges(row.parent, row.name, parent, name);
    if (row.hostParent != 0 && !row.pending.creation && !sent(row.inode) && row.sentParent == 0) {
        row.pending.fields &= ~kPlaceFields;
        fields = placeChanges(row.hostParent, row.hostName, parent, name);
    }
    row.parent = parent;
    row.name = name;
    note(row, LocalChange::modification, fields, now);
}

void Replica::stamp(Inode folder, Timestamp now) { changes_->stamp.run(folder, now.time_since_epoch().count()); }

/// What the host knows as `from`, which goes, has the contents of `to` from now on.
void Replica::pass(const Row& from, Row& to, Inode parent, std::string_view name, Timestamp now) {
    changes_->erase.run(from.inode);
    if (Sent* const way = sent(from.inode)) way->owner = to.inode;
    to.identifier = from.identifier;
    to.host = from.host;
    to.sent = from.sent;
    to.sentParent = from.sentParent;
    to.sentName = from.sentName;
    to.hostParent = from.hostParent;
    to.hostName = from.hostName;
    to.parent = parent;
    to.name = name;
    to.pending = {.creation = from.pending.creation};
    const bool hasPlace = to.hostParent != 0;
    note(to, LocalChange::modification,
         kContentsFields | (hasPlace ? placeChanges(to.hostParent, to.hostName, parent, name) : 0), now);
}

/// The host is to remove what it knows by this row's identifier, which the row loses.
void Replica::bury(const Row& row) {
    changes_->disown.run(row.inode);
    Row buried = row;
    buried.inode = 0;
    buried.contents.reset();
    buried.error.reset();
    buried.pending = {.creation = row.pending.creation, .deletion = true};
    Sent* const way = sent(row.inode);
    if (buried.pending.creation) lookFor(buried, way);
    changes_->put(buried);
    if (!way) return;
    way->owner = buried.inode;
    way->changed |= kContentsFields;
}

} // namespace brindlemar::replica
