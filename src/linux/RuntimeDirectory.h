// The directory that holds this user's sockets, and the check of who is at the other end of one.
#pragma once

#include "linux/FileDescriptor.h"

#include <string>

namespace brindlemar {

/// An open handle on the run-time directory. Thread-safe after construction.
class RuntimeDirectory {
public:
    /// $BRINDLEMAR_RUNTIME_DIR, else $XDG_RUNTIME_DIR/<AppGroupIdentifier>, else /run/user/<uid>/<AppGroupIdentifier>
    /// where /run/user/<uid> exists, else /tmp/<AppGroupIdentifier>-<uid>. Made with mode 0700 when missing.
    /// Throws std::runtime_error with a sentence for the user when it cannot be made, is no directory, or belongs to
    /// somebody else or lets others in.
    static RuntimeDirectory open();
    static std::string defaultPath();

    const std::string& path() const { return path_; }
    int descriptor() const { return descriptor_.get(); }
    /// A path for `name` inside the directory that fits a socket address however long path() is (unix(7) allows 107
    /// bytes): /proc/self/fd/<descriptor>/<name>.
    std::string socketPath(const std::string& name) const;

private:
    RuntimeDirectory(std::string path, FileDescriptor descriptor)
        : path_(std::move(path)), descriptor_(std::move(descriptor)) {}
    std::string path_;
    FileDescriptor descriptor_;
};

/// True when the process at the other end of the Unix socket runs under our own user id (SO_PEERCRED, unix(7)).
bool peerIsSameUser(int socket);
/// The process that opened the other end, 0 when it is not known.
pid_t peerProcess(int socket);

} // namespace brindlemar
