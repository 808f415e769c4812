// What waits for the host, and what became of it.
#include "provider/replica/Merging.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace brindlemar::replica {

namespace {
constexpr std::int64_t kStretch = 1000; // of the queue; others get their turn between

/// Somebody else has changed the contents: they are not as before, and `told` did not change them.
bool isOtherVersion(const HostVersion& before, const HostVersion& now, const Pending& told) {
    if (told.creation || told.fields & ItemField::contents) return false;
    return now.size != before.size ||
           (now.modified != before.modified && !(told.fields & ItemField::contentModificationDate));
}

bool contains(const std::vector<Inode>& inodes, Inode inode) {
    return std::ranges::find(inodes, inode) != inodes.end();
}
} // namespace

Replica::Sent* Replica::sent(Inode owner) {
    const auto found = std::ranges::find_if(underWay_, [&](const auto& entry) { return entry.second.owner == owner; });
    return found == underWay_.end() ? nullptr : &found->second;
}

std::optional<Job> Replica::next(const std::function<bool(const Job&)>& isHeld, std::span<const Inode> first) {
    std::optional<Job> found;
    std::vector<Inode> jammed;
    const auto consider = [&](const sqlite::Statement& at) {
        const Inode inode = at.integer(0);
        if (underWay_.contains(inode) || sent(inode)) return true;
        auto candidate = job(inode);
        if (!candidate || isHeld(*candidate)) return true;
        if (at.integer(2) != 0) {
            jammed.push_back(inode);
            return true;
        }
        if (isInTheWay(*candidate)) return true;
        lap_ = at.integer(1);
        found = std::move(candidate);
        return false;
    };
    // From where the queue was last taken from to its end, and from its beginning.
    std::unique_lock lock(writing_);
    const std::int64_t lap = lap_;
    for (const Inode inode : first) {
        if (found) break;
        if (const auto place = changes_->placeOf.first(Statements::readInode, inode))
            changes_->ready.some(consider, *place - 1, *place);
    }
    lap_ = lap;
    if (found) return send(std::move(*found));
    bool isFromBeginning = lap_ == 0;
    for (std::int64_t from = lap_;;) {
        const auto to = changes_->stretch.first(Statements::readInode, from, kStretch - 1);
        changes_->ready.some(consider, from, to.value_or(std::numeric_limits<std::int64_t>::max()));
        if (found) return send(std::move(*found));
        if (!to && std::exchange(isFromBeginning, true)) break;
        from = to.value_or(0);
        lock.unlock();
        lock.lock();
    }
    if (underWay_.empty()) found = untangle(jammed);
    return found ? std::optional(send(std::move(*found))) : std::nullopt;
}

std::optional<Job> Replica::job(Inode inode) {
    auto row = changes_->get(inode);
    if (!row) return std::nullopt;
    row->pending = nextRequest(row->pending);
    if (row->hostParent != 0 && !row->pending.creation && !(row->pending.fields & kPlaceFields)) {
        row->parent = row->hostParent; // where it stays: it may be shown elsewhere
        row->name = row->hostName;
    }
    Row parent = changes_->get(row->parent).value_or(Row());
    Row formerParent = row->hostParent != 0 && row->hostParent != row->parent
                           ? changes_->get(row->hostParent).value_or(Row())
                           : parent;
    return Job{std::move(*row), std::move(parent), std::move(formerParent)};
}

/// What is under way can change the identifiers or places that this job would name.
bool Replica::isInTheWay(const Job& job) {
    const Inode inode = job.item.inode;
    const bool isMove = (job.item.pending.fields & ItemField::parentItemIdentifier) != 0;
    if (isStale(job.parent.inode) || (isMove && isStale(job.formerParent.inode))) return true;
    if (job.item.sentParent != 0 && isStale(job.item.sentParent)) return true; // it may be there
    if (isBelowLost(job.parent.inode) || (isMove && isBelowLost(job.formerParent.inode))) return true;
    if (job.item.folder && isMove && changes_->isAround(inode, job.parent.inode, true)) return true;
    const bool isDateOfFolder = job.item.folder && job.item.pending.fields == ItemField::contentModificationDate;
    if (isDateOfFolder && changes_->waitingBelow.first(Statements::readInode, inode)) return true;
    if (underWay_.empty()) return false;
    if (isExpected(job.parent.inode, job.item.name)) return true;
    const std::vector<Inode> above = allAbove(job);
    return std::ranges::any_of(underWay_, [&](const auto& entry) {
        return contains(entry.second.above, inode) || contains(above, entry.second.owner);
    });
}

/// Something is on its way to that place: what a listing tells of it may be that.
bool Replica::isExpected(Inode parent, std::string_view name) const {
    return std::ranges::any_of(
        underWay_, [&](const auto& entry) { return entry.second.parent == parent && entry.second.name == name; });
}

