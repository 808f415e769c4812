#include "provider/mount/Uploads.h"

#include "items/ItemIdentifiers.h"
#include "messaging/BxMessages.h"
#include "provider/ItemDraft.h"
#include "provider/ServiceFiles.h"
#include "provider/mount/Failures.h"
#include "support/Logger.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace brindlemar {

namespace {
using replica::Job, replica::Pending, replica::kContentsFields;

constexpr std::size_t kAtOnce = 8;
/// Programs write a new file beside an old one and rename it at once: both are told together.
constexpr auto kSettling = std::chrono::milliseconds(250), kLongestSettling = std::chrono::milliseconds(750);
constexpr auto kFirstPause = std::chrono::seconds(1), kLongestPause = std::chrono::seconds(60);

ItemDraft draftOf(const Job& job) {
    ItemDraft draft;
    draft.identifier = job.item.identifier.value_or("");
    draft.parent = job.parent.identifier.value_or("");
    draft.name = job.item.name;
    draft.type = job.item.folder ? UTType::directory : UTType::content;
    if (job.item.flags) draft.flags = job.item.flags;
    draft.size = job.item.size;
    const bool isPlaceOnly = !job.item.pending.creation && !(job.item.pending.fields & kContentsFields);
    draft.modified = isPlaceOnly && job.item.identifier
                         ? Timestamp(std::chrono::seconds(job.item.host.modified)) // contents of that date stay there
                         : job.item.modified;
    draft.used = job.item.used;
    return draft;
}

bool hasContents(const Job& job) {
    return !job.item.folder && (job.item.pending.creation || job.item.pending.fields & ItemField::contents);
}

std::string connectionOf(const Job& job) {
    const auto& identifier = job.item.identifier ? job.item.identifier : job.parent.identifier;
    return std::string(resolveIdentifier(identifier.value_or("")).domain);
}
} // namespace

bool Uploads::State::Touch::isRecent(Timestamp now) const {
    return isWithin(kSettling, last, now) && isWithin(kLongestSettling, first, now);
}

void Uploads::touched(replica::Inode inode) {
    const Timestamp now = places_.common.clock.now();
    state_.with([&](State& state) {
        state.touched.try_emplace(inode, State::Touch{now, now}).first->second.last = now;
    });
    look();
}

void Uploads::look() {
    const bool isFirst = state_.with([](State& state) { return !std::exchange(state.isScheduled, true); });
    if (!isFirst) return;
    places_.common.tasks.after(kSettling, [self = shared_from_this()] {
        self->state_.with([](State& state) { state.isScheduled = false; });
        self->pump();
    });
}

void Uploads::hostIsBack() {
    orLog("hostIsBack()", [&] {
        places_.common.replica.retry(serverUnreachable());
        places_.folders->identifyAll();
    });
    look();
}

std::int64_t Uploads::retry() {
    const std::int64_t count = places_.common.replica.retry();
    places_.folders->identifyAll();
    look();
    return count;
}

void Uploads::pump() {
    const bool isMine = state_.with([](State& state) {
        state.again = true;
        return !std::exchange(state.isPumping, true);
    });
    if (!isMine) return;
    orLog("pump()", [&] { // else they are found at the next start
        for (const std::string& name : places_.common.replica.takeDiscarded()) places_.contents.remove(name);
        if (places_.common.replica.hasMoreToIdentify()) places_.folders->identifyAll();
    });
    const Timestamp now = places_.common.clock.now();
    state_.with([&](State& state) {
        std::erase_if(state.touched, [&](const auto& entry) { return !entry.second.isRecent(now); });
    });
    const auto goesOn = [&] {
        return state_.with([](State& state) { return state.isPumping = std::exchange(state.again, false); });
    };
    while (goesOn())
        orLog("pump()", [&] { // the next look tries again
            while (!stopping_ && takeOne()) continue;
        });
}

bool Uploads::takeOne() {
    const Timestamp now = places_.common.clock.now();
    const bool waits = state_.with([&](const State& state) {
        return state.refreshing > 0 || state.running.size() >= kAtOnce || state.resting > 0;
    });
    // As long as the extension's caches know what a lost host said, nothing is told.
    if (waits || places_.folders->isHostLostLately() || !places_.common.manager.isConnected()) return false;
    bool isUnsettled = false;
    const auto isHeld = [&](const Job& job) {
        const replica::Inode inode = job.item.inode;
        const bool isRecent = state_.with([&](const State& state) {
            const auto touch = state.touched.find(inode);
            return touch != state.touched.end() && touch->second.isRecent(now);
        });
        isUnsettled = isUnsettled || isRecent;
        return isRecent || (hasContents(job) && isBusy(inode));
    };
    const auto refreshed = state_.with([](State& state) { return std::exchange(state.refreshed, {}); });
    const auto job = places_.common.replica.next(isHeld, refreshed);
    if (!job) {
        if (isUnsettled) look();
        return false;
    }
    state_.with([&](State& state) {
        state.running[job->item.inode] = {job->number, nullptr};
        if (std::ranges::count(refreshed, job->item.inode) == 0) return; // they have to wait for something else
        std::ranges::copy_if(refreshed, std::back_inserter(state.refreshed),
                             [&](replica::Inode inode) { return inode != job->item.inode; });
    });
    places_.common.tasks.async([self = shared_from_this(), job = *job] { self->run(job); });
    return true;
}

