#include "linux/fuse/MountPoint.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace brindlemar::fuse {

namespace {
namespace fs = std::filesystem;

/// A path as /proc/self/mountinfo writes it, see proc(5).
std::string unescaped(const std::string& text) {
    std::string path;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 3 < text.size()) {
            path += static_cast<char>(std::stoi(text.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            path += text[at];
        }
    }
    return path;
}

/// The mount table knows no links. The last part is not touched: it may be a mount whose process has ended.
std::string resolved(const fs::path& path) {
    std::error_code ignored;
    const fs::path parent = fs::canonical(path.parent_path(), ignored);
    return ignored ? path.string() : (parent / path.filename()).string();
}

/// fusermount3(1) does for a user what only root may.
bool unmountByHelper(const std::string& path) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::execlp("fusermount3", "fusermount3", "-u", "-z", "-q", "--", path.c_str(), nullptr);
        ::_exit(127);
    }
    int status = -1;
    while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
} // namespace

std::optional<std::string> mountedDevice(const std::string& given) {
    const std::string path = resolved(given);
    std::optional<std::string> found; // the last one hides the others
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string skipped, device, place, word;
        fields >> skipped >> skipped >> device >> skipped >> place;
        while (fields >> word && word != "-") continue;
        std::string type;
        fields >> type;
        if (unescaped(place) == path && type == std::string("fuse.") + kFileSystemName) found = device;
    }
    return found;
}

bool detachMount(const std::string& path) {
    if (!mountedDevice(path)) return false;
    return ::umount2(path.c_str(), MNT_DETACH) == 0 || unmountByHelper(path);
}

std::optional<std::string> prepareMountPoint(const std::string& path) {
    struct statfs seen {};         // unlike stat(2) never answered from what the kernel remembers
    constexpr int kMostLayers = 8; // each crash may have left one
    for (int layer = 0; layer < kMostLayers && ::statfs(path.c_str(), &seen) != 0 && errno == ENOTCONN; ++layer)
        if (!detachMount(path)) return path + " is a mount whose process has ended; it cannot be unmounted";
    if (mountedDevice(path)) return path + " is mounted already, by another service";
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return path + ": " + std::strerror(errno);
    if (!fs::is_directory(path, error)) return path + " is no directory";
    if (::access(path.c_str(), W_OK) != 0) // fusermount3(1) insists
        return path + " cannot be written, without which nothing can be mounted there (chmod u+w)";
    if (!fs::is_empty(path, error) || error)
        return path + (error ? ": " + error.message() : " is not empty: move away what is in it");
    return std::nullopt;
}

} // namespace brindlemar::fuse
