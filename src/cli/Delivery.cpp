#include "cli/Delivery.h"

#include "cli/Text.h"
#include "linux/FileDescriptor.h"
#include "linux/files/FileCopy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace brindlemar::cli {

namespace fs = std::filesystem;

namespace {
/// Read before there are threads: the call that tells it also sets it.
const mode_t kNewFileMode = [] {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}();

bool dress(const std::string& path, std::optional<double> modified) {
    return ::chmod(path.c_str(), kNewFileMode) == 0 && setModified(path, modified);
}

/// Over a border between file systems.
bool copyTo(Temporaries::File& copy, const std::string& from) {
    const FileDescriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
    const FileDescriptor target(::open(copy.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!source || !target) return false;
    errno = copyContents(source.get(), target.get());
    return errno == 0;
}
} // namespace

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos && name.find('\0') == name.npos;
}

std::string filePlace(const std::string& path, const std::string& name) {
    struct stat info {};
    std::string place = path;
    if (::stat(place.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) place = (fs::path(place) / name).string();
    const std::string directory = fs::path(place).parent_path().string();
    const std::string above = directory.empty() ? "." : directory;
    if (::access(above.c_str(), W_OK | X_OK) != 0) throw systemError("write in", above);
    if (::stat(place.c_str(), &info) != 0) return place;
    if (!S_ISREG(info.st_mode))
        throw Failure(Exit::failure, "\"" + escaped(place) + "\" is there and is no regular file. Name another place.");
    std::error_code unresolved;
    const fs::path target = fs::canonical(place, unresolved);
    return unresolved ? place : target.string();
}

void deliver(Temporaries::File& fetched, Temporaries& temporaries, const std::string& place,
             std::optional<double> modified) {
    const auto fail = [&] { return systemError("write", place); };
    if (!dress(fetched.path(), modified)) throw fail();
    if (fetched.moveTo(place)) return;
    if (errno != EXDEV) throw fail();
    const std::string directory = fs::path(place).parent_path().string();
    Temporaries::File copy(temporaries, temporaries.nameIn(directory.empty() ? "." : directory));
    if (!copyTo(copy, fetched.path()) || !dress(copy.path(), modified) || !copy.moveTo(place)) throw fail();
}

void makeDirectory(const std::string& path) {
    struct stat info {};
    if (::mkdir(path.c_str(), 0777) == 0) return;
    if (errno == EEXIST && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return;
    throw systemError("make the directory", path);
}

bool setModified(const std::string& path, std::optional<double> modified) {
    if (!modified) return true;
    const double seconds = std::floor(*modified);
    const timespec date{.tv_sec = static_cast<time_t>(seconds),
                        .tv_nsec = static_cast<long>((*modified - seconds) * 1e9)};
    const timespec dates[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, date};
    return ::utimensat(AT_FDCWD, path.c_str(), dates, 0) == 0;
}

} // namespace brindlemar::cli
