// Files of this machine, read before anything is done with them.
#pragma once

#include "cli/Failure.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace brindlemar::cli {

struct LocalFile {
    std::string name;
    std::string path; // absolute
    bool directory = false;
    std::uint64_t size = 0;         // of a file, in bytes
    std::string modified;           // as the service takes it
    std::vector<LocalFile> files{}; // of a directory, by name

    /// Of all files in it.
    std::uint64_t bytes() const;
    /// Throws Failure.
    void mustBeReadable() const;
};

/// A regular file, or a directory with all below it: a link is followed only when it is named itself. What is neither,
/// or cannot be looked at, or has a name that is not UTF-8, is told and left out; named itself, it is thrown.
LocalFile readLocalFile(const std::string& path, const std::function<void(const Failure&)>& leftOut);

} // namespace brindlemar::cli
