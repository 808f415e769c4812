// A party that writes the protocol by hand: the bytes are built here, from the contract, not by the code under test.
#pragma once

#include "fakes/Patience.h"
#include "linux/RuntimeDirectory.h"
#include "linux/ports/PortAddress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace brindlemar {

/// A header field by field, then the body.
struct RawPacket {
    unsigned version = 1, kind = 2, flags = 0, zero = 0;
    std::uint32_t id = 0;
    std::optional<std::uint64_t> length{}; // the body's unless given
    std::string body{};
    std::string bytes() const {
        std::string text;
        const auto put = [&](std::uint64_t value, int count) {
            for (; count > 0; --count, value >>= 8) text += static_cast<char>(value & 0xff);
        };
        put(version, 1), put(kind, 1), put(flags, 1), put(zero, 1), put(id, 4), put(length.value_or(body.size()), 8);
        return text + body;
    }
    static RawPacket hello(std::string name) { return {.kind = 1, .body = std::move(name)}; }
};

inline constexpr int sealed = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

inline FileDescriptor rawMemory(std::size_t size, int seals = sealed, unsigned flags = 0) {
    FileDescriptor memory(::memfd_create("raw", MFD_CLOEXEC | MFD_ALLOW_SEALING | flags));
    if (::ftruncate(memory.get(), static_cast<off_t>(size)) != 0 || ::fcntl(memory.get(), F_ADD_SEALS, seals) != 0)
        return {};
    return memory;
}

class RawSocket {
public:
    explicit RawSocket(FileDescriptor socket = FileDescriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)))
        : socket_(std::move(socket)) {}
    /// Without a hello.
    static RawSocket connected(const RuntimeDirectory& directory, const std::string& name) {
        RawSocket raw;
        const PortAddress address(directory, portFileName(name));
        if (::connect(raw.get(), address.get(), address.size) != 0) raw.close();
        return raw;
    }
    static RawSocket listening(const RuntimeDirectory& directory, const std::string& name, int backlog = 8) {
        RawSocket raw;
        const PortAddress address(directory, portFileName(name));
        if (::bind(raw.get(), address.get(), address.size) != 0 || ::listen(raw.get(), backlog) != 0) raw.close();
        return raw;
    }
    RawSocket accept() { return RawSocket(FileDescriptor(::accept4(get(), nullptr, nullptr, SOCK_CLOEXEC))); }
    int get() const { return socket_.get(); }
    void close() { socket_ = {}; }
    bool send(const std::string& bytes, const std::vector<int>& descriptors = {}) {
        iovec part{const_cast<char*>(bytes.data()), bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(16 * sizeof(int))] = {};
        msghdr message{};
        message.msg_iov = &part, message.msg_iovlen = 1;
        if (const std::size_t size = descriptors.size() * sizeof(int); size > 0) {
            message.msg_control = control, message.msg_controllen = CMSG_SPACE(size);
            cmsghdr* const rights = CMSG_FIRSTHDR(&message);
            rights->cmsg_level = SOL_SOCKET, rights->cmsg_type = SCM_RIGHTS, rights->cmsg_len = CMSG_LEN(size);
            std::memcpy(CMSG_DATA(rights), descriptors.data(), size);
        }
        return ::sendmsg(get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    /// The next packet; empty at the connection's end, and when nothing came in time.
    std::string receive() {
        pollfd entry{get(), POLLIN, 0};
        char bytes[70'000];
        ssize_t size = -1;
        do {
            if (::poll(&entry, 1, std::chrono::milliseconds(kPatience).count()) != 1) return "";
            size = ::recv(get(), bytes, sizeof bytes, 0);
        } while (size < 0 && errno == ECONNRESET);
        return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : "";
    }
    bool greet(const std::string& name) {
        const std::string hello = RawPacket::hello(name).bytes();
        return send(hello) && receive() == hello;
    }
    /// The peer has closed, within patience.
    bool closedByPeer() {
        pollfd entry{get(), POLLIN, 0};
        char byte;
        return ::poll(&entry, 1, std::chrono::milliseconds(kPatience).count()) == 1 && ::recv(get(), &byte, 1, 0) <= 0;
    }

private:
    FileDescriptor socket_;
};

} // namespace brindlemar
