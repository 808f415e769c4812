// A subject and its floor, measured in turn in one run, so that the figure is a ratio that the machine's mood does not
// change.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace brindlemar::bench {

template <class Body>
double seconds(Body&& body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

/// Runs floor and subject alternately for the benchmark's iterations. Reports the subject's time, and as counters the
/// medians of both in nanoseconds for one of `count` things, and their ratio.
template <class Floor, class Subject>
void paired(benchmark::State& state, double count, Floor&& floor, Subject&& subject) {
    std::vector<double> floors, subjects;
    for (auto _ : state) {
        floors.push_back(seconds(floor));
        subjects.push_back(seconds(subject));
        state.SetIterationTime(subjects.back());
    }
    state.counters["floor_ns"] = median(floors) / count * 1e9;
    state.counters["subject_ns"] = median(subjects) / count * 1e9;
    state.counters["ratio"] = median(subjects) / median(floors);
}

} // namespace brindlemar::bench
