#include "linux/ports/PendingAnswers.h"

#include "linux/Deadline.h"

namespace brindlemar {

PendingAnswers::Place::Place(PendingAnswers& owner, std::int32_t msgid) : owner_(owner) {
    std::lock_guard lock(owner_.mutex_);
    waiter_ = owner_.waiters_.insert(owner_.waiters_.end(), Waiter{msgid});
}

PendingAnswers::Place::~Place() {
    std::list<Waiter> given; // destroyed after the lock
    std::lock_guard lock(owner_.mutex_);
    given.splice(given.begin(), owner_.waiters_, waiter_);
}

RemotePort::Result PendingAnswers::Place::wait(std::chrono::nanoseconds limit) {
    std::unique_lock lock(owner_.mutex_);
    owner_.changed_.wait_until(lock, deadlineAfter(limit), [this] { return waiter_->result || owner_.ended_; });
    if (waiter_->result) return *std::move(waiter_->result);
    return {owner_.ended_ ? SendStatus::becameInvalid : SendStatus::receiveTimeout};
}

void PendingAnswers::arrived(std::int32_t msgid, Payload answer) {
    std::lock_guard lock(mutex_);
    if (ended_) return;
    for (Waiter& waiter : waiters_) {
        if (waiter.msgid != msgid || waiter.result) continue;
        waiter.result = {SendStatus::success, std::move(answer)};
        changed_.notify_all();
        return;
    }
}

void PendingAnswers::end() {
    std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

} // namespace brindlemar
