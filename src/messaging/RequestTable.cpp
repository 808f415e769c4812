#include "messaging/RequestTable.h"

#include <algorithm>
#include <limits>

namespace brindlemar {

void WaitingRequest::deliver(Answer answer) {
    line_.with([&](Line& line) { line.answers.push_back(std::move(answer)); });
}

void WaitingRequest::fail(NSError error) {
    Payload none;
    deliver({.reply = none, .error = std::move(error)});
    runAnswers();
}

void WaitingRequest::runAnswers() {
    const auto keepAlive = shared_from_this();
    if (line_.with([](Line& line) { return std::exchange(line.running, true); })) return;
    for (;;) {
        std::optional<Answer> next = line_.with([](Line& line) -> std::optional<Answer> {
            if (line.answers.empty()) {
                line.running = false;
                return std::nullopt;
            }
            Answer first = std::move(line.answers.front());
            line.answers.pop_front();
            return first;
        });
        if (!next) return;
        run(*next);
    }
}

void WaitingRequest::run(const Answer& answer) {
    const bool isFailure = answer.error.has_value();
    if (isFailure && finished_) return;
    const int result = entry_(answer.reply, answer.error);
    if (result != kFinished && !isFailure) return;
    finished_ = true;
    if (answer.whenFinished) answer.whenFinished();
}

std::int32_t RequestTable::enter(std::shared_ptr<WaitingRequest> request) {
    return state_.with([&](State& state) {
        state.completionBlocks.insert_or_assign(state.messageIdentifier, std::move(request));
        return state.messageIdentifier;
    });
}

void RequestTable::advance() {
    state_.with([](State& state) {
        do
            state.messageIdentifier =
                state.messageIdentifier == std::numeric_limits<std::int32_t>::max() ? 1 : state.messageIdentifier + 1;
        while (state.completionBlocks.contains(state.messageIdentifier));
    });
}

std::shared_ptr<WaitingRequest> RequestTable::find(std::int32_t id) const {
    return state_.with([&](const State& state) {
        const auto found = state.completionBlocks.find(id);
        return found == state.completionBlocks.end() ? nullptr : found->second;
    });
}

void RequestTable::remove(std::int32_t id, const std::shared_ptr<WaitingRequest>& request) {
    state_.with([&](State& state) {
        const auto found = state.completionBlocks.find(id);
        if (found != state.completionBlocks.end() && found->second == request) state.completionBlocks.erase(found);
    });
}

std::vector<std::shared_ptr<WaitingRequest>> RequestTable::takeAll() {
    const auto entries = state_.with([](State& state) { return std::exchange(state.completionBlocks, {}); });
    std::vector<std::pair<std::int32_t, std::shared_ptr<WaitingRequest>>> ordered(entries.begin(), entries.end());
    std::ranges::sort(ordered, {}, [](const auto& entry) { return entry.first; });
    std::vector<std::shared_ptr<WaitingRequest>> requests;
    requests.reserve(ordered.size());
    for (auto& [id, request] : ordered) requests.push_back(std::move(request));
    return requests;
}

std::size_t RequestTable::count() const {
    return state_.with([](const State& state) { return state.completionBlocks.size(); });
}

} // namespace brindlemar
