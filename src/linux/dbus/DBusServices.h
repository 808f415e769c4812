// Anonymous listeners and their connections, over private D-Bus connections on Unix sockets.
#pragma once

#include "linux/dbus/PeerThreads.h"
#include "linux/dbus/Sockets.h"
#include "platform/XPC.h"

namespace brindlemar {

/// An endpoint's address is a D-Bus address, "unix:path=" and the socket's path in the run-time directory; its name
/// cannot be guessed, its mode is 0600. Only processes of our own user are let in, and the delegate hears of a peer
/// when it has authenticated; it, the exported object and the invalidation handler are called on the connection's own
/// thread. An invalidation handler that is set after the end runs inside setInvalidationHandler. An accepted connection
/// that nobody resumes ends with the last reference to it.
class DBusServices : public XPCServices {
public:
    /// Also removes sockets that services of this user left behind when they died. The directory must outlive this.
    DBusServices(const RuntimeDirectory& directory, Diagnostic diagnostic);
    std::shared_ptr<XPCListener> makeAnonymousListener() override;

private:
    class Listener;
    const RuntimeDirectory& directory_;
    const Diagnostic diagnostic_;
    /// Destroyed first: ends every connection and waits for its thread. By then no listener may be left.
    PeerThreads threads_;
};

/// Connects to a listener in another process, or in this one. None when nobody listens there, or the address is no
/// Unix socket's. Nothing is received before resume(); messages sent before it wait. The connection has a thread of its
/// own, which is gone when the last reference to the connection is, unless that reference goes on the thread itself.
std::shared_ptr<XPCConnection> connectXPC(const XPCListenerEndpoint& endpoint, Diagnostic diagnostic);

} // namespace brindlemar
