#include "fakes/Patience.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/dbus/BusAddress.h"
#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Control.h"
#include "linux/dbus/DBusServices.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace brindlemar {
namespace {

using Strings = std::vector<std::string>;

struct TemporaryRuntime {
    TemporaryDirectory base;
    /// Deeper than a socket address is long: every connection goes the long way round.
    const std::string path = base / std::string(120, 'd');
    const RuntimeDirectory directory{(::setenv("BRINDLEMAR_RUNTIME_DIR", path.c_str(), 1), RuntimeDirectory::open())};
    /// Names in the directory that begin like this.
    Strings named(std::string_view prefix) const {
        Strings names;
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (const std::string name = entry.path().filename(); name.starts_with(prefix)) names.push_back(name);
        return names;
    }
    /// The socket file of a process that died without removing it.
    void leaveSocket(const std::string& name) const {
        ASSERT_EQ(::mknodat(directory.descriptor(), name.c_str(), S_IFSOCK | 0600, 0), 0);
    }
};

/// A peer that speaks D-Bus by hand.
struct RawBusPeer {
    explicit RawBusPeer(const std::string& path) : bus(BusPeer::open(connectSocket(path), BusPeer::Role::client)) {
        EXPECT_TRUE(bus && bus->authenticate(wake));
    }
    /// The error's name, "" for an answer without an error.
    std::string call(const BusPeer::Method& method, const char* types, auto... values) {
        const BusMessage message = bus->makeCall(method);
        EXPECT_GE(sd_bus_message_append(message.get(), types, values...), 0);
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_call(bus->get(), message.get(), 20'000'000, &error, nullptr);
        const std::string name = error.name ? error.name : "";
        sd_bus_error_free(&error);
        return name;
    }
    Wake wake;
    std::unique_ptr<BusPeer> bus;
};

const XPCInterface kService{"TestServiceV1", {{"configureWithConnections:", true}, {"refresh", false}}};
const XPCInterface kHost{"TestHostV1", {{"hello", false}, {"bulk:", true}}};

/// Takes messages as "selector a b c".
struct Recorder : XPCExportedObject {
    void receive(std::string_view selector, Strings strings) override {
        EXPECT_TRUE(!hold || hold->happens());
        std::string text(selector);
        for (const auto& each : strings) text += " " + each;
        inbox.add(text);
    }
    Collected<std::string> inbox;
    Event* hold = nullptr;
};

/// Accepts every connection, greets the peer, and drops the listener as soon as it has served once.
struct Service : XPCListenerDelegate {
    bool shouldAcceptNewConnection(XPCListener&, std::shared_ptr<XPCConnection> connection) override {
        connection->setExportedInterface(kService);
        connection->setExportedObject(object);
        connection->setRemoteObjectInterface(kHost);
        connection->resume();
        connection->setInvalidationHandler([this] { ended.add(1); });
        listener.reset();
        connection->send("hello", {});
        accepted.add(connection);
        return true;
    }
    std::shared_ptr<Recorder> object = std::make_shared<Recorder>();
    std::shared_ptr<XPCListener> listener;
    Collected<std::shared_ptr<XPCConnection>> accepted;
    Collected<int> ended;
};

struct DBusServicesTest : ::testing::Test {
    TemporaryRuntime runtime;
    Collected<std::string> diagnostics;
    std::shared_ptr<Service> service = std::make_shared<Service>();
    Collected<std::string>& inbox = service->object->inbox;
    DBusServices services{runtime.directory, [this](std::string_view text) { diagnostics.add(std::string(text)); }};
    XPCListenerEndpoint endpoint;
    void SetUp() override {
        service->listener = services.makeAnonymousListener();
        service->listener->setDelegate(service);
        service->listener->resume();
        endpoint = service->listener->endpoint();
    }
    std::shared_ptr<XPCConnection> connect(const std::shared_ptr<Recorder>& host = nullptr) {
        auto connection = connectXPC(endpoint, [](std::string_view) {});
        if (!connection) return nullptr;
        connection->setRemoteObjectInterface(kService);
        connection->setExportedInterface(kHost);
        connection->setExportedObject(host);
        connection->resume();
        return connection;
    }
    std::string path() const { return pathOfBusAddress(endpoint.address).value(); }
};

TEST(BusAddress, KeepsEveryPath) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    EXPECT_EQ(pathOfBusAddress(busAddress(all)), all);
    EXPECT_EQ(busAddress("/a b,c"), "unix:path=/a%20b%2cc");
    for (const char* bad : {"unix:path=", "tcp:host=x", "unix:path=/x%4", "unix:path=/x%zz", "unix:path=/%00"})
        EXPECT_FALSE(pathOfBusAddress(bad)) << bad;
}

