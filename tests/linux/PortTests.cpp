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

template <class World>
class Ports : public testing::Test {
protected:
    MessageCallback collecting() {
        return [this](LocalPort&, std::int32_t id, const Payload& data) {
            received.add({id, std::string(data.bytes())});
            return Text();
        };
    }
    static MessageCallback answering(const std::string& text) {
        return [text](auto&&...) { return Text(text); };
    }
    std::shared_ptr<LocalPort> listen(const std::string& name, MessageCallback callback) {
        auto port = world.ours.createLocal(name, std::move(callback));
        if (port) port->setDispatchQueue(world.main);
        return port;
    }
    auto remote(const std::string& name) { return world.theirs.createRemote(name); }
    static auto send(const std::shared_ptr<RemotePort>& port, std::int32_t id, std::string_view data) {
        return port->sendRequest({.msgid = id, .data = data, .sendTimeout = kPatience}).status;
    }
    static auto ask(const std::shared_ptr<RemotePort>& port, std::int32_t id, std::string_view data,
                    std::chrono::nanoseconds limit = kPatience) {
        return port->sendRequest({.msgid = id, .data = data, .sendTimeout = kPatience, .receiveTimeout = limit});
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
    std::vector<std::string> names{"", "..", "/etc/x", "a\0b"s, "a\0c"s, "é|\n~"};
    names.insert(names.end(), {"1" + std::string(40, 's'), "2" + std::string(40, 's'), std::string(70'000, 'n')});
    std::vector<std::shared_ptr<LocalPort>> ports;
    for (const std::string& name : names) {
        EXPECT_FALSE(this->remote(name));
        ports.push_back(this->listen(name, this->answering("port " + name)));
        ASSERT_TRUE(ports.back());
    }
    for (const std::string& name : names)
        EXPECT_EQ(this->ask(this->remote(name), 1, "").answer.bytes(), "port " + name);
}

TYPED_TEST(Ports, BodiesIdsAndAnswersArriveAsSentAndInOrder) {
    auto local = this->listen("p", this->collecting());
    const auto remote = this->remote("p");
    std::vector<Message> sent;
    std::int32_t id = std::numeric_limits<std::int32_t>::min();
    for (const std::size_t size : {0, 1, 65'535, 65'536, 65'537, 5'000'000, 2, 200'000, 0}) {
        std::string body(size, '\0');
        for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<char>(i * 2654435761U >> 13);
        sent.emplace_back(id, std::move(body));
        id = id < 0 ? std::numeric_limits<std::int32_t>::max() : id - 1;
    }
    for (const auto& [msgid, body] : sent) EXPECT_EQ(this->send(remote, msgid, body), 0);
    EXPECT_EQ(this->received.atLeast(sent.size()), sent);
    const auto echo = this->listen("echo", [](LocalPort&, std::int32_t id, const Payload& data) {
        return id == 0 ? Text() : Text(std::string(data.bytes()) + "!");
    });
    const auto asking = this->remote("echo");
    EXPECT_EQ(this->send(asking, 7, "its answer is dropped"), 0);
    const std::string longText(300'000, 'x');
    EXPECT_EQ(this->ask(asking, 0, "none").answer.bytes(), "");
    EXPECT_EQ(this->ask(asking, 7, "seven").answer.bytes(), "seven!");
    EXPECT_EQ(this->ask(asking, 7, longText).answer.bytes(), longText + "!");
}

TYPED_TEST(Ports, WaitingForAnAnswerEndsWithTheTimeOrWithThePort) {
    const auto local = this->world.ours.createLocal("p", [](LocalPort& port, std::int32_t id, const Payload&) {
        if (id == 2) port.invalidate();
        return Text("late");
    });
    const auto remote = this->remote("p");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(this->ask(remote, 1, "x", 20ms).status, SendStatus::receiveTimeout); // no queue yet
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
    local->setDispatchQueue(this->world.main);
    EXPECT_EQ(this->ask(remote, 2, "x", 1h).status, SendStatus::becameInvalid);
    EXPECT_EQ(this->send(remote, 3, "x"), SendStatus::invalid);
}

TYPED_TEST(Ports, LivePortsAreSharedAndADeadRemoteGivesNoneOnce) {
    const auto first = this->listen("p", this->answering("first"));
    EXPECT_EQ(this->world.ours.createLocal("p", this->answering("second")), first);
    const auto remote = this->remote("p");
    EXPECT_EQ(this->remote("p"), remote);
    EXPECT_EQ(this->ask(remote, 1, "").answer.bytes(), "first");
    EXPECT_TRUE(first->isValid() && remote->isValid());
    first->invalidate();
    EXPECT_FALSE(first->isValid() || remote->isValid());
    const auto second = this->listen("p", this->answering("second"));
    EXPECT_FALSE(this->remote("p"));
    const auto fresh = this->remote("p");
    ASSERT_TRUE(second && fresh);
    EXPECT_EQ(this->ask(fresh, 1, "").answer.bytes(), "second");
    const auto other = this->world.occupy("q");
    EXPECT_FALSE(this->listen("q", this->collecting()));
}

TYPED_TEST(Ports, ConcurrentSendersKeepTheirOwnOrderAndWaitForNoQueue) {
    const auto local = this->world.ours.createLocal("p", this->collecting());
    const auto remote = this->remote("p");
    constexpr int senders = 4, each = 1500;
    {
        std::vector<std::jthread> threads;
        for (int s = 0; s < senders; ++s)
            threads.emplace_back([&, s] {
                for (int i = 0; i < each; ++i) EXPECT_EQ(this->send(remote, s, std::to_string(i)), 0);
            });
    }
    EXPECT_TRUE(this->received.atLeast(0).empty());
    local->setDispatchQueue(this->world.main);
    std::vector<int> next(senders);
    const auto all = this->received.atLeast(senders * each);
    ASSERT_EQ(all.size(), std::size_t{senders * each});
    for (const auto& [sender, text] : all) ASSERT_EQ(text, std::to_string(next[sender]++));
}

TYPED_TEST(Ports, ARemotesEndIsToldOnceOnTheMainQueueAndNeverInsideACall) {
    Event told;
    std::thread::id mainThread;
    this->world.main.async([&] { mainThread = std::this_thread::get_id(); });
    const auto local = this->listen("p", this->collecting());
    const auto remote = this->remote("p");
    remote->setInvalidationCallback([&](MessagePort& port) {
        EXPECT_TRUE(&port == remote.get() && !port.isValid() && std::this_thread::get_id() == mainThread);
        port.invalidate();
        told.happen(); // a second time would throw
    });
    local->invalidate();
    ASSERT_TRUE(told.happens());
    this->world.main.async([&] { // the queue's own thread: a call inside would come before the next line
        remote->setInvalidationCallback(this->note(2));
        this->events.add(1);
    });
    EXPECT_EQ(this->events.atLeast(2), (std::vector{1, 2}));
    remote->invalidate();
    Event reached;
    this->world.main.async([&] { reached.happen(); });
    ASSERT_TRUE(reached.happens());
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
    const auto remote = this->remote("p");
    for (int i = 0; i < 10; ++i) ASSERT_EQ(this->send(remote, i, ""), 0);
    // What comes later to another port has been taken off the wire, so this port's messages have, too.
    EXPECT_EQ(this->ask(this->remote("later"), 0, "").status, 0);
    local->invalidate();
    local.reset();
    open.happen();
    EXPECT_EQ(this->events.atLeast(11), (std::vector{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1}));
}

} // namespace
} // namespace brindlemar
