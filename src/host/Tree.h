// The directories and regular files below one directory.
#pragma once

#include "host/TopDirectory.h"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::host {

/// Thread-safe. Paths are as TopDirectory::open() takes them.
class Tree {
public:
    explicit Tree(TopDirectory top) : top_(std::move(top)) {}

    /// `missing` is what is not there, no file and no folder, or behind a symbolic link; `failed` says nothing of it:
    /// a disk may just be absent. `error` is then the errno that tells why.
    enum class Outcome { found, missing, failed };
    struct Status {
        Outcome outcome = Outcome::failed;
        int error = 0;
        struct stat info {};
    };
    Status status(const std::string& path) const;
    /// Names in the folder, sorted by their bytes, without those that are no UTF-8 text; `unreadable` counts these.
    /// Partial files have no name here, but `hasPartial` tells of them.
    struct Names {
        Outcome outcome = Outcome::failed;
        int error = 0;
        FileDescriptor folder{};
        std::vector<char> text{};              // what the names point into
        std::vector<std::string_view> names{}; // each has a zero byte behind it
        std::size_t unreadable = 0;
        bool hasPartial = false;
    };
    Names names(const std::string& path) const;
    /// The status of a name in a folder that was opened by names().
    static Status statusIn(const FileDescriptor& folder, std::string_view name);

    /// See TopDirectory::open().
    FileDescriptor open(const std::string& path, int flags) const { return top_.open(path, flags); }
    const FileDescriptor& top() const { return top_.descriptor(); }
    /// The absolute path of what is there; none when it cannot be known.
    std::optional<std::string> location(const std::string& path) const;

private:
    template <class Result>
    Result failure(Result result) const;
    TopDirectory top_;
};

} // namespace brindlemar::host
