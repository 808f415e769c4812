// One end of a private D-Bus connection between two processes, without a bus in between, on sd-bus(3).
#pragma once

#include "linux/Deadline.h"
#include "linux/FileDescriptor.h"
#include "linux/Wake.h"

#include <systemd/sd-bus.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

struct BusRelease {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;

/// sd-bus is not thread-safe: one thread makes, uses and destroys a BusPeer.
class BusPeer {
public:
    enum class Role { client, server };
    enum class Descriptors { refused, passed };
    enum class Next { message, idle, ended };

    /// Takes a connected socket. Peers authenticate by EXTERNAL only. None when sd-bus refuses.
    static std::unique_ptr<BusPeer> open(FileDescriptor socket, Role role,
                                         Descriptors descriptors = Descriptors::passed);

    /// Waits until the peer has authenticated. False when it has not within a few seconds, when it is gone, or when
    /// the thread was told to stop.
    bool authenticate(Wake& wake);
    /// The next message, without waiting.
    Next next(BusMessage& message);
    /// Waits for the peer, a signal or the deadline, whichever comes first.
    void wait(Wake& wake, const std::optional<Deadline>& deadline);
    /// Waits for a signal only.
    static void waitForSignal(Wake& wake);
    /// Messages that the peer has not taken off yet.
    std::size_t unsent() const;
    /// The peer asks but does not read the answers: better to end than to hoard them.
    bool isClogged() const { return unsent() > kMostAnswersUnread; }
    /// A method call to this peer; none when out of memory or when a name is no D-Bus name.
    struct Method {
        const char* path;
        std::string interface;
        std::string member;
    };
    BusMessage makeCall(const Method& method) const;
    sd_bus* get() const { return bus_.get(); }

private:
    static constexpr std::size_t kMostAnswersUnread = 64;
    explicit BusPeer(sd_bus* bus) : bus_(bus) {}
    std::unique_ptr<sd_bus, BusRelease> bus_;
};

/// "SIGNATURE PATH INTERFACE.MEMBER" of a message, for diagnostics.
std::string describe(sd_bus_message* message);

/// True when the message is a method call to this object and interface.
bool isCallTo(sd_bus_message* message, std::string_view path, std::string_view interface);

} // namespace brindlemar
