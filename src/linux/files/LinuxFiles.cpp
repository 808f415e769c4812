#include "linux/files/LinuxFiles.h"

#include "linux/FileDescriptor.h"
#include "linux/WriteFully.h"
#include "linux/files/FileErrors.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

namespace brindlemar {

bool LinuxFiles::writeAtomically(std::string_view path, std::string_view bytes) {
    const std::string target(path);
    std::string temporary = target + ".XXXXXX";
    const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return false;
    const bool written = writeFully(file.get(), bytes) == bytes.size() && ::fsync(file.get()) == 0 &&
                         ::rename(temporary.c_str(), target.c_str()) == 0;
    if (!written) ::unlink(temporary.c_str());
    return written;
}

std::optional<NSError> LinuxFiles::copyItem(const FileURL& at, const FileURL& to) { return copyFile(at, to, {}); }

std::optional<NSError> LinuxFiles::copyFile(const FileURL& at, const FileURL& to, const CopyStep& step) {
    // Without O_NONBLOCK a pipe in the file's place would wait for its writer.
    const FileDescriptor from(::open(at.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat source {};
    if (!from || ::fstat(from.get(), &source) != 0) return fileError(errno, FileAccess::reading);
    if (!S_ISREG(source.st_mode)) return fileError(S_ISDIR(source.st_mode) ? EISDIR : EINVAL, FileAccess::reading);
    const FileDescriptor copy(::open(to.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!copy) return fileError(errno, FileAccess::writing);
    const int error = copyContents(from.get(), copy.get(), step);
    if (error == 0) return std::nullopt;
    ::unlink(to.path.c_str());
    return fileError(error, FileAccess::writing);
}

std::optional<NSError> LinuxFiles::createDirectory(const FileURL& at) {
    std::error_code error;
    std::filesystem::create_directories(at.path, error);
    if (error) return fileError(error.value(), FileAccess::writing);
    return std::nullopt;
}

void LinuxFiles::removeItem(const FileURL& at) {
    std::error_code ignored;
    std::filesystem::remove_all(at.path, ignored);
}

std::variant<std::vector<FileURL>, NSError> LinuxFiles::contentsOfDirectory(const FileURL& at) {
    std::vector<FileURL> entries;
    std::error_code error;
    std::filesystem::directory_iterator entry(at.path, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::error_code gone;
        entries.push_back({.path = entry->path().string(), .isDirectory = entry->is_directory(gone)});
    }
    if (error) return fileError(error.value(), FileAccess::reading);
    return entries;
}

std::string LinuxFiles::globallyUniqueString() {
    static std::atomic<std::uint64_t> count{0};
    std::uint8_t random[16];
    while (::getrandom(random, sizeof random, 0) != sizeof random) {
    }
    random[6] = (random[6] & 0x0F) | 0x40; // RFC 9562, version 4
    random[8] = (random[8] & 0x3F) | 0x80;
    char text[80];
    char* end = text;
    for (std::size_t i = 0; i < sizeof random; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *end++ = '-';
        end += std::snprintf(end, 3, "%02X", random[i]);
    }
    std::snprintf(end, 40, "-%d-%016llX", ::getpid(), static_cast<unsigned long long>(++count));
    return text;
}

void LinuxFiles::printLine(std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

} // namespace brindlemar
