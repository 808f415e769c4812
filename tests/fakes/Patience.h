// Waiting for something that another thread does, with a deadline that only a fault can reach.
#pragma once

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <vector>

namespace brindlemar {

inline constexpr std::chrono::seconds kPatience{30};

/// Happens once.
class Event {
public:
    void happen() { promise_.set_value(); }
    bool happens() const { return future_.wait_for(kPatience) == std::future_status::ready; }

private:
    std::promise<void> promise_;
    std::shared_future<void> future_ = promise_.get_future().share();
};

/// What arrives on another thread, in order.
template <class T>
class Collected {
public:
    void add(T value) {
        std::lock_guard lock(mutex_);
        values_.push_back(std::move(value));
        changed_.notify_all();
    }
    /// All so far, once there are `count` of them; fewer when patience ran out.
    std::vector<T> atLeast(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kPatience, [&] { return values_.size() >= count; });
        return values_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<T> values_;
};

} // namespace brindlemar
