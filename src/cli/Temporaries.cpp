#include "cli/Temporaries.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace brindlemar::cli {

Temporaries::File::File(Temporaries& all, std::string path) : all_(all), path_(std::move(path)) {
    std::lock_guard lock(all_.mutex_);
    all_.paths_.insert(path_);
}

Temporaries::File::~File() {
    std::lock_guard lock(all_.mutex_);
    if (all_.paths_.erase(path_) > 0) ::unlink(path_.c_str());
}

bool Temporaries::File::moveTo(const std::string& target, bool replaces) {
    std::lock_guard lock(all_.mutex_);
    const unsigned flags = replaces ? 0 : RENAME_NOREPLACE;
    bool moved = ::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target.c_str(), flags) == 0;
    if (!moved && !replaces && (errno == EINVAL || errno == ENOSYS)) // the flag is not known; a link replaces nothing
        moved = ::link(path_.c_str(), target.c_str()) == 0 && ::unlink(path_.c_str()) == 0;
    if (!moved) return false;
    all_.paths_.erase(path_);
    return true;
}

std::string Temporaries::nameIn(const std::string& directory) {
    std::lock_guard lock(mutex_);
    return directory + "/.brindlemar-" + std::to_string(::getpid()) + "-" + std::to_string(++count_);
}

void Temporaries::removeForGood() {
    mutex_.lock();
    for (const std::string& path : paths_) ::unlink(path.c_str());
}

} // namespace brindlemar::cli
