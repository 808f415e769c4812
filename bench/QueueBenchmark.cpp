// Hops from the main queue to the pool and back, beside two threads that wake each other through bare semaphores.
#include "linux/queues/SerialQueue.h"
#include "linux/queues/WorkerPool.h"

#include <benchmark/benchmark.h>

#include <semaphore>
#include <thread>

namespace brindlemar {
namespace {

constexpr int kHops = 20'000;

double nanosecondsPerHop(const std::function<void()>& hops) {
    const auto start = std::chrono::steady_clock::now();
    hops();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / kHops;
}

void hopBare() {
    std::binary_semaphore there(0), back(0);
    std::jthread other([&] {
        for (int i = 0; i < kHops; ++i) {
            there.acquire();
            back.release();
        }
    });
    for (int i = 0; i < kHops; ++i) {
        there.release();
        back.acquire();
    }
}

/// So many chains of hops at once.
struct Hopping {
    SerialQueue& main;
    WorkerPool& pool;
    int left = kHops, arrived = 0; // the main queue's
    std::binary_semaphore done{0};

    void hop() {
        pool.async([this] { main.async([this] { land(); }); });
    }
    void land() {
        if (++arrived == kHops) done.release();
        if (left-- > 0) hop();
    }
    void run(int chains) {
        left -= chains;
        main.async([this, chains] {
            for (int i = 0; i < chains; ++i) hop();
        });
        done.acquire();
    }
};

void queueHop(benchmark::State& state) {
    QueueTimers timers;
    SerialQueue main(timers, "main");
    WorkerPool pool(timers);
    double bare = 0, ours = 0;
    for (auto _ : state) {
        bare += nanosecondsPerHop(hopBare);
        Hopping hopping{main, pool};
        ours += nanosecondsPerHop([&] { hopping.run(static_cast<int>(state.range(0))); });
    }
    const auto average = benchmark::Counter::kAvgIterations;
    state.counters["bare_ns"] = {bare, average};
    state.counters["ours_ns"] = {ours, average};
    state.counters["ratio"] = ours / bare;
}
BENCHMARK(queueHop)->ArgName("inFlight")->Arg(1)->Arg(1000)->Iterations(20)->Unit(benchmark::kMillisecond);

void queuePost(benchmark::State& state) {
    QueueTimers timers;
    SerialQueue main(timers, "main");
    for (auto _ : state) main.async([] {});
}
BENCHMARK(queuePost);

} // namespace
} // namespace brindlemar
