// The directory with the contents of local files.
#pragma once

#include "linux/FileDescriptor.h"
#include "platform/Timestamp.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace brindlemar {

/// One file of contents, open for reading and writing. It stays readable while it is open, wherever it goes.
struct LocalFile {
    LocalFile(std::string name, FileDescriptor descriptor) : name(std::move(name)), descriptor(std::move(descriptor)) {}
    int fd() const { return descriptor.get(); }
    const std::string name; // in the directory
    const FileDescriptor descriptor;
};

/// What is written beside contents that the host does not have, so that they can be told from others when nothing else
/// is known of them any more.
struct UnsentNote {
    std::string path;       // as people see it
    std::string identifier; // empty when the host has given none
    bool operator==(const UnsentNote&) const = default;
};

/// Thread-safe. Failures are thrown as std::system_error.
class Contents {
public:
    /// Makes the directory.
    explicit Contents(std::string directory);

    std::shared_ptr<LocalFile> create();
    /// None when it is not there any more.
    std::shared_ptr<LocalFile> open(const std::string& name);
    /// Takes a file from elsewhere on the same file system; its name here.
    std::string adopt(const std::string& path);
    void remove(const std::string& name);
    void write(const std::string& name, std::string_view bytes);
    std::string pathOf(const std::string& name) const { return directory_ + "/" + name; }

    /// See xattr(7); file systems without them go without the note.
    static void mark(int fd, const UnsentNote& note);
    void unmark(const std::string& name);
    std::optional<UnsentNote> noteOf(const std::string& name) const;

    /// False when the disk has not so many bytes left.
    bool hasRoomFor(std::uint64_t bytes) const;
    void each(const std::function<void(const std::string& name)>& body) const;
    const std::string& directory() const { return directory_; }

private:
    std::string newName();
    const std::string directory_;
};

} // namespace brindlemar
