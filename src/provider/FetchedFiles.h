// Takes over the files that fetches hand to the platform.
#pragma once

#include "platform/Domain.h"
#include "platform/Queue.h"
#include "provider/LineOutput.h"

#include <memory>
#include <unordered_map>
#include <variant>

namespace brindlemar {

/// Thread-safe. Both directories lie on one file system: a file is moved, never copied.
class FetchedFiles {
public:
    /// Makes the directory `keep`, and empties it and `temporary` of what an earlier run has left. The queue, on which
    /// files are removed, runs nothing any more when this object ends.
    FetchedFiles(std::string temporary, std::string keep, Queue& tasks);
    /// Empties `temporary`.
    ~FetchedFiles();
    FetchedFiles(const FetchedFiles&) = delete;
    FetchedFiles& operator=(const FetchedFiles&) = delete;

    /// Moves the file to a name of its own in the kept directory. Refused, with a sentence for the log, unless it is a
    /// regular file that lies, by its path and without any symbolic link, inside the temporary directory.
    std::variant<FileURL, std::string> take(const FileURL& file);
    /// Removes a file that was taken, and lets go of its reader.
    void drop(const FileURL& taken);
    /// Keeps the output open until its reader is gone, and drops then what that has not taken away.
    void lend(const FileURL& taken, std::shared_ptr<LineOutput> reader);

private:
    const std::string temporary_, keep_;
    Queue& tasks_;
    Guarded<std::unordered_map<std::string, std::shared_ptr<LineOutput>>> lent_; // by path
};

} // namespace brindlemar
