#include "linux/log/BatchedLog.h"

#include "linux/queues/QuietThread.h"
#include "support/LogFormatter.h"

namespace brindlemar {

namespace {

constexpr std::size_t kSpareCapacity = std::size_t{1} << 20;

/// A line like any other, so that whoever reads the log needs no second syntax.
std::string droppedNote(std::uint64_t lines) {
    const std::string text = std::to_string(lines) + " log lines were dropped";
    return LogFormatter().formatMessage({.level = LogLevel::warning,
                                         .message = text,
                                         .function = "write(_:urgent:)",
                                         .file = "BrindlemarFileProvider/BatchedLog.cpp",
                                         .line = __LINE__,
                                         .information = {},
                                         .date = std::chrono::system_clock::now()}) +
           '\n';
}

} // namespace

BatchedLog::BatchedLog(std::unique_ptr<LogOutput> output, Limits limits)
    : output_(std::move(output)), limits_(limits), writer_(startQuietThread([this] { run(); })) {}

BatchedLog::~BatchedLog() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    writer_.join();
}

void BatchedLog::write(std::string_view line, bool urgent) {
    std::unique_lock lock(mutex_);
    const auto fits = [&] {
        const std::size_t backlog = pending_.size() + kept_;
        return backlog == 0 || backlog + line.size() < limits_.backlog;
    };
    while (!fits() && kept_ == 0 && !stuck_) awaitAttempt(lock); // a writer that is merely behind
    const bool first = pending_.empty();
    if (fits())
        pending_.append(line).push_back('\n');
    else
        ++dropped_;
    if (urgent && !stuck_)
        awaitAttempt(lock);
    else if (first && kept_ == 0)
        wake_.notify_one();
}

void BatchedLog::flush() {
    std::unique_lock lock(mutex_);
    awaitAttempt(lock);
}

void BatchedLog::awaitAttempt(std::unique_lock<std::mutex>& lock) {
    const std::uint64_t mine = ++wanted_;
    wake_.notify_one();
    if (!attempted_.wait_for(lock, limits_.patience, [&] { return finished_ >= mine; })) stuck_ = true;
}

void BatchedLog::awaitWork(std::unique_lock<std::mutex>& lock) {
    const auto pressing = [this] { return stopping_ || wanted_ > finished_; };
    if (kept_ > 0) {
        wake_.wait_for(lock, limits_.retry, pressing);
    } else {
        wake_.wait(lock, [&] { return pressing() || !pending_.empty(); });
        wake_.wait_for(lock, limits_.gathering, pressing);
    }
}

void BatchedLog::run() {
    std::string batch;
    std::unique_lock lock(mutex_);
    for (bool last = false; !last;) {
        awaitWork(lock);
        last = stopping_;
        const std::uint64_t attempt = wanted_, dropped = dropped_;
        if (batch.empty()) {
            batch.swap(pending_);
        } else {
            batch.append(pending_);
            pending_.clear();
            kept_ = batch.size();
        }
        lock.unlock();

        batch.erase(0, output_->write(batch));
        const bool note = dropped > 0 && batch.empty();
        if (note) {
            batch = droppedNote(dropped);
            batch.erase(0, output_->write(batch));
        }
        if (batch.empty() && batch.capacity() > kSpareCapacity) batch.shrink_to_fit();

        lock.lock();
        kept_ = batch.size();
        if (note) dropped_ -= dropped;
        finished_ = attempt;
        stuck_ = false;
        attempted_.notify_all();
    }
}

} // namespace brindlemar
