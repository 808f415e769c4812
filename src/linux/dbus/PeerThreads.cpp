#include "linux/dbus/PeerThreads.h"

#include "linux/Crowd.h"

#include <chrono>
#include <string>
#include <utility>

namespace brindlemar {

namespace {
constexpr std::chrono::seconds kLeavingTime{1};
}

void PeerThreads::Seat::rise(Standing standing) {
    std::lock_guard lock(house_.mutex_);
    standing_ = standing;
    house_.seats_.splice(house_.seats_.end(), house_.seats_, place_);
}

PeerThreads::~PeerThreads() {
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
        for (Seat& seat : seats_) seat.wake_->stop();
        left_.notify_all();
    }
    for (;;) {
        std::thread next;
        {
            std::lock_guard lock(mutex_);
            if (seats_.empty()) break;
            next = std::move(seats_.front().thread_);
        }
        next.join(); // by then the seat has moved to the finished ones
    }
    joinFinished();
}

bool PeerThreads::start(pid_t process, Body body) {
    joinFinished();
    std::unique_lock lock(mutex_);
    makeRoom(lock);
    if (closing_ || seats_.size() >= limit_) return false;
    auto seat = seats_.end();
    try {
        // The seat is listed before its thread runs, and the thread leaves under the lock that is held here.
        seat = seats_.insert(seats_.end(), Seat(*this, process));
        seat->place_ = seat;
        seat->thread_ = std::thread([this, seat, body = std::move(body)]() mutable { run(*seat, body); });
    } catch (const std::exception&) {
        if (seat != seats_.end()) seats_.erase(seat);
        return false;
    }
    return true;
}

void PeerThreads::makeRoom(std::unique_lock<std::mutex>& lock) {
    if (seats_.size() < limit_) return;
    const auto last = lastOfTheCrowd(
        seats_.begin(), seats_.end(), [](const Seat& seat) { return seat.process_; },
        [](const Seat& seat) { return std::pair(seat.wake_->stopped(), seat.standing_); });
    last->wake_->stop();
    left_.wait_for(lock, kLeavingTime, [this] { return closing_ || seats_.size() < limit_; });
}

void PeerThreads::run(Seat& seat, Body& body) noexcept {
    try {
        body(seat);
    } catch (const std::exception& error) {
        diagnostic_(std::string("A connection was given up: ") + error.what());
    }
    body = nullptr;
    std::lock_guard lock(mutex_);
    finished_.splice(finished_.end(), seats_, seat.place_);
    left_.notify_all();
}

void PeerThreads::joinFinished() {
    std::list<Seat> finished;
    {
        std::lock_guard lock(mutex_);
        finished.swap(finished_);
    }
    for (Seat& seat : finished)
        if (seat.thread_.joinable()) seat.thread_.join();
}

} // namespace brindlemar
