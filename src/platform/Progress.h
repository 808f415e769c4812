// Progress of one request, shared between the extension and the platform.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

namespace brindlemar {

/// Thread-safe. Handlers run on the thread that caused them; the observer never twice at once, and never with a count
/// that is older than one it has had.
class NSProgress {
public:
    explicit NSProgress(std::int64_t totalUnitCount = 0) : totalUnitCount_(totalUnitCount) {}

    std::int64_t totalUnitCount() const { return totalUnitCount_; }
    std::int64_t completedUnitCount() const;
    void setCompletedUnitCount(std::int64_t count);

    /// Runs once, when the progress is cancelled; at once if it already is.
    void setCancellationHandler(std::function<void()> handler);
    /// The second and later calls do nothing.
    void cancel();
    bool isCancelled() const;

    /// Called after each change of the completed count with (completed, total), and at once when it has moved already;
    /// the platform's way to watch. It must not change the count.
    void setObserver(std::function<void(std::int64_t completed, std::int64_t total)> observer);

private:
    void tell(std::int64_t unless);

    const std::int64_t totalUnitCount_;
    std::mutex observing_;
    mutable std::mutex mutex_;
    std::int64_t completedUnitCount_ = 0;
    bool cancelled_ = false;
    std::function<void()> cancellationHandler_;
    std::function<void(std::int64_t, std::int64_t)> observer_;
};

} // namespace brindlemar
