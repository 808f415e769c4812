#include "fakes/FakePlatform.h"
#include "messaging/BxMessages.h"
#include "messaging/DomainConnection.h"

#include <gtest/gtest.h>

#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

class MessagingTests : public testing::Test {
protected:
    MessagingTests() { platform.ports.addPeer(platform.hostPort("c7")); }
    BxMessages& messages() { return BxMessages::sharedInstance(); }

    /// Gathers results as "text/code", "-" for an absent text, "ok" for no error.
    struct Results {
        std::vector<std::string> list;
        void add(const std::optional<Payload>& reply, const std::optional<NSError>& error) {
            list.push_back((reply ? std::string(reply->bytes()) : "-") + "/" +
                           (error ? std::to_string(error->code) : "ok"));
        }
    } results;
    BxMessages::TextHandler text() {
        return [this](const Payload& reply, const auto& error) { results.add(reply, error); };
    }
    BxMessages::RepeatingTextHandler repeating(std::vector<int> returns) {
        return [this, returns, calls = std::make_shared<std::size_t>(0)](const Payload& reply, const auto& error) {
            results.add(reply, error);
            return returns.at((*calls)++);
        };
    }
    CompletionEntry optional() {
        return [this](const auto& reply, const auto& error) {
            results.add(reply, error);
            return kFinished;
        };
    }
    std::optional<std::string> answer(std::int32_t id, std::string_view reply, std::string_view domain = "c7") {
        auto answered = platform.ports.inject(platform.replyPort(domain), id, reply);
        platform.mainQueue.runAll();
        return answered.get();
    }
    std::string payload(std::size_t index) { return platform.ports.sent().at(index).data; }

    FakePlatform platform;
};

TEST_F(MessagingTests, EveryRequestHasItsPayloadAndItsAnswer) {
    const std::string root(NSFileProviderRootContainerItemIdentifier);
    const Timestamp after(2900ms), before(-2900ms);
    const auto errorOnly = [this](const std::optional<NSError>& error) {
        results.add(std::nullopt, error);
        return kFinished;
    };
    const struct {
        std::function<void()> send;
        std::string payload, result;
    } cases[] = {
        {[&] {
             messages().itemJSON({root, "c7"}, text());
         },
         R"({"command":"itemForIdentifier","identifier":"0"})", "r/ok"},
        {[&] {
             messages().itemJSON({"", "c7"}, text());
         },
         R"({"command":"itemForIdentifier","identifier":""})", "r/ok"},
        {[&] {
             messages().enumerateItemsJSON({"a/\"é", "", "c7"}, text());
         },
         R"({"command":"enumerateItemsJSON","identifier":"a/\"é","from":""})", "r/ok"},
        {[&] {
             messages().enumerateChanges({"anchor", root, "c7"}, text());
         },
         R"({"command":"enumerateDeletedJSON","identifier":"0"})", "r/ok"},
        {[&] {
             messages().pathForIdentifier({root, "c7"}, text());
         },
         R"({"command":"pathForIdentifier","identifier":"0"})", "r/ok"},
        {[&] {
             messages().fetchItem({root, "/t", "c7"}, repeating({0}));
         },
         R"({"command":"fetchItem","identifier":"0","toFolder":"/t"})", "r/ok"},
        {[&] {
             messages().searchBucket({root, "x", "c7"}, repeating({0}));
         },
         R"({"command":"searchBucket","identifier":")" + root + R"(","searchString":"x"})", "r/ok"},
        {[&] {
             messages().updateItem({"i", root, "n", before, "c7"}, optional());
         },
         R"({"command":"updateItem","identifier":"i","parentID":")" + root + R"(","name":"n","mtime":-2})", "r/ok"},
        {[&] {
             messages().uploadItem({"/p", "q", "n", after, "c7"}, optional());
         },
         R"({"command":"uploadItemAtPath","path":"/p","parentID":"q","mtime":"2","name":"n"})", "r/ok"},
        {[&] {
             messages().uploadItem({"/p", "q", "n", std::nullopt, "c7"}, optional());
         },
         R"({"command":"uploadItemAtPath","path":"/p","parentID":"q","mtime":"0","name":"n"})", "r/ok"},
        {[&] {
             messages().deleteItem({root, false, "c7"}, errorOnly);
         },
         R"({"command":"deleteItem","identifier":")" + root + R"(","recursive":"false"})", "-/ok"},
        {[&] {
             messages().deletedItemIDs({"X", "c7"}, [this](const auto& r, const auto& e) { results.add(r, e); });
         },
         "deletedItemIDs:X", "r/ok"},
        {[&] { messages().reconnect("c7", text()); }, R"({"command":"reconnect"})", "r/ok"},
        {[&] { messages().shutdown("c7", text()); }, R"({"command":"shutdown"})", "r/ok"},
        {[&] { messages().status("c7", text()); }, R"({"command":"status"})", "r/ok"},
    };
    std::int32_t id = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.payload);
        c.send();
        platform.settle();
        const auto sent = platform.ports.sent().back();
        EXPECT_EQ(sent.port, "group.io.brindlemar.bxserver.c7");
        EXPECT_EQ(sent.msgid, ++id);
        EXPECT_EQ(sent.data, c.payload);
        EXPECT_EQ(sent.sendTimeout, 3s);
        EXPECT_EQ(sent.receiveTimeout, std::nullopt);
        EXPECT_EQ(answer(id, "r"), std::nullopt);
        platform.settle();
        EXPECT_EQ(results.list, std::vector<std::string>{c.result});
        EXPECT_EQ(answer(id, "late"), "canceled");
        results.list.clear();
    }
    EXPECT_EQ(messages().waitingCount(), 0u);
}

