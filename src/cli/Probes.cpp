#include "cli/Probes.h"

#include "linux/FileDescriptor.h"
#include "linux/RuntimeDirectory.h"
#include "support/TextForms.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

namespace brindlemar::cli {

namespace {
namespace fs = std::filesystem;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string home() {
    const std::string path = variable("HOME");
    return path.starts_with('/') ? path : "";
}

/// Where the service keeps such things; empty when that is not known.
std::string serviceDirectory(const char* name, const char* belowHome) {
    const std::string base = variable(name);
    if (base.starts_with('/')) return base + "/brindlemar";
    return home().empty() ? "" : home() + belowHome + "/brindlemar";
}

/// The path, or what is there of it.
fs::path existing(fs::path path, struct stat& info) {
    while (::stat(path.c_str(), &info) != 0 && errno == ENOENT && path.has_relative_path()) path = path.parent_path();
    return path;
}

MountPlace placeAfter(int error) {
    if (error == ENOENT) return MountPlace::absent;
    if (error == ENOTCONN || error == ECONNABORTED) return MountPlace::stale;
    return error == ENOTDIR ? MountPlace::noDirectory : MountPlace::closed;
}

MountPlace lookAndWait(const std::string& path) {
    struct statvfs system {};
    struct stat info {
    }, above{};
    // The attributes of a stale mount may still be known to the kernel; this asks whoever serves it.
    if (::statvfs(path.c_str(), &system) != 0 || ::stat(path.c_str(), &info) != 0) return placeAfter(errno);
    if (!S_ISDIR(info.st_mode)) return MountPlace::noDirectory;
    if (::stat((path + "/..").c_str(), &above) != 0) return placeAfter(errno);
    if (info.st_dev != above.st_dev) return MountPlace::mounted;
    std::error_code error;
    const fs::directory_iterator entries(path, error);
    if (error) return placeAfter(error.value());
    return entries == fs::directory_iterator() ? MountPlace::empty : MountPlace::occupied;
}

void lookForFuse(Findings& findings) {
    findings.isRoot = ::geteuid() == 0;
    const FileDescriptor device(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    findings.deviceError = device ? 0 : errno;
    findings.mountHelper = findProgram("fusermount3", variable("PATH"));
    struct stat info {};
    findings.helperIsSetuid = !findings.mountHelper.empty() && ::stat(findings.mountHelper.c_str(), &info) == 0 &&
                              info.st_uid == 0 && (info.st_mode & S_ISUID) != 0;
}

void lookForDirectories(Findings& findings) {
    findings.runtimePath = RuntimeDirectory::defaultPath();
    try {
        RuntimeDirectory::open();
    } catch (const std::exception& error) {
        findings.runtimeFault = error.what();
    }
    findings.home = lookAtDirectory(home());
    findings.state = lookAtDirectory(serviceDirectory("XDG_STATE_HOME", "/.local/state"));
    findings.cache = lookAtDirectory(serviceDirectory("XDG_CACHE_HOME", "/.cache"));
    struct stat info {};
    struct statvfs system {};
    if (::statvfs(existing(findings.state.path, info).c_str(), &system) == 0)
        findings.freeBytes = static_cast<std::uint64_t>(system.f_bavail) * system.f_frsize;
}

void lookForService(Findings& findings, Session& session) {
    try {
        Control& control = session.control();
        findings.serviceTakesCalls = true;
        findings.service = statusOf(control);
    } catch (const std::exception&) { // what is missing in the findings tells enough
    }
}
} // namespace

DirectoryFinding lookAtDirectory(const std::string& path) {
    DirectoryFinding found{.path = path};
    if (path.empty()) return found;
    struct stat info {};
    const fs::path there = existing(path, info);
    if (info.st_mode != 0 && !S_ISDIR(info.st_mode))
        found.error = ENOTDIR;
    else if (::faccessat(AT_FDCWD, there.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
        found.error = errno;
    found.isOurs = there != path || info.st_uid == ::geteuid();
    return found;
}

MountPlace lookAtMountPlace(const std::string& path) {
    constexpr std::chrono::seconds patience{3};
    std::packaged_task<MountPlace()> task([path] { return lookAndWait(path); });
    std::future<MountPlace> place = task.get_future();
    std::thread(std::move(task)).detach(); // ends with the process at the latest
    return place.wait_for(patience) == std::future_status::ready ? place.get() : MountPlace::silent;
}

std::string findProgram(std::string_view name, std::string_view directories) {
    for (const std::string_view directory : split(directories, ':')) {
        const std::string path = std::string(directory).append("/").append(name);
        struct stat info {};
        if (!directory.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
            ::access(path.c_str(), X_OK) == 0)
            return path;
    }
    return "";
}

Findings look(Session& session) {
    Findings findings;
    lookForFuse(findings);
    lookForDirectories(findings);
    lookForService(findings, session);
    if (findings.service && findings.service->mount)
        findings.mountPath = findings.service->mount->path;
    else if (!home().empty())
        findings.mountPath = home() + "/Brindlemar";
    findings.mountPlace = lookAtMountPlace(findings.mountPath);
    const std::string runtime = variable("XDG_RUNTIME_DIR");
    findings.hasSessionBus = !variable("DBUS_SESSION_BUS_ADDRESS").empty() ||
                             (!runtime.empty() && ::access((runtime + "/bus").c_str(), F_OK) == 0);
    return findings;
}

} // namespace brindlemar::cli
