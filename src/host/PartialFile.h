// Files that are being written, beside where they will be.
#pragma once

#include "linux/FileDescriptor.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace brindlemar::host {

/// A new file in a folder, under a name of ours that no listing shows, locked (flock(2)) while it is written. It is
/// gone with this object unless it was given its own name.
class PartialFile {
public:
    /// None with errno set. The folder outlives the file.
    static std::optional<PartialFile> make(const FileDescriptor& folder, mode_t mode);
    PartialFile(PartialFile&&) noexcept = default;
    ~PartialFile();

    int descriptor() const { return file_.get(); }
    enum class Present { refused, replaced };
    /// Gives the file its name, in one step; 0 or an errno(3). EEXIST when a file that is there is refused.
    int keepAs(const std::string& name, Present present);

private:
    PartialFile(const FileDescriptor& folder, std::string name, FileDescriptor file)
        : folder_(folder.get()), name_(std::move(name)), file_(std::move(file)) {}
    int folder_;
    std::string name_;
    FileDescriptor file_;
};

/// True for the names under which files are partial.
bool isPartialName(std::string_view name);

/// Removes the partial files of a folder that no living process writes.
void removeLeftovers(const FileDescriptor& folder);

/// Renames where nothing has the new name; 0 or an errno(3).
int renameToFree(int fromFolder, const std::string& name, int toFolder, const std::string& newName);

} // namespace brindlemar::host
