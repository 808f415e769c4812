// One request through the whole road: itemJSON, its row, the send procedure, the ports, an echo host in another
// process, the reply dispatch and the completion; beside a bare SEQPACKET round trip of the same bytes.
#include "BenchPlatform.h"
#include "Listings.h"
#include "Paired.h"
#include "Peers.h"
#include "fakes/TemporaryDirectory.h"
#include "items/BrindlemarFileProviderItemEnumerator.h"
#include "linux/RawPeer.h"
#include "linux/store/HybridStore.h"

#include <sys/mman.h>

#include <numeric>
#include <semaphore>

namespace brindlemar::bench {
namespace {

const std::string kHostPort = std::string(AppGroupIdentifier) + ".bxserver.c7";
const std::string kReplyPort = std::string(AppGroupIdentifier) + ".bxclient.c7";
/// Makes the request's payload as long as the bare message.
const std::string kItem(kMessage - std::string_view(R"({"command":"itemForIdentifier","identifier":""})").size(), 'x');

/// A host process on our ports that answers each request with `reply`. Writes the time of each answer where the parent
/// can read it.
class HostProcess {
public:
    explicit HostProcess(const std::string& reply)
        : answered_(static_cast<std::atomic<std::int64_t>*>(
              ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))),
          child_([&] {
              Party party;
              std::shared_ptr<RemotePort> back;
              const auto host = party.ports.createLocal(kHostPort, [&](LocalPort&, std::int32_t id, const Payload&) {
                  if (!back) back = party.find(kReplyPort);
                  answered_->store(steady_clock::now().time_since_epoch().count());
                  back->sendRequest({id, reply, kSendTimeout});
                  return std::optional<std::string>();
              });
              host->setDispatchQueue(party.main);
              for (;;) ::pause();
          }) {}
    steady_clock::time_point answered() const {
        return steady_clock::time_point(steady_clock::duration(answered_->load()));
    }

private:
    OwnRuntimeDirectory directory_;
    std::atomic<std::int64_t>* const answered_;
    Child child_;
};

/// A host process that is one loop on bare sockets: a request's packet goes back as the reply's, byte for byte.
class EchoProcess {
public:
    EchoProcess()
        : child_([] {
              const RuntimeDirectory directory = RuntimeDirectory::open();
              RawSocket listener = RawSocket::listening(directory, kHostPort), requests;
              do // until the one who stays: a look whether we are there leaves at once
                  requests = listener.accept();
              while (!requests.greet(kHostPort));
              RawSocket replies;
              do replies = RawSocket::connected(directory, kReplyPort);
              while (replies.get() < 0 || !replies.greet(kReplyPort));
              char packet[4096];
              for (ssize_t size; (size = ::recv(requests.get(), packet, sizeof packet, 0)) > 0;)
                  ::send(replies.get(), packet, static_cast<std::size_t>(size), 0);
          }) {}

private:
    OwnRuntimeDirectory directory_;
    Child child_;
};

/// Keeps `inFlight` requests on the road until `count` have come back.
class Road {
public:
    void run(int count, int inFlight, std::vector<double>* times) {
        left_ = count - inFlight;
        open_ = count;
        times_ = times;
        for (int i = 0; i < inFlight; ++i) send();
        done_.acquire();
    }

private:
    void send() {
        BxMessages::sharedInstance().itemJSON({.forIdentifier = kItem, .withDomain = "c7"},
                                              [this, start = steady_clock::now()](const Payload&, const auto& error) {
                                                  if (error) std::abort();
                                                  if (times_) times_->push_back(1e6 * secondsSince(start));
                                                  if (left_.fetch_sub(1) > 0) send();
                                                  if (open_.fetch_sub(1) == 1) done_.release();
                                              });
    }
    std::atomic<int> left_ = 0, open_ = 0;
    std::vector<double>* times_ = nullptr; // one request at a time when set
    std::binary_semaphore done_{0};
};

void wholeRoad(benchmark::State& state) {
    BareEcho bare;
    EchoProcess host;
    BenchPlatform platform;
    Road road;
    besideBareRoundTrips(state, bare, road);
}
BENCHMARK(wholeRoad)->Iterations(30)->Unit(benchmark::kMillisecond);

void thousandInFlight(benchmark::State& state) {
    BareEcho bare;
    EchoProcess host;
    BenchPlatform platform;
    Road road;
    besideBarePipeline(state, bare, road);
}
BENCHMARK(thousandInFlight)->Iterations(10)->Unit(benchmark::kMillisecond);

/// From the host's send to the completion entered, against one copy into fresh memory and one pass over it.
void longReply(benchmark::State& state) {
    const std::string reply(std::size_t{150} * 1000 * 1000, 'x');
    HostProcess host(reply);
    BenchPlatform platform;
    std::vector<double> copyTimes, roadTimes;
    for (auto _ : state) {
        {
            const auto start = steady_clock::now();
            const std::unique_ptr<char[]> fresh(new char[reply.size()]);
            std::memcpy(fresh.get(), reply.data(), reply.size());
            benchmark::DoNotOptimize(readOnce({fresh.get(), reply.size()}));
            copyTimes.push_back(1e3 * secondsSince(start));
        }
        std::binary_semaphore done(0);
        BxMessages::sharedInstance().itemJSON({.forIdentifier = kItem, .withDomain = "c7"},
                                              [&](const Payload& text, const auto&) {
                                                  roadTimes.push_back(1e3 * secondsSince(host.answered()));
                                                  if (text.bytes().size() != reply.size()) std::abort();
                                                  done.release();
                                              });
        done.acquire();
    }
    state.counters["copy_ms"] = median(copyTimes);
    state.counters["road_ms"] = median(roadTimes);
    state.counters["ratio"] = median(roadTimes) / median(copyTimes);
}
BENCHMARK(longReply)->Iterations(15)->Unit(benchmark::kMillisecond);

/// Counts what it gets, and tells of the end.
struct Counter final : NSFileProviderEnumerationObserver, NSFileProviderChangeObserver {
    std::int64_t suggestedPageSize() const override { return 1'000'000; }
    void didEnumerateItems(ItemBatch items) override { count += items.items().size(); }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage>) override { done.release(); }
    void didUpdateItems(ItemBatch items) override { count += items.items().size(); }
    void didDeleteItems(std::vector<ItemIdentifier>) override {}
    void finishEnumeratingChanges(NSFileProviderSyncAnchor, bool) override { done.release(); }
    std::size_t count = 0;
    std::binary_semaphore done{0};
};

