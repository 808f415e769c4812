// Private connections between a host application and the extension: anonymous listeners, endpoints, one-way messages.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar {

/// One message of an interface. Messages are one-way; the only argument there is is an array of strings.
struct XPCMethod {
    std::string_view selector; // as in "configureWithConnections:"
    bool takesStrings = false; // one argument: an array of strings; else none
};

/// The messages that one end accepts; a message that is not listed, or has other arguments, is dropped with a
/// diagnostic before the exported object hears of it, and the connection stays.
struct XPCInterface {
    std::string_view protocolName;
    std::vector<XPCMethod> methods;
};

/// Receives the messages of an exported interface, in order, on one private thread per connection, never on the main
/// queue.
class XPCExportedObject {
public:
    virtual ~XPCExportedObject() = default;
    virtual void receive(std::string_view selector, std::vector<std::string> strings) = 0;
};

/// One end of a connection. Thread-safe. Nothing is received before resume().
class XPCConnection {
public:
    virtual ~XPCConnection() = default;
    virtual void setExportedInterface(const XPCInterface& interface) = 0;
    virtual void setExportedObject(std::shared_ptr<XPCExportedObject> object) = 0;
    virtual void setRemoteObjectInterface(const XPCInterface& interface) = 0;
    /// Runs once, after the last message, when the connection has ended for whatever cause; also when it had already
    /// ended before the handler was set.
    virtual void setInvalidationHandler(std::function<void()> handler) = 0;
    virtual void resume() = 0;
    /// Sends one message of the remote interface without waiting. False when the interface does not list it or the
    /// connection has ended.
    virtual bool send(std::string_view selector, std::vector<std::string> strings) = 0;
    virtual void invalidate() = 0;
};

/// Where a client connects to reach one anonymous listener.
struct XPCListenerEndpoint {
    std::string address;
};

class XPCListener;

class XPCListenerDelegate {
public:
    virtual ~XPCListenerDelegate() = default;
    /// Called on a thread of the platform. False, or true without a reference kept by the platform, ends the
    /// connection.
    virtual bool shouldAcceptNewConnection(XPCListener& listener, std::shared_ptr<XPCConnection> connection) = 0;
};

/// Stops accepting when its last reference goes away; connections that it accepted live on. An accepted connection is
/// kept by the platform until it ends.
class XPCListener {
public:
    virtual ~XPCListener() = default;
    virtual void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) = 0;
    virtual void resume() = 0;
    virtual XPCListenerEndpoint endpoint() const = 0;
};

class XPCServices {
public:
    virtual ~XPCServices() = default;
    /// None when the listener cannot be opened.
    virtual std::shared_ptr<XPCListener> makeAnonymousListener() = 0;
};

} // namespace brindlemar
