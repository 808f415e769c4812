#include "linux/ports/PortBody.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cerrno>

namespace brindlemar {

namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

FileDescriptor sealBody(std::string_view bytes) {
    FileDescriptor memory(::memfd_create("brindlemar-message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!memory || !writeAll(memory.get(), bytes) || ::fcntl(memory.get(), F_ADD_SEALS, kSeals) != 0) return {};
    return memory;
}

std::variant<Payload, FrameFault> mapBody(FileDescriptor descriptor, std::uint64_t length) {
    const int seals = ::fcntl(descriptor.get(), F_GET_SEALS);
    if (seals < 0) return FrameFault("whose descriptor is no memory file");
    if ((seals & kSeals) != kSeals) return FrameFault("whose memory file is not sealed");
    // A hole in a file of huge pages kills its reader when there is no huge page left.
    struct statfs system {};
    if (::fstatfs(descriptor.get(), &system) != 0 || system.f_type != TMPFS_MAGIC)
        return FrameFault("whose memory file is not of ordinary pages");
    struct stat info {};
    if (::fstat(descriptor.get(), &info) != 0 || static_cast<std::uint64_t>(info.st_size) < length)
        return FrameFault("whose memory file is shorter than its body");
    void* const bytes = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, descriptor.get(), 0);
    if (bytes == MAP_FAILED) return FrameFault("whose body cannot be mapped");
    std::shared_ptr<const void> owner(bytes, [length](const void* p) { ::munmap(const_cast<void*>(p), length); });
    return Payload(std::move(owner), {static_cast<const char*>(bytes), length});
}

} // namespace brindlemar
