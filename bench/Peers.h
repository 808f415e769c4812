// What the benchmarks of ports measure against: peers in other processes, bare sockets, a pass over memory.
#pragma once

#include "Paired.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>

namespace brindlemar::bench {

using std::chrono::steady_clock;
using Text = std::optional<std::string>;

constexpr std::size_t kMessage = 150;
constexpr auto kSendTimeout = std::chrono::seconds(3);

inline double secondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

/// A child that runs `body` and is ended with this object. Made while this process has one thread.
class Child {
public:
    explicit Child(const std::function<void()>& body) : process_(::fork()) {
        if (process_ != 0) return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        ::_exit(0);
    }
    ~Child() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }

private:
    const pid_t process_;
};

struct OwnRuntimeDirectory {
    OwnRuntimeDirectory() { ::setenv("BRINDLEMAR_RUNTIME_DIR", ::mkdtemp(path.data()), 1); }
    ~OwnRuntimeDirectory() { std::filesystem::remove_all(path); }
    std::string path = (std::filesystem::temp_directory_path() / "port-benchmark-XXXXXX").string();
};

struct Party {
    QueueTimers timers;
    SerialQueue main{timers, "main"};
    SocketMessagePorts ports{RuntimeDirectory::open(), main, [](std::string_view text) {
                                 std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
                             }};

    std::shared_ptr<RemotePort> find(std::string_view name) {
        for (;;)
            if (auto port = ports.createRemote(name)) return port;
    }
};

/// A bare SEQPACKET connection to an echo process.
class BareEcho {
public:
    BareEcho() {
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_) != 0) std::abort();
        const int room = 1 << 20;
        for (const int end : ends_) ::setsockopt(end, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        child_.emplace([this] {
            char bytes[kMessage];
            for (ssize_t size; (size = ::recv(ends_[1], bytes, sizeof bytes, 0)) > 0;) ::send(ends_[1], bytes, size, 0);
        });
    }
    ~BareEcho() {
        for (const int end : ends_) ::close(end);
    }
    void roundTrip() {
        ::send(ends_[0], bytes_, sizeof bytes_, 0);
        ::recv(ends_[0], bytes_, sizeof bytes_, 0);
    }
    void pipeline(int count, int inFlight) {
        int sent = 0, received = 0;
        while (received < count) {
            while (sent < count && sent - received<inFlight&& ::send(ends_[0], bytes_, sizeof bytes_, MSG_DONTWAIT)> 0)
                ++sent;
            ::recv(ends_[0], bytes_, sizeof bytes_, 0);
            ++received;
            while (::recv(ends_[0], bytes_, sizeof bytes_, MSG_DONTWAIT) > 0) ++received;
        }
    }

private:
    int ends_[2];
    char bytes_[kMessage] = {};
    std::optional<Child> child_;
};

inline std::uint64_t readOnce(std::string_view bytes) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + i, sizeof word);
        sum += word;
    }
    return sum;
}

/// One message at a time: `subject.run(count, inFlight, times)` beside bare round trips.
template <class Subject>
void besideBareRoundTrips(benchmark::State& state, BareEcho& bare, Subject& subject) {
    std::vector<double> bareTimes, times; // microseconds
    for (auto _ : state) {
        for (int i = 0; i < 1000; ++i) {
            const auto start = steady_clock::now();
            bare.roundTrip();
            bareTimes.push_back(1e6 * secondsSince(start));
        }
        subject.run(1000, 1, &times);
    }
    state.counters["bare_us"] = median(bareTimes);
    state.counters["ours_us"] = median(times);
    state.counters["ratio"] = median(times) / median(bareTimes);
}

/// A thousand messages in flight, beside the bare pipeline.
template <class Subject>
void besideBarePipeline(benchmark::State& state, BareEcho& bare, Subject& subject) {
    constexpr int count = 50'000, inFlight = 1000;
    std::vector<double> bareRates, rates; // messages a second
    for (auto _ : state) {
        auto start = steady_clock::now();
        bare.pipeline(count, inFlight);
        bareRates.push_back(count / secondsSince(start));
        start = steady_clock::now();
        subject.run(count, inFlight, nullptr);
        rates.push_back(count / secondsSince(start));
    }
    state.counters["bare_per_s"] = median(bareRates);
    state.counters["ours_per_s"] = median(rates);
    state.counters["ratio"] = median(rates) / median(bareRates);
}

} // namespace brindlemar::bench
