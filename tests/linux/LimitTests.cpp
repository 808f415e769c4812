// What peers can use up has a bound, and whoever keeps to the rules is served all the same.
#include "linux/Diagnostic.h"
#include "linux/RawPeer.h"
#include "linux/SocketWorld.h"
#include "linux/dbus/Control.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

struct Limits : testing::Test {
    Event busy, free;
    SocketWorld world;
    SocketMessagePorts ours{RuntimeDirectory::open(), world.main, [&](std::string_view text) {
                                if (text.find("shorter") == text.npos) return world.complaints.add(std::string(text));
                                busy.happen(), free.happens();
                                throw std::bad_alloc(); // on the poller's thread
                            }};
    std::shared_ptr<LocalPort> local = ours.createLocal("p", [](auto&&...) { return "answer"; });

    RawSocket greeted(bool greets = true) {
        RawSocket socket = RawSocket::connected(world.directory, "p");
        EXPECT_TRUE(!greets || socket.greet("p"));
        return socket;
    }
    static std::string ask(const std::shared_ptr<RemotePort>& port) {
        return std::string(port->sendRequest({1, "", kPatience, kPatience}).answer.bytes());
    }
};

TEST_F(Limits, ConnectionsThatSendNothingGiveWayToOthers) {
    local->setDispatchQueue(world.main);
    const auto early = world.theirs.createRemote("p");
    EXPECT_EQ(ask(early), "answer");
    std::vector<RawSocket> idle;
    for (int i = 0; i < 300; ++i) idle.push_back(greeted(i % 3 != 0));
    EXPECT_TRUE(idle.front().closedByPeer());
    EXPECT_EQ(ask(early), "answer");
    idle.erase(idle.begin(), idle.end() - 1); // one that has sent nothing, and now a process that floods
    const pid_t flood = ::fork();
    if (flood == 0) {
        for (int i = 0; i < 300; ++i) static_cast<void>(new RawSocket(greeted(false)));
        for (;;) ::pause();
    }
    world.complaints.atLeast(173 + 173);
    EXPECT_TRUE(idle.back().send(RawPacket{.flags = 1}.bytes()) && !idle.back().receive().empty());
    ::kill(flood, SIGKILL);
    ::waitpid(flood, nullptr, 0);
    EXPECT_EQ(ask(world.ours.createRemote("p")), "answer");
}

TEST_F(Limits, BodiesThatWaitUseUpAFewOfTheMappingsOfAProcess) {
    const FileDescriptor memory = rawMemory(70'000);
    for (const std::uint64_t length : {10, 70'000}) { // short ones are copied
        RawSocket sender = greeted();
        int sent = 0;
        while (sent < 5'000 && sender.send(RawPacket{.flags = 2, .length = length}.bytes(), {memory.get()})) ++sent;
        EXPECT_EQ(sent == 5'000, length == 10) << sent;
    }
    EXPECT_NE(world.complaints.atLeast(1).at(0).find("cannot be mapped"), std::string::npos);
}

TEST_F(Limits, AListenerThatIsStuckCostsItsSendersOneWait) {
    RawSocket listener = RawSocket::listening(world.directory, "host"), peer;
    std::jthread other([&] { (peer = listener.accept()).greet("host"); });
    const auto remote = ours.createRemote("host");
    other.join();
    const std::string body(60'000, 'x');
    const auto send = [&](std::chrono::nanoseconds limit) { return remote->sendRequest({1, body, limit}).status; };
    while (send(20ms) == SendStatus::success) continue;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(send(kPatience), SendStatus::sendTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience);
    while (send(0ms) != SendStatus::success) peer.receive();
    other = std::jthread([&] {
        while (!peer.receive().empty()) continue;
    });
    for (int i = 0; i < 100; ++i) EXPECT_EQ(send(kPatience), SendStatus::success) << "waits again";
    remote->invalidate();
}

TEST_F(Limits, ASearchForALostListenerLosesNoneOfItsAnswersNorThePollersThread) {
    local->setDispatchQueue(world.main);
    RawSocket listener = RawSocket::listening(world.directory, "host"), attacker = greeted();
    std::jthread serving([&] {
        RawSocket peer = listener.accept();
        EXPECT_TRUE(peer.greet("host") && !peer.receive().empty());
        EXPECT_TRUE(attacker.send("x") && busy.happens()); // holds up the poller
        EXPECT_TRUE(peer.send(RawPacket{.kind = 3, .id = 1, .body = "last"}.bytes()));
    });
    const auto remote = ours.createRemote("host");
    std::jthread searching([&] {
        serving.join();
        EXPECT_FALSE(ours.createRemote("host"));
        free.happen();
    });
    EXPECT_EQ(ask(remote), "last");
    EXPECT_TRUE(attacker.closedByPeer());
    EXPECT_EQ(ask(world.theirs.createRemote("p")), "answer");
}

TEST_F(Limits, ControlClientsNeitherKeepOthersOutNorCallWithoutEnd) {
    std::vector<std::shared_ptr<void>> calls; // under way
    ControlHandlers handlers;
    handlers.call = [&](auto&&, auto&&, CallOutput output) { calls.push_back(std::move(output.place)); };
    auto server = ControlServer::start(world.directory, std::move(handlers), [](auto) {});
    std::vector<std::optional<ControlClient>> idle(200);
    for (auto& client : idle) EXPECT_TRUE(client = ControlClient::connect(world.directory));
    for (int i = 0; i < 1024; ++i) EXPECT_TRUE(idle.back()->call("item", "x"));
    EXPECT_FALSE(idle.back()->call("item", "x"));
    EXPECT_EQ(idle.back()->error(), "too many calls are under way");
    EXPECT_TRUE(ControlClient::connect(world.directory)->call("item", "x"));
    server = {};
}

TEST(Diagnostics, AreFiveOfAKindASecondAndACount) {
    Collected<std::string> said;
    QueueTimers timers;
    const Diagnostic diagnostic = limited([&](std::string_view text) { said.add(std::string(text)); }, timers);
    for (int i = 0; i < 100; ++i) diagnostic("port a: " + std::to_string(i));
    diagnostic("port b: one");
    std::size_t all = 0;
    for (const std::string& line : said.atLeast(7)) all += line[0] == 'p' ? 1 : std::stoul(line);
    EXPECT_EQ(all, 101U);
}

} // namespace
} // namespace brindlemar