TEST_F(MessagingTests, WhereARequestIsSentFrom) {
    messages().itemJSON({"a", "c7"}, text());
    EXPECT_TRUE(platform.ports.sent().empty()); // the main queue has not run
    messages().deletedItemIDs({"b", "c7"}, [](const auto&, const auto&) {});
    EXPECT_EQ(platform.ports.sent().size(), 1u);
    EXPECT_EQ(platform.ports.sent()[0].msgid, 1);
}

TEST_F(MessagingTests, LogLinesOfRequests) {
    messages().itemJSON({"", "c7"}, text());
    messages().enumerateItemsJSON({"box", "", "c7"}, text());
    messages().uploadItem({"/p", "q", "n", Timestamp(2900ms), "c7"}, optional());
    platform.settle();
    answer(3, "[]");
    platform.settle();
    messages().enumerateChanges({"", "box", "brindlemar"}, text());
    EXPECT_EQ(
        platform.logged(),
        (std::vector<std::string>{"INFO Existing bxserver port found for group.io.brindlemar.bxserver.c7",
                                  "DEBUG Created remote port in bxmessages: group.io.brindlemar.bxclient.c7",
                                  "NOTICE nil item identifier", "DEBUG enumerateItemsJSON starting box",
                                  "INFO uploadItem with mtime /p, 2", "DEBUG enumerateItemsJSON completion block box",
                                  "ERROR enumerateDeletedJSON no port box"}));
    const struct {
        std::function<void()> send;
        std::vector<std::string> lines;
    } failures[] = {
        {[&] {
             messages().itemJSON({"a", "c7"}, text());
         },
         {"ERROR itemJSON couldn't send -1"}},
        {[&] {
             messages().pathForIdentifier({"a", "c7"}, text());
         },
         {"WARNING pathForIdentifier couldn't send -1"}},
        {[&] {
             messages().updateItem({"a", "b", "c", {}, "c7"}, optional());
         },
         {"ERROR updateItem failed for -1"}},
        {[&] {
             messages().uploadItem({"/p", "b", "c", {}, "c7"}, optional());
         },
         {"INFO uploadItem with mtime /p, 0", "INFO uploadItem -1"}},
        {[&] {
             messages().fetchItem({"a", "/t", "c7"}, repeating({0}));
         },
         {}},
    };
    for (const auto& failure : failures) {
        platform.ports.failSends(1, SendStatus::sendTimeout);
        failure.send();
        platform.settle();
        EXPECT_EQ(platform.logged(), failure.lines);
    }
}

TEST_F(MessagingTests, AFailedSendKeepsItsEntryForALaterAnswer) {
    messages().itemJSON({"warm", "c7"}, text());
    platform.settle();
    platform.ports.failSends(1, SendStatus::sendTimeout);
    messages().itemJSON({"a", "c7"}, text());
    platform.settle();
    EXPECT_TRUE(results.list.empty());
    answer(2, "late");
    platform.settle();
    EXPECT_EQ(results.list, std::vector<std::string>{"late/ok"});
}

