#include "host/commands/CopyProgress.h"

namespace brindlemar::host {

namespace {
constexpr std::chrono::milliseconds kInterval{100}; // requesters expect one every 200 ms
}

CopyProgress::CopyProgress(Queue& ticks, const Reply& reply)
    : state_(new State{reply}), timer_(ticks.repeat(kInterval, [state = state_] { state->tick(); })) {}

void CopyProgress::State::tick() {
    std::lock_guard turn(sending);
    if (ended || abandoned) return;
    if (!reply(R"({"status":"progress","progressPercentage":)" + std::to_string(percentage) + "}")) abandoned = true;
}

CopyStep CopyProgress::step() const {
    return [state = state_](std::uint64_t done, std::uint64_t total) {
        state->percentage = static_cast<int>(static_cast<double>(done) * 100 / static_cast<double>(total));
        return !state->abandoned;
    };
}

bool CopyProgress::end() {
    timer_.reset();
    std::lock_guard turn(state_->sending);
    state_->ended = true;
    return !state_->abandoned;
}

} // namespace brindlemar::host
