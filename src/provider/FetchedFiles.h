// Takes over the files that fetches hand to the platform.
#pragma once

#include "platform/Domain.h"

#include <variant>

namespace brindlemar {

/// Thread-safe. Both directories lie on one file system: a file is moved, never copied.
class FetchedFiles {
public:
    /// Makes the directory `keep`, and empties it and `temporary` of what an earlier run has left.
    FetchedFiles(std::string temporary, std::string keep);

    /// Moves the file to a name of its own in the kept directory. Refused, with a sentence for the log, unless it is a
    /// regular file that lies, by its path and without any symbolic link, inside the temporary directory.
    std::variant<FileURL, std::string> take(const FileURL& file) const;
    /// Removes a file that was taken.
    void drop(const FileURL& taken) const;

private:
    const std::string temporary_, keep_;
};

} // namespace brindlemar
