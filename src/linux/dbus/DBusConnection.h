// One end of a private connection: XPC messages as D-Bus method calls that ask for no reply.
//
// Object /io/brindlemar/FileProvider, interface "io.brindlemar." + protocol name, member the selector without its
// colon, signature "as" or none.
#pragma once

#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Sockets.h"
#include "platform/XPC.h"
#include "support/Guarded.h"

#include <deque>

namespace brindlemar {

/// What the two ends of a handle share: the users' calls on one side, the connection's thread on the other.
/// Thread-safe but for serve().
class DBusConnection {
public:
    DBusConnection(std::shared_ptr<Wake> wake, Diagnostic diagnostic)
        : wake_(std::move(wake)), diagnostic_(std::move(diagnostic)) {}

    void setExportedInterface(const XPCInterface& interface);
    void setExportedObject(std::shared_ptr<XPCExportedObject> object);
    void setRemoteObjectInterface(const XPCInterface& interface);
    void setInvalidationHandler(std::function<void()> handler);
    void resume();
    bool isResumed() const;
    bool send(std::string_view selector, std::vector<std::string> strings);
    void invalidate() { wake_->stop(); }

    /// The whole of the connection's thread: with the authenticated peer that `open` gives, if it does, waits for
    /// resume(), then delivers and sends until the peer is gone or invalidate() was called; runs the invalidation
    /// handler at the end. `heard` is called before each message of the peer is looked at.
    void run(const std::function<std::unique_ptr<BusPeer>()>& open, const std::function<void()>& heard);

private:
    struct Outgoing {
        std::string interface;
        std::string member;
        bool takesStrings = false;
        std::vector<std::string> strings;
    };
    struct State {
        XPCInterface exported, remote;
        std::shared_ptr<XPCExportedObject> object;
        std::function<void()> onInvalidation;
        std::deque<Outgoing> outgoing;
        std::size_t outgoingBytes = 0;
        bool resumed = false, ended = false, handlerRan = false;
    };

    void serve(BusPeer& peer, const std::function<void()>& heard);
    void end();
    bool sendWaiting(BusPeer& peer);
    void receive(sd_bus_message* message);
    std::optional<std::string> deliver(sd_bus_message* message);

    const std::shared_ptr<Wake> wake_;
    const Diagnostic diagnostic_;
    Guarded<State> state_;
};

} // namespace brindlemar
