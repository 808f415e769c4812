#include "linux/RuntimeDirectory.h"

#include "platform/Configuration.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace brindlemar {

namespace {
const char* nonEmpty(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value ? value : nullptr;
}

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw std::runtime_error("The run-time directory " + path + " " + why +
                             "; set BRINDLEMAR_RUNTIME_DIR to a directory of your own.");
}

std::optional<ucred> credentials(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? std::optional(peer) : std::nullopt;
}
} // namespace

std::string RuntimeDirectory::defaultPath() {
    const std::string group(AppGroupIdentifier), uid = std::to_string(::geteuid());
    if (const char* own = nonEmpty("BRINDLEMAR_RUNTIME_DIR")) return own;
    if (const char* xdg = nonEmpty("XDG_RUNTIME_DIR")) return std::string(xdg) + "/" + group;
    const std::string user = "/run/user/" + uid;
    if (::access(user.c_str(), W_OK | X_OK) == 0) return user + "/" + group;
    return "/tmp/" + group + "-" + uid;
}

RuntimeDirectory RuntimeDirectory::open() {
    std::string path = defaultPath();
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        refuse(path, std::string("cannot be made: ") + std::strerror(errno));
    FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!directory || ::fstat(directory.get(), &info) != 0)
        refuse(path, std::string("cannot be opened: ") + std::strerror(errno));
    if (info.st_uid != ::geteuid()) refuse(path, "belongs to another user");
    if ((info.st_mode & 0777) != 0700) refuse(path, "must have mode 0700");
    return {std::move(path), std::move(directory)};
}

std::string RuntimeDirectory::socketPath(const std::string& name) const {
    return "/proc/self/fd/" + std::to_string(descriptor_.get()) + "/" + name;
}

bool peerIsSameUser(int socket) {
    const auto peer = credentials(socket);
    return peer && peer->uid == ::geteuid();
}

pid_t peerProcess(int socket) {
    const auto peer = credentials(socket);
    return peer ? peer->pid : 0;
}

} // namespace brindlemar
