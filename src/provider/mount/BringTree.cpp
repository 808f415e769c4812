#include "provider/mount/BringTree.h"

#include "provider/mount/Failures.h"

namespace brindlemar {

using replica::Inode;

namespace {
constexpr std::size_t kAtOnce = 8;
}

void BringTree::start(Inode top) {
    state_.with([&](State& state) { state.waiting.push_back(top); });
    listener_.whenGone([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->stop();
    });
    goOn();
}

void BringTree::stop() {
    const auto fetches = state_.with([](State& state) {
        state.stopped = true;
        state.waiting.clear();
        return state.fetches;
    });
    for (const auto& [file, token] : fetches)
        if (token != 0 && downloads_.unwant(file, token)) fetched(file, userCancelled());
}

void BringTree::goOn() {
    for (;;) {
        bool isOver = false;
        std::optional<NSError> error;
        const auto next = state_.with([&](State& state) -> std::optional<Inode> {
            if (state.stopped) state.waiting.clear();
            if (!state.waiting.empty() && state.running < kAtOnce) {
                const Inode inode = state.waiting.back();
                state.waiting.pop_back();
                ++state.running;
                return inode;
            }
            isOver = state.running == 0 && state.waiting.empty() && !std::exchange(state.ended, true);
            error = state.stopped ? userCancelled() : state.error;
            return std::nullopt;
        });
        if (isOver) {
            std::lock_guard lock(telling_);
            listener_.end(error);
        }
        if (!next) return;
        if (const auto failure = attempt("take(_:)", [&] { take(*next); })) finished(failure, 0);
    }
}

void BringTree::take(Inode inode) {
    const auto row = replica_.row(inode);
    if (!row) return finished(std::nullopt, 0);
    if (!row->folder) return row->contents ? finished(std::nullopt, 1) : fetch(inode);
    if (!Folders::isKnown(*row)) return list(inode);
    addEntries(inode);
    finished(std::nullopt, 0);
}

void BringTree::addEntries(Inode folder) {
    std::vector<Inode> entries;
    std::int64_t files = 0;
    replica_.children(folder, 0, [&](const replica::Row& row) {
        entries.push_back(row.inode);
        files += !row.folder;
        return true;
    });
    state_.with([&](State& state) {
        state.waiting.insert(state.waiting.end(), entries.begin(), entries.end());
        state.known += files;
    });
}

void BringTree::list(Inode folder) {
    folders_.list(folder, [self = shared_from_this(), folder](bool more, const auto& error) {
        if (more) return self->list(folder);
        const auto failure = error ? error : attempt("list(_:)", [&] { self->addEntries(folder); });
        self->finished(failure, 0);
        self->goOn();
    });
}

void BringTree::fetch(Inode file) {
    state_.with([&](State& state) { state.fetches[file] = 0; });
    const auto token =
        downloads_.want(file, [self = shared_from_this(), file](const auto& error) { self->fetched(file, error); });
    const bool isStopped = state_.with([&](State& state) {
        const auto entry = state.fetches.find(file);
        if (entry != state.fetches.end()) entry->second = token;
        return state.stopped;
    });
    if (isStopped) stop();
}

void BringTree::fetched(Inode file, const std::optional<NSError>& error) {
    state_.with([&](State& state) { state.fetches.erase(file); });
    finished(error, 1);
    goOn();
}

void BringTree::finished(const std::optional<NSError>& error, std::int64_t files) {
    std::int64_t done = 0, known = 0;
    state_.with([&](State& state) {
        --state.running;
        state.done += files;
        if (error && !state.error) state.error = error;
        done = state.done;
        known = state.known = std::max(state.known, done);
    });
    std::lock_guard lock(telling_);
    if (files) listener_.progress(done, known);
}

} // namespace brindlemar
