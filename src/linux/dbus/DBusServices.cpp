#include "linux/dbus/DBusServices.h"

#include "linux/dbus/BusAddress.h"
#include "linux/dbus/DBusConnection.h"

#include <dirent.h>
#include <signal.h>
#include <sys/random.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

namespace brindlemar {

namespace {
constexpr std::size_t kMostConnections = 128;
constexpr auto kDescriptors = BusPeer::Descriptors::refused; // no message has any
constexpr std::string_view kSocketPrefix = "xpc-";

/// "xpc-PID-" and 32 random hexadecimal digits; empty when the system has no random bytes to give.
std::string unguessableName() {
    constexpr std::string_view digits = "0123456789abcdef";
    unsigned char bytes[16];
    if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return {};
    std::string name = std::string(kSocketPrefix) + std::to_string(::getpid()) + "-";
    for (const unsigned char byte : bytes) name.append({digits[byte >> 4], digits[byte & 15]});
    return name;
}

/// The socket of a process that is gone, and nobody answers on it.
bool isLeftBehind(const RuntimeDirectory& directory, std::string_view name) {
    if (!name.starts_with(kSocketPrefix)) return false;
    const std::string_view rest = name.substr(kSocketPrefix.size());
    pid_t owner = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), owner);
    if (owner <= 0 || ::kill(owner, 0) == 0 || errno != ESRCH) return false;
    return !connectSocket(directory.path() + "/" + std::string(name)) && errno == ECONNREFUSED;
}

void removeLeftovers(const RuntimeDirectory& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.path().c_str()), ::closedir);
    if (!entries) return;
    while (const dirent* entry = ::readdir(entries.get()))
        if (isLeftBehind(directory, entry->d_name)) ::unlinkat(directory.descriptor(), entry->d_name, 0);
}

/// A reference to a connection that the user of the platform holds.
class Handle : public XPCConnection {
public:
    explicit Handle(std::shared_ptr<DBusConnection> connection) : connection_(std::move(connection)) {}
    void setExportedInterface(const XPCInterface& interface) override { connection_->setExportedInterface(interface); }
    void setExportedObject(std::shared_ptr<XPCExportedObject> object) override {
        connection_->setExportedObject(std::move(object));
    }
    void setRemoteObjectInterface(const XPCInterface& interface) override {
        connection_->setRemoteObjectInterface(interface);
    }
    void setInvalidationHandler(std::function<void()> handler) override {
        connection_->setInvalidationHandler(std::move(handler));
    }
    void resume() override { connection_->resume(); }
    bool send(std::string_view selector, std::vector<std::string> strings) override {
        return connection_->send(selector, std::move(strings));
    }
    void invalidate() override { connection_->invalidate(); }

protected:
    const std::shared_ptr<DBusConnection> connection_;
};

class AcceptedHandle : public Handle {
public:
    using Handle::Handle;
    ~AcceptedHandle() override {
        if (!connection_->isResumed()) connection_->invalidate();
    }
};

class ClientHandle : public Handle {
public:
    ClientHandle(std::shared_ptr<DBusConnection> connection, std::thread thread)
        : Handle(std::move(connection)), thread_(std::move(thread)) {}
    ~ClientHandle() override {
        connection_->invalidate();
        if (thread_.get_id() == std::this_thread::get_id())
            thread_.detach();
        else
            thread_.join();
    }

private:
    std::thread thread_;
};
} // namespace

class DBusServices::Listener : public XPCListener, public std::enable_shared_from_this<Listener> {
public:
    Listener(DBusServices& services, std::string path, std::unique_ptr<ListeningSocket> socket)
        : services_(services), path_(std::move(path)), socket_(std::move(socket)) {}

    void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override {
        delegate_.with([&](auto& current) { current.swap(delegate); });
    }
    void resume() override;
    XPCListenerEndpoint endpoint() const override { return {busAddress(path_)}; }

