// Files that must not outlive the command.
#pragma once

#include <mutex>
#include <set>
#include <string>

namespace brindlemar::cli {

/// Thread-safe.
class Temporaries {
public:
    /// One such file: removed with this object, or with all of them, unless it is put in its place before.
    class File {
    public:
        /// The file may be made after this.
        File(Temporaries& all, std::string path);
        File(const File&) = delete;
        ~File();
        const std::string& path() const { return path_; }
        /// Puts it in its place, over a file that is there only if that is to be replaced. False with errno set.
        bool moveTo(const std::string& target, bool replaces);

    private:
        Temporaries& all_;
        const std::string path_;
    };

    /// A name for a temporary file in the directory.
    std::string nameIn(const std::string& directory);

    /// Removes all files. Whoever wants to make another one waits from now on for the end of the process.
    void removeForGood();

private:
    std::mutex mutex_;
    std::set<std::string> paths_;
    std::size_t count_ = 0;
};

} // namespace brindlemar::cli
