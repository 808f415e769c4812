// The few file and process services that the extension uses itself.
#pragma once

#include "platform/Domain.h"

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brindlemar {

/// Thread-safe.
class Files {
public:
    virtual ~Files() = default;
    /// Replaces the file as a whole, or leaves it as it was and answers false. A relative path starts at the process's
    /// current directory.
    virtual bool writeAtomically(std::string_view path, std::string_view bytes) = 0;
    /// Copies a regular file's contents; the copy must not exist yet and is gone again when it fails.
    virtual std::optional<NSError> copyItem(const FileURL& at, const FileURL& to) = 0;
    /// Makes the directory and what is missing above it. One that exists already is fine.
    virtual std::optional<NSError> createDirectory(const FileURL& at) = 0;
    /// Removes the file, or the directory with all in it; symbolic links are removed, not followed. Nothing is told.
    virtual void removeItem(const FileURL& at) = 0;
    /// The entries, hidden ones included, in no order. The directory must be accessed by the caller at that time.
    virtual std::variant<std::vector<FileURL>, NSError> contentsOfDirectory(const FileURL& at) = 0;
    /// False when the user does not let this process reach the place. Each success is to be balanced by a stop.
    virtual bool startAccessingSecurityScopedResource(const FileURL& at) = 0;
    virtual void stopAccessingSecurityScopedResource(const FileURL& at) = 0;
    /// A text that no other call on any machine gets: "UUID-pid-16HEX".
    virtual std::string globallyUniqueString() = 0;
    /// Writes one line to the process's standard output, outside the log.
    virtual void printLine(std::string_view line) = 0;
};

} // namespace brindlemar