TEST_F(MessagingTests, AnEntryHearsUntilItHasFinished) {
    messages().fetchItem({"a", "/t", "c7"}, repeating({1, 1, 0, 0}));
    platform.settle();
    answer(1, "10");
    answer(1, "55");
    platform.settle();
    answer(1, "done");
    auto answered = platform.ports.inject(platform.replyPort("c7"), 1, "before removal");
    platform.backgroundQueue.runAll(); // the removal comes after it in the main queue
    platform.settle();
    EXPECT_EQ(answered.get(), std::nullopt);
    EXPECT_EQ(answer(1, "after"), "canceled");
    EXPECT_EQ(results.list, (std::vector<std::string>{"10/ok", "55/ok", "done/ok", "before removal/ok"}));
}

TEST_F(MessagingTests, TheReservedDomainIsRefusedWithoutAWord) {
    messages().itemJSON({"a", "brindlemar"}, text());
    EXPECT_EQ(results.list, std::vector<std::string>{"/-1004"});
    EXPECT_TRUE(platform.ports.remoteAttempts().empty());
    EXPECT_TRUE(platform.logged().empty());
    messages().uploadItem({"/p", "b", "c", {}, "brindlemar"}, optional());
    EXPECT_EQ(results.list.back(), "-/-1004");
}

TEST_F(MessagingTests, AnAbsentHostIsLookedForTenTimes) {
    messages().itemJSON({"a", "gone"}, text());
    EXPECT_EQ(results.list, std::vector<std::string>{"/-1004"});
    EXPECT_EQ(platform.clock.sleeps(), std::vector<std::chrono::nanoseconds>(10, 250ms));
    const auto lines = platform.logged();
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[9], "WARNING failed to create bxserver port for group.io.brindlemar.bxserver.gone");
    EXPECT_EQ(lines[10],
              "ERROR failed to create bxserver port for group.io.brindlemar.bxserver.gone and exhausted retries.");
    EXPECT_FALSE(messages().connected());
}

TEST_F(MessagingTests, APortIsFoundOnceAndReconnectsTheDomainOnce) {
    platform.ports.failCreateRemote(3);
    EXPECT_TRUE(messages().port("c7"));
    EXPECT_TRUE(messages().port("c7"));
    platform.settle();
    EXPECT_EQ(platform.ports.remoteAttempts().size(), 4u);
    EXPECT_TRUE(messages().connected());
    EXPECT_EQ(platform.managerCalls(), std::vector<std::string>{"reconnect"});
}

TEST_F(MessagingTests, OneLookupAtATimeServesAllCallersOfItsDomain) {
    std::promise<void> sleeping, otherServed;
    platform.clock.onSleep([&, first = std::make_shared<std::atomic<bool>>(true)](auto) {
        if (!first->exchange(false)) return;
        sleeping.set_value();
        otherServed.get_future().wait();
    });
    std::vector<std::thread> callers;
    std::atomic<int> missed{0};
    callers.emplace_back([&] { missed += !messages().port("gone"); });
    sleeping.get_future().wait();
    for (int i = 0; i < 3; ++i) callers.emplace_back([&] { missed += !messages().port("gone"); });
    EXPECT_TRUE(messages().port("c7")); // another domain is not held up
    otherServed.set_value();
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(missed, 4);
    EXPECT_EQ(platform.clock.sleeps().size() % 10, 0u);
    EXPECT_LE(platform.clock.sleeps().size(), 40u);
}

TEST_F(MessagingTests, ALostHostFailsEveryWaitingRequestOnce) {
    platform.ports.addPeer(platform.hostPort("h2"));
    messages().itemJSON({"a", "c7"}, text());
    messages().fetchItem({"b", "/t", "h2"}, repeating({1, 1, 1}));
    messages().itemJSON({"finished", "c7"}, text());
    platform.settle();
    answer(3, "in time");
    platform.backgroundQueue.runAll(); // its removal still waits on the main queue
    platform.logged();
    platform.managerCalls();
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(results.list, (std::vector<std::string>{"in time/ok", "/-1004", "/-1004"}));
    EXPECT_EQ(platform.managerCalls(),
              std::vector<std::string>{"disconnect Please Launch Brindlemar to continue syncing. 1"});
    EXPECT_EQ(platform.logged(), std::vector<std::string>{"DEBUG INVALIDATE PORT"});
    EXPECT_EQ(messages().waitingCount(), 0u);
    EXPECT_TRUE(messages().connected()); // h2 is still there
    EXPECT_EQ(answer(2, "late", "h2"), "canceled");

    platform.ports.addPeer(platform.hostPort("c7"));
    messages().itemJSON({"again", "c7"}, text());
    platform.settle();
    EXPECT_EQ(platform.managerCalls(), std::vector<std::string>{"reconnect"});
}

