// Private copies of what the user made, for the host to read.
#pragma once

#include "platform/Domain.h"

#include <memory>
#include <optional>
#include <variant>

namespace brindlemar {

/// A file or an empty folder in the domain's temporary directory, under a name of its own. The end of the object has it
/// removed, on the platform's task queue.
class StagedCopy {
public:
    /// A copy of the contents, or an empty folder when there are none; the file system's error when that fails, and
    /// cannot-synchronize when the domain has no temporary directory. Reads and writes on the calling thread.
    static std::variant<std::shared_ptr<const StagedCopy>, NSError> make(const std::optional<FileURL>& tempURL,
                                                                         const std::optional<FileURL>& contents);
    explicit StagedCopy(FileURL url) : url_(std::move(url)) {}
    ~StagedCopy();
    StagedCopy(const StagedCopy&) = delete;
    StagedCopy& operator=(const StagedCopy&) = delete;

    const std::string& path() const { return url_.path; }

private:
    const FileURL url_;
};

} // namespace brindlemar
