#include "linux/ports/PortPlace.h"

#include "linux/LockFile.h"
#include "linux/ports/PortAddress.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {

constexpr const char* kLockFile = "ports.lock";
constexpr auto kLockLimit = std::chrono::seconds(1);

std::optional<struct stat> statusOf(const RuntimeDirectory& directory, const std::string& file) {
    struct stat status {};
    if (::fstatat(directory.descriptor(), file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return {};
    return status;
}

FileDescriptor newSocket() {
    return FileDescriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// 0 when a listener took the connection, else the errno of connect(2); EAGAIN is a listener that is busy.
int probe(const PortAddress& address) {
    const FileDescriptor socket = newSocket();
    if (!socket) return errno;
    return ::connect(socket.get(), address.get(), address.size) == 0 ? 0 : errno;
}

} // namespace

std::unique_ptr<PortPlace> PortPlace::take(const PortContext& context, const std::string& file) {
    const auto refuse = [&](const char* what) {
        context.diagnose(file, std::string(what) + ": " + std::strerror(errno));
        return nullptr;
    };
    const FileDescriptor lock = lockFile(context.directory, kLockFile, kLockLimit);
    if (!lock) return refuse("the lock file cannot be locked");
    const PortAddress address(context.directory, file);
    if (const auto status = statusOf(context.directory, file)) {
        const int answer = S_ISSOCK(status->st_mode) ? probe(address) : EEXIST;
        if (answer == 0 || answer == EAGAIN) return nullptr;
        errno = answer;
        if (answer != ECONNREFUSED) return refuse("its socket file is taken");
        ::unlinkat(context.directory.descriptor(), file.c_str(), 0);
    }
    FileDescriptor socket = newSocket();
    if (!socket || ::bind(socket.get(), address.get(), address.size) != 0 || ::listen(socket.get(), SOMAXCONN) != 0)
        return refuse("cannot listen");
    const auto status = statusOf(context.directory, file);
    return std::unique_ptr<PortPlace>(new PortPlace(context, file, std::move(socket), status ? status->st_ino : 0));
}

void PortPlace::leave() {
    if (std::exchange(left_, true)) return;
    // As long as this socket listens, no other process takes the file for a dead one's.
    const auto status = statusOf(directory_, file_);
    if (status && status->st_ino == inode_) ::unlinkat(directory_.descriptor(), file_.c_str(), 0);
    ::shutdown(socket_.get(), SHUT_RDWR);
    while (FileDescriptor waiting{::accept(socket_.get(), nullptr, nullptr)}) {
    } // who has connected but was not accepted yet need not wait for a hello
}

} // namespace brindlemar
