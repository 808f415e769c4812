// A run-time directory of the test's own, and ways to misbehave in it.
#pragma once

#include "fakes/Patience.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Sockets.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <vector>

namespace brindlemar {

class TemporaryRuntime {
    const TemporaryDirectory base_;
    /// Deeper than a socket address is long: every connection goes the long way round.
    const std::string path_ = base_ / std::string(120, 'd');

public:
    TemporaryRuntime() : directory((::setenv("BRINDLEMAR_RUNTIME_DIR", path_.c_str(), 1), RuntimeDirectory::open())) {}

    /// Names in the directory that begin like this.
    std::vector<std::string> named(std::string_view prefix) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            if (const std::string name = entry.path().filename(); name.starts_with(prefix)) names.push_back(name);
        return names;
    }
    /// The socket file of a process that died without removing it.
    void leaveSocket(const std::string& name) const {
        const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        directory.socketPath(name).copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    const RuntimeDirectory directory;
};

inline std::vector<FileDescriptor> connectMany(const std::string& path, int count, std::string_view greeting) {
    std::vector<FileDescriptor> sockets;
    for (int i = 0; i < count; ++i) {
        sockets.push_back(connectSocket(path));
        EXPECT_TRUE(sockets.back()) << i;
        [[maybe_unused]] const auto sent = ::write(sockets.back().get(), greeting.data(), greeting.size());
    }
    return sockets;
}

/// A peer that speaks D-Bus by hand.
struct RawBusPeer {
    explicit RawBusPeer(const std::string& path) : bus(BusPeer::open(connectSocket(path), BusPeer::Role::client)) {
        EXPECT_TRUE(bus && bus->authenticate(wake));
    }
    /// The error's name, "" for an answer without an error.
    std::string call(const BusPeer::Method& method, const char* types, auto... values) {
        const BusMessage message = bus->makeCall(method);
        EXPECT_GE(sd_bus_message_append(message.get(), types, values...), 0);
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_call(bus->get(), message.get(), 20'000'000, &error, nullptr);
        const std::string name = error.name ? error.name : "";
        sd_bus_error_free(&error);
        return name;
    }
    Wake wake;
    std::unique_ptr<BusPeer> bus;
};

} // namespace brindlemar
