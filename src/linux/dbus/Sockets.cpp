#include "linux/dbus/Sockets.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {
constexpr timeval kConnectTime{.tv_sec = 2, .tv_usec = 0};
constexpr int kPauseWithoutDescriptors = 100; // ms

bool fill(sockaddr_un& address, const std::string& path) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

const sockaddr* generic(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }
} // namespace

FileDescriptor connectSocket(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    FileDescriptor directory(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory) return {};
    sockaddr_un address;
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (!fill(address, "/proc/self/fd/" + std::to_string(directory.get()) + "/" + name)) {
        errno = ENAMETOOLONG;
        return {};
    }
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) return {};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kConnectTime, sizeof kConnectTime);
    if (::connect(socket.get(), generic(address), sizeof address) != 0) return {};
    if (!peerIsSameUser(socket.get())) {
        errno = EPERM;
        return {};
    }
    return socket;
}

std::unique_ptr<ListeningSocket> ListeningSocket::open(const RuntimeDirectory& directory, std::string name) {
    sockaddr_un address;
    if (!fill(address, directory.socketPath(name))) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // The mode of the unbound socket becomes the file's, so that it is never open to others, not even for a moment.
    if (!socket || ::fchmod(socket.get(), 0600) != 0 || ::bind(socket.get(), generic(address), sizeof address) != 0)
        return nullptr;
    std::unique_ptr<ListeningSocket> listening(new ListeningSocket(directory, std::move(name), std::move(socket)));
    if (::listen(listening->socket_.get(), SOMAXCONN) != 0) return nullptr;
    return listening;
}

ListeningSocket::~ListeningSocket() {
    ::unlinkat(directory_.descriptor(), name_.c_str(), 0);
    wake_.stop();
    if (thread_.joinable()) thread_.join();
}

void ListeningSocket::start(Handler handler, Diagnostic diagnostic) {
    thread_ = std::thread(
        [this, handler = std::move(handler), diagnostic = std::move(diagnostic)] { acceptAll(handler, diagnostic); });
}

void ListeningSocket::acceptAll(const Handler& handler, const Diagnostic& diagnostic) {
    pollfd waits[] = {{wake_.descriptor(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
    while (!wake_.stopped()) {
        FileDescriptor connection(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!connection) {
            const bool exhausted = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
            ::poll(waits, exhausted ? 1 : 2, exhausted ? kPauseWithoutDescriptors : -1);
        } else {
            adopt(std::move(connection), handler, diagnostic);
        }
    }
}

void ListeningSocket::adopt(FileDescriptor connection, const Handler& handler, const Diagnostic& diagnostic) const {
    try {
        if (peerIsSameUser(connection.get()))
            handler(std::move(connection));
        else
            diagnostic("A process of another user was refused on the socket " + name_ + ".");
    } catch (const std::exception& error) { // out of memory: the next one may have more luck
        diagnostic(std::string("A connection was given up: ") + error.what());
    }
}

} // namespace brindlemar
