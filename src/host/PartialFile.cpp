#include "host/PartialFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace brindlemar::host {

namespace {
constexpr std::string_view kPrefix = ".brindlemar-", kSuffix = ".part";
constexpr std::size_t kDigits = 32;

std::string makeName() {
    std::uint8_t random[kDigits / 2];
    while (::getrandom(random, sizeof random, 0) != sizeof random) {
    }
    std::string name(kPrefix);
    for (const std::uint8_t byte : random) name.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
    return name.append(kSuffix);
}

bool isLinked(const FileDescriptor& file) {
    struct stat info {};
    return ::fstat(file.get(), &info) == 0 && info.st_nlink > 0;
}
} // namespace

bool isPartialName(std::string_view name) {
    return name.size() == kPrefix.size() + kDigits + kSuffix.size() && name.starts_with(kPrefix) &&
           name.ends_with(kSuffix) &&
           name.substr(kPrefix.size(), kDigits).find_first_not_of("0123456789abcdef") == name.npos;
}

std::optional<PartialFile> PartialFile::make(const FileDescriptor& folder, mode_t mode) {
    for (;;) {
        std::string name = makeName();
        FileDescriptor file(::openat(folder.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        if (!file) return std::nullopt;
        PartialFile made(folder, std::move(name), std::move(file));
        ::flock(made.descriptor(), LOCK_EX); // where nothing can be locked, nothing is taken for left over either
        if (isLinked(made.file_)) return made;
        // It was taken for left over before it was locked.
    }
}

PartialFile::~PartialFile() {
    if (file_) ::unlinkat(folder_, name_.c_str(), 0);
}

int PartialFile::keepAs(const std::string& name, Present present) {
    int error = 0;
    if (present == Present::replaced)
        error = ::renameat(folder_, name_.c_str(), folder_, name.c_str()) == 0 ? 0 : errno;
    else
        error = renameToFree(folder_, name_, folder_, name);
    if (error == 0) file_.reset();
    return error;
}

void removeLeftovers(const FileDescriptor& folder) {
    std::error_code ended;
    std::filesystem::directory_iterator entry("/proc/self/fd/" + std::to_string(folder.get()), ended);
    for (; !ended && entry != std::filesystem::directory_iterator(); entry.increment(ended)) {
        const std::string name = entry->path().filename();
        if (!isPartialName(name)) continue;
        const FileDescriptor file(::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlinkat(folder.get(), name.c_str(), 0);
    }
}

int renameToFree(int fromFolder, const std::string& name, int toFolder, const std::string& newName) {
    if (::renameat2(fromFolder, name.c_str(), toFolder, newName.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // A file system that does not know the flag. Making a link replaces nothing either, but is for files only.
    if (::linkat(fromFolder, name.c_str(), toFolder, newName.c_str(), 0) != 0) return errno;
    return ::unlinkat(fromFolder, name.c_str(), 0) == 0 ? 0 : errno;
}

} // namespace brindlemar::host
