#include "linux/dbus/DBusServices.h"
#include "linux/TemporaryRuntime.h"
#include "linux/dbus/BusAddress.h"
#include "linux/dbus/BusPeer.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <future>
#include <numeric>

namespace brindlemar {
namespace {

using Strings = std::vector<std::string>;

const XPCInterface kService{"TestServiceV1", {{"configureWithConnections:", true}, {"refresh", false}}};
const XPCInterface kHost{"TestHostV1", {{"hello", false}}};

/// Takes messages as "selector a b c".
struct Recorder : XPCExportedObject {
    void receive(std::string_view selector, Strings strings) override {
        if (hold.valid()) hold.wait();
        inbox.add(std::accumulate(strings.begin(), strings.end(), std::string(selector),
                                  [](std::string all, const std::string& next) { return all + " " + next; }));
    }
    Collected<std::string> inbox;
    std::shared_future<void> hold;
};

/// Accepts every connection, greets the peer, and drops the listener as soon as it has served once.
struct Service : XPCListenerDelegate, std::enable_shared_from_this<Service> {
    bool shouldAcceptNewConnection(XPCListener&, std::shared_ptr<XPCConnection> connection) override {
        if (!accepts) return false;
        connection->setExportedInterface(kService);
        connection->setExportedObject(object);
        connection->setRemoteObjectInterface(kHost);
        connection->resume();
        connection->setInvalidationHandler([this] { ended.add("ended"); });
        listener.reset();
        connection->send("hello", {});
        accepted.add(connection);
        return true;
    }
    bool accepts = true;
    std::shared_ptr<Recorder> object = std::make_shared<Recorder>();
    std::shared_ptr<XPCListener> listener;
    Collected<std::shared_ptr<XPCConnection>> accepted;
    Collected<std::string> ended;
};

struct DBusServicesTest : ::testing::Test {
    TemporaryRuntime runtime;
    Collected<std::string> diagnostics;
    std::shared_ptr<Service> service = std::make_shared<Service>();
    DBusServices services{runtime.directory, [this](std::string_view text) { diagnostics.add(std::string(text)); }};
    XPCListenerEndpoint endpoint;

    void listen() {
        service->listener = services.makeAnonymousListener();
        service->listener->setDelegate(service);
        service->listener->resume();
        endpoint = service->listener->endpoint();
    }
    std::shared_ptr<XPCConnection> connect() {
        auto connection = connectXPC(endpoint, [](std::string_view) {});
        if (connection) connection->setRemoteObjectInterface(kService);
        return connection;
    }
    std::string path() const { return pathOfBusAddress(endpoint.address).value(); }
    void SetUp() override { listen(); }
};

TEST(BusAddress, KeepsEveryPath) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    EXPECT_EQ(pathOfBusAddress(busAddress(all)), all);
    EXPECT_EQ(busAddress("/a b,c"), "unix:path=/a%20b%2cc");
    EXPECT_EQ(pathOfBusAddress("unix:path=/x,guid=12"), "/x");
    for (const char* bad :
         {"", "unix:path=", "tcp:host=x", "unix:path=/x%", "unix:path=/x%4", "unix:path=/x%zz", "unix:path=/%00"})
        EXPECT_FALSE(pathOfBusAddress(bad)) << bad;
}

TEST_F(DBusServicesTest, MessagesArriveInOrderBothWays) {
    const auto connection = connect();
    const auto host = std::make_shared<Recorder>();
    connection->setExportedInterface(kHost);
    connection->setExportedObject(host);
    Strings expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back("configureWithConnections: Work|c7 " + std::to_string(i));
        EXPECT_TRUE(connection->send("configureWithConnections:", {"Work|c7", std::to_string(i)}));
    }
    connection->send("refresh", {});
    expected.push_back("refresh");
    EXPECT_FALSE(connection->send("unknown", {}));
    EXPECT_FALSE(connection->send("configureWithConnections:", {std::string("a\0b", 3)}));
    connection->resume();
    EXPECT_EQ(service->object->inbox.atLeast(expected.size()), expected);
    EXPECT_EQ(host->inbox.atLeast(1), Strings{"hello"});
    EXPECT_TRUE(connection->send("configureWithConnections:", {}));
    EXPECT_EQ(service->object->inbox.atLeast(expected.size() + 1).back(), "configureWithConnections:");
}

