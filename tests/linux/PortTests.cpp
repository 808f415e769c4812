// What every kind of message ports promises, run against the fake and against real sockets.
#include "fakes/FakeMessagePorts.h"
#include "linux/SocketWorld.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

struct FakeWorld {
    QueueTimers timers;
    SerialQueue main{timers, "main"};
    FakeMessagePorts ours{main};
    FakeMessagePorts& theirs = ours;

    auto occupy(const std::string& name) {
        ours.addPeer(name);
        return std::shared_ptr<void>(this, [this, name](void*) { ours.removePeer(name); });
    }
};

using Text = std::optional<std::string>;
using Message = std::pair<std::int32_t, std::string>;

RemotePort::Request oneWay(std::int32_t id, std::string_view data) {
    return {.msgid = id, .data = data, .sendTimeout = kPatience};
}
RemotePort::Request question(std::int32_t id, std::string_view data, std::chrono::nanoseconds limit = kPatience) {
    return {.msgid = id, .data = data, .sendTimeout = kPatience, .receiveTimeout = limit};
}

template <class World>
class Ports : public testing::Test {
protected:
    MessageCallback collecting() {
        return [this](LocalPort&, std::int32_t id, const Payload& data) {
            received.add({id, std::string(data.bytes())});
            return Text();
        };
    }
    std::shared_ptr<LocalPort> listen(const std::string& name, MessageCallback callback) {
        auto port = world.ours.createLocal(name, std::move(callback));
        if (port) port->setDispatchQueue(world.main);
        return port;
    }
    /// Waits until the main queue has run what it holds now.
    void settle() {
        Event reached;
        world.main.async([&] { reached.happen(); });
        ASSERT_TRUE(reached.happens());
    }
    auto note(int number) {
        return [this, number](MessagePort&) { events.add(number); };
    }

    Collected<Message> received;
    Collected<int> events;
    World world; // last: its queues use the above
};
using Worlds = testing::Types<FakeWorld, SocketWorld>;
TYPED_TEST_SUITE(Ports, Worlds);