/// What a folder's changes cost after it was listed, against its first listing.
void workingSetPass(benchmark::State& state) {
    constexpr std::size_t items = 100'000;
    const std::string reply = listingText(items);
    HostProcess host(reply);
    BenchPlatform platform;
    const TemporaryDirectory cache;
    HybridStores stores(cache.path(), platform.clock, platform.timers, [](std::string_view) {});
    const auto provider = std::make_shared<ProviderState>();
    provider->caches = std::make_unique<const ItemCaches>(stores, platform.clock, "bench");
    const auto enumerator = [&](const char* domain, std::string_view itemID) {
        return std::make_shared<BrindlemarFileProviderItemEnumerator>(BrindlemarFileProviderItemEnumerator::Container{
            .domain = domain, .itemID = ItemIdentifier(itemID), .provider = provider, .rawContainer = {}});
    };
    const auto folder = enumerator("c7", "photos");
    const auto workingSet = enumerator("", NSFileProviderWorkingSetContainerItemIdentifier);
    const auto await = [&](auto&& ask) {
        const auto counter = std::make_shared<Counter>();
        provider->caches->removeAll();
        ask(counter);
        counter->done.acquire();
        if (counter->count != items) state.SkipWithError("items are missing");
    };
    paired(
        state, items,
        [&] {
            await([&](const auto& observer) {
                folder->enumerateItems(observer,
                                       NSFileProviderPage(std::string(NSFileProviderInitialPageSortedByName)));
            });
        },
        [&] {
            await([&](const auto& observer) {
                provider->enumerators.with([](auto& lists) { lists.recentEnumerators = {"c7|photos"}; });
                workingSet->enumerateChanges(observer, NSFileProviderSyncAnchor());
            });
        });
}
BENCHMARK(workingSetPass)->UseManualTime()->Iterations(15)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace brindlemar::bench
