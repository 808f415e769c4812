#include "linux/dbus/PeerThreads.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

namespace brindlemar {

namespace {
constexpr std::chrono::seconds kLeavingTime{1};
}

void PeerThreads::Seat::admit() {
    std::lock_guard lock(house_.mutex_);
    admitted_ = true;
}

PeerThreads::~PeerThreads() {
    std::list<Seat> seats;
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

bool PeerThreads::start(Body body) {
    joinFinished();
    std::unique_lock lock(mutex_);
    const auto hasRoom = [this] { return closing_ || seats_.size() < limit_; };
    if (!hasRoom()) {
        const auto stranger = std::find_if(seats_.begin(), seats_.end(),
                                           [](const Seat& seat) { return !seat.admitted_ && !seat.wake_->stopped(); });
        if (stranger != seats_.end()) stranger->wake_->stop();
        left_.wait_for(lock, kLeavingTime, hasRoom);
    }
    if (closing_ || !hasRoom()) return false;
    auto seat = seats_.end();
    try {
        // The seat is listed before its thread runs, and the thread leaves under the lock that is held here.
        seat = seats_.insert(seats_.end(), Seat(*this));
        seat->thread_ = std::thread([this, seat, body = std::move(body)]() mutable {
            body(*seat);
            body = nullptr;
            leave(seat);
        });
    } catch (const std::system_error&) {
        if (seat != seats_.end()) seats_.erase(seat);
        return false;
    }
    return true;
}

void PeerThreads::leave(std::list<Seat>::iterator seat) {
    std::lock_guard lock(mutex_);
    finished_.splice(finished_.end(), seats_, seat);
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
