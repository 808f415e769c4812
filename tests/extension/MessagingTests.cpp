#include "fakes/FakePlatform.h"

#include <gtest/gtest.h>

#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

class MessagingTests : public testing::Test {
protected:
    MessagingTests() { platform.ports.addPeer(platform.hostPort("c7")); }
    /// Every completion as "text/code", "-" for an absent text, "ok" for no error.
    Strings results;
    void add(const std::optional<Payload>& reply, const std::optional<NSError>& error) {
        results.push_back((reply ? std::string(reply->bytes()) : "-") + "/" +
                          (error ? std::to_string(error->code) : "ok"));
    }
    BxMessages::TextHandler text() {
        return [this](const Payload& reply, const auto& error) { add(reply, error); };
    }
    /// Wants to hear again so many times.
    CompletionEntry entry(int again = 0) {
        return [this, again](const auto& reply, const auto& error) mutable {
            add(reply, error);
            return again-- > 0 ? 1 : kFinished;
        };
    }
    void ask(const std::string& identifier, const std::string& domain = "c7") {
        messages.itemJSON({identifier, domain}, text());
    }
    void askAndSettle(const std::string& identifier) { ask(identifier), platform.settle(); }
    std::optional<std::string> answer(std::int32_t id, std::string_view reply, const std::string& domain = "c7") {
        auto answered = platform.ports.inject(platform.replyPort(domain), id, reply);
        platform.mainQueue.runAll();
        return answered.get();
    }
    FakePlatform platform;
    BxMessages& messages = BxMessages::sharedInstance();
};

TEST_F(MessagingTests, EveryRequestHasItsPayloadAndItsAnswer) {
    const std::string root(NSFileProviderRootContainerItemIdentifier);
    std::int32_t id = 0;
    const auto check = [&](const std::string& payload, const std::string& result = "r/ok") {
        SCOPED_TRACE(payload);
        platform.settle();
        const auto sent = platform.ports.sent().back();
        EXPECT_EQ(sent.port, "group.io.brindlemar.bxserver.c7");
        EXPECT_EQ(sent.msgid, ++id);
        EXPECT_EQ(sent.data, payload);
        EXPECT_EQ(sent.sendTimeout, 3s);
        EXPECT_EQ(sent.receiveTimeout, std::nullopt);
        EXPECT_EQ(answer(id, "r"), std::nullopt);
        platform.settle();
        EXPECT_EQ(results, Strings{result});
        EXPECT_EQ(answer(id, "late"), "canceled");
        EXPECT_EQ(messages.waitingCount(), 0u);
        results.clear();
    };
    messages.itemJSON({root, "c7"}, text());
    check(R"({"command":"itemForIdentifier","identifier":"0"})");
    messages.enumerateItemsJSON({"a/\"é", "", "c7"}, text());
    check(R"({"command":"enumerateItemsJSON","identifier":"a/\"é","from":""})");
    messages.enumerateChanges({"anchor", root, "c7"}, text());
    check(R"({"command":"enumerateDeletedJSON","identifier":"0"})");
    messages.pathForIdentifier({root, "c7"}, text());
    check(R"({"command":"pathForIdentifier","identifier":"0"})");
    messages.fetchItem({root, "/t", "c7"}, entry());
    check(R"({"command":"fetchItem","identifier":"0","toFolder":"/t"})");
    messages.searchBucket({root, "x", "c7"}, entry());
    check(R"({"command":"searchBucket","identifier":")" + root + R"(","searchString":"x"})");
    messages.updateItem({"i", root, "n", Timestamp(-2900ms), "c7"}, entry());
    check(R"({"command":"updateItem","identifier":"i","parentID":")" + root + R"(","name":"n","mtime":-2})");
    messages.uploadItem({"/p", "q", "n", Timestamp(2900ms), "c7"}, entry());
    check(R"({"command":"uploadItemAtPath","path":"/p","parentID":"q","mtime":"2","name":"n"})");
    messages.uploadItem({"/p", "q", "n", std::nullopt, "c7"}, entry());
    check(R"({"command":"uploadItemAtPath","path":"/p","parentID":"q","mtime":"0","name":"n"})");
    messages.deleteItem({root, false, "c7"}, [this](const auto& error) {
        add(std::nullopt, error);
        return kFinished;
    });
    check(R"({"command":"deleteItem","identifier":")" + root + R"(","recursive":"false"})", "-/ok");
    messages.deletedItemIDs({"X", "c7"}, [this](const auto& reply, const auto& error) { add(reply, error); });
    check("deletedItemIDs:X");
    messages.reconnect("c7", text()), check(R"({"command":"reconnect"})");
    messages.shutdown("c7", text()), check(R"({"command":"shutdown"})");
    messages.status("c7", text()), check(R"({"command":"status"})");
    messages.itemJSON({"a", "c7"}, text());
    EXPECT_EQ(platform.ports.sent().size(), 14u); // waits for the main queue
    messages.status("c7", text());
    EXPECT_EQ(platform.ports.sent().size(), 15u); // sent by its caller
}