void Uploads::run(const Job& job) {
    if (!places_.common.hostIsExpected(connectionOf(job))) return ended(job, nullptr, serverUnreachable());
    const bool replaces = job.item.identifier && job.item.pending.fields & ItemField::contents;
    const replica::Inode lost = lostIn(job);
    const bool isLost = lost != 0 && !places_.folders->answered(lost);
    if (replaces && !isLost) return sendUnlessConflict(job);
    const Pending& pending = job.item.pending;
    const bool mayHarm = pending.creation || pending.deletion || pending.fields & replica::kPlaceFields;
    const replica::Inode folder = pending.deletion && job.item.folder ? job.item.inode : job.parent.inode;
    if (!isLost && (!mayHarm || places_.folders->isFresh(folder))) return send(job, std::nullopt);
    state_.with([](State& state) { ++state.refreshing; });
    putBack(job, std::nullopt); // to meet what a listing brings
    finished(job);
    refresh(job, isLost ? lost : folder);
}

/// The folder that the item may be in by a request whose answer was lost, if it can be listed.
replica::Inode Uploads::lostIn(const Job& job) {
    replica::Inode folder = 0;
    orLog("lostIn(_:)", [&] {
        const auto row = places_.common.replica.row(job.item.sentParent);
        if (row && row->identifier && !row->pending.deletion) folder = row->inode;
    });
    return folder;
}

/// What came up on the host by the name of what was made here, and what was written to what was removed here, or into
/// it, is to be known before that is sent.
void Uploads::refresh(const Job& job, replica::Inode folder) {
    places_.folders->list(folder, [self = shared_from_this(), job, folder](bool more, const auto& error) {
        if (more) return self->refresh(job, folder);
        const bool isBack = BxMessages::sharedInstance().isReachable(connectionOf(job));
        if (error && (isOfTheDisk(*error) || (*error == serverUnreachable() && isBack)))
            self->rest(); // and again
        else if (error)
            self->untilTaken([self, job, error] { self->places_.common.replica.refuse(job, *error); });
        self->state_.with([&](State& state) {
            --state.refreshing;
            if (!error) state.refreshed.push_back(job.item.inode); // before the listing is old
        });
        if (!self->stopping_) self->pump();
    });
}

/// What somebody else has written since is not to be written over.
void Uploads::sendUnlessConflict(const Job& job) {
    const auto found = [self = shared_from_this(), job](const auto& item, const auto& error) {
        replica::Replica& replica = self->places_.common.replica;
        const bool isGone = error && error->code == FileProviderErrorCode::noSuchItem;
        if (isGone || (error && *error == serverUnreachable())) return self->ended(job, nullptr, error);
        if (item && !job.item.contents) return self->ended(job, item, std::nullopt); // they were never saved
        const Timestamp now = self->places_.common.clock.now();
        if (!item || !replica.isConflict(job, *item, now))
            return self->places_.common.tasks.async(
                [self, job, seen = item ? std::optional(replica::hostVersion(*item)) : std::nullopt] {
                    self->send(job, seen);
                });
        self->putBack(job, std::nullopt); // else the item would be left alone
        const bool isKnown = orLog("sendUnlessConflict(_:)", [&] {
            self->places_.common.notices.tell(
                replica.merge(job.parent.inode, *job.parent.identifier, std::array{item}, now));
        });
        if (!isKnown) self->rest();
        self->finished(job);
    };
    places_.common.extension->item(*job.item.identifier, found);
}

void Uploads::send(const Job& job, const std::optional<replica::HostVersion>& seen) {
    if (orLog("send(_:)", [&] { call(job, seen); })) return;
    rest();
    putBack(job, std::nullopt);
    finished(job);
}

