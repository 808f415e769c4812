#include "linux/LockFile.h"

#include "linux/Deadline.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace brindlemar {

namespace {
constexpr std::chrono::milliseconds kPause{2};
}

FileDescriptor lockFile(const RuntimeDirectory& directory, const char* name, std::chrono::milliseconds limit) {
    FileDescriptor file(::openat(directory.descriptor(), name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    const Deadline deadline = deadlineAfter(limit);
    while (file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) return {};
        std::this_thread::sleep_for(kPause);
    }
    return file;
}

} // namespace brindlemar
