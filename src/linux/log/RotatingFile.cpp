#include "linux/log/RotatingFile.h"

#include "linux/WriteFully.h"
#include "linux/log/LogArchives.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace brindlemar {

namespace {

/// How many bytes of the lines go into a file with this much room: whole lines, and all of the first one when the file
/// is empty, however long it is.
std::size_t fitting(std::string_view lines, std::uint64_t room, bool empty) {
    if (lines.size() <= room) return lines.size();
    const auto end = room == 0 ? lines.npos : lines.rfind('\n', room - 1);
    if (end != lines.npos) return end + 1;
    return empty ? std::min(lines.find('\n'), lines.size() - 1) + 1 : 0;
}

} // namespace

std::unique_ptr<RotatingFile> RotatingFile::open(const RotatingLogFile& file) {
    std::unique_ptr<RotatingFile> opened(new RotatingFile(file));
    return opened->reopen() ? std::move(opened) : nullptr;
}

bool RotatingFile::reopen() {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(file_.path).parent_path(), ignored);
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK; // a FIFO must not block
    descriptor_ = FileDescriptor(::open(file_.path.c_str(), kFlags, file_.permission));
    struct stat info {};
    if (!descriptor_ || ::fstat(descriptor_.get(), &info) != 0) return false;
    if (S_ISREG(info.st_mode) && (info.st_mode & 07777) != file_.permission)
        static_cast<void>(::fchmod(descriptor_.get(), file_.permission)); // whatever the umask
    return true;
}

bool RotatingFile::isStillAtPath() const {
    struct stat ours {
    }, there{};
    return descriptor_ && ::fstat(descriptor_.get(), &ours) == 0 && ::stat(file_.path.c_str(), &there) == 0 &&
           ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
}

bool RotatingFile::rotate() {
    // Whoever holds the lock is moving the file: go on with this one, the next write finds the new one.
    if (::flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0) return false;
    if (isStillAtPath()) {
        if (std::rename(file_.path.c_str(), newArchivePath(file_.path).c_str()) != 0) {
            ::flock(descriptor_.get(), LOCK_UN); // another process may be able to
            return false;
        }
        pruneArchives(file_.path, file_.maximumArchives);
    }
    const FileDescriptor full = std::move(descriptor_); // keeps the lock until the new file is there
    return reopen();
}

std::size_t RotatingFile::amountFor(std::string_view lines) const {
    struct stat info {};
    if (::fstat(descriptor_.get(), &info) != 0 || !S_ISREG(info.st_mode)) return lines.size();
    const auto size = static_cast<std::uint64_t>(info.st_size);
    return fitting(lines, file_.maximumFileSize - std::min(size, file_.maximumFileSize), size == 0);
}

std::size_t RotatingFile::write(std::string_view lines) {
    std::size_t written = 0;
    if (!isStillAtPath()) reopen();
    while (descriptor_ && written < lines.size()) {
        const std::string_view rest = lines.substr(written);
        std::size_t amount = amountFor(rest);
        if (amount == 0) {
            if (rotate() || !descriptor_) continue;
            amount = rest.size();
        }
        const std::size_t taken = writeFully(descriptor_.get(), rest.substr(0, amount));
        written += taken;
        if (taken < amount) break;
    }
    return written;
}

} // namespace brindlemar