TEST_F(MessagingTests, ARequestOvertakenByTheLossOfItsHostIsStillAnswered) {
    messages().itemJSON({"warm", "c7"}, text());
    platform.settle();
    answer(1, "ok");
    platform.settle();
    platform.ports.removePeer(platform.hostPort("c7")); // its notice is first in the main queue,
    messages().itemJSON({"a", "c7"}, text());           // the send comes after it
    platform.settle();
    EXPECT_EQ(results.list, (std::vector<std::string>{"ok/ok", "/-1004"}));
}

TEST_F(MessagingTests, ALostReplyPortIsMadeAnewWithTheNextHostPort) {
    messages().port("c7");
    platform.settle();
    platform.managerCalls();
    platform.ports.local(platform.replyPort("c7"))->invalidate();
    platform.settle();
    EXPECT_EQ(platform.managerCalls().size(), 1u);
    EXPECT_TRUE(messages().connected());
    EXPECT_FALSE(platform.ports.local(platform.replyPort("c7")));
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    platform.ports.addPeer(platform.hostPort("c7"));
    messages().port("c7");
    EXPECT_TRUE(platform.ports.local(platform.replyPort("c7")));
}

TEST_F(MessagingTests, FailuresOfThePlatformAreLogged) {
    platform.manager->answer.with([](auto& answer) { answer = serverUnreachable(); });
    messages().port("c7");
    platform.settle();
    EXPECT_EQ(platform.logged("WARNING"),
              std::vector<std::string>{"WARNING Failed to reconnect domain: The operation couldn’t be completed. "
                                       "(BrindlemarFileProvider.FileProviderError error 2.)"});
    platform.managers.known.clear();
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(platform.logged("WARNING"),
              std::vector<std::string>{"WARNING Failed to disconnect domain: The operation couldn’t be completed. "
                                       "(BrindlemarFileProvider.FileProviderError error 0.)"});
}

TEST_F(MessagingTests, TextThatIsNotUnicode) {
    bool dropped = false;
    {
        const std::shared_ptr<void> token(nullptr, [&](void*) { dropped = true; });
        messages().itemJSON({"\xff", "c7"},
                            [this, token](const Payload& reply, const auto& error) { results.add(reply, error); });
    }
    platform.settle();
    EXPECT_TRUE(dropped);
    EXPECT_TRUE(platform.ports.sent().empty());
    messages().itemJSON({"a", "c7"}, text());
    platform.settle();
    answer(1, "\xff\xfe");
    platform.settle();
    EXPECT_EQ(results.list, std::vector<std::string>{"/ok"}); // an answer that cannot be read counts as an empty one
}

// Threads on the real order of things: many senders, answers and a lost host at once. Each completion comes once.
TEST_F(MessagingTests, RacesCompleteEachRequestOnce) {
    std::atomic<bool> stop{false};
    std::thread main([&] {
        while (!stop) platform.mainQueue.runOne();
    });
    std::thread pool([&] {
        while (!stop) {
            platform.backgroundQueue.runOne();
            platform.tasks.runOne();
        }
    });
    messages().port("c7");
    constexpr int kSenders = 3, kEach = 200;
    std::vector<std::atomic<int>> completions(kSenders * kEach);
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s)
        senders.emplace_back([&, s] {
            for (int i = 0; i < kEach; ++i)
                messages().itemJSON({"a", "c7"},
                                    [&, n = s * kEach + i](const auto&, const auto&) { ++completions[n]; });
        });
    for (int id = 1; id <= kSenders * kEach / 2; ++id) platform.ports.inject(platform.replyPort("c7"), id, "r");
    for (auto& sender : senders) sender.join();
    platform.ports.removePeer(platform.hostPort("c7"));
    stop = true;
    main.join();
    pool.join();
    platform.settle();
    for (const auto& count : completions) ASSERT_EQ(count, 1);
    EXPECT_EQ(messages().waitingCount(), 0u);
}

TEST(RequestTableTests, IdsStartAgainAfterTheLastAndPassOverWaitingOnes) {
    RequestTable table(2147483646);
    std::vector<std::int32_t> ids;
    for (int i = 0; i < 3; ++i) {
        ids.push_back(table.enter(std::make_shared<WaitingRequest>(CompletionEntry{})));
        table.advance();
    }
    EXPECT_EQ(ids, (std::vector<std::int32_t>{2147483646, 2147483647, 1}));
    table.takeAll();
    EXPECT_EQ(table.count(), 0u);
}

} // namespace
} // namespace brindlemar
