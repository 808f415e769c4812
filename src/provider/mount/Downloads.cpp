#include "provider/mount/Downloads.h"

#include "items/ItemIdentifiers.h"
#include "messaging/BxMessages.h"
#include "provider/mount/Failures.h"
#include "support/Logger.h"

#include <filesystem>

namespace brindlemar {

namespace {
constexpr int kTries = 10;
}

Downloads::Token Downloads::want(replica::Inode inode, Handler handler) {
    const bool isAway = !places_.common.manager.isConnected(); // who looks for it may take a while
    bool isFirst = false;
    const Token token = state_.with([&](State& state) {
        const auto [entry, made] = state.downloads.try_emplace(inode);
        isFirst = made;
        ++state.last;
        if (made || !isAway) entry->second.waiting.emplace_back(state.last, std::exchange(handler, nullptr));
        return state.last;
    });
    if (isFirst) places_.common.tasks.async([self = shared_from_this(), inode] { self->start(inode, true); });
    if (handler) places_.common.tasks.async([handler = std::move(handler)] { handler(serverUnreachable()); });
    return token;
}

bool Downloads::unwant(replica::Inode inode, Token token) {
    Handler dropped;
    const auto cancelled = state_.with([&](State& state) -> std::shared_ptr<NSProgress> {
        const auto entry = state.downloads.find(inode);
        if (entry == state.downloads.end()) return nullptr;
        auto& waiting = entry->second.waiting;
        for (auto at = waiting.begin(); at != waiting.end(); ++at) {
            if (at->first != token) continue;
            dropped = std::move(at->second);
            waiting.erase(at);
            break;
        }
        return waiting.empty() ? entry->second.progress : nullptr;
    });
    if (cancelled) cancelled->cancel();
    return dropped != nullptr;
}

void Downloads::start(replica::Inode inode, bool mayIdentify) {
    if (const auto error = attempt("start(_:)", [&] { fetch(inode, mayIdentify); })) ended(inode, error);
}

void Downloads::fetch(replica::Inode inode, bool mayIdentify) {
    const auto row = places_.common.replica.row(inode);
    if (!row || row->pending.deletion) return ended(inode, noSuchItem());
    if (row->contents) return ended(inode, std::nullopt);
    if (const auto stale = places_.common.replica.outermostNameless(inode))
        return places_.folders->identify(*stale, [self = shared_from_this(), inode, mayIdentify](const auto& error) {
            return error ? self->ended(inode, error) : self->start(inode, mayIdentify);
        });
    if (!row->identifier) {
        if (!mayIdentify) return ended(inode, noSuchItem());
        return places_.folders->identify(*row, [self = shared_from_this(), inode](const auto& error) {
            if (error) return self->ended(inode, error);
            self->start(inode, false);
        });
    }
    const std::string identifier = *row->identifier;
    if (!places_.common.hostIsExpected(std::string(resolveIdentifier(identifier).domain)))
        return ended(inode, serverUnreachable());
    const auto progress = places_.common.extension->fetchContents(
        identifier,
        [self = shared_from_this(), inode, identifier](const auto& file, const auto& item, const auto& error) {
            if (file) return self->arrived(inode, identifier, *file, item.get());
            self->failed(inode, identifier, error.value_or(cannotSynchronize()));
        });
    const bool isUnwanted = state_.with([&](State& state) {
        const auto entry = state.downloads.find(inode);
        if (entry == state.downloads.end()) return false; // it has ended already
        entry->second.progress = progress;
        return entry->second.waiting.empty();
    });
    if (isUnwanted) progress->cancel();
}

void Downloads::arrived(replica::Inode inode, const std::string& identifier, const FileURL& file,
                        const NSFileProviderItem* item) {
    const LogScope log(Logger::shared(), "arrived(_:)");
    const auto taken = places_.fetched.take(file);
    if (const auto* why = std::get_if<std::string>(&taken)) {
        log.warning(*why);
        return ended(inode, cannotSynchronize());
    }
    const auto version = item ? std::optional(replica::hostVersion(*item)) : std::nullopt;
    bool isLess = false;
    std::string name;
    try {
        name = places_.contents.adopt(std::get<FileURL>(taken).path);
        const auto size = std::filesystem::file_size(places_.contents.pathOf(name));
        // Hosts tell the low 32 bits of a size. A reader that waits has to hear of more before its answer; of less it
        // hears by the answer, unless it was told.
        const auto before = places_.common.replica.row(inode);
        isLess = before && size < before->size;
        if (!places_.common.replica.setContents(inode, identifier, name, size, version)) {
            const auto file = places_.open.find(inode);
            const auto row = places_.common.replica.row(inode);
            const bool isRemoved = !row || row->pending.deletion; // but still to be read by who has it open
            if (file && isRemoved && !file->local()) file->setLocal(places_.contents.open(name));
            places_.contents.remove(name);
            if (!isRemoved && !row->contents && triesAgain(inode, identifier)) return;
        }
    } catch (const std::exception& error) {
        if (!name.empty()) places_.contents.remove(name);
        return ended(inode, toldError("arrived(_:)", error));
    }
    if (!isLess) places_.common.notices.attributesChanged(inode);
    ended(inode, std::nullopt);
    if (isLess) places_.common.notices.attributesChanged(inode);
}

/// A rename around the item may have been carried out before the answer that says so.
bool Downloads::triesAgain(replica::Inode inode, const std::string& identifier) {
    constexpr auto pause = std::chrono::milliseconds(300);
    replica::Replica& replica = places_.common.replica;
    const auto row = replica.row(inode);
    const bool isOther =
        row && (row->identifier != identifier || replica.isMoving(inode) || replica.outermostNameless(inode));
    if (!isOther) return false;
    const bool may = state_.with([&](State& state) {
        const auto entry = state.downloads.find(inode);
        return entry != state.downloads.end() && !entry->second.waiting.empty() && ++entry->second.tries <= kTries;
    });
    if (may) places_.common.tasks.after(pause, [self = shared_from_this(), inode] { self->start(inode, true); });
    return may;
}

void Downloads::failed(replica::Inode inode, const std::string& identifier, const NSError& error) {
    const std::string connection(resolveIdentifier(identifier).domain);
    if (!BxMessages::sharedInstance().isReachable(connection)) return ended(inode, serverUnreachable());
    if (error != cannotSynchronize()) return missed(inode, identifier, error);
    // Hosts have no words for what is not there any more.
    places_.common.extension->item(
        identifier, [self = shared_from_this(), inode, identifier, error](const auto&, const auto& failure) {
            const bool isGone = failure && failure->code == FileProviderErrorCode::noSuchItem;
            self->missed(inode, identifier, isGone ? *failure : error);
        });
}

void Downloads::missed(replica::Inode inode, const std::string& identifier, NSError error) {
    bool isPutOff = false;
    orLog("missed(_:)", [&] {
        const bool isNotThere = error.code == FileProviderErrorCode::noSuchItem;
        isPutOff = (isNotThere || error == cannotSynchronize()) && triesAgain(inode, identifier);
        if (isPutOff) return;
        const auto row = places_.common.replica.row(inode);
        if (row && error == cannotSynchronize() && !places_.contents.hasRoomFor(row->size)) // the host cannot tell
            error = cocoaError(CocoaErrorCode::fileWriteOutOfSpace);
        if (error.code == FileProviderErrorCode::noSuchItem && places_.common.replica.isMoving(inode)) {
            error = cannotSynchronize();
        } else if (error.code == FileProviderErrorCode::noSuchItem) {
            const Timestamp now = places_.common.clock.now();
            places_.common.notices.tell(places_.common.replica.remove(std::vector{identifier}, now));
        }
    });
    if (!isPutOff) ended(inode, error);
}

void Downloads::ended(replica::Inode inode, const std::optional<NSError>& error) {
    bool isWantedAgain = false; // since it was cancelled
    const auto download = state_.with([&](State& state) {
        const auto entry = state.downloads.find(inode);
        isWantedAgain = error && *error == userCancelled() && entry != state.downloads.end() &&
                        !entry->second.waiting.empty() && ++entry->second.tries <= kTries;
        return isWantedAgain ? decltype(state.downloads)::node_type() : state.downloads.extract(inode);
    });
    if (isWantedAgain) places_.common.tasks.async([self = shared_from_this(), inode] { self->start(inode, true); });
    if (download)
        for (const auto& [token, handler] : download.mapped().waiting)
            orLog("ended(_:)", [&, &handler = handler] { handler(error); });
}

std::vector<Transfer> Downloads::transfers() const {
    return state_.with([](const State& state) {
        std::vector<Transfer> all;
        for (const auto& [inode, download] : state.downloads) all.push_back(transferOf(inode, download.progress));
        return all;
    });
}

std::optional<Transfer> Downloads::transfer(replica::Inode inode) const {
    return state_.with([&](const State& state) -> std::optional<Transfer> {
        const auto entry = state.downloads.find(inode);
        if (entry == state.downloads.end()) return std::nullopt;
        return transferOf(inode, entry->second.progress);
    });
}

} // namespace brindlemar