/// A text of one character, or a switch.
template <auto Value>
auto value() {
    if constexpr (std::is_same_v<decltype(Value), bool>)
        return Value;
    else
        return std::string(1, Value);
}

template <auto Method, auto... Values>
void call(BxMessages& messages, const std::string& id, BxMessages::TextHandler handler) {
    (messages.*Method)({id, value<Values>()..., "c7"}, std::move(handler));
}

TEST_F(MessagingTests, AdministrationAsWrittenByHand) {
    const std::string root(NSFileProviderRootContainerItemIdentifier);
    using M = BxMessages;
    const struct {
        void (*ask)(BxMessages&, const std::string& id, BxMessages::TextHandler);
        std::string command, more;
        bool onMainQueue, mapsRoot = true;
    } rows[] = {
        {call<&M::getACL>, "getACL", "", true},
        {call<&M::getBucketPolicy>, "getBucketPolicy", "", true},
        {call<&M::setBucketPolicy, 'P'>, "setBucketPolicy", R"(,"policy":"P")", false},
        {call<&M::getBucketReplication>, "getBucketReplication", "", true},
        {call<&M::setBucketReplication, 'R'>, "setBucketReplication", R"(,"replication":"R")", false},
        {call<&M::getBucketCORS>, "getBucketCORS", "", true},
        {call<&M::setBucketCORS, 'C'>, "setBucketCORS", R"(,"cors":"C")", false},
        {call<&M::getBucketLifecycle>, "getBucketLifecycle", "", true},
        {call<&M::setBucketLifecycle, 'L'>, "setBucketLifecycle", R"(,"lifecycle":"L")", false},
        {call<&M::getBucketVersioning>, "getBucketVersioning", "", true},
        {call<&M::setBucketVersioning, false>, "setBucketVersioning", R"(,"enable":false)", false},
        {call<&M::getBucketAcceleration>, "getBucketAcceleration", "", true},
        {call<&M::setBucketAcceleration, true>, "setBucketAcceleration", R"(,"enable":true)", false},
        {call<&M::getBucketEncryption>, "getBucketEncryption", "", true},
        {call<&M::setBucketEncryption, 'T', 'K'>, "setBucketEncryption",
         R"(,"encryptionType":"T","encryptionKeyID":"K")", true},
        {call<&M::getBucketLogging>, "getBucketLogging", "", true},
        {call<&M::signURL>, "signURL", "", false},
        {call<&M::getObjectMetadata>, "getObjectMetadata", "", true},
        {call<&M::getObjectURL, '6'>, "getObjectURL", R"(,"expiration":"6")", true},
        {call<&M::initiateGlacierRestore, 'B', '3'>, "initiateGlacierRestore", R"(,"tier":"B","days":"3")", true},
        {call<&M::setObjectEncryption, 'T', 'K'>, "setObjectEncryption",
         R"(,"encryptionType":"T","encryptionKeyID":"K")", false},
        {call<&M::setObjectStorageClass, 'G'>, "setObjectStorageClass", R"(,"storageClass":"G")", false},
        {call<&M::listKMS>, "listKMS", "", true, false},
        {call<&M::listKMSKeys>, "listKMSKeys", "", false, false},
        {[](M& messages, const auto&, auto handler) {
             messages.createBucket({"N", "R", "c7"}, handler);
         },
         "createBucket", R"(,"name":"N","region":"R")", false, false},
    };
    EXPECT_EQ(std::size(rows), kAdminRequests.size());
    std::int32_t id = 0;
    for (const auto& row : rows) {
        const std::string sent = row.mapsRoot ? "0" : root;
        const std::string identifier = row.command == "createBucket" ? "" : R"(,"identifier":")" + sent + R"(")";
        row.ask(messages, root, text());
        ASSERT_EQ(platform.ports.sent().size(), static_cast<std::size_t>(++id)); // sent before the call returned
        EXPECT_EQ(platform.ports.sent().back().data,
                  R"({"command":")" + row.command + R"(")" + identifier + row.more + "}");
        answer(id, "as it stands");
        platform.backgroundQueue.runAll();
        EXPECT_EQ(results.empty(), row.onMainQueue) << row.command;
        platform.settle();
        EXPECT_EQ(std::exchange(results, {}), Strings{"as it stands/ok"}) << row.command;
        row.ask(messages, "x", [&](const Payload& reply, const auto& error) { add(reply, error); });
        ++id;
    }
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(std::exchange(results, {}), Strings(std::size(rows), "/-1004"));
    for (const auto& row : rows) row.ask(messages, "x", text()); // at once, on this thread, whatever the delivery
    EXPECT_EQ(std::exchange(results, {}), Strings(std::size(rows), "/-1004"));
    EXPECT_EQ(messages.getBuckets("c7", text()), serverUnreachable());
    platform.ports.addPeer(platform.hostPort("c7"));
    platform.logged();
    messages.getACL({"\xff", "c7"}, text());
    EXPECT_EQ(platform.logged("ERROR"),
              Strings{"ERROR The operation couldn’t be completed. (NSCocoaErrorDomain error 4866.)"});
    EXPECT_TRUE(results.empty());
}

