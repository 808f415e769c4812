// One directory that was opened once, and what lies below it.
#pragma once

#include "linux/FileDescriptor.h"

#include <string>
#include <string_view>

namespace brindlemar::host {

/// No symbolic link below the directory is followed and no path leads out of it, whatever is replaced meanwhile. It
/// stays the same directory when its own path gets another meaning. Thread-safe.
class TopDirectory {
public:
    /// Who follows a path: the kernel, as a whole (openat2(2)), or this object, name by name.
    enum class Way { whole, byName };

    /// Links in the path itself are followed. Throws std::system_error when it is no directory that can be read.
    static TopDirectory open(const std::string& path);
    TopDirectory(FileDescriptor directory, Way way) : directory_(std::move(directory)), way_(way) {}

    /// Opens with O_NOFOLLOW and O_CLOEXEC added; none with errno set. The path is relative, without ".." and without
    /// empty names; "." is the directory itself. With O_PATH a last name that is a symbolic link gives the link.
    FileDescriptor open(const std::string& path, int flags) const;
    const FileDescriptor& descriptor() const { return directory_; }

private:
    FileDescriptor openByName(std::string_view path, int flags) const;

    FileDescriptor directory_;
    Way way_;
};

} // namespace brindlemar::host
