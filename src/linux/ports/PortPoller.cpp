#include "linux/ports/PortPoller.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace brindlemar {

namespace {

/// From one port before the others get their turn.
constexpr std::size_t kPacketsAtOnce = 32;
/// That a port's end waits for others' messages.
constexpr int kMostLooks = 1000;

FileDescriptor checked(int descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "The poller of the message ports");
    return FileDescriptor(descriptor);
}

bool control(int epoll, int operation, int descriptor, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return ::epoll_ctl(epoll, operation, descriptor, &event) == 0;
}

} // namespace

PortPoller::PortPoller()
    : epoll_(checked(::epoll_create1(EPOLL_CLOEXEC))), wakeUp_(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
    if (!control(epoll_.get(), EPOLL_CTL_ADD, wakeUp_.get(), EPOLLIN)) checked(-1);
    thread_ = std::thread([this] { run(); });
    ::pthread_setname_np(thread_.native_handle(), "message-ports");
}

void PortPoller::stop() {
    if (stopping_.exchange(true)) return;
    ::eventfd_write(wakeUp_.get(), 1);
    thread_.join();
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
    std::vector<std::weak_ptr<Client>> due;
    state_.with([&](State& state) {
        const auto now = std::chrono::steady_clock::now();
        while (!state.wakes.empty() && state.wakes.begin()->first <= now) {
            const int descriptor = state.wakes.begin()->second;
            Entry& entry = state.entries.at(descriptor);
            due.push_back(entry.client);
            state.setWake(descriptor, entry, {});
        }
    });
    for (const auto& client : due)
        if (const auto alive = client.lock()) alive->timeUp();
}

void PortPoller::whenQuiet(std::function<void()> task) { quiet_.push_back(std::move(task)); }

void PortPoller::callQuiet() {
    for (const auto& task : std::exchange(quiet_, {})) task();
}

void PortPoller::run() {
    PacketReader reader(kPacketsAtOnce);
    epoll_event events[64];
    for (int restless = 0; !stopping_;) {
        const int count = ::epoll_wait(epoll_.get(), events, std::size(events), quiet_.empty() ? timeout() : 0);
        for (int i = 0; i < count && !stopping_; ++i) {
            const auto client = state_.with([&](State& state) {
                const auto entry = state.entries.find(events[i].data.fd);
                return entry == state.entries.end() ? nullptr : entry->second.client.lock();
            });
            if (client) client->ready(reader);
            reader.discard(); // a client that closes leaves the rest
        }
        callDue();
        restless = quiet_.empty() ? 0 : restless + 1;
        if (count <= 0 || restless > kMostLooks) callQuiet();
    }
}

} // namespace brindlemar