TEST_F(DBusServicesTest, MessagesArriveInOrderBothWaysAndTheListenerGoesAway) {
    EXPECT_EQ(std::filesystem::status(path()).permissions(), std::filesystem::perms(0600));
    const auto host = std::make_shared<Recorder>();
    const auto connection = connect(host);
    Strings expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back("configureWithConnections: Work|c7 " + std::to_string(i));
        EXPECT_TRUE(connection->send("configureWithConnections:", {"Work|c7", std::to_string(i)}));
    }
    expected.insert(expected.end(), {"refresh", "configureWithConnections:"});
    EXPECT_TRUE(connection->send("refresh", {}));
    EXPECT_FALSE(connection->send("unknown", {}));
    EXPECT_FALSE(connection->send("configureWithConnections:", {std::string("a\0b", 3)}));
    EXPECT_TRUE(connection->send("configureWithConnections:", {}));
    EXPECT_EQ(inbox.atLeast(expected.size()), expected); // the delegate has returned by then
    EXPECT_EQ(host->inbox.atLeast(1), Strings{"hello"});
    EXPECT_EQ(runtime.named("xpc-"), Strings{});
    EXPECT_EQ(connect(), nullptr);
}

TEST_F(DBusServicesTest, InvalidationIsToldOnceAndLast) {
    for (const std::size_t round : {1, 2}) {
        if (!service->listener) SetUp();
        auto connection = connect();
        for (int i = 0; i < 100; ++i) connection->send("refresh", {});
        const auto accepted = service->accepted.atLeast(round).back();
        if (round == 1) {
            EXPECT_EQ(inbox.atLeast(100).size(), 100u);
            connection.reset(); // the peer's end
        } else {
            accepted->invalidate();
        }
        EXPECT_EQ(service->ended.atLeast(round).size(), round);
        const std::size_t received = inbox.atLeast(0).size();
        EXPECT_FALSE(accepted->send("hello", {}));
        accepted->setInvalidationHandler([&] { service->ended.add(2); });
        EXPECT_EQ(service->ended.atLeast(0).size(), round) << "a handler had already run";
        EXPECT_EQ(inbox.atLeast(0).size(), received);
        if (round == 1) continue;
        Event gone; // a handler set after the end still runs, once
        for (int i = 0; i < 2; ++i) {
            connection->setInvalidationHandler([&] { gone.happen(); });
            EXPECT_TRUE(gone.happens());
        }
    }
}

TEST_F(DBusServicesTest, PeerThatTakesNothingIsEnded) {
    Event release;
    const auto host = std::make_shared<Recorder>();
    host->hold = &release;
    const auto connection = connect(host);
    const auto accepted = service->accepted.atLeast(1).back();
    std::size_t sent = 0;
    while (accepted->send("bulk:", {std::string(1 << 20, 'x')}) && sent < 1000) ++sent;
    EXPECT_LT(sent, 200u);
    EXPECT_EQ(service->ended.atLeast(1).size(), 1u);
    release.happen();
}

TEST_F(DBusServicesTest, WrongMessagesAreDroppedAndTheConnectionStays) {
    RawBusPeer peer(path());
    const auto call = [&](const char* member, const char* types, auto... values) {
        return peer.call({"/io/brindlemar/FileProvider", "io.brindlemar.TestServiceV1", member}, types, values...);
    };
    const std::string refused = SD_BUS_ERROR_INVALID_ARGS;
    EXPECT_EQ(call("configureWithConnections", "s", "text"), refused);
    EXPECT_EQ(call("configureWithConnections", "ass", 0, "more"), refused);
    EXPECT_EQ(call("refresh", "as", 0), refused);
    EXPECT_EQ(call("missing", "as", 0), refused);
    EXPECT_EQ(peer.call({"/io/brindlemar/FileProvider", "io.brindlemar.Other", "refresh"}, ""), refused);
    EXPECT_EQ(peer.call({"/elsewhere", "io.brindlemar.TestServiceV1", "refresh"}, ""), refused);
    EXPECT_EQ(call("configureWithConnections", "as", 2, "a", "b"), "");
    EXPECT_EQ(inbox.atLeast(1), Strings{"configureWithConnections: a b"});
    EXPECT_EQ(diagnostics.atLeast(6).size(), 6u);
}

TEST_F(DBusServicesTest, GarbageAndSilenceHarmNobody) {
    const std::string half("\0AUTH EXTERNAL\r\n", 16),
        garbage = std::string("\0AUTH NONSENSE\r\nBEGIN\r\n", 23) + std::string(100'000, '\xff');
    rlimit descriptors{}; // both ends are in this process
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &descriptors), 0);
    descriptors.rlim_cur = descriptors.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &descriptors), 0);
    std::vector<FileDescriptor> strangers;
    for (int i = 0; i < 1000; ++i) {
        const std::string greeting = i % 5 == 0 ? garbage : i % 5 == 1 ? half : "";
        strangers.push_back(connectSocket(path()));
        EXPECT_TRUE(strangers.back());
        ::send(strangers.back().get(), greeting.data(), greeting.size(), MSG_NOSIGNAL); // may be cut off already
    }
    const auto connection = connect();
    ASSERT_TRUE(connection);
    connection->send("refresh", {});
    EXPECT_EQ(inbox.atLeast(1), Strings{"refresh"});
    EXPECT_EQ(service->accepted.atLeast(1).size(), 1u) << "the delegate hears of authenticated peers only";
}

