// A run-time directory of the test's own, and ways to misbehave in it.
#pragma once

#include "fakes/Patience.h"
#include "linux/dbus/Sockets.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace brindlemar {

class TemporaryRuntime {
public:
    TemporaryRuntime()
        : path_(make()), directory((::setenv("BRINDLEMAR_RUNTIME_DIR", path_.c_str(), 1), RuntimeDirectory::open())) {}
    ~TemporaryRuntime() { std::filesystem::remove_all(std::filesystem::path(path_).parent_path()); }

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
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        directory.socketPath(name).copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

private:
    /// Deeper than a socket address is long: every connection goes the long way round.
    static std::string make() {
        std::string base = std::filesystem::temp_directory_path() / "brindlemar-XXXXXX";
        if (!::mkdtemp(base.data())) std::abort();
        return base + "/" + std::string(120, 'd');
    }
    const std::string path_;

public:
    const RuntimeDirectory directory;
};

inline std::vector<FileDescriptor> connectMany(const std::string& path, int count, std::string_view greeting) {
    std::vector<FileDescriptor> sockets;
    for (int i = 0; i < count; ++i) {
        FileDescriptor socket = connectSocket(path);
        EXPECT_TRUE(socket) << i;
        if (!greeting.empty()) {
            [[maybe_unused]] const auto sent = ::write(socket.get(), greeting.data(), greeting.size());
        }
        sockets.push_back(std::move(socket));
    }
    return sockets;
}

} // namespace brindlemar
