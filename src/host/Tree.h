// Reading access to one directory tree that never leaves it: no symbolic link is followed, whatever a path says.
#pragma once

#include "linux/FileDescriptor.h"

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::host {

/// Only directories and regular files are seen. Thread-safe; the top is opened anew for each call, so that a directory
/// that was replaced is served in its new form. Paths are relative to the top; "." is the top.
class Tree {
public:
    explicit Tree(std::string top) : top_(std::move(top)) {}

    /// `missing` is what is not there, no file and no folder, or behind a symbolic link; `failed` says nothing of it.
    enum class Outcome { found, missing, failed };
    struct Status {
        Outcome outcome = Outcome::failed;
        struct stat info {};
    };
    Status status(const std::string& path) const;
    /// Names in the folder, sorted by their bytes, without those that are no UTF-8 text; `unreadable` counts these.
    /// `missing` means that the folder is gone while the top is there.
    struct Names {
        Outcome outcome = Outcome::failed;
        FileDescriptor folder{};
        std::vector<char> text{};              // what the names point into
        std::vector<std::string_view> names{}; // each has a zero byte behind it
        std::size_t unreadable = 0;
    };
    /// Symbolic links and special files are left out as far as the file system tells them by name; statusIn() tells
    /// the rest.
    Names names(const std::string& path) const;
    /// The status of a name in a folder that was opened by names().
    static std::optional<struct stat> statusIn(const FileDescriptor& folder, std::string_view name);

private:
    FileDescriptor openTop() const;
    const std::string top_;
};

} // namespace brindlemar::host