TEST_F(DBusServicesTest, ProcessOfAnotherUserIsRefused) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs a second user id";
    ::chmod(path().c_str(), 0666);
    for (std::filesystem::path folder = path(); (folder = folder.parent_path()) != "/tmp" && folder != "/";)
        ::chmod(folder.c_str(), 0711);
    std::jthread([&] { // the raw call changes this thread only, unlike the library's
        ASSERT_EQ(::syscall(SYS_setresuid, -1, 65534, -1), 0);
        EXPECT_FALSE(connectSocket(path())) << "the listener's user differs from the caller's";
    })
        .join();
    EXPECT_EQ(diagnostics.atLeast(1),
              Strings{"A process of another user was refused on the socket " + runtime.named("xpc-").at(0) + "."});
    EXPECT_TRUE(service->accepted.atLeast(0).empty());
}

TEST_F(DBusServicesTest, SocketsOfDeadProcessesAreRemoved) {
    const std::string dead = "xpc-4194305-00", alive = "xpc-" + std::to_string(::getpid()) + "-00";
    runtime.leaveSocket(dead);
    runtime.leaveSocket(alive);
    const DBusServices next(runtime.directory, [](std::string_view) {});
    EXPECT_EQ(runtime.named("xpc-").size(), 2u);
    EXPECT_EQ(runtime.named(dead), Strings{});
}

struct ControlTest : ::testing::Test {
    TemporaryRuntime runtime;
    std::unique_ptr<ControlServer> server;
    ControlServer::Result start() {
        ControlHandlers handlers;
        handlers.status = [] { return std::string("fine"); };
        handlers.endpoint = [](auto&&) { return std::nullopt; };
        handlers.call = [](const std::string& operation, const std::string& arguments, CallOutput output) {
            EXPECT_GT(::dprintf(output.get(), "%s %s", operation.c_str(), arguments.c_str()), 0);
        };
        return ControlServer::start(runtime.directory, std::move(handlers), [](std::string_view) {});
    }
    void SetUp() override { server = std::get<std::unique_ptr<ControlServer>>(start()); }
    auto connect() const { return ControlClient::connect(runtime.directory); }
    std::string path() const { return runtime.directory.path() + "/control"; }
};

TEST_F(ControlTest, OneServerHoldsThePlaceAndAnswers) {
    EXPECT_EQ(std::get<ControlServer::Refusal>(start()).holder, ::getpid());
    auto client = connect();
    ASSERT_TRUE(client);
    EXPECT_EQ(client->status(), "fine");
    EXPECT_EQ(client->endpoint("other"), std::nullopt);
    EXPECT_EQ(client->error(), "there is no service named other");
    char text[100];
    EXPECT_EQ(std::string_view(text, ::read(client->call("list", "c7|a\nü")->get(), text, sizeof text)),
              "list c7|a\nü");
    server.reset();
    EXPECT_EQ(client->status(), std::nullopt);
    EXPECT_FALSE(client->error().empty());
    EXPECT_FALSE(connect());
    EXPECT_EQ(runtime.named("control"), Strings{"control.lock"});
    runtime.leaveSocket("control");
    SetUp();
    EXPECT_TRUE(connect()) << "a dead one is replaced";
    server.reset();
    std::filesystem::create_directory(path());
    EXPECT_TRUE(std::holds_alternative<ControlServer::Refusal>(start())) << "other files are not";
}

TEST_F(ControlTest, WrongCallsAreAnsweredWithAnErrorAndUnreadAnswersEndAPeer) {
    RawBusPeer peer(path());
    const auto method = [](const char* member, const std::string& version = "1") {
        return BusPeer::Method{"/io/brindlemar/Control", "io.brindlemar.Control" + version, member};
    };
    const std::string refused = SD_BUS_ERROR_UNKNOWN_METHOD;
    EXPECT_EQ(peer.call(method("Status"), "s", "x"), refused);
    EXPECT_EQ(peer.call(method("Call"), "ss", "x", "y"), refused);
    EXPECT_EQ(peer.call(method("Stop"), ""), refused);
    EXPECT_EQ(peer.call(method("Status", "2"), ""), refused);
    EXPECT_EQ(peer.call(method("Call"), "ssh", "x", "{}", runtime.directory.descriptor()), SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(peer.call(method("Status"), ""), "");
    const std::string name(100'000, 'n');
    std::uint64_t cookie = 0; // asking for it asks for an answer
    int sent = 0, status = 0;
    for (; status >= 0 && sent < 10'000; ++sent) {
        const BusMessage message = peer.bus->makeCall(method("Endpoint"));
        sd_bus_message_append(message.get(), "s", name.c_str());
        status = sd_bus_send(peer.bus->get(), message.get(), &cookie);
        if (status >= 0) status = sd_bus_flush(peer.bus->get()); // writes only: the answers stay where they are
    }
    EXPECT_LT(status, 0);
}

} // namespace
} // namespace brindlemar
