#include "cli/LocalTree.h"

#include "cli/Changes.h"
#include "cli/Text.h"
#include "linux/FileDescriptor.h"
#include "support/Utf8.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

namespace brindlemar::cli {

namespace fs = std::filesystem;

namespace {
using LeftOut = std::function<void(const Failure&)>;

LocalFile read(const fs::path& path, int linkFlag, const LeftOut& leftOut);

void readEntries(LocalFile& directory, const LeftOut& leftOut) {
    std::error_code error;
    fs::directory_iterator entry(directory.path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        try {
            directory.files.push_back(read(entry->path(), AT_SYMLINK_NOFOLLOW, leftOut));
        } catch (const Failure& failure) {
            leftOut(failure);
        }
    }
    std::ranges::sort(directory.files, {}, &LocalFile::name);
    if (!error) return;
    errno = error.value();
    leftOut(systemError("read the directory", directory.path));
}

LocalFile read(const fs::path& path, int linkFlag, const LeftOut& leftOut) {
    struct stat info {};
    if (::fstatat(AT_FDCWD, path.c_str(), &info, linkFlag) != 0) throw systemError("read", path.string());
    const std::string shown = "\"" + escaped(path.string()) + "\" is left out: ";
    if (!isValidUtf8(path.string()))
        throw Failure(Exit::failure, shown + "its name is not valid UTF-8. Rename it, then put it.");
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode))
        throw Failure(Exit::failure, shown + "only files and directories can be put.");
    LocalFile file{.name = path.filename().string(),
                   .path = path.string(),
                   .directory = S_ISDIR(info.st_mode),
                   .size = S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0,
                   .modified = dateText(info.st_mtim)};
    if (file.directory) readEntries(file, leftOut);
    return file;
}
} // namespace

std::uint64_t LocalFile::bytes() const {
    std::uint64_t sum = size;
    for (const LocalFile& file : files) sum += file.bytes();
    return sum;
}

void LocalFile::mustBeReadable() const {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) throw systemError("read", path);
}

LocalFile readLocalFile(const std::string& path, const LeftOut& leftOut) {
    fs::path absolute = fs::absolute(path);
    if (const fs::path last = absolute.filename(); last.empty() || last == "." || last == "..") { // a directory's own
        std::error_code error;
        absolute = fs::canonical(absolute, error);
        if (error) errno = error.value(), throw systemError("read", path);
    }
    return read(absolute, 0, leftOut);
}

} // namespace brindlemar::cli