TEST_F(DBusServicesTest, ListenerGoesAwayAndItsConnectionLivesOn) {
    EXPECT_EQ(runtime.named("xpc-").size(), 1u);
    struct stat info {};
    ASSERT_EQ(::stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    const auto connection = connect();
    connection->resume();
    connection->send("refresh", {});
    EXPECT_EQ(service->object->inbox.atLeast(1), Strings{"refresh"}); // the delegate has returned by then
    EXPECT_EQ(runtime.named("xpc-"), Strings{});
    EXPECT_EQ(connect(), nullptr);
    connection->send("refresh", {});
    EXPECT_EQ(service->object->inbox.atLeast(2).size(), 2u);
}

TEST_F(DBusServicesTest, RefusedConnectionEnds) {
    service->accepts = false;
    const auto connection = connect();
    Collected<std::string> ended;
    connection->setInvalidationHandler([&] { ended.add("ended"); });
    connection->resume();
    EXPECT_EQ(ended.atLeast(1).size(), 1u);
    EXPECT_FALSE(connection->send("refresh", {}));
    EXPECT_EQ(runtime.named("xpc-").size(), 1u);
}

TEST_F(DBusServicesTest, InvalidationIsToldOnceAndLast) {
    for (const bool byPeer : {true, false}) {
        if (!service->listener) listen();
        auto connection = connect();
        connection->resume();
        const std::size_t before = service->object->inbox.atLeast(0).size(), ends = service->ended.atLeast(0).size();
        for (int i = 0; i < 100; ++i) connection->send("refresh", {});
        const auto accepted = service->accepted.atLeast(ends + 1).back();
        if (byPeer) {
            EXPECT_EQ(service->object->inbox.atLeast(before + 100).size(), before + 100);
            connection.reset();
        } else {
            accepted->invalidate();
        }
        EXPECT_EQ(service->ended.atLeast(ends + 1).size(), ends + 1);
        const std::size_t received = service->object->inbox.atLeast(0).size();
        EXPECT_FALSE(accepted->send("hello", {}));
        accepted->setInvalidationHandler([&] { service->ended.add("again"); });
        EXPECT_EQ(service->ended.atLeast(0).size(), ends + 1) << "a handler had already run";
        EXPECT_EQ(service->object->inbox.atLeast(0).size(), received);
    }
}

TEST_F(DBusServicesTest, HandlerSetAfterTheEndStillRuns) {
    const auto connection = connect();
    connection->resume();
    service->accepted.atLeast(1).back()->invalidate();
    service->ended.atLeast(1);
    int runs = 0;
    std::promise<void> gone;
    connection->setInvalidationHandler([&] {
        ++runs;
        gone.set_value();
    });
    gone.get_future().wait();
    connection->setInvalidationHandler([&] { ++runs; });
    EXPECT_EQ(runs, 1);
}

TEST_F(DBusServicesTest, PeerThatTakesNothingIsEnded) {
    std::promise<void> release;
    const auto host = std::make_shared<Recorder>();
    host->hold = release.get_future().share();
    const auto connection = connect();
    connection->setExportedInterface({"TestHostV1", {{"hello", false}, {"bulk:", true}}});
    connection->setExportedObject(host);
    connection->resume();
    const auto accepted = service->accepted.atLeast(1).back();
    accepted->setRemoteObjectInterface({"TestHostV1", {{"bulk:", true}}});
    std::size_t sent = 0;
    while (accepted->send("bulk:", {std::string(1 << 20, 'x')}) && sent < 1000) ++sent;
    EXPECT_LT(sent, 200u);
    EXPECT_EQ(service->ended.atLeast(1).size(), 1u);
    release.set_value();
}

/// A peer that speaks D-Bus by hand.
struct RawPeer {
    explicit RawPeer(const std::string& path) : bus(BusPeer::open(connectSocket(path), BusPeer::Role::client)) {
        EXPECT_TRUE(bus && bus->authenticate(wake));
    }
    /// The error's name, "" for an empty answer.
    std::string call(const BusPeer::Method& method, const char* types, auto... values) {
        const BusMessage message = bus->makeCall(method);
        EXPECT_GE(sd_bus_message_append(message.get(), types, values...), 0);
        sd_bus_error error = SD_BUS_ERROR_NULL;
        const int status = sd_bus_call(bus->get(), message.get(), 20'000'000, &error, nullptr);
        const std::string name = status < 0 && error.name ? error.name : "";
        sd_bus_error_free(&error);
        return name;
    }
    Wake wake;
    std::unique_ptr<BusPeer> bus;
};

TEST_F(DBusServicesTest, WrongMessagesAreDroppedAndTheConnectionStays) {
    RawPeer peer(path());
    const char* object = "/io/brindlemar/FileProvider";
    const std::string interface = "io.brindlemar.TestServiceV1", refused = SD_BUS_ERROR_INVALID_ARGS;
    EXPECT_EQ(peer.call({object, interface, "configureWithConnections"}, "s", "text"), refused);
    EXPECT_EQ(peer.call({object, interface, "configureWithConnections"}, "ai", 1, 7), refused);
    EXPECT_EQ(peer.call({object, interface, "configureWithConnections"}, "ass", 0, "more"), refused);
    EXPECT_EQ(peer.call({object, interface, "refresh"}, "as", 0), refused);
    EXPECT_EQ(peer.call({object, interface, "missing"}, "as", 0), refused);
    EXPECT_EQ(peer.call({object, "io.brindlemar.Other", "refresh"}, ""), refused);
    EXPECT_EQ(peer.call({"/elsewhere", interface, "refresh"}, ""), refused);
    EXPECT_EQ(peer.call({object, interface, "configureWithConnections"}, "as", 2, "a", "b"), "");
    EXPECT_EQ(service->object->inbox.atLeast(1), Strings{"configureWithConnections: a b"});
    EXPECT_EQ(diagnostics.atLeast(7).size(), 7u);
}

TEST_F(DBusServicesTest, GarbageAndSilenceHarmNobody) {
    const std::string garbage = std::string("\0AUTH NONSENSE\r\nBEGIN\r\n", 23) + std::string(100'000, '\xff');
    {
        const auto noisy = connectMany(path(), 200, garbage);
        const auto silent = connectMany(path(), 400, "");
        const auto connection = connect();
        ASSERT_TRUE(connection);
        connection->send("refresh", {});
        connection->resume();
        EXPECT_EQ(service->object->inbox.atLeast(1), Strings{"refresh"});
    }
    listen();
    EXPECT_EQ(service->accepted.atLeast(0).size(), 1u) << "the delegate hears of authenticated peers only";
}

TEST_F(DBusServicesTest, ProcessOfAnotherUserIsRefused) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs a second user id";
    ::chmod(path().c_str(), 0666);
    for (std::string folder = runtime.directory.path(); folder != "/tmp" && folder.size() > 1;
         folder.erase(folder.rfind('/')))
        ::chmod(folder.c_str(), 0711);
    std::thread([&] {
        // The raw call changes this thread only, unlike the library's.
        ASSERT_EQ(::syscall(SYS_setresuid, -1, 65534, -1), 0);
        const FileDescriptor stranger = connectSocket(path());
        EXPECT_FALSE(stranger) << "the listener's user differs from the caller's";
    }).join();
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

} // namespace
} // namespace brindlemar