/// Here and on the host.
std::vector<Inode> Replica::allAbove(const Job& job) {
    std::vector<Inode> all;
    const auto add = [&](Inode folder) {
        for (const bool onHost : {false, true})
            std::ranges::copy(changes_->above(folder, onHost), std::back_inserter(all));
    };
    add(job.parent.inode);
    if (job.formerParent.inode != job.parent.inode) add(job.formerParent.inode);
    return all;
}

Job Replica::send(Job job) {
    job.number = ++lastJob_;
    Sent way{.number = job.number, .owner = job.item.inode, .parent = job.parent.inode, .name = job.item.name};
    way.above = allAbove(job);
    underWay_[job.item.inode] = std::move(way);
    return job;
}

void Replica::sending(const Job& job, const std::optional<HostVersion>& seen) {
    const Row& item = job.item;
    const bool isPlaced = item.pending.creation || item.pending.fields & kPlaceFields;
    const bool hasContents = !item.folder && (item.pending.creation || item.pending.fields & kContentsFields);
    if (!isPlaced && !hasContents) return;
    write([&] {
        const auto integer = [](std::uint64_t size) { return std::int64_t{static_cast<std::uint32_t>(size)}; };
        const auto way = underWay_.find(item.inode);
        if (way == underWay_.end()) return;
        const Inode owner = way->second.owner;
        if (seen && seen == item.sent) // whose answer was lost
            changes_->note.run(owner, seen->modified, integer(seen->size));
        if (hasContents) changes_->record.run(owner, wholeSecondsSince1970(item.modified), integer(item.size));
        if (!isPlaced) return;
        changes_->clearPlace.run(item.parent, std::string_view(item.name)); // nothing was there
        changes_->recordPlace.run(owner, item.parent, std::string_view(item.name));
    });
}

std::int64_t Replica::waiting() {
    std::lock_guard lock(reading_);
    // Each half has an index.
    return reader_.integer("SELECT count(*) FROM items WHERE place IS NOT NULL AND errorDomain IS NULL") +
           reader_.integer("SELECT count(*) FROM items WHERE errorDomain IS NOT NULL");
}

/// The job is not under way any more.
void Replica::settle(const Job& job, const std::function<void(const Sent&)>& body) {
    write([&] {
        const auto entry = underWay_.find(job.item.inode);
        if (entry == underWay_.end() || entry->second.number != job.number) return;
        body(underWay_.extract(entry).mapped());
    });
}

Effects Replica::succeeded(const Job& job, const NSFileProviderItem* result, Timestamp now) {
    Merging merging(*this, now);
    settle(job, [&](const Sent& way) {
        const Pending& told = job.item.pending;
        auto row = changes_->get(way.owner);
        if (!row) return;
        const Row before = *row;
        past_.add(before, now);
        if (told.deletion || !result) {
            row->pending = {.deletion = told.deletion || row->pending.deletion,
                            .fields = (row->pending.fields & ~told.fields) | way.changed};
            changes_->put(*row);
            return merging.forget(*row);
        }
        const bool isPlaced =
            told.creation || told.fields & kPlaceFields || row->hostParent == 0; // forgotten meanwhile
        if (isPlaced && !changes_->get(job.parent.inode)) { // with its folder: it is made anew, if at all
            if (row->pending.deletion) changes_->erase.run(row->inode);
            return;
        }
        const bool hasNewContents = (way.changed & ItemField::contents) != 0;
        if ((told.creation || told.fields & ItemField::contents) && job.item.contents && !hasNewContents)
            changes_->unkeep.run(way.owner);
        if (const auto other = merging.known(result->itemIdentifier()); other && other->inode != row->inode)
            merging.forget(*other);
        row->pending = afterSuccess(row->pending, told, way.changed);
        if (isPlaced) {
            row->hostParent = job.parent.inode;
            row->hostName = job.item.name;
        }
        row->sentParent = 0; // it was looked for there before
        if (!row->pending.deletion && (isPlaced || row->pending.fields & kPlaceFields)) {
            row->pending.fields &= ~kPlaceFields;
            row->pending.fields |= placeChanges(row->hostParent, row->hostName, row->parent, row->name);
        }
        takeProperties(*row, *result);
        const bool isNews = isOtherVersion(before.host, row->host, told);
        if (isNews && row->pending.fields & ItemField::contents) row->host = before.host; // seen before they are sent
        const bool isOutOfDate = isNews && row->host != before.host && row->contents;
        if (isOutOfDate) {
            row->contents.reset();
            row->size = result->documentSize().value_or(0);
        }
        row->sent.reset();
        if (isFileName(result->filename()) && row->hostName != result->filename() && !row->pending.deletion)
            merging.show(*row, row->hostParent, result->filename());
        row->error.reset();
        if (row->folder && !told.creation && row->identifier != before.identifier) estrange(row->inode, now);
        merging.update(before, *row, isOutOfDate);
    });
    return std::move(merging.effects);
}

bool Replica::isConflict(const Job& job, const NSFileProviderItem& item, Timestamp now) {
    std::lock_guard lock(writing_);
    Row told = job.item;
    told.host = hostVersion(item);
    told.hostName = item.filename();
    return told.host != job.item.host && told.host != job.item.sent && !past_.knows(item.itemIdentifier(), told, now);
}

