#include "provider/mount/Uploads.h"

#include "items/ItemIdentifiers.h"
#include "messaging/BxMessages.h"
#include "provider/ItemDraft.h"
#include "provider/ServiceFiles.h"
#include "provider/mount/Failures.h"
#include "support/Logger.h"

#include <array>

namespace brindlemar {

namespace {
using replica::Job, replica::kContentsFields;

constexpr std::size_t kAtOnce = 8;
/// Programs write a new file beside an old one and rename it at once: both are told together.
constexpr auto kSettling = std::chrono::milliseconds(250);

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

std::string connectionOf(const Job& job) {
    const auto& identifier = job.item.identifier ? job.item.identifier : job.parent.identifier;
    return std::string(resolveIdentifier(identifier.value_or("")).domain);
}
} // namespace

void Uploads::touched(replica::Inode inode) {
    const Timestamp now = places_.common.clock.now();
    state_.with([&](State& state) { state.touched[inode] = now; });
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

void Uploads::hostIsAway() {
    const Timestamp now = places_.common.clock.now();
    state_.with([&](State& state) { state.lastTold = now; });
}

void Uploads::hostIsBack() {
    orLog("hostIsBack()", [&] {
        places_.common.replica.retry(serverUnreachable());
        places_.folders->identifyAll();
        refresh();
    });
    look();
}

/// What came up on the host while it was away is to meet what was made here, before that is sent.
void Uploads::refresh() {
    const Timestamp since = places_.common.manager.state().since;
    const auto from = state_.with([&](State& state) -> std::optional<Timestamp> {
        if (state.refreshing > 0 || (state.isRefreshed && state.refreshedSince == since)) return std::nullopt;
        state.refreshing = 1; // this look
        state.isRefreshed = true;
        state.refreshedSince = since;
        return state.lastTold + OpenFolders::kFresh;
    });
    const Timestamp now = places_.common.clock.now();
    if (!from) return;
    if (*from <= now) return refreshFolders();
    places_.common.tasks.after(*from - now, [self = shared_from_this()] { self->refreshFolders(); });
}

void Uploads::refreshFolders() {
    const bool isRead = orLog("refresh()", [&] {
        const auto folders = places_.common.replica.foldersOfCreations();
        state_.with([&](State& state) { state.refreshing += folders.size(); });
        for (const replica::Inode folder : folders) refresh(folder);
    });
    refreshed(isRead);
}

void Uploads::refresh(replica::Inode folder) {
    places_.folders->list(folder, [self = shared_from_this(), folder](bool more, const auto& error) {
        return more ? self->refresh(folder) : self->refreshed(!error);
    });
}

void Uploads::refreshed(bool succeeded) {
    state_.with([&](State& state) {
        if (!succeeded) state.isRefreshed = false; // once more, when a host is there
        --state.refreshing;
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
    });
    const Timestamp now = places_.common.clock.now();
    state_.with([&](State& state) {
        std::erase_if(state.touched, [&](const auto& entry) { return now - entry.second >= kSettling; });
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
    const bool isFull =
        state_.with([](const State& state) { return state.refreshing > 0 || state.running.size() >= kAtOnce; });
    if (isFull || !places_.common.manager.isConnected()) return false;
    bool isUnsettled = false;
    const auto isHeld = [&](replica::Inode inode) {
        const bool isRecent = state_.with([&](const State& state) {
            const auto entry = state.touched.find(inode);
            return entry != state.touched.end() && now - entry->second < kSettling;
        });
        isUnsettled = isUnsettled || isRecent;
        return isRecent || places_.open.isWritten(inode);
    };
    const auto job = places_.common.replica.next(isHeld);
    if (!job) {
        if (isUnsettled) look();
        return false;
    }
    state_.with([&](State& state) { state.running[job->item.inode] = nullptr; });
    places_.common.tasks.async([self = shared_from_this(), job = *job] { self->run(job); });
    return true;
}

void Uploads::run(const Job& job) {
    if (!places_.common.hostIsExpected(connectionOf(job))) return ended(job, nullptr, serverUnreachable());
    const bool replaces = job.item.identifier && job.item.pending.fields & ItemField::contents;
    return replaces ? sendUnlessConflict(job) : send(job);
}

/// What somebody else has written since is not to be written over.
void Uploads::sendUnlessConflict(const Job& job) {
    const auto found = [self = shared_from_this(), job](const auto& item, const auto& error) {
        replica::Replica& replica = self->places_.common.replica;
        const bool isGone = error && error->code == FileProviderErrorCode::noSuchItem;
        if (isGone || (error && *error == serverUnreachable())) return self->ended(job, nullptr, error);
        const Timestamp now = self->places_.common.clock.now();
        if (!item || !replica.isConflict(job, *item, now))
            return self->places_.common.tasks.async([self, job] { self->send(job); });
        orLog("sendUnlessConflict(_:)", [&] {
            self->putBack(job, std::nullopt); // else the item would be left alone
            self->places_.common.notices.tell(replica.merge(job.item.hostParent, std::array{item}, now));
        });
        self->finished(job);
    };
    places_.common.extension->item(*job.item.identifier, found);
}

void Uploads::send(const Job& job) {
    if (const auto error = attempt("send(_:)", [&] { call(job); })) ended(job, nullptr, error);
}

void Uploads::call(const Job& job) {
    const auto isWanted = [&] {
        if (stopping_ || places_.open.isWritten(job.item.inode)) return false;
        const auto now = places_.common.replica.row(job.item.inode);
        return now && now->generation == job.item.generation;
    };
    const CopiesForCall copies(isWanted, connectionOf(job));
    NSFileProviderReplicatedExtension& extension = *places_.common.extension;
    const auto draft = std::make_shared<ItemDraft>(draftOf(job));
    const bool sendsContents =
        !job.item.folder && (job.item.pending.creation || job.item.pending.fields & ItemField::contents);
    std::optional<FileURL> contents;
    if (sendsContents && job.item.contents) contents = FileURL{places_.contents.pathOf(*job.item.contents)};
    const auto changed = [self = shared_from_this(), job](const auto& item, ItemFields, bool, const auto& error) {
        self->ended(job, item, error);
    };
    if (!isWanted()) return ended(job, nullptr, userCancelled());
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
        if (entry != state.running.end()) entry->second = progress;
    });
}

void Uploads::ended(const Job& job, const std::shared_ptr<NSFileProviderItem>& item,
                    const std::optional<NSError>& error) {
    replica::Replica& replica = places_.common.replica;
    try {
        if (error && *error == userCancelled()) {
            putBack(job, std::nullopt);
        } else if (error && !BxMessages::sharedInstance().isReachable(connectionOf(job))) {
            putBack(job, serverUnreachable());
        } else if (error && error->code == FileProviderErrorCode::noSuchItem && job.item.identifier) {
            // Gone on the host: what was changed here since is made anew, what was deleted is.
            if (job.item.pending.deletion) {
                places_.common.notices.tell(replica.succeeded(job, nullptr, places_.common.clock.now()));
            } else {
                putBack(job, std::nullopt);
                places_.common.notices.tell(
                    replica.remove(std::vector{*job.item.identifier}, places_.common.clock.now()));
            }
        } else if (error) {
            LogScope(Logger::shared(), "ended(_:)").warning(job.item.name, ": ", error->localizedDescription());
            putBack(job, error);
        } else {
            places_.common.notices.tell(replica.succeeded(job, item.get(), places_.common.clock.now()));
            const bool isRenamed = item && job.item.identifier && item->itemIdentifier() != *job.item.identifier;
            if (job.item.folder && isRenamed) places_.folders->identifyAll();
            if (const auto now = replica.row(job.item.inode); now && now->contents && !now->pending.any())
                places_.contents.unmark(*now->contents);
        }
        finished(job);
    } catch (const std::exception& failure) { // of the disk: it is told again, but not at once
        toldError("ended(_:)", failure);
        state_.with([&](State& state) { state.running.erase(job.item.inode); });
        look();
    }
}

void Uploads::putBack(const Job& job, const std::optional<NSError>& error) {
    if (places_.common.replica.failed(job, error)) places_.folders->list(job.item.parent, nullptr);
}

void Uploads::finished(const Job& job) {
    state_.with([&](State& state) { state.running.erase(job.item.inode); });
    if (!stopping_) pump();
}

std::vector<Transfer> Uploads::transfers() const {
    return state_.with([](const State& state) {
        std::vector<Transfer> all;
        for (const auto& [inode, progress] : state.running) all.push_back(transferOf(inode, progress));
        return all;
    });
}

} // namespace brindlemar
