#include "platform/Progress.h"

#include <utility>

namespace brindlemar {

std::int64_t NSProgress::completedUnitCount() const {
    std::lock_guard lock(mutex_);
    return completedUnitCount_;
}

void NSProgress::setCompletedUnitCount(std::int64_t count) {
    {
        std::lock_guard lock(mutex_);
        if (completedUnitCount_ == count) return;
        completedUnitCount_ = count;
    }
    tell(-1);
}

void NSProgress::tell(std::int64_t unless) {
    std::lock_guard turn(observing_);
    std::function<void(std::int64_t, std::int64_t)> observer;
    std::int64_t completed;
    {
        std::lock_guard lock(mutex_);
        observer = observer_;
        completed = completedUnitCount_;
    }
    if (observer && completed != unless) observer(completed, totalUnitCount_);
}

void NSProgress::setCancellationHandler(std::function<void()> handler) {
    {
        std::lock_guard lock(mutex_);
        if (!cancelled_) {
            cancellationHandler_.swap(handler);
            return;
        }
    }
    if (handler) handler();
}

void NSProgress::cancel() {
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        handler = std::exchange(cancellationHandler_, nullptr);
    }
    if (handler) handler();
}

bool NSProgress::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

void NSProgress::setObserver(std::function<void(std::int64_t, std::int64_t)> observer) {
    {
        std::lock_guard lock(mutex_);
        observer_.swap(observer);
    }
    tell(0);
}

} // namespace brindlemar
