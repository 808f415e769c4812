// Peers that break the rules harm their own connection and nothing else.
#include "linux/RawPeer.h"
#include "linux/SocketWorld.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <linux/securebits.h>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;
using Text = std::optional<std::string>;

std::size_t openDescriptors() {
    const auto files = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

class PortAttacks : public testing::Test {
protected:
    PortAttacks() : before_(openDescriptors()) {}
    void TearDown() override {
        local_.reset();
        world.reset();
        EXPECT_EQ(openDescriptors(), before_) << "descriptors leaked";
    }
    std::shared_ptr<LocalPort>& listen() {
        local_ = world->ours.createLocal("p", [this](LocalPort&, std::int32_t id, const Payload& data) {
            received.add(data.bytes().size());
            return id == 99 ? Text("alive") : Text();
        });
        if (local_) local_->setDispatchQueue(world->main);
        return local_;
    }
    RawSocket greeted() {
        RawSocket socket = RawSocket::connected(world->directory, "p");
        EXPECT_TRUE(socket.greet("p"));
        return socket;
    }
    /// A listener played by the test, on a thread of its own, with the first sender that greets it.
    std::jthread serve(const std::string& name, std::function<void(RawSocket&)> body) {
        const auto listener = std::make_shared<RawSocket>(RawSocket::listening(world->directory, name));
        return std::jthread([name, body, listener] {
            RawSocket peer = listener->accept();
            EXPECT_TRUE(peer.greet(name));
            body(peer);
        });
    }
    /// The port still serves whoever keeps to the rules.
    void expectAlive() {
        const auto remote = world->theirs.createRemote("p");
        ASSERT_TRUE(remote);
        EXPECT_EQ(remote->sendRequest({99, "x", kPatience, kPatience}).answer.bytes(), "alive");
    }
    void expectComplaint(std::string_view part) {
        const auto all = world->complaints.atLeast(++complaints_);
        ASSERT_EQ(all.size(), complaints_) << part;
        EXPECT_NE(all.back().find(part), std::string::npos) << all.back();
    }
    std::string path() const { return world->directory.path() + "/" + portFileName("p"); }

private:
    const std::size_t before_;
    std::size_t complaints_ = 0;
    std::shared_ptr<LocalPort> local_;

protected:
    Collected<std::size_t> received; // body sizes
    std::unique_ptr<SocketWorld> world = std::make_unique<SocketWorld>();
};

TEST_F(PortAttacks, APacketThatBreaksARuleClosesItsConnectionOnly) {
    listen();
    const FileDescriptor good = rawMemory(70'000), half = rawMemory(70'000, F_SEAL_SHRINK | F_SEAL_GROW),
                         file(::open(world->directory.path().c_str(), O_RDONLY | O_TMPFILE | O_RDWR, 0600)),
                         directory(::open("/", O_RDONLY | O_CLOEXEC));
    const int memory = good.get();
    const RawPacket inMemory{.flags = 2, .length = 70'000};
    struct Row {
        const char* complaint;
        RawPacket packet;
        std::vector<int> descriptors{};
        std::size_t size = std::string::npos;
    };
    std::vector<Row> rows = {{"shorter than a header", {}, {}, 15},
                             {"protocol version", {.version = 2}},
                             {"kind", {.kind = 1, .body = "p"}}, // a second hello
                             {"kind", {.kind = 3}},              // an answer to nobody
                             {"unknown flags", {.flags = 4}},
                             {"reserved byte", {.zero = 1}},
                             {"not its body's", {.length = 3, .body = "four"}},
                             {"not its body's", {.length = 1ULL << 63, .body = "four"}},
                             {"longer than any", {.body = std::string(65'537, 'x')}},
                             {"descriptors", inMemory},
                             {"descriptors", {.body = "x"}, {memory}},
                             {"descriptors", inMemory, {memory, memory}},
                             {"descriptors", inMemory, std::vector<int>(9, memory)},
                             {"both", {.flags = 2, .body = "x"}, {memory}},
                             {"absurd", {.flags = 2, .length = 0}, {memory}},
                             {"absurd", {.flags = 2, .length = ~0ULL}, {memory}},
                             {"shorter than its body", {.flags = 2, .length = 70'001}, {memory}},
                             {"not sealed", inMemory, {half.get()}},
                             {"memory file", inMemory, {file.get()}},
                             {"no memory file", inMemory, {directory.get()}}};
    const FileDescriptor huge = rawMemory(std::size_t{2} << 20, sealed, MFD_HUGETLB); // not every system has these
    if (huge) rows.push_back({"ordinary pages", inMemory, {huge.get()}});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.complaint);
        RawSocket bystander = greeted(), attacker = greeted();
        ASSERT_TRUE(attacker.send(row.packet.bytes().substr(0, row.size), row.descriptors));
        EXPECT_TRUE(attacker.closedByPeer());
        expectComplaint(row.complaint);
        ASSERT_TRUE(bystander.send(RawPacket{.flags = 1, .id = 99}.bytes()));
        EXPECT_EQ(bystander.receive(), (RawPacket{.kind = 3, .id = 99, .body = "alive"}.bytes()));
    }
    EXPECT_EQ(received.atLeast(0).size(), rows.size()); // the bystanders' only
}

TEST_F(PortAttacks, NeitherSideGoesOnWithoutARightHello) {
    const struct {
        const char* complaint;
        std::optional<RawPacket> hello{}; // silence without one
    } rows[] = {{"another name", RawPacket::hello("q")},
                {"another name", RawPacket::hello("")},
                {"another name", RawPacket::hello({"p\0", 2})},
                {"kind", RawPacket{.body = "p"}},
                {"version", RawPacket{.version = 9, .kind = 1, .body = "p"}},
                {"message id", RawPacket{.kind = 1, .id = 1, .body = "p"}},
                {"cannot want", RawPacket{.kind = 1, .flags = 1, .body = "p"}},
                {"silent"}};
    listen();
    const auto attack = [&](RawSocket attacker, const std::optional<RawPacket>& hello) {
        EXPECT_TRUE(!hello || attacker.send(hello->bytes()));
        EXPECT_TRUE(attacker.closedByPeer());
    };
    for (const auto& [complaint, hello] : rows) {
        SCOPED_TRACE(complaint);
        attack(RawSocket::connected(world->directory, "p"), hello);
        expectComplaint(complaint);
    }
    RawSocket::connected(world->directory, "p").close(); // without a word: this is how a name is probed
    expectAlive();
    listen()->invalidate();
    for (const auto& [complaint, hello] : rows) {
        SCOPED_TRACE(complaint);
        RawSocket listener = RawSocket::listening(world->directory, "p");
        std::jthread serving([&, answer = hello] {
            RawSocket peer = listener.accept();
            EXPECT_EQ(peer.receive(), RawPacket::hello("p").bytes());
            attack(std::move(peer), answer);
        });
        EXPECT_FALSE(world->ours.createRemote("p"));
        expectComplaint(complaint);
        std::filesystem::remove(path());
    }
    RawSocket full = RawSocket::listening(world->directory, "p", 0); // nobody accepts
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(world->ours.createRemote("p"));
}

TEST_F(PortAttacks, AnswersOfAPeerThatClosesWithUnreadMessagesAreNotLost) {
    std::shared_ptr<RemotePort> remote;
    const auto serving = serve("p", [&](RawSocket& peer) {
        EXPECT_EQ(peer.receive(), (RawPacket{.flags = 1, .id = 1, .body = "q"}.bytes()));
        EXPECT_EQ(remote->sendRequest({2, "never read", kPatience}).status, 0);
        EXPECT_TRUE(peer.send(RawPacket{.kind = 3, .id = 8, .body = "asked by nobody"}.bytes()));
        EXPECT_TRUE(peer.send(RawPacket{.kind = 3, .id = 1, .body = "a"}.bytes()));
    });
    remote = world->ours.createRemote("p");
    ASSERT_TRUE(remote);
    const auto result = remote->sendRequest({1, "q", kPatience, kPatience});
    EXPECT_EQ(result.status, SendStatus::success);
    EXPECT_EQ(result.answer.bytes(), "a");
}

TEST_F(PortAttacks, WhatAProcessSentComesBeforeItsEnd) {
    Event blocked, release, ended;
    listen();
    RawSocket sender = greeted(), attacker = greeted();
    const auto serving = serve("q", [&](RawSocket&) { EXPECT_TRUE(blocked.happens()); });
    const auto remote = world->ours.createRemote("q");
    ASSERT_TRUE(remote);
    std::size_t before = 0;
    remote->setInvalidationCallback([&](auto&) {
        before = received.atLeast(0).size();
        ended.happen();
    });
    world->onComplaint = [&] {
        blocked.happen();
        EXPECT_TRUE(release.happens());
    };
    ASSERT_TRUE(attacker.send("x") && blocked.happens());
    while (remote->isValid()) std::this_thread::yield();         // its process has closed it,
    ASSERT_TRUE(sender.send(RawPacket{.body = "sent"}.bytes())); // and what it sent elsewhere is seen only now
    release.happen();
    ASSERT_TRUE(ended.happens());
    EXPECT_EQ(before, 1U);
}

TEST_F(PortAttacks, AListenerThatDoesNotReadCostsTheSendersTimeOnly) {
    Event done;
    const auto serving = serve("p", [&](RawSocket&) { EXPECT_TRUE(done.happens()); });
    const auto remote = world->ours.createRemote("p");
    ASSERT_TRUE(remote);
    const std::string body(60'000, 'x');
    std::int32_t status = 0;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000 && status == 0; ++i) {
        start = std::chrono::steady_clock::now();
        status = remote->sendRequest({i, body, 30ms}).status;
    }
    EXPECT_EQ(status, SendStatus::sendTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_EQ(remote->sendRequest({1, {body.data(), kBodyLimit + 1}, 30ms}).status, SendStatus::transportError);
    done.happen();
}

TEST_F(PortAttacks, AFloodWaitsInMemoryAndHoldsUpNobody) {
    Event release;
    SerialQueue slow(world->timers, "slow");
    slow.async([&] { EXPECT_TRUE(release.happens()); });
    Collected<std::int32_t> ids;
    const auto flooded =
        world->ours.createLocal("flooded", [&](auto&, std::int32_t id, auto&) { return ids.add(id), Text(); });
    flooded->setDispatchQueue(slow);
    RawSocket flood = RawSocket::connected(world->directory, "flooded");
    ASSERT_TRUE(flood.greet("flooded"));
    for (std::uint32_t id = 0; id < 10'000; ++id) ASSERT_TRUE(flood.send(RawPacket{.id = id, .body = "x"}.bytes()));
    listen();
    expectAlive();
    release.happen();
    const auto all = ids.atLeast(10'000);
    EXPECT_TRUE(all.size() == 10'000 && std::is_sorted(all.begin(), all.end()));
    RawSocket greedy = greeted(); // asks and does not read
    while (greedy.send(RawPacket{.flags = 1, .id = 99}.bytes())) {
    }
    expectComplaint("does not read");
    expectAlive();
}

TEST_F(PortAttacks, WithoutDescriptorsConnectionsWaitAndNobodySpins) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors themselves to look at memory";
#endif
    listen();
    RawSocket waiting;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit low{std::min<rlim_t>(before.rlim_max, openDescriptors() + 16), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    {
        std::vector<FileDescriptor> taken;
        do taken.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        while (taken.back());
        const PortAddress address(world->directory, portFileName("p"));
        ASSERT_EQ(::connect(waiting.get(), address.get(), address.size), 0);
        expectComplaint("cannot accept");
        const std::clock_t start = std::clock(); // of the processor
        pollfd nothing{waiting.get(), POLLIN, 0};
        EXPECT_EQ(::poll(&nothing, 1, 250), 0); // two more attempts
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10);
        EXPECT_EQ(world->complaints.atLeast(1).size(), 1U);
    }
    EXPECT_TRUE(waiting.greet("p"));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(PortAttacks, OnlyADeadPeersSocketIsRemoved) {
    RawSocket::listening(world->directory, "p").close(); // leaves its file behind, as a crash does
    EXPECT_TRUE(std::filesystem::is_socket(path()) && listen());
    expectAlive();
    listen()->invalidate();
    EXPECT_FALSE(std::filesystem::exists(path()));
    std::ofstream(path()) << "a user's file";
    EXPECT_FALSE(listen());
    expectComplaint("taken");
    EXPECT_TRUE(std::filesystem::remove(path()));
    RawSocket busy = RawSocket::listening(world->directory, "p"); // accepts nobody
    EXPECT_FALSE(listen());
    EXPECT_TRUE(std::filesystem::is_socket(path()));
}

TEST_F(PortAttacks, AnotherUserIsRefused) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
    listen();
    std::jthread([&] { // the bare system calls change this thread only, and it keeps its way into the directory
        ASSERT_EQ(::prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP), 0);
        ASSERT_EQ(::syscall(SYS_setresuid, -1, 65534, -1), 0);
        EXPECT_TRUE(RawSocket::connected(world->directory, "p").closedByPeer());
        EXPECT_FALSE(world->theirs.createRemote("p"));
    })
        .join();
    const auto all = world->complaints.atLeast(2);
    for (const auto& complaint : all) EXPECT_NE(complaint.find("another user"), std::string::npos) << complaint;
}

} // namespace
} // namespace brindlemar
