#include "linux/files/FileCopy.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace brindlemar {

namespace {
constexpr std::size_t kPiece = std::size_t{16} << 20; // bytes between two steps
constexpr std::size_t kBuffer = std::size_t{1} << 20;

class Copy {
public:
    Copy(int from, int to) : from_(from), to_(to) {}

    /// Bytes copied at `offset`, at most `size`; 0 at the source's end; -1 with errno set.
    ssize_t piece(off_t offset, std::size_t size) {
        if (!buffer_) {
            off_t in = offset, out = offset;
            const ssize_t copied = ::copy_file_range(from_, &in, to_, &out, size, 0);
            if (copied > 0) return copied;
            // Some file systems answer 0 for what they cannot copy.
            const bool cannot =
                copied == 0 || errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP;
            if (!cannot) return -1;
            buffer_ = std::make_unique<char[]>(kBuffer);
        }
        const ssize_t got = ::pread(from_, buffer_.get(), std::min(size, kBuffer), offset);
        for (ssize_t put = 0; put < got;) {
            const ssize_t some = ::pwrite(to_, buffer_.get() + put, static_cast<std::size_t>(got - put), offset + put);
            if (some < 0 && errno != EINTR) return -1;
            if (some > 0) put += some;
        }
        return got;
    }

private:
    const int from_, to_;
    std::unique_ptr<char[]> buffer_; // once the system has declined to copy by itself
};
} // namespace

int copyContents(int from, int to, const CopyStep& step) {
    struct stat source {};
    if (::fstat(from, &source) != 0) return errno;
    if (::ioctl(to, FICLONE, from) == 0) return 0;
    Copy copy(from, to);
    off_t offset = 0;
    while (offset < source.st_size) {
        if (step && !step(static_cast<std::uint64_t>(offset), static_cast<std::uint64_t>(source.st_size)))
            return ECANCELED;
        const off_t data = ::lseek(from, offset, SEEK_DATA);
        if (data < 0 && errno == ENXIO) break; // a hole up to the end, which may have come nearer
        offset = std::max(data, offset);       // a file system that knows no holes has data everywhere
        const off_t hole = ::lseek(from, offset, SEEK_HOLE);
        const off_t end = hole > offset ? std::min(hole, source.st_size) : source.st_size;
        const ssize_t copied = copy.piece(offset, std::min(kPiece, static_cast<std::size_t>(end - offset)));
        if (copied < 0 && errno == EINTR) continue;
        if (copied < 0) return errno;
        if (copied == 0) return ::ftruncate(to, offset) == 0 ? 0 : errno;
        offset += copied;
    }
    struct stat now {};
    if (::fstat(from, &now) != 0) return errno;
    return ::ftruncate(to, std::min(source.st_size, now.st_size)) == 0 ? 0 : errno;
}

} // namespace brindlemar
