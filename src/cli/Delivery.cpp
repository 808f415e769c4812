#include "cli/Delivery.h"

#include "cli/Text.h"
#include "linux/FileDescriptor.h"
#include "linux/files/FileCopy.h"
#include "linux/files/FileMode.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace brindlemar::cli {

namespace fs = std::filesystem;

namespace {
/// On the disk, too, when it takes another file's place: nobody would have the old one back.
bool dress(const std::string& path, const FilePlace& place, std::optional<double> modified) {
    if (!setModified(path, modified)) return false;
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file && ::fchmod(file.get(), place.replaced.value_or(newFileMode())) == 0 &&
           (!place.replaced || ::fsync(file.get()) == 0);
}

/// Over a border between file systems.
bool copyTo(Temporaries::File& copy, const std::string& from) {
    const FileDescriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
    const FileDescriptor target(::open(copy.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!source || !target) return false;
    errno = copyContents(source.get(), target.get());
    return errno == 0 && ::close(::dup(target.get())) == 0; // some file systems tell only then
}
} // namespace

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos && name.find('\0') == name.npos;
}

FilePlace filePlace(const std::string& path, const std::string& name) {
    struct stat info {};
    std::string place = path;
    if (::stat(place.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) place = (fs::path(place) / name).string();
    const std::string directory = fs::path(place).parent_path().string();
    const std::string above = directory.empty() ? "." : directory;
    if (::access(above.c_str(), W_OK | X_OK) != 0) throw systemError("write in", above);
    const std::string another = " Name another place.";
    if (::stat(place.c_str(), &info) != 0) {
        if (::lstat(place.c_str(), &info) != 0) return {place};
        throw Failure(Exit::failure, "\"" + escaped(place) + "\" is a link that leads nowhere." + another);
    }
    if (!S_ISREG(info.st_mode))
        throw Failure(Exit::failure, "\"" + escaped(place) + "\" is there and is no regular file." + another);
    std::error_code unresolved;
    const fs::path target = fs::canonical(place, unresolved);
    return {unresolved ? place : target.string(), info.st_mode & 0777};
}

void deliver(Temporaries::File& fetched, Temporaries& temporaries, const FilePlace& place,
             std::optional<double> modified) {
    const auto fail = [&] { return systemError("write", place.path); };
    const bool replaces = place.replaced.has_value();
    if (!dress(fetched.path(), place, modified)) throw fail();
    if (fetched.moveTo(place.path, replaces)) return;
    if (errno != EXDEV) throw fail();
    const std::string directory = fs::path(place.path).parent_path().string();
    Temporaries::File copy(temporaries, temporaries.nameIn(directory.empty() ? "." : directory));
    if (!copyTo(copy, fetched.path()) || !dress(copy.path(), place, modified) || !copy.moveTo(place.path, replaces))
        throw fail();
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