TYPED_TEST(Ports, AnyNameReachesItsOwnPort) {
    const std::string ending(40, 's');
    const std::string names[] = {"",
                                 "..",
                                 "/etc/x",
                                 "a\0b"s,
                                 "a\0c"s,
                                 "é|\n~",
                                 "1" + ending,
                                 "2" + ending,
                                 std::string(10'000, 'n'),
                                 std::string(70'000, 'n')};
    std::vector<std::shared_ptr<LocalPort>> ports;
    for (const std::string& name : names) {
        EXPECT_FALSE(this->world.theirs.createRemote(name));
        ports.push_back(this->listen(name, [name](auto&&...) { return Text("port " + name); }));
        ASSERT_TRUE(ports.back());
    }
    for (const std::string& name : names) {
        const auto remote = this->world.theirs.createRemote(name);
        ASSERT_TRUE(remote);
        EXPECT_EQ(remote->sendRequest(question(1, "")).answer.bytes(), "port " + name);
    }
}

TYPED_TEST(Ports, BodiesAndIdsArriveAsSentAndInOrder) {
    const auto local = this->listen("p", this->collecting());
    const auto remote = this->world.theirs.createRemote("p");
    std::vector<Message> sent;
    std::int32_t id = std::numeric_limits<std::int32_t>::min();
    for (const std::size_t size : {0, 1, 65'535, 65'536, 65'537, 5'000'000, 2, 200'000, 0}) {
        std::string body(size, '\0');
        for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<char>(i * 2654435761U >> 13);
        sent.emplace_back(id, std::move(body));
        id = id < 0 ? std::numeric_limits<std::int32_t>::max() : id - 1;
    }
    for (const auto& [msgid, body] : sent) EXPECT_EQ(remote->sendRequest(oneWay(msgid, body)).status, 0);
    EXPECT_EQ(this->received.atLeast(sent.size()), sent);
}

TYPED_TEST(Ports, TheCallbacksResultIsTheAnswerWhereOneIsAskedFor) {
    const auto local = this->listen("p", [](LocalPort&, std::int32_t id, const Payload& data) {
        return id == 0 ? Text() : Text(std::string(data.bytes()) + "!");
    });
    const auto remote = this->world.theirs.createRemote("p");
    EXPECT_EQ(remote->sendRequest(oneWay(7, "dropped")).status, 0);
    const std::string longText(300'000, 'x');
    const struct {
        std::int32_t id;
        std::string data, answer;
    } rows[] = {{0, "none", ""}, {7, "seven", "seven!"}, {7, longText, longText + "!"}};
    for (const auto& row : rows) {
        const auto result = remote->sendRequest(question(row.id, row.data));
        EXPECT_EQ(result.status, SendStatus::success);
        EXPECT_EQ(result.answer.bytes(), row.answer);
    }
}

TYPED_TEST(Ports, WaitingForAnAnswerEndsWithTheTimeOrWithThePort) {
    const auto local = this->world.ours.createLocal("p", [](LocalPort& port, std::int32_t id, const Payload&) {
        if (id == 2) port.invalidate();
        return Text("late");
    });
    const auto remote = this->world.theirs.createRemote("p");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(remote->sendRequest(question(1, "x", 20ms)).status, SendStatus::receiveTimeout); // no queue yet
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
    local->setDispatchQueue(this->world.main);
    EXPECT_EQ(remote->sendRequest(question(2, "x")).status, SendStatus::becameInvalid);
    EXPECT_EQ(remote->sendRequest(oneWay(3, "x")).status, SendStatus::invalid);
}

TYPED_TEST(Ports, ALiveRemoteIsSharedAndADeadOneGivesNoneOnce) {
    auto local = this->listen("p", this->collecting());
    const auto remote = this->world.theirs.createRemote("p");
    remote->setInvalidationCallback(this->note(1));
    EXPECT_EQ(this->world.theirs.createRemote("p"), remote);
    EXPECT_TRUE(remote->isValid());
    local->invalidate();
    EXPECT_FALSE(remote->isValid());
    local = this->listen("p", this->collecting());
    EXPECT_FALSE(this->world.theirs.createRemote("p"));
    const auto fresh = this->world.theirs.createRemote("p");
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh, remote);
    EXPECT_EQ(fresh->sendRequest(question(1, "x")).status, 0);
    EXPECT_EQ(this->events.atLeast(1), std::vector{1});
}

TYPED_TEST(Ports, ALocalNameHasOneHolder) {
    const auto first = this->listen("p", [](auto&&...) { return Text("first"); });
    EXPECT_EQ(this->world.ours.createLocal("p", [](auto&&...) { return Text("second"); }), first);
    EXPECT_EQ(this->world.theirs.createRemote("p")->sendRequest(question(1, "")).answer.bytes(), "first");
    first->invalidate();
    EXPECT_FALSE(first->isValid());
    const auto second = this->listen("p", [](auto&&...) { return Text("second"); });
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    const auto other = this->world.occupy("q");
    EXPECT_FALSE(this->listen("q", this->collecting()));
}

TYPED_TEST(Ports, NothingIsHandedOverBeforeAQueueIsSetAndNothingBlocksMeanwhile) {
    const auto local = this->world.ours.createLocal("p", this->collecting());
    const auto remote = this->world.theirs.createRemote("p");
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(remote->sendRequest(oneWay(i, "backlog")).status, 0);
    EXPECT_TRUE(this->received.atLeast(0).empty());
    local->setDispatchQueue(this->world.main);
    const auto all = this->received.atLeast(5000);
    ASSERT_EQ(all.size(), 5000U);
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(all[i].first, i);
}

TYPED_TEST(Ports, ConcurrentSendersKeepTheirOwnOrder) {
    const auto local = this->listen("p", this->collecting());
    const auto remote = this->world.theirs.createRemote("p");
    constexpr int senders = 4, each = 1000;
    {
        std::vector<std::jthread> threads;
        for (int s = 0; s < senders; ++s)
            threads.emplace_back([&, s] {
                for (int i = 0; i < each; ++i) EXPECT_EQ(remote->sendRequest(oneWay(s, std::to_string(i))).status, 0);
            });
    }
    std::vector<int> next(senders);
    const auto all = this->received.atLeast(senders * each);
    ASSERT_EQ(all.size(), std::size_t{senders * each});
    for (const auto& [sender, text] : all) ASSERT_EQ(text, std::to_string(next[sender]++));
}

TYPED_TEST(Ports, ARemotesEndIsToldOnceOnTheMainQueueAndNeverInsideACall) {
    std::shared_ptr<RemotePort> remote;
    Event told;
    std::thread::id mainThread;
    this->world.main.async([&] { mainThread = std::this_thread::get_id(); });
    const auto local = this->listen("p", this->collecting());
    remote = this->world.theirs.createRemote("p");
    remote->setInvalidationCallback([&](MessagePort& port) {
        EXPECT_EQ(&port, remote.get());
        EXPECT_FALSE(port.isValid());
        EXPECT_EQ(std::this_thread::get_id(), mainThread);
        port.invalidate();
        told.happen(); // a second time would throw
    });
    local->invalidate();
    ASSERT_TRUE(told.happens());
    this->settle();

    this->world.main.async([&] { // the queue's own thread: a call inside would come before the next line
        remote->setInvalidationCallback(this->note(2));
        this->events.add(1);
    });
    EXPECT_EQ(this->events.atLeast(2), (std::vector{1, 2}));
    remote->invalidate();
    this->settle();
    EXPECT_EQ(this->events.atLeast(2).size(), 2U);
}

TYPED_TEST(Ports, ALocalsEndIsToldAfterAllThatHadArrivedEvenIfItsOwnerLetsGo) {
    Event open;
    SerialQueue side(this->world.timers, "side");
    const auto later = this->world.ours.createLocal("later", this->collecting());
    later->setDispatchQueue(side);
    auto local = this->listen("p", [&](LocalPort& port, std::int32_t id, const Payload&) {
        if (id == 0) {
            EXPECT_TRUE(open.happens());
            port.setInvalidationCallback(this->note(-1));
        }
        this->events.add(id);
        return Text();
    });
    const auto remote = this->world.theirs.createRemote("p");
    for (int i = 0; i < 10; ++i) ASSERT_EQ(remote->sendRequest(oneWay(i, "")).status, 0);
    // What comes later to another port has been taken off the wire, so this port's messages have, too.
    EXPECT_EQ(this->world.theirs.createRemote("later")->sendRequest(question(0, "")).status, 0);
    local->invalidate();
    local.reset();
    open.happen();
    EXPECT_EQ(this->events.atLeast(11), (std::vector{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1}));
}

TEST(FakePorts, DoWhatTheTestSaysAndRecordIt) {
    FakeWorld world;
    auto& ports = world.ours;
    ports.addPeer("p", [](const FakeMessagePorts::Sent& sent) { return "to " + sent.data; });
    ports.failCreateRemote(2);
    EXPECT_FALSE(ports.createRemote("p"));
    EXPECT_FALSE(ports.createRemote("p"));
    const auto remote = ports.createRemote("p");
    ASSERT_TRUE(remote);
    ports.failSends(1, SendStatus::sendTimeout);
    EXPECT_EQ(remote->sendRequest(oneWay(1, "a")).status, SendStatus::sendTimeout);
    EXPECT_EQ(remote->sendRequest(question(2, "b", 5s)).answer.bytes(), "to b");
    const auto sent = ports.sent();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[1].msgid, 2);
    EXPECT_EQ(sent[1].receiveTimeout, 5s);
    EXPECT_EQ(ports.remoteAttempts(), (std::vector<std::string>{"p", "p", "p"}));

    EXPECT_FALSE(ports.inject("q", 1, "x").valid());
    const auto local = ports.createLocal(
        "q", [](auto&, auto id, auto& data) { return Text(std::to_string(id) + std::string(data.bytes())); });
    local->setDispatchQueue(world.main);
    EXPECT_EQ(ports.inject("q", 4, "2").get(), "42");
    ports.invalidate("q");
    ports.removePeer("p");
    EXPECT_FALSE(local->isValid() || remote->isValid());
}

} // namespace
} // namespace brindlemar
