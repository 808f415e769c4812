// Stream sockets in the run-time directory: listening, connecting, accepting.
#pragma once

#include "linux/Diagnostic.h"
#include "linux/RuntimeDirectory.h"
#include "linux/Wake.h"

#include <thread>

namespace brindlemar {

/// Connects to the socket at `path`, which may be longer than a socket address holds; waits at most two seconds when
/// the listener's queue is full. None, with errno set, when nobody listens, when the peer runs under another user id
/// (EPERM), or when the queue stayed full (EAGAIN).
FileDescriptor connectSocket(const std::string& path);

/// A listening socket with mode 0600 in the run-time directory; its file goes away with it. The directory must outlive
/// it.
class ListeningSocket {
public:
    using Handler = std::function<void(FileDescriptor connection)>;

    /// None, with errno set, when the name is taken or the socket cannot be made.
    static std::unique_ptr<ListeningSocket> open(const RuntimeDirectory& directory, std::string name);
    /// Removes the file, then stops the thread and waits for it; never inside the handler.
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    /// Starts the thread that accepts and calls the handler with each connection of our own user; others are closed
    /// with a diagnostic, as is one whose handler throws. Once. Throws std::system_error when there is no thread to be
    /// had.
    void start(Handler handler, Diagnostic diagnostic);

private:
    ListeningSocket(const RuntimeDirectory& directory, std::string name, FileDescriptor socket)
        : directory_(directory), name_(std::move(name)), socket_(std::move(socket)) {}
    void acceptAll(const Handler& handler, const Diagnostic& diagnostic);
    void adopt(FileDescriptor connection, const Handler& handler, const Diagnostic& diagnostic) const;

    const RuntimeDirectory& directory_;
    const std::string name_;
    const FileDescriptor socket_;
    Wake wake_;
    std::thread thread_;
};

} // namespace brindlemar
