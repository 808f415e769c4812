#include "linux/dbus/BusPeer.h"

#include <poll.h>

#include <algorithm>

namespace brindlemar {

namespace {

constexpr std::chrono::seconds kAuthenticationTime{5};
constexpr const char* kNobody = "";

std::string_view text(const char* value) { return value ? value : kNobody; }
} // namespace

std::unique_ptr<BusPeer> BusPeer::open(FileDescriptor socket, Role role, Descriptors descriptors) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0) return nullptr;
    std::unique_ptr<BusPeer> peer(new BusPeer(bus));
    sd_id128_t identity;
    if (role == Role::server && (sd_id128_randomize(&identity) < 0 || sd_bus_set_server(bus, 1, identity) < 0))
        return nullptr;
    if (sd_bus_negotiate_fds(bus, descriptors == Descriptors::passed) < 0 ||
        sd_bus_set_fd(bus, socket.get(), socket.get()) < 0)
        return nullptr;
    socket.release(); // sd-bus closes it from here on
    return sd_bus_start(bus) < 0 ? nullptr : std::move(peer);
}

bool BusPeer::authenticate(Wake& wake) {
    const Deadline deadline = deadlineAfter(kAuthenticationTime);
    while (!wake.stopped()) {
        const int ready = sd_bus_is_ready(bus_.get());
        if (ready != 0) return ready > 0;
        const int step = sd_bus_process(bus_.get(), nullptr);
        if (step < 0 || millisecondsUntil(deadline) == 0) return false;
        if (step == 0) wait(wake, deadline);
    }
    return false;
}

BusPeer::Next BusPeer::next(BusMessage& message) {
    for (;;) {
        sd_bus_message* raw = nullptr;
        const int step = sd_bus_process(bus_.get(), &raw);
        message.reset(raw);
        if (step < 0) return Next::ended;
        if (step == 0) return Next::idle;
        if (!raw) continue;
        return sd_bus_message_is_signal(raw, "org.freedesktop.DBus.Local", "Disconnected") ? Next::ended
                                                                                           : Next::message;
    }
}

void BusPeer::wait(Wake& wake, const std::optional<Deadline>& deadline) {
    const int events = sd_bus_get_events(bus_.get());
    std::uint64_t own = UINT64_MAX; // microseconds of the monotonic clock
    if (events < 0 || sd_bus_get_timeout(bus_.get(), &own) < 0) return;
    int timeout = deadline ? millisecondsUntil(*deadline) : -1;
    if (own != UINT64_MAX) {
        const int ownTimeout = millisecondsUntil(Deadline(std::chrono::microseconds(own)));
        timeout = timeout < 0 ? ownTimeout : std::min(timeout, ownTimeout);
    }
    pollfd waits[] = {{wake.descriptor(), POLLIN, 0}, {sd_bus_get_fd(bus_.get()), static_cast<short>(events), 0}};
    ::poll(waits, 2, timeout);
    if (waits[0].revents) wake.drain();
}

void BusPeer::waitForSignal(Wake& wake) {
    pollfd signal{wake.descriptor(), POLLIN, 0};
    ::poll(&signal, 1, -1);
    wake.drain();
}

std::size_t BusPeer::unsent() const {
    std::uint64_t count = 0;
    sd_bus_get_n_queued_write(bus_.get(), &count);
    return count;
}

BusMessage BusPeer::makeCall(const Method& method) const {
    sd_bus_message* raw = nullptr;
    sd_bus_message_new_method_call(bus_.get(), &raw, nullptr, method.path, method.interface.c_str(),
                                   method.member.c_str());
    return BusMessage(raw);
}

std::string describe(sd_bus_message* message) {
    std::string result(text(sd_bus_message_get_signature(message, 1)));
    for (const char* part : {sd_bus_message_get_path(message), sd_bus_message_get_interface(message)})
        result.append(" ").append(text(part));
    return result.append(".").append(text(sd_bus_message_get_member(message)));
}

bool isCallTo(sd_bus_message* message, std::string_view path, std::string_view interface) {
    return sd_bus_message_is_method_call(message, nullptr, nullptr) > 0 &&
           text(sd_bus_message_get_path(message)) == path && text(sd_bus_message_get_interface(message)) == interface;
}

} // namespace brindlemar
