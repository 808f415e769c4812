#include "host/Tree.h"

#include "support/Utf8.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace brindlemar::host {

namespace {
/// openat2(2), for which the C library has no function.
FileDescriptor openBeneath(const FileDescriptor& top, const std::string& path, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, top.get(), path.c_str(), &how, sizeof how)));
}

std::optional<struct stat> onlyFilesAndFolders(const struct stat& info) {
    return S_ISREG(info.st_mode) || S_ISDIR(info.st_mode) ? std::optional(info) : std::nullopt;
}

bool mayBeServed(const dirent& entry) {
    const std::string_view name = entry.d_name;
    return name != "." && name != ".." &&
           (entry.d_type == DT_REG || entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN);
}

void split(Tree::Names& names) {
    for (std::size_t at = 0; at < names.text.size(); at += names.names.back().size() + 1)
        names.names.emplace_back(names.text.data() + at);
    std::sort(names.names.begin(), names.names.end());
}
} // namespace

/// What a failed open beneath the top says of the path.
static Tree::Outcome outcomeOfError() {
    const bool missing = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
    return missing ? Tree::Outcome::missing : Tree::Outcome::failed;
}

FileDescriptor Tree::openTop() const { return FileDescriptor(::open(top_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)); }

Tree::Status Tree::status(const std::string& path) const {
    Status result;
    const FileDescriptor top = openTop();
    if (!top) return result;
    const FileDescriptor file = openBeneath(top, path, O_PATH);
    if (!file) {
        result.outcome = outcomeOfError();
    } else if (::fstat(file.get(), &result.info) == 0) {
        result.outcome = onlyFilesAndFolders(result.info) ? Outcome::found : Outcome::missing;
    }
    return result;
}

Tree::Names Tree::names(const std::string& path) const {
    Names result;
    const FileDescriptor top = openTop();
    if (!top) return result;
    result.folder = openBeneath(top, path, O_RDONLY | O_DIRECTORY);
    if (!result.folder) {
        result.outcome = outcomeOfError();
        return result;
    }
    FileDescriptor reading(::fcntl(result.folder.get(), F_DUPFD_CLOEXEC, 3));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(reading ? ::fdopendir(reading.get()) : nullptr, ::closedir);
    if (!entries) return result;
    reading.release();
    while (const dirent* entry = (errno = 0, ::readdir(entries.get()))) {
        if (!mayBeServed(*entry)) continue;
        const std::string_view name = entry->d_name;
        if (isValidUtf8(name))
            result.text.insert(result.text.end(), name.data(), name.data() + name.size() + 1);
        else
            ++result.unreadable;
    }
    if (errno != 0) return result;
    split(result);
    result.outcome = Outcome::found;
    return result;
}

std::optional<struct stat> Tree::statusIn(const FileDescriptor& folder, std::string_view name) {
    struct stat info {};
    if (::fstatat(folder.get(), name.data(), &info, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return onlyFilesAndFolders(info);
}

} // namespace brindlemar::host
