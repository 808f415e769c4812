// The place of a listening port in the run-time directory.
#pragma once

#include "linux/ports/PortContext.h"

namespace brindlemar {

/// A listening socket and its file. Destruction, or leave(), removes the file, unless a successor's has taken its
/// place.
class PortPlace {
public:
    /// Binds and listens under a lock file, so that of several processes one gets the name. A file left by a process
    /// that died is taken over: only a socket that refuses the connection is ever removed. None when somebody listens;
    /// none with a diagnostic when something else is in the way or the system refuses.
    static std::unique_ptr<PortPlace> take(const PortContext& context, const std::string& file);
    ~PortPlace() { leave(); }
    PortPlace(const PortPlace&) = delete;
    PortPlace& operator=(const PortPlace&) = delete;

    int socket() const { return socket_.get(); }
    /// Connections are refused from now on. Not to be called by two threads at once.
    void leave();

private:
    PortPlace(const PortContext& context, std::string file, FileDescriptor socket, std::uint64_t inode)
        : directory_(context.directory), file_(std::move(file)), socket_(std::move(socket)), inode_(inode) {}

    const RuntimeDirectory& directory_;
    const std::string file_;
    const FileDescriptor socket_;
    const std::uint64_t inode_;
    bool left_ = false;
};

} // namespace brindlemar
