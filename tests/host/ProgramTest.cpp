// The host as a process of its own, between a service played by the test and the ports.
#include "linux/TemporaryRuntime.h"
#include "linux/dbus/Control.h"
#include "linux/dbus/DBusServices.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"
#include "platform/Configuration.h"

#include <spawn.h>
#include <sys/wait.h>

#include <fstream>

namespace brindlemar {
namespace {

using Strings = std::vector<std::string>;

class Program {
public:
    explicit Program(Strings arguments) {
        arguments.insert(arguments.begin(), HOST_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& each : arguments) pointers.push_back(each.data());
        pointers.push_back(nullptr);
        EXPECT_EQ(::posix_spawn(&pid_, HOST_PROGRAM, nullptr, nullptr, pointers.data(), environ), 0);
    }
    ~Program() {
        if (pid_ > 0) end(SIGKILL);
    }
    void signal(int number) { ::kill(pid_, number); }
    /// The exit status; minus the signal when one killed the program.
    int wait() {
        int status = 0;
        EXPECT_EQ(::waitpid(std::exchange(pid_, 0), &status, 0) > 0, true);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end(int number) {
        signal(number);
        return wait();
    }

private:
    pid_t pid_ = 0;
};

/// Takes the configuration of every host that connects.
struct Service : XPCListenerDelegate, XPCExportedObject, std::enable_shared_from_this<Service> {
    bool shouldAcceptNewConnection(XPCListener&, std::shared_ptr<XPCConnection> connection) override {
        connection->setExportedInterface({"BrindlemarServiceV1", {{"configureWithConnections:", true}}});
        connection->setExportedObject(shared_from_this());
        connection->setRemoteObjectInterface({"BrindlemarHostServiceV1", {{"hello", false}}});
        connection->resume();
        return connection->send("hello", {});
    }
    void receive(std::string_view, Strings strings) override { configured.add(strings); }
    Collected<Strings> configured;
};

/// One life of the service: its control socket and its endpoints.
struct RunningService {
    RunningService(const RuntimeDirectory& directory, const std::shared_ptr<Service>& service)
        : xpc(directory, [](std::string_view) {}) {
        ControlHandlers handlers;
        handlers.endpoint = [this, service](std::string name) -> std::optional<std::string> {
            if (name != brindlemarServiceName) return std::nullopt;
            listeners.push_back(xpc.makeAnonymousListener());
            listeners.back()->setDelegate(service);
            listeners.back()->resume();
            return listeners.back()->endpoint().address;
        };
        control = std::get<std::unique_ptr<ControlServer>>(
            ControlServer::start(directory, std::move(handlers), [](std::string_view) {}));
    }
    DBusServices xpc;
    std::vector<std::shared_ptr<XPCListener>> listeners;
    std::unique_ptr<ControlServer> control; // stops first
};

struct ProgramTest : ::testing::Test {
    TemporaryRuntime runtime;
    const std::filesystem::path top = std::filesystem::path(runtime.directory.path()).parent_path() / "files";
    const std::string argument = "Work:c7=" + top.string();
    ProgramTest() {
        std::filesystem::create_directory(top);
        std::ofstream(top / "a.txt") << "abc";
    }
};

TEST_F(ProgramTest, ConfiguresEachLifeOfTheServiceAndAnswersOnItsPorts) {
    Program host({argument, "Home=" + top.string(), "--hold", "itemForIdentifier"});
    const auto service = std::make_shared<Service>();
    const Strings expected{"Work|c7", "Home|home"};
    for (std::size_t life = 1; life <= 2; ++life) {
        const RunningService running(runtime.directory, service);
        EXPECT_EQ(service->configured.atLeast(life), std::vector<Strings>(life, expected));
    }

    QueueTimers timers;
    SerialQueue queue(timers, "test");
    SocketMessagePorts ports(RuntimeDirectory::open(), queue, [](std::string_view) {});
    Collected<std::string> replies;
    const auto reply =
        ports.createLocal("group.io.brindlemar.bxclient.c7", [&](LocalPort&, std::int32_t msgid, const Payload& data) {
            replies.add(std::to_string(msgid) + " " + std::string(data.bytes()));
            return std::optional<std::string>();
        });
    reply->setDispatchQueue(queue);
    const auto requests = ports.createRemote("group.io.brindlemar.bxserver.c7");
    ASSERT_TRUE(requests);
    Collected<int> gone;
    requests->setInvalidationCallback([&](MessagePort&) { gone.add(1); });
    const auto send = [&](std::int32_t msgid, std::string_view text) {
        EXPECT_EQ(requests->sendRequest({.msgid = msgid, .data = text, .sendTimeout = std::chrono::seconds(3)}).status,
                  0);
    };
    send(6, R"({"command":"itemForIdentifier","identifier":"a.txt"})"); // held
    send(-7, R"({"command":"enumerateItemsJSON","identifier":"0","from":""})");
    EXPECT_EQ(replies.atLeast(1).front().substr(0, 36), R"(-7 [{"name":"a.txt","size":3,"folder)");
    EXPECT_EQ(host.end(SIGTERM), 0);
    EXPECT_EQ(gone.atLeast(1).size(), 1u);
    EXPECT_EQ(replies.atLeast(0).size(), 1u);
}

TEST_F(ProgramTest, EndsWithTheStatusThatSaysWhy) {
    EXPECT_EQ(Program({"--help"}).wait(), 0);
    EXPECT_EQ(Program({}).wait(), 2);
    EXPECT_EQ(Program({"Work"}).wait(), 2);
    EXPECT_EQ(Program({argument, "--unknown"}).wait(), 2);
    EXPECT_EQ(Program({"Work=" + top.string() + "/missing"}).wait(), 3);
    EXPECT_EQ(Program({"Work=" + top.string() + "/a.txt"}).wait(), 3);

    Program first({argument});
    const auto service = std::make_shared<Service>();
    const RunningService running(runtime.directory, service);
    service->configured.atLeast(1);
    EXPECT_EQ(Program({argument}).wait(), 1) << "the domain is served already";
    EXPECT_EQ(first.end(SIGINT), 130);
}

} // namespace
} // namespace brindlemar
