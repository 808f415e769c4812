#include "host/Tree.h"

#include "host/PartialFile.h"
#include "support/Utf8.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>

namespace brindlemar::host {

namespace {
/// ENAMETOOLONG is about a single name: longer paths than the kernel takes are opened name by name.
bool saysMissing(int error) { return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG; }

Tree::Status ofFileOrFolder(const struct stat& info) {
    const bool served = S_ISREG(info.st_mode) || S_ISDIR(info.st_mode);
    return {served ? Tree::Outcome::found : Tree::Outcome::missing, 0, info};
}

bool mayBeServed(const FileDescriptor& folder, const dirent& entry) {
    const std::string_view name = entry.d_name;
    if (name == "." || name == "..") return false;
    if (entry.d_type == DT_UNKNOWN) return Tree::statusIn(folder, name).outcome != Tree::Outcome::missing;
    return entry.d_type == DT_REG || entry.d_type == DT_DIR;
}

/// False once the directory was removed.
bool isLinked(const FileDescriptor& directory) {
    struct stat info {};
    return ::fstat(directory.get(), &info) != 0 || info.st_nlink > 0;
}

void split(Tree::Names& names) {
    for (std::size_t at = 0; at < names.text.size(); at += names.names.back().size() + 1)
        names.names.emplace_back(names.text.data() + at);
    std::sort(names.names.begin(), names.names.end());
}
} // namespace

/// The result of a call that has just failed, by errno. Below a top that was removed nothing is missing.
template <class Result>
Result Tree::failure(Result result) const {
    result.error = errno;
    result.outcome = Outcome::failed;
    if (!saysMissing(result.error)) return result;
    if (isLinked(top_.descriptor()))
        result.outcome = Outcome::missing;
    else
        result.error = ESTALE;
    return result;
}

Tree::Status Tree::status(const std::string& path) const {
    const FileDescriptor file = top_.open(path, O_PATH);
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0) return failure(Status{});
    return ofFileOrFolder(info);
}

Tree::Names Tree::names(const std::string& path) const {
    Names result;
    result.folder = top_.open(path, O_RDONLY | O_DIRECTORY);
    if (!result.folder) return failure(std::move(result));
    FileDescriptor reading(::fcntl(result.folder.get(), F_DUPFD_CLOEXEC, 3));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(reading ? ::fdopendir(reading.get()) : nullptr, ::closedir);
    if (!entries) return failure(std::move(result));
    reading.release();
    while (const dirent* entry = (errno = 0, ::readdir(entries.get()))) {
        if (!mayBeServed(result.folder, *entry)) continue;
        const std::string_view name = entry->d_name;
        if (isPartialName(name))
            result.hasPartial = true;
        else if (isValidUtf8(name))
            result.text.insert(result.text.end(), name.data(), name.data() + name.size() + 1);
        else
            ++result.unreadable;
    }
    if (errno == 0 && !isLinked(result.folder)) errno = ENOENT; // readdir(3) takes a removed folder for an empty one
    if (errno != 0) return failure(std::move(result));
    split(result);
    result.outcome = Outcome::found;
    return result;
}

Tree::Status Tree::statusIn(const FileDescriptor& folder, std::string_view name) {
    struct stat info {};
    if (::fstatat(folder.get(), name.data(), &info, AT_SYMLINK_NOFOLLOW) == 0) return ofFileOrFolder(info);
    return {saysMissing(errno) ? Outcome::missing : Outcome::failed, errno};
}

std::optional<std::string> Tree::location(const std::string& path) const {
    std::error_code error;
    std::string top = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(top_.descriptor().get()), error);
    if (error || !isLinked(top_.descriptor())) return std::nullopt;
    if (path == ".") return top;
    return top == "/" ? top + path : top + "/" + path;
}

} // namespace brindlemar::host