TEST_F(MessagingTests, LogLinesOfRequests) {
    ask("");
    messages.enumerateItemsJSON({"box", "", "c7"}, text());
    platform.settle();
    messages.enumerateChanges({"", "box", "brindlemar"}, text());
    platform.ports.fail(0, 1);
    messages.uploadItem({"/p", "b", "c", Timestamp(2900ms), "c7"}, entry());
    EXPECT_EQ(platform.logged(), (Strings{"INFO Existing bxserver port found for group.io.brindlemar.bxserver.c7",
                                          "DEBUG Created remote port in bxmessages: group.io.brindlemar.bxclient.c7",
                                          "NOTICE nil item identifier", "DEBUG enumerateItemsJSON starting box",
                                          "ERROR enumerateDeletedJSON no port box", "INFO uploadItem with mtime /p, 2",
                                          "INFO uploadItem -1"}));
}

TEST_F(MessagingTests, AnEntryHearsUntilItHasFinished) {
    messages.fetchItem({"a", "/t", "c7"}, entry(2));
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
    platform.ports.fail(0, 1);
    askAndSettle("failed to be sent, as far as we know");
    answer(2, "late");
    askAndSettle("answered with what is no text");
    answer(3, "\xff\xfe");
    askAndSettle("\xff"); // cannot be sent, and is let go
    EXPECT_EQ(results, (Strings{"10/ok", "55/ok", "done/ok", "before removal/ok", "late/ok", "/ok"}));
    EXPECT_EQ(platform.ports.sent().size(), 3u);
    EXPECT_EQ(messages.waitingCount(), 0u);
}

TEST_F(MessagingTests, AnAbsentHostIsLookedForTenTimesAndTheReservedDomainNever) {
    ask("a", "brindlemar");
    EXPECT_EQ(platform.ports.remoteAttempts(), 0);
    EXPECT_TRUE(platform.logged().empty());
    ask("a", "gone");
    EXPECT_EQ(platform.clock.sleeps.copy(), std::vector<std::chrono::nanoseconds>(10, 250ms));
    Strings lines(10, "WARNING failed to create bxserver port for group.io.brindlemar.bxserver.gone");
    lines.push_back(
        "ERROR failed to create bxserver port for group.io.brindlemar.bxserver.gone and exhausted retries.");
    EXPECT_EQ(platform.logged(), lines);
    messages.uploadItem({"/p", "b", "c", {}, "gone"}, entry());
    EXPECT_EQ(results, (Strings{"/-1004", "/-1004", "-/-1004"}));
    EXPECT_FALSE(messages.connected());
}

TEST_F(MessagingTests, OneLookupAtATimeServesAllCallersOfItsDomain) {
    std::promise<void> sleeping, otherServed;
    platform.clock.onSleep = [&, first = std::make_shared<std::atomic<bool>>(true)] {
        if (!first->exchange(false)) return;
        sleeping.set_value();
        otherServed.get_future().wait();
    };
    std::vector<std::jthread> callers;
    std::atomic<int> missed{0};
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] { missed += !messages.port("gone"); });
        if (i == 0) sleeping.get_future().wait();
    }
    EXPECT_TRUE(messages.port("c7")); // another domain is not held up
    otherServed.set_value();
    callers.clear();
    EXPECT_EQ(missed, 4);
    EXPECT_EQ(platform.clock.sleeps.copy().size() % 10, 0u);
    platform.ports.addPeer(platform.hostPort("late"));
    platform.ports.fail(3, 0);
    const int before = platform.ports.remoteAttempts();
    EXPECT_TRUE(messages.port("late") && messages.port("late"));
    EXPECT_EQ(platform.ports.remoteAttempts(), before + 4);
    EXPECT_TRUE(messages.connected());
    platform.settle();
    EXPECT_EQ(platform.managerCalls(), Strings(2, "reconnect")); // once a domain
}