bool Replica::failed(const Job& job, const std::optional<NSError>& error) {
    bool isUncertain = false;
    settle(job, [&](const Sent& way) {
        auto row = changes_->get(way.owner);
        if (!row) return;
        const Row before = *row;
        if (row->pending.creation && row->pending.deletion) {
            if (!changes_->get(row->hostParent)) return changes_->erase.run(row->inode);
            row->pending.creation = false;
            isUncertain = true;
        } else {
            if (error && way.changed == 0) row->error = error;
            if (error && *error != serverUnreachable()) row->sentParent = 0; // it was not carried out
        }
        if (*row != before) changes_->put(*row);
    });
    return isUncertain;
}

void Replica::refuse(const Job& job, const NSError& error) {
    write([&] {
        auto row = changes_->get(job.item.inode);
        const bool isTheSame = row && row->generation == job.item.generation && row->pending.any();
        if (!isTheSame || underWay_.contains(row->inode) || sent(row->inode)) return;
        row->error = error;
        changes_->put(*row);
    });
}

std::vector<Row> Replica::failures(std::size_t most) {
    std::lock_guard lock(reading_);
    return Statements::all(looks_->failed, static_cast<std::int64_t>(most));
}

std::int64_t Replica::failureCount() {
    std::lock_guard lock(reading_);
    return reader_.integer("SELECT count(*) FROM items WHERE errorDomain IS NOT NULL");
}

std::int64_t Replica::retry(const std::optional<NSError>& only) {
    std::int64_t count = 0;
    if (failureCount() == 0) return 0;
    const auto domain = only ? std::optional<std::string_view>(only->domain) : std::nullopt;
    write([&] {
        changes_->forgive.run(domain, std::int64_t{only ? only->code : 0});
        count = writer_.changedRows();
    });
    return count;
}

/// The host has to tell the identifier of the folder, or of one around it.
bool Replica::isStale(Inode folder) {
    if (!changes_->anyNameless.first(Statements::readInode)) return false; // as nearly always
    return std::ranges::any_of(changes_->above(folder, true), [&](Inode inode) {
        return changes_->isNameless.first(Statements::readInode, inode).has_value();
    });
}

/// The folder, or one around it, may have another place on the host by now, and all below another identifier.
bool Replica::isBelowLost(Inode folder) {
    if (!changes_->anyFolderSent.first(Statements::readInode)) return false; // as nearly always
    return std::ranges::any_of(changes_->above(folder, true), [&](Inode inode) {
        const auto row = changes_->get(inode);
        return row && row->identifier && row->sentParent != 0;
    });
}

bool Replica::hasSentTo(Inode folder) {
    std::lock_guard lock(reading_);
    return looks_->allSentTo.first(Statements::readInode, folder).has_value();
}

void Replica::forgetSentTo(Inode folder) {
    if (!hasSentTo(folder)) return;
    write([&] {
        std::vector<Inode> all;
        changes_->allSentTo.each([&](const auto& at) { all.push_back(Statements::readInode(at)); }, folder);
        for (const Inode inode : all)
            if (!sent(inode)) changes_->recordPlace.run(inode, Inode{0}, std::string_view());
    });
}

std::optional<Row> Replica::outermostNameless(Inode inode) {
    std::lock_guard lock(reading_);
    std::optional<Row> found;
    for (const Inode folder : looks_->above(inode, true))
        if (folder != inode && looks_->isNameless.first(Statements::readInode, folder)) found = looks_->get(folder);
    return found;
}

bool Replica::hasNameless(Inode folder) {
    std::lock_guard lock(reading_);
    return looks_->namelessIn.first(Statements::readInode, folder).has_value();
}

bool Replica::isMoving(Inode inode) {
    std::lock_guard lock(reading_);
    return std::ranges::any_of(looks_->above(inode, true), [&](Inode folder) {
        const auto row = looks_->get(folder);
        const bool isRefused = row && row->error && *row->error != serverUnreachable();
        return row && !isRefused && row->pending.fields & kPlaceFields;
    });
}

void Replica::estrange(Inode folder, Timestamp now) {
    estranged_[folder] = now;
    changes_->estrange.run(folder);
    changes_->estrangeMoved.run(folder);
    isEstranged_ = true;
}

std::vector<Inode> Replica::foldersToIdentify() {
    std::vector<Inode> folders;
    {
        std::lock_guard lock(reading_);
        looks_->nameless.each([&](const auto& at) { folders.push_back(at.integer(0)); });
    }
    std::lock_guard lock(writing_);
    changes_->sentToAny.each([&](const auto& at) {
        const bool isKnown = sent(at.integer(0)) || std::ranges::count(folders, at.integer(1)) > 0;
        if (!isKnown) folders.push_back(at.integer(1));
    });
    return folders;
}

} // namespace brindlemar::replica
