#include "linux/ports/PortPoller.h"

#include <pthread.h>
#include <sys/epoll.h>

#include <cerrno>
#include <system_error>

namespace brindlemar {

namespace {

/// From one port before the others get their turn.
constexpr std::size_t kPacketsAtOnce = 32;
/// That a port's end waits for others' messages.
constexpr int kMostLooks = 1000;

bool control(int epoll, int operation, int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return ::epoll_ctl(epoll, operation, descriptor, &event) == 0;
}

template <class Call>
void shielded(PortPoller::Client& client, Call call) noexcept {
    try {
        call(client);
    } catch (const std::exception& error) {
        try {
            client.failed(error.what());
        } catch (const std::exception&) { // no memory even for that
        }
    }
}

} // namespace

PortPoller::PortPoller() : epoll_(::epoll_create1(EPOLL_CLOEXEC)), reader_(kPacketsAtOnce) {
    if (!epoll_ || !control(epoll_.get(), EPOLL_CTL_ADD, wake_.descriptor(), EPOLLIN))
        throw std::system_error(errno, std::generic_category(), "The poller of the message ports");
    thread_ = std::thread([this] { run(); });
    ::pthread_setname_np(thread_.native_handle(), "message-ports");
}

void PortPoller::stop() {
    wake_.stop();
    if (thread_.joinable()) thread_.join();
}

bool PortPoller::add(int descriptor, std::weak_ptr<Client> client) {
    state_.with([&](State& state) { state.entries[descriptor].client = std::move(client); });
    if (control(epoll_.get(), EPOLL_CTL_ADD, descriptor, EPOLLIN)) return true;
    remove(descriptor);
    return false;
}

void PortPoller::remove(int descriptor) {
    control(epoll_.get(), EPOLL_CTL_DEL, descriptor, 0);
    state_.with([&](State& state) {
        const auto entry = state.entries.find(descriptor);
        if (entry == state.entries.end()) return;
        state.setWake(descriptor, entry->second, {});
        state.entries.erase(entry);
    });
}

void PortPoller::watch(int descriptor, bool input, bool output) {
    control(epoll_.get(), EPOLL_CTL_MOD, descriptor, (input ? EPOLLIN : 0U) | (output ? EPOLLOUT : 0U));
}

void PortPoller::wakeAt(int descriptor, std::optional<Deadline> time) {
    state_.with([&](State& state) {
        const auto entry = state.entries.find(descriptor);
        if (entry != state.entries.end()) state.setWake(descriptor, entry->second, time);
    });
    if (time) wake_.signal(); // the thread may be waiting for something later
}

void PortPoller::State::setWake(int descriptor, Entry& entry, std::optional<Deadline> time) {
    if (entry.wake) wakes.erase({*entry.wake, descriptor});
    entry.wake = time;
    if (time) wakes.emplace(*time, descriptor);
}

int PortPoller::timeout() const {
    const auto next = state_.with([](const State& state) {
        return state.wakes.empty() ? std::optional<Deadline>() : state.wakes.begin()->first;
    });
    return next ? millisecondsUntil(*next) : -1;
}

void PortPoller::callDue() {
    const auto now = std::chrono::steady_clock::now();
    for (bool more = true; more;) {
        std::shared_ptr<Client> client;
        more = state_.with([&](State& state) {
            if (state.wakes.empty() || state.wakes.begin()->first > now) return false;
            const int descriptor = state.wakes.begin()->second;
            Entry& entry = state.entries.at(descriptor);
            client = entry.client.lock();
            state.setWake(descriptor, entry, {});
            return true;
        });
        if (client) shielded(*client, [](Client& due) { due.timeUp(); });
    }
}

void PortPoller::whenQuiet(std::weak_ptr<Client> client) { quiet_.push_back(std::move(client)); }

void PortPoller::callQuiet() {
    for (const auto& each : std::exchange(quiet_, {}))
        if (const auto client = each.lock()) shielded(*client, [](Client& waiting) { waiting.quiet(); });
}

void PortPoller::take(int descriptor) {
    const auto client = state_.with([&](State& state) {
        const auto entry = state.entries.find(descriptor);
        return entry == state.entries.end() ? nullptr : entry->second.client.lock();
    });
    if (client) shielded(*client, [this](Client& it) { it.ready(reader_); });
    reader_.discard(); // a client that closes leaves the rest
}

void PortPoller::run() {
    epoll_event events[64];
    for (int restless = 0; !wake_.stopped();) {
        const int count = ::epoll_wait(epoll_.get(), events, std::size(events), quiet_.empty() ? timeout() : 0);
        for (int i = 0; i < count && !wake_.stopped(); ++i) {
            if (events[i].data.fd == wake_.descriptor())
                wake_.drain();
            else
                take(events[i].data.fd);
        }
        callDue();
        restless = quiet_.empty() ? 0 : restless + 1;
        if (count == 0 || restless > kMostLooks) callQuiet();
    }
}

} // namespace brindlemar
