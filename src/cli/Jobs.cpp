#include "cli/Jobs.h"

#include <thread>

namespace brindlemar::cli {

void Jobs::add(Job job) {
    std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    changed_.notify_one();
}

bool Jobs::run() {
    {
        std::vector<std::jthread> workers;
        for (std::size_t i = 0; i < kWorkers; ++i) workers.emplace_back([this] { work(); });
    }
    if (final_) throw *final_;
    return allWell_;
}

/// None when there are no more.
std::optional<Jobs::Job> Jobs::next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !jobs_.empty() || running_ == 0 || final_; });
    if (jobs_.empty() || final_) return std::nullopt;
    Job job = std::move(jobs_.back()); // the latest: a tree is gone through in its depth, which keeps the list short
    jobs_.pop_back();
    ++running_;
    return job;
}

void Jobs::work() {
    std::unique_ptr<Control> control;
    while (const auto job = next()) {
        try {
            if (!control) control = session_.connect(stop_.descriptor());
            (*job)(*control);
        } catch (const Failure& failure) {
            failed(failure);
        } catch (const std::exception& error) { // memory or descriptors that are not to be had
            failed({Exit::failure, error.what()});
        }
        std::lock_guard lock(mutex_);
        --running_;
        changed_.notify_all();
    }
}

void Jobs::failed(const Failure& failure) {
    {
        std::lock_guard lock(mutex_);
        if (final_) return; // a call that was ended
        allWell_ = false;
        if (failure.final) final_ = failure;
    }
    if (!failure.final) return session_.complain(failure);
    stop_.stop();
    changed_.notify_all();
}

} // namespace brindlemar::cli