void Uploads::call(const Job& job, const std::optional<replica::HostVersion>& seen) {
    const auto isWanted = [&] {
        if (stopping_ || (hasContents(job) && places_.open.isUnsaved(job.item.inode))) return false;
        const auto now = places_.common.replica.row(job.item.inode);
        return now && now->generation == job.item.generation;
    };
    const CopiesForCall copies(isWanted, connectionOf(job));
    NSFileProviderReplicatedExtension& extension = *places_.common.extension;
    const auto draft = std::make_shared<ItemDraft>(draftOf(job));
    std::optional<FileURL> contents;
    if (hasContents(job) && job.item.contents) {
        contents = FileURL{places_.contents.pathOf(*job.item.contents)};
        if (resize(job)) return ended(job, nullptr, userCancelled()); // and again with that
    }
    const auto changed = [self = shared_from_this(), job](const auto& item, ItemFields, bool, const auto& error) {
        self->ended(job, item, error);
    };
    if (!isWanted()) return ended(job, nullptr, userCancelled());
    places_.common.replica.sending(job, seen);
    std::shared_ptr<NSProgress> progress;
    if (job.item.pending.deletion)
        progress = extension.deleteItem(draft->identifier, [self = shared_from_this(), job](const auto& error) {
            self->ended(job, nullptr, error);
        });
    else if (job.item.pending.creation)
        progress = extension.createItem({draft, contents}, changed);
    else
        progress = extension.modifyItem({draft, job.item.pending.fields, contents}, changed);
    state_.with([&](State& state) {
        const auto entry = state.running.find(job.item.inode);
        if (entry != state.running.end() && entry->second.job == job.number) entry->second.progress = progress;
    });
}

/// After a close that failed on a full disk the file may be longer than was told. True when it was.
bool Uploads::resize(const Job& job) {
    struct stat now {};
    if (::stat(places_.contents.pathOf(*job.item.contents).c_str(), &now) != 0) return false;
    const auto edit = [&](replica::Row& row) {
        const bool isSame = row.size == static_cast<std::uint64_t>(now.st_size) || row.contents != job.item.contents;
        row.size = static_cast<std::uint64_t>(now.st_size);
        return !isSame;
    };
    const auto fields = replica::kContentsFields;
    return places_.common.replica
        .change(job.item.inode, edit, fields, places_.common.clock.now(), replica::Safe::fromCrash)
        .has_value();
}

void Uploads::ended(const Job& job, const std::shared_ptr<NSFileProviderItem>& item,
                    const std::optional<NSError>& error) {
    const bool isOther = item && ((item->contentType() == UTType::directory) != job.item.folder ||
                                  item->itemIdentifier().empty()); // the host was not asked
    if (error || isOther) return failed(job, error.value_or(cannotSynchronize()));
    succeeded(job, item);
}

void Uploads::succeeded(const Job& job, const std::shared_ptr<NSFileProviderItem>& item) {
    untilTaken([self = shared_from_this(), job, item] {
        const Places& places = self->places_;
        replica::Replica& replica = places.common.replica;
        places.common.notices.tell(replica.succeeded(job, item.get(), places.common.clock.now()));
        orLog("succeeded(_:)", [&] {
            if (replica.hasMoreToIdentify()) places.folders->identifyAll();
            if (job.item.folder && job.item.pending.creation) places.folders->setNew(job.item.inode);
            if (const auto now = replica.row(job.item.inode); now && now->contents && !now->pending.any())
                places.contents.unmark(*now->contents);
        });
        self->state_.with([&](State& state) { state.paused.erase(job.item.inode); });
        self->finished(job);
    });
}

void Uploads::failed(const Job& job, const NSError& error) {
    const bool isReachable = BxMessages::sharedInstance().isReachable(connectionOf(job));
    const bool isGone = error.code == FileProviderErrorCode::noSuchItem && job.item.identifier;
    if (error == userCancelled()) {
        if (hasContents(job)) pause(job.item.inode);
        putBack(job, std::nullopt);
    } else if (!isReachable) {
        putBack(job, serverUnreachable());
    } else if (isGone && job.item.pending.deletion) {
        return succeeded(job, nullptr);
    } else if (isGone) {
        return putBackWithout(*job.item.identifier, job);
    } else if (error == cannotSynchronize() && job.item.pending.creation &&
               job.parent.parent != replica::kRoot) { // the tops of connections cannot be looked up
        return unlessParentIsGone(job);
    } else {
        LogScope(Logger::shared(), "failed(_:)").warning(job.item.name, ": ", error.localizedDescription());
        putBack(job, error);
    }
    finished(job);
}

