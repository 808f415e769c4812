// A host that breaks every rule, against the real service: what it sends is refused or answered, and the next request
// is served.
#include "system/World.h"

#include "linux/RawPeer.h"
#include "linux/dbus/DBusServices.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"
#include "platform/Configuration.h"
#include "platform/Item.h"
#include "support/Guarded.h"
#include "support/JSON.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace brindlemar::system_tests {
namespace {

const std::string kGroup(AppGroupIdentifier);

class HostileHost : public testing::Test {
protected:
    HostileHost() {
        world.startService();
        connection = connectXPC({*world.control().endpoint(std::string(brindlemarServiceName))}, ignore);
        connection->setRemoteObjectInterface({"BrindlemarServiceV1", {{"configureWithConnections:", true}}});
        connection->resume();
        host = ports.createLocal(kGroup + ".bxserver.evil", [this](auto&, std::int32_t id, const Payload& request) {
            const JSON json = JSON::parse(request.bytes());
            requested.with([&](auto& last) { last[json["command"].stringValue()] = request.bytes(); });
            answer(id, json["identifier"].stringValue());
            return std::nullopt;
        });
        host->setDispatchQueue(queue);
        connection->send("configureWithConnections:", {"Evil|evil"});
        EXPECT_TRUE(world.runUntil({"ls"}, "Evil\n", 10));
    }
    ~HostileHost() override { queue.stop(); }
    void answer(std::int32_t id, const std::string& item) {
        if (!reply) reply = ports.createRemote(kGroup + ".bxclient.evil");
        const auto send = [&](std::int32_t to, std::string_view text) {
            reply->sendRequest({.msgid = to, .data = text, .sendTimeout = std::chrono::seconds(10)});
        };
        if (item == "wrong ids")
            for (const std::int32_t wrong : {id + 1000, 0, -1, std::numeric_limits<std::int32_t>::min()})
                send(wrong, good("x"));
        for (int i = 0; item == "flood" && i < 10'000; ++i) send(id + 5000 + i, good("x"));
        send(id, replies.contains(item) ? replies[item] : good(item));
        if (item == "twice") send(id, good("late"));
    }
    static std::string good(const std::string& id) {
        return *JSON::object({{"name", id}, {"itemID", id}, {"parentID", "0"}, {"mtime", 1}}).serialized();
    }
    std::string noise(std::size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        return bytes;
    }
    /// The first line of the lookup of this item.
    std::string lookup(const std::string& item) {
        const std::string text =
            readAll(*world.control().call("item", JSON::object({{"id", "evil|" + item}}).serialized().value()));
        EXPECT_EQ(count(text, "\"completion\""), 1u) << item;
        return text.substr(0, text.find('\n'));
    }
    void expectServed() { EXPECT_EQ(count(lookup("fine"), R"("itemIdentifier":"evil|fine")"), 1u); }
    static void ignore(std::string_view) {}
    std::mt19937 random{7};
    World world;
    QueueTimers timers;
    SerialQueue queue{timers, "evil"};
    std::shared_ptr<XPCConnection> connection;
    SocketMessagePorts ports{RuntimeDirectory::open(), queue, ignore};
    std::shared_ptr<LocalPort> host;
    std::shared_ptr<RemotePort> reply;
    std::map<std::string, std::string> replies;
    Guarded<std::map<std::string, std::string>> requested; // the last one of each command
};

TEST_F(HostileHost, RepliesOfEveryKindAreAnsweredOnce) {
    const std::string nested(100'000, '[');
    replies = {{"noise", noise(50'000)},
               {"empty", ""},
               {"none", "{}"},
               {"broken", "{\"name\":\"x\xff\"}"},
               {"deep", nested},
               {"number", "1e400"},
               {"partial", R"({"name":"x"})"},
               {"nul", std::string("\0", 1)},
               {"deep item", R"({"name":"x","itemID":"x","parentID":"0","mtime":1,"extra":)" + nested + "}"}};
    const std::pair<std::string, Arguments> cases[] = {
        {"\"code\":-1004", {"noise", "empty", "broken"}},
        {"\"code\":-1005", {"none"}},
        {"\"code\":-2005", {"deep", "deep item", "number", "partial", "nul"}},
        {"\"itemIdentifier\":\"evil|", {"twice", "wrong ids", "flood", "sl/ash"}}};
    for (const auto& [expected, items] : cases)
        for (const auto& item : items) EXPECT_EQ(count(lookup(item), expected), 1u) << item;
    expectServed();
    // Names that are no file names are only names here.
    replies["box"] = "[" + good("a") + R"(,7,{"name":"../up\u0000","itemID":"up","parentID":"0","mtime":1}])";
    EXPECT_EQ(count(readAll(*world.control().call("list", R"({"id":"evil|box","pageSize":10})")), "\"itemIdentifier\""),
              2u);
    EXPECT_TRUE(world.logs("reply is not valid UTF-8"));
}

TEST_F(HostileHost, PacketsThatBreakTheRulesHarmNobodyElse) {
    expectServed();
    const std::string name = kGroup + ".bxclient.evil";
    for (std::size_t i = 1; i <= 200; ++i) {
        RawSocket socket = RawSocket::connected(RuntimeDirectory::open(), name);
        EXPECT_TRUE(socket.greet(name));
        socket.send("\2" + noise(i)); // never the version there is
        EXPECT_TRUE(socket.closedByPeer());
    }
    expectServed();
    EXPECT_TRUE(world.logs("level=WARNING"));
    EXPECT_EQ(world.service.end(SIGTERM), 0);
}

TEST_F(HostileHost, GetsEachAdministrationRequestOfTheCommandLine) {
    world.file("policy", "{\"a\":\n\"é\"}");
    const std::string bucket = R"("identifier":"b")", object = R"("identifier":"b/o")", root = R"("identifier":"0")";
    const std::string raw = R"("identifier":"NSFileProviderRootContainerItemIdentifier")";
    const std::string file = "@" + world.path + "/policy", top(NSFileProviderRootContainerItemIdentifier);
    const std::pair<Arguments, std::string> rows[] = {
        {{"getACL", "evil|b"}, bucket},
        {{"getBucketPolicy", "Evil"}, root},
        {{"setBucketPolicy", "evil|b", "--policy", file}, bucket + R"(,"policy":"{\"a\":\n\"é\"}")"},
        {{"getBucketReplication", "evil|b"}, bucket},
        {{"setBucketReplication", "evil|b", "--replication", "{}"}, bucket + R"(,"replication":"{}")"},
        {{"getBucketCORS", "evil|b"}, bucket},
        {{"setBucketCORS", "evil|b", "--cors", "[]"}, bucket + R"(,"cors":"[]")"},
        {{"getBucketLifecycle", "evil|b"}, bucket},
        {{"setBucketLifecycle", "evil|b", "--lifecycle", ""}, bucket + R"(,"lifecycle":"")"},
        {{"getBucketVersioning", "evil|b"}, bucket},
        {{"setBucketVersioning", "evil|b", "--enable", "true"}, bucket + R"(,"enable":true)"},
        {{"getBucketAcceleration", "evil|b"}, bucket},
        {{"setBucketAcceleration", "evil|b", "--enable", "false"}, bucket + R"(,"enable":false)"},
        {{"getBucketEncryption", "evil|b"}, bucket},
        {{"setBucketEncryption", "evil|b", "--encryptionKeyID", "k", "--encryptionType", "t"},
         bucket + R"(,"encryptionType":"t","encryptionKeyID":"k")"},
        {{"getBucketLogging", "evil|b"}, bucket},
        {{"signURL", "evil|b/o"}, object},
        {{"createBucket", "--region", "r", "--name", "n", "--domain", "evil"}, R"("name":"n","region":"r")"},
        {{"getObjectMetadata", "evil|b/o"}, object},
        {{"getObjectURL", "evil|b/o", "--expiration", "60"}, object + R"(,"expiration":"60")"},
        {{"initiateGlacierRestore", "evil|b/o", "--tier", "Bulk", "--days", "3"},
         object + R"(,"tier":"Bulk","days":"3")"},
        {{"setObjectEncryption", "evil|b/o", "--encryptionType", "t", "--encryptionKeyID", "k"},
         object + R"(,"encryptionType":"t","encryptionKeyID":"k")"},
        {{"setObjectStorageClass", top, "--domain", "evil", "--storageClass", "GLACIER"},
         root + R"(,"storageClass":"GLACIER")"},
        {{"listKMS", top, "--domain", "evil"}, raw},
        {{"listKMSKeys", "evil|b"}, bucket},
    };
    for (const auto& [arguments, members] : rows) {
        Arguments all{"admin"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Result result = world.run(all);
        EXPECT_EQ(result.status, 0) << arguments[0] << result.errors;
        EXPECT_EQ(requested.copy()[arguments[0]], R"({"command":")" + arguments[0] + R"(",)" + members + "}");
        EXPECT_EQ(result.output.substr(0, 9), R"({"name":")") << "the reply as it stands";
    }
}

} // namespace
} // namespace brindlemar::system_tests