    /// The thread of one peer, from its arrival to its end.
    static void serve(std::weak_ptr<Listener> listener, FileDescriptor socket, const Diagnostic& diagnostic,
                      PeerThreads::Seat& seat);

private:
    bool askDelegate(const std::shared_ptr<DBusConnection>& connection) {
        const std::shared_ptr<XPCListenerDelegate> delegate = delegate_.copy().lock();
        return delegate && delegate->shouldAcceptNewConnection(*this, std::make_shared<AcceptedHandle>(connection));
    }

    DBusServices& services_;
    const std::string path_;
    Guarded<std::weak_ptr<XPCListenerDelegate>> delegate_;
    Guarded<bool> resumed_{false};
    const std::unique_ptr<ListeningSocket> socket_;
};

void DBusServices::Listener::resume() {
    if (resumed_.with([](bool& resumed) { return std::exchange(resumed, true); })) return;
    auto accept = [weak = weak_from_this(), &services = services_](FileDescriptor connection) {
        auto socket = std::make_shared<FileDescriptor>(std::move(connection));
        const bool started =
            services.threads_.start(peerProcess(socket->get()), [weak, socket, &services](PeerThreads::Seat& seat) {
                serve(weak, std::move(*socket), services.diagnostic_, seat);
            });
        if (!started) services.diagnostic_("A service connection was refused: there are too many.");
    };
    try {
        socket_->start(std::move(accept), services_.diagnostic_);
    } catch (const std::system_error& error) {
        services_.diagnostic_(std::string("A service listener cannot accept: ") + error.what());
    }
}

void DBusServices::Listener::serve(std::weak_ptr<Listener> weak, FileDescriptor socket, const Diagnostic& diagnostic,
                                   PeerThreads::Seat& seat) {
    std::unique_ptr<BusPeer> peer = BusPeer::open(std::move(socket), BusPeer::Role::server, kDescriptors);
    if (!peer || !peer->authenticate(*seat.wake())) {
        diagnostic("A peer that did not authenticate was cut off.");
        return;
    }
    seat.admit();
    const auto connection = std::make_shared<DBusConnection>(seat.wake(), diagnostic);
    const auto accepted = [&] {
        const std::shared_ptr<Listener> listener = weak.lock();
        return listener && listener->askDelegate(connection) ? std::move(peer) : nullptr;
    };
    connection->run(accepted, [&seat] { seat.heard(); });
}

DBusServices::DBusServices(const RuntimeDirectory& directory, Diagnostic diagnostic)
    : directory_(directory), diagnostic_(std::move(diagnostic)), threads_(kMostConnections, diagnostic_) {
    removeLeftovers(directory_);
}

std::shared_ptr<XPCListener> DBusServices::makeAnonymousListener() {
    const std::string name = unguessableName();
    if (name.empty()) return nullptr;
    try {
        if (auto socket = ListeningSocket::open(directory_, name))
            return std::make_shared<Listener>(*this, directory_.path() + "/" + name, std::move(socket));
        diagnostic_(std::string("A service listener cannot be opened: ") + std::strerror(errno));
    } catch (const std::system_error& error) {
        diagnostic_(std::string("A service listener cannot be opened: ") + error.what());
    }
    return nullptr;
}

std::shared_ptr<XPCConnection> connectXPC(const XPCListenerEndpoint& endpoint, Diagnostic diagnostic) {
    const std::optional<std::string> path = pathOfBusAddress(endpoint.address);
    if (!path) return nullptr;
    auto socket = std::make_shared<FileDescriptor>(connectSocket(*path));
    if (!*socket) return nullptr;
    try {
        auto wake = std::make_shared<Wake>();
        auto connection = std::make_shared<DBusConnection>(wake, std::move(diagnostic));
        std::thread thread([connection, wake, socket] {
            const auto authenticated = [&]() -> std::unique_ptr<BusPeer> {
                auto peer = BusPeer::open(std::move(*socket), BusPeer::Role::client, kDescriptors);
                return peer && peer->authenticate(*wake) ? std::move(peer) : nullptr;
            };
            connection->run(authenticated, [] {});
        });
        return std::make_shared<ClientHandle>(std::move(connection), std::move(thread));
    } catch (const std::system_error&) {
        return nullptr;
    }
}

} // namespace brindlemar
