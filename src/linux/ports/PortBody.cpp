#include "linux/ports/PortBody.h"

#include "linux/WriteFully.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <atomic>

namespace brindlemar {

namespace {

constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

/// A process has 65,530 as a rule (vm.max_map_count), and its threads and its memory need some of them.
constexpr int kMostMappings = 4096;
std::atomic<int> mappings{0};

/// Null bytes when there is no room.
Payload mapBody(int descriptor, std::size_t length) {
    const bool fits = ++mappings <= kMostMappings;
    void* const bytes = fits ? ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, descriptor, 0) : MAP_FAILED;
    if (bytes == MAP_FAILED) {
        --mappings;
        return {};
    }
    std::shared_ptr<const void> owner(bytes, [length](const void* p) {
        ::munmap(const_cast<void*>(p), length);
        --mappings;
    });
    return {std::move(owner), {static_cast<const char*>(bytes), length}};
}

} // namespace

FileDescriptor sealBody(std::string_view bytes) {
    FileDescriptor memory(::memfd_create("brindlemar-message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!memory || writeFully(memory.get(), bytes) != bytes.size() || ::fcntl(memory.get(), F_ADD_SEALS, kSeals) != 0)
        return {};
    return memory;
}

std::variant<Payload, FrameFault> takeBody(FileDescriptor descriptor, std::uint64_t length) {
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
    const Payload mapped = mapBody(descriptor.get(), length);
    if (!mapped.bytes().data()) return FrameFault("whose body cannot be mapped");
    return length <= kInlineBodyLimit ? Payload::copy(mapped.bytes()) : mapped;
}

} // namespace brindlemar
