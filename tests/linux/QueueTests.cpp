#include "fakes/Patience.h"
#include "linux/queues/SerialQueue.h"
#include "linux/queues/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// Both kinds of queue, for what they have in common.
class EveryQueue : public testing::TestWithParam<const char*> {
protected:
    std::unique_ptr<Queue> make(WorkerPool::Limits limits = {}) {
        if (GetParam() == std::string_view("Serial")) return std::make_unique<SerialQueue>(timers, "test");
        return std::make_unique<WorkerPool>(timers, limits);
    }
    QueueTimers timers;
};
INSTANTIATE_TEST_SUITE_P(Queues, EveryQueue, testing::Values("Serial", "Pool"),
                         [](const auto& info) { return info.param; });

TEST_P(EveryQueue, DelayedTasksAndTicksAreNeverEarly) {
    Event fourth;
    int ticks = 0;
    const auto queue = make(); // after what its tasks use
    queue->after(std::chrono::nanoseconds::max(), [] { ADD_FAILURE() << "a delay overflowed"; });
    for (const auto delay : {-5ms, 0ms, 1ms, 7ms, 30ms}) {
        Event ran;
        const auto start = steady_clock::now();
        queue->after(delay, [&] {
            EXPECT_GE(steady_clock::now() - start, delay);
            ran.happen();
        });
        ASSERT_TRUE(ran.happens());
    }
    const auto start = steady_clock::now();
    const auto timer = queue->repeat(5ms, [&] {
        EXPECT_GE(steady_clock::now() - start, ++ticks * 5ms);
        if (ticks == 4) fourth.happen();
    });
    ASSERT_TRUE(fourth.happens());
}

TEST_P(EveryQueue, TicksDuringARunCoalesceAndNeverOverlapIt) {
    Event release, done;
    std::atomic<int> inside = 0, runs = 0;
    const auto queue = make(); // after what its tasks use
    const auto timer = queue->repeat(1ms, [&] {
        EXPECT_EQ(++inside, 1);
        const int run = ++runs;
        EXPECT_TRUE(run != 1 || release.happens());
        if (run == 3) done.happen();
        --inside;
    });
    timers.at(deadlineAfter(30ms), [&] { release.happen(); });
    ASSERT_TRUE(done.happens());
}

TEST_P(EveryQueue, ATimerMayBeDestroyedInItsHandler) {
    const auto held = std::make_shared<int>();
    std::unique_ptr<Timer> timer;
    Event ready, ticked, later;
    const auto queue = make(); // after what its tasks use
    timer = queue->repeat(1ms, [&, held] {
        ASSERT_TRUE(ready.happens());
        timer.reset();
        EXPECT_EQ(held.use_count(), 2); // the running handler still has what it captured
        ticked.happen();                // a second run would throw
    });
    ready.happen();
    ASSERT_TRUE(ticked.happens());
    queue->after(10ms, [&] { later.happen(); });
    ASSERT_TRUE(later.happens());
}

TEST_P(EveryQueue, DestructionWaitsForWhatRunsAndDropsTheRest) {
    auto queue = make({.usualThreads = 1, .mostThreads = 1});
    const auto never = [] { ADD_FAILURE() << "started after the end"; };
    Event posted, started;
    bool finished = false;
    queue->async([&] { EXPECT_TRUE(posted.happens()); });
    queue->async([&, queue = queue.get()] {
        started.happen();
        std::weak_ptr<int> last; // a queue that is stopping drops what it is given at once
        do {
            auto token = std::make_shared<int>();
            last = token;
            queue->async([token = std::move(token), never] { never(); });
        } while (!last.expired());
        finished = true;
    });
    std::shared_ptr<int> waiting(new int, [&, queue = queue.get()](int* number) { // posts when dropped
        queue->async(never);
        delete number;
    });
    const std::weak_ptr<int> alive = waiting;
    queue->async([waiting = std::move(waiting), never] { never(); });
    queue->after(1ms, never);
    const auto timer = queue->repeat(1ms, never);
    posted.happen();
    ASSERT_TRUE(started.happens());
    queue.reset();
    EXPECT_TRUE(finished);
    EXPECT_TRUE(alive.expired());
}

TEST(SerialQueueTest, KeepsEachPostersOrderAndRunsOneAtATime) {
    constexpr int posters = 4, each = 3000;
    QueueTimers timers;
    std::vector<int> next(posters);
    int inside = 0; // unsynchronised on purpose: the queue is what orders it
    std::latch all(posters * each);
    SerialQueue queue(timers, "test");
    std::vector<std::jthread> threads;
    for (int p = 0; p < posters; ++p)
        threads.emplace_back([&, p] {
            for (int n = 0; n < each; ++n)
                queue.async([&, p, n] {
                    EXPECT_EQ(++inside, 1);
                    EXPECT_EQ(next[p]++, n);
                    --inside;
                    all.count_down();
                });
        });
    all.wait();
}

TEST(WorkerPoolTest, GrowsWhileTasksBlockUpToItsLimitAndShrinksAgain) {
    QueueTimers timers;
    std::atomic<int> inside = 0, most = 0;
    std::latch full(5), all(40);
    Event release;
    WorkerPool pool(timers, {.usualThreads = 2, .mostThreads = 5, .linger = 1ms});
    for (int i = 0; i < 40; ++i)
        pool.async([&, i] {
            const int now = ++inside;
            for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
            }
            if (i < 5) full.count_down();
            EXPECT_TRUE(release.happens());
            --inside;
            all.count_down();
        });
    full.wait();
    timers.at(deadlineAfter(30ms), [&] { release.happen(); }); // three looks at a full pool
    all.wait();
    EXPECT_EQ(most, 5);
    const auto deadline = steady_clock::now() + kPatience;
    while (pool.threads() > 2 && steady_clock::now() < deadline) std::this_thread::yield();
    EXPECT_EQ(pool.threads(), 2U);
}

} // namespace
} // namespace brindlemar
