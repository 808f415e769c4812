#include "host/TopDirectory.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <system_error>

namespace brindlemar::host {

namespace {
/// openat2(2), for which the C library has no function.
FileDescriptor openWhole(const FileDescriptor& top, const std::string& path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, top.get(), path.c_str(), &how, sizeof how)));
}
} // namespace

TopDirectory TopDirectory::open(const std::string& path) {
    FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) throw std::system_error(errno, std::generic_category());
    // Refused by kernels before 5.6 and by sandboxes that do not know the call.
    const bool hasOpenat2 = bool(openWhole(directory, ".", O_PATH | O_CLOEXEC));
    return {std::move(directory), hasOpenat2 ? Way::whole : Way::byName};
}

FileDescriptor TopDirectory::open(const std::string& path, int flags) const {
    flags |= O_NOFOLLOW | O_CLOEXEC;
    const bool fitsOneCall = path.size() < PATH_MAX;
    return way_ == Way::whole && fitsOneCall ? openWhole(directory_, path, flags) : openByName(path, flags);
}

FileDescriptor TopDirectory::openByName(std::string_view path, int flags) const {
    FileDescriptor folder;
    for (int from = directory_.get();; from = folder.get()) {
        const std::string name(path.substr(0, path.find('/')));
        const bool last = name.size() == path.size();
        FileDescriptor next(::openat(from, name.c_str(), last ? flags : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (last || !next) return next;
        folder = std::move(next);
        path.remove_prefix(name.size() + 1);
    }
}

} // namespace brindlemar::host