/// The host may have refused because it has not the folder any more.
void Uploads::unlessParentIsGone(const Job& job) {
    const ItemIdentifier parent = job.parent.identifier.value_or("");
    places_.common.extension->item(parent, [self = shared_from_this(), job, parent](const auto&, const auto& error) {
        LogScope(Logger::shared(), "failed(_:)")
            .warning(job.item.name, ": ", cannotSynchronize().localizedDescription());
        if (error && error->code == FileProviderErrorCode::noSuchItem) return self->putBackWithout(parent, job);
        const bool isLost =
            (error && *error == serverUnreachable()) || !BxMessages::sharedInstance().isReachable(connectionOf(job));
        self->putBack(job, isLost ? serverUnreachable() : cannotSynchronize());
        self->finished(job);
    });
}

/// The host does not have that item any more: what was changed in it here since is made anew.
void Uploads::putBackWithout(const ItemIdentifier& gone, const Job& job) {
    untilTaken([self = shared_from_this(), gone, job] {
        const Folders::Places& common = self->places_.common;
        common.notices.tell(common.replica.remove(std::array{gone}, common.clock.now()));
        self->putBack(job, std::nullopt);
        self->finished(job);
    });
}

void Uploads::putBack(const Job& job, const std::optional<NSError>& error) {
    untilTaken([self = shared_from_this(), job, error] {
        if (self->places_.common.replica.failed(job, error)) self->places_.folders->list(job.item.parent, nullptr);
        if (error && isOfTheDisk(*error)) self->retryLater();
    });
}

/// What became of a job is not lost when the disk does not take it: until it does, the job is under way. True when the
/// disk has taken it at once.
bool Uploads::untilTaken(const std::function<void()>& body) {
    if (orLog("untilTaken(_:)", body)) return true;
    if (stopping_) return false;
    rest();
    places_.common.tasks.after(kFirstPause, [self = shared_from_this(), body] {
        const bool isTaken = self->untilTaken(body);
        if (isTaken && self->places_.common.manager.isConnected()) self->hostIsBack(); // perhaps since
    });
    return false;
}

/// This machine's disk had no room for the copy that the host is given, or did not take it.
void Uploads::retryLater() {
    const bool isFirst = state_.with([](State& state) { return !std::exchange(state.isRetrying, true); });
    if (!isFirst) return;
    places_.common.tasks.after(kLongestPause, [self = shared_from_this()] {
        self->state_.with([](State& state) { state.isRetrying = false; });
        const bool isTaken = orLog("retryLater()", [&] {
            for (const int code : {CocoaErrorCode::fileWriteOutOfSpace, CocoaErrorCode::fileWriteUnknown})
                self->places_.common.replica.retry(cocoaError(code));
        });
        if (!isTaken) self->retryLater();
        self->look();
    });
}

/// The disk takes no more just now, or the host has just gone: nothing is told for a moment.
void Uploads::rest() {
    state_.with([](State& state) { ++state.resting; });
    places_.common.tasks.after(kFirstPause, [self = shared_from_this()] {
        self->state_.with([](State& state) { --state.resting; });
        self->look();
    });
}

/// What is written to and made safe all the time is not to be copied all the time.
void Uploads::pause(replica::Inode inode) {
    const auto file = places_.open.find(inode);
    if (!file || file->writers == 0) return;
    const Timestamp now = places_.common.clock.now();
    const auto length = state_.with([&](State& state) {
        State::Pause& pause = state.paused[inode];
        pause.length = std::clamp<std::chrono::milliseconds>(2 * pause.length, kFirstPause, kLongestPause);
        pause.since = now;
        return pause.length;
    });
    places_.common.tasks.after(length, [self = shared_from_this()] { self->look(); });
}

bool Uploads::isBusy(replica::Inode inode) {
    const Timestamp now = places_.common.clock.now();
    const auto file = places_.open.find(inode);
    const bool isWritten = file && file->writers > 0;
    return state_.with([&](State& state) {
        const auto pause = state.paused.find(inode);
        if (!isWritten && pause != state.paused.end()) state.paused.erase(pause);
        return isWritten && (file->unsaved ||
                             (pause != state.paused.end() && isWithin(pause->second.length, pause->second.since, now)));
    });
}

void Uploads::finished(const Job& job) {
    state_.with([&](State& state) {
        const auto entry = state.running.find(job.item.inode);
        if (entry != state.running.end() && entry->second.job == job.number) state.running.erase(entry);
    });
    if (!stopping_) pump();
}

std::vector<Transfer> Uploads::transfers() const {
    return state_.with([](const State& state) {
        std::vector<Transfer> all;
        for (const auto& [inode, running] : state.running) all.push_back(transferOf(inode, running.progress));
        return all;
    });
}

bool Uploads::isAtWork() const {
    return state_.with([](const State& state) { return state.refreshing > 0 || !state.running.empty(); });
}

} // namespace brindlemar