TEST_F(MessagingTests, ALostHostFailsEveryWaitingRequestOnce) {
    platform.ports.addPeer(platform.hostPort("h2"));
    ask("a");
    messages.fetchItem({"b", "/t", "h2"}, entry(3));
    askAndSettle("finished");
    answer(3, "in time");
    platform.logged();
    platform.managerCalls();
    platform.ports.removePeer(platform.hostPort("c7")); // its notice is first in the main queue,
    platform.backgroundQueue.runAll();                  // the removal of the finished request comes after it
    platform.settle();
    EXPECT_EQ(results, (Strings{"in time/ok", "/-1004", "/-1004"}));
    EXPECT_EQ(platform.managerCalls(), Strings{"disconnect Please Launch Brindlemar to continue syncing. 1"});
    EXPECT_EQ(platform.logged(), Strings{"DEBUG INVALIDATE PORT"});
    EXPECT_EQ(messages.waitingCount(), 0u);
    EXPECT_TRUE(messages.connected()); // h2 is still there
    EXPECT_EQ(answer(2, "late", "h2"), "canceled");
    platform.ports.addPeer(platform.hostPort("c7"));
    platform.manager->answer = serverUnreachable();
    askAndSettle("again");
    EXPECT_EQ(platform.managerCalls(), Strings{"reconnect"});
    platform.managers.known.clear();
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    const std::string reason = "domain: The operation couldn’t be completed. (BrindlemarFileProvider.FileProviderError";
    EXPECT_EQ(platform.logged("WARNING"), (Strings{"WARNING Failed to reconnect " + reason + " error 2.)",
                                                   "WARNING Failed to disconnect " + reason + " error 0.)"}));
}

TEST_F(MessagingTests, ARequestOvertakenByTheLossOfItsHostIsStillAnswered) {
    messages.port("c7");
    platform.settle();
    platform.managerCalls();
    platform.ports.local(platform.replyPort("c7"))->invalidate(); // the reply port first,
    platform.settle();
    EXPECT_EQ(platform.managerCalls().size(), 1u);
    EXPECT_TRUE(messages.connected());
    platform.ports.removePeer(platform.hostPort("c7")); // then the host's: its notice is first in the main queue,
    askAndSettle("a");                                  // the send comes after it
    EXPECT_EQ(results, Strings{"/-1004"});
    EXPECT_EQ(messages.waitingCount(), 0u);
    EXPECT_FALSE(platform.ports.local(platform.replyPort("c7")));
    platform.ports.addPeer(platform.hostPort("c7"));
    messages.port("c7");
    EXPECT_TRUE(platform.ports.local(platform.replyPort("c7"))); // made anew
}

// Threads on the real order of things: many senders, answers and a lost host at once. Each completion comes once.
TEST_F(MessagingTests, RacesCompleteEachRequestOnce) {
    constexpr int kSenders = 3, kEach = 200;
    std::vector<std::atomic<int>> completions(kSenders * kEach);
    messages.port("c7");
    {
        const auto run = [](std::stop_token stop, auto&... queues) {
            while (!stop.stop_requested()) (queues.runOne(), ...);
        };
        std::jthread main([&](std::stop_token stop) { run(stop, platform.mainQueue); });
        std::jthread pool([&](std::stop_token stop) { run(stop, platform.backgroundQueue, platform.tasks); });
        std::vector<std::jthread> senders;
        for (int s = 0; s < kSenders; ++s)
            senders.emplace_back([&, s] {
                for (int n = s * kEach; n < (s + 1) * kEach; ++n)
                    messages.itemJSON({"a", "c7"}, [&, n](const auto&, const auto&) { ++completions[n]; });
            });
        for (int id = 1; id <= kSenders * kEach / 2; ++id) platform.ports.inject(platform.replyPort("c7"), id, "r");
        senders.clear();
        platform.ports.removePeer(platform.hostPort("c7"));
    }
    platform.settle();
    for (const auto& count : completions) ASSERT_EQ(count, 1);
    EXPECT_EQ(messages.waitingCount(), 0u);
}

TEST(RequestTableTests, IdsStartAgainAfterTheLast) {
    RequestTable table(2147483646);
    std::vector<std::int32_t> ids;
    for (int i = 0; i < 3; ++i) {
        ids.push_back(table.enter(std::make_shared<WaitingRequest>(CompletionEntry{})));
        table.advance();
    }
    EXPECT_EQ(ids, (std::vector<std::int32_t>{2147483646, 2147483647, 1}));
}

} // namespace
} // namespace brindlemar
