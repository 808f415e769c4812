// State with one owner, reached only under its lock.
#pragma once

#include <mutex>
#include <utility>

namespace brindlemar {

/// What leaves the lambda must be a value. No foreign code may run inside: callbacks and destructors of shared objects
/// are moved out first.
template <class T>
class Guarded {
public:
    Guarded() = default;
    explicit Guarded(T value) : value_(std::move(value)) {}

    template <class F>
    auto with(F&& body) {
        std::lock_guard lock(mutex_);
        return std::forward<F>(body)(value_);
    }
    template <class F>
    auto with(F&& body) const {
        std::lock_guard lock(mutex_);
        return std::forward<F>(body)(std::as_const(value_));
    }
    T copy() const {
        return with([](const T& value) { return value; });
    }

private:
    mutable std::mutex mutex_;
    T value_{};
};

} // namespace brindlemar
