// Message ports beside bare sockets and bare copies, alternating in one run: where the scheduler puts the processes is
// its whim, so only the ratios count.
#include "Paired.h"
#include "Peers.h"

#include <poll.h>

#include <semaphore>
#include <vector>

namespace brindlemar {
namespace {

using namespace bench;

/// Our ports to an echo process: a request on the host's port, the reply as a message on ours.
class PortEcho {
public:
    PortEcho()
        : child_([] {
              Party party;
              std::shared_ptr<RemotePort> reply;
              const auto host = party.ports.createLocal("host", [&](LocalPort&, std::int32_t id, const Payload& data) {
                  if (!reply) reply = party.find("reply");
                  reply->sendRequest({id, data.bytes(), kSendTimeout});
                  return Text();
              });
              host->setDispatchQueue(party.main);
              for (;;) ::pause();
          }) {
        party_.emplace();
        reply_ = party_->ports.createLocal("reply", [this](auto&&...) {
            arrived();
            return Text();
        });
        reply_->setDispatchQueue(party_->main);
        host_ = party_->find("host");
    }
    /// Microseconds of each round trip are added to `times`, when given.
    void run(int count, int inFlight, std::vector<double>* times) {
        left_ = open_ = count;
        times_ = times;
        party_->main.async([this, inFlight] {
            for (int i = 0; i < inFlight; ++i) send();
        });
        done_.acquire();
    }

private:
    void send() {
        if (left_-- <= 0) return;
        start_ = steady_clock::now();
        host_->sendRequest({1, {bytes_, sizeof bytes_}, kSendTimeout});
    }
    void arrived() {
        if (times_) times_->push_back(1e6 * secondsSince(start_));
        send();
        if (--open_ == 0) done_.release();
    }

    OwnRuntimeDirectory directory_;
    Child child_;
    std::optional<Party> party_;
    std::shared_ptr<LocalPort> reply_;
    std::shared_ptr<RemotePort> host_;
    char bytes_[kMessage] = {};
    std::binary_semaphore done_{0};
    // The main queue's:
    int left_ = 0, open_ = 0;
    std::vector<double>* times_ = nullptr;
    steady_clock::time_point start_;
};

void roundTrip(benchmark::State& state) {
    BareEcho bare;
    PortEcho ports;
    besideBareRoundTrips(state, bare, ports);
}
BENCHMARK(roundTrip)->Iterations(30)->Unit(benchmark::kMillisecond);

void pipelined(benchmark::State& state) {
    BareEcho bare;
    PortEcho ports;
    besideBarePipeline(state, bare, ports);
}
BENCHMARK(pipelined)->Iterations(10)->Unit(benchmark::kMillisecond);

void longBody(benchmark::State& state) {
    const std::string body(std::size_t{150} * 1000 * 1000, 'x');
    OwnRuntimeDirectory directory;
    Party sender, receiver;
    std::binary_semaphore done(0);
    const auto local = receiver.ports.createLocal("long", [&](LocalPort&, std::int32_t, const Payload& data) {
        benchmark::DoNotOptimize(readOnce(data.bytes()));
        done.release();
        return Text();
    });
    local->setDispatchQueue(receiver.main);
    const auto remote = sender.find("long");
    std::vector<double> copyTimes, portTimes;
    for (auto _ : state) {
        auto start = steady_clock::now();
        {
            const std::unique_ptr<char[]> fresh(new char[body.size()]);
            std::memcpy(fresh.get(), body.data(), body.size());
            benchmark::DoNotOptimize(readOnce({fresh.get(), body.size()}));
            copyTimes.push_back(1e3 * secondsSince(start));
        }
        start = steady_clock::now();
        remote->sendRequest({1, body, kSendTimeout});
        done.acquire();
        portTimes.push_back(1e3 * secondsSince(start));
    }
    state.counters["copy_ms"] = median(copyTimes);
    state.counters["ports_ms"] = median(portTimes);
    state.counters["ratio"] = median(portTimes) / median(copyTimes);
}
BENCHMARK(longBody)->Iterations(15)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace brindlemar
