#include "core/BrindlemarFileProvider.h"
#include "fakes/FakePlatform.h"
#include "items/BrindlemarFileProviderItemEnumerator.h"
#include "service/BrindlemarFileProvider+Servicing.h"

#include <gtest/gtest.h>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

struct RecordingObserver final : NSFileProviderEnumerationObserver {
    explicit RecordingObserver(std::int64_t pageSize) : pageSize(pageSize) {}
    std::int64_t suggestedPageSize() const override { return pageSize; }
    void didEnumerateItems(ItemBatch items) override {
        events.push_back("batch");
        for (const auto& item : items.items()) events.back() += " " + std::string(item->itemIdentifier());
        last = items;
    }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> page) override {
        events.push_back(page ? "page " + std::to_string(page->toInt64()) : "end");
    }
    const std::int64_t pageSize;
    Strings events;
    ItemBatch last;
};

class ProviderTests : public testing::Test {
protected:
    ProviderTests() {
        platform.ports.addPeer(platform.hostPort("c7"), [this](const FakeMessagePorts::Sent& sent) {
            ++asked;
            if (const auto reply = replies.find(JSON::parse(sent.data)["identifier"].stringValue());
                reply != replies.end())
                platform.ports.inject(platform.replyPort("c7"), sent.msgid, reply->second);
        });
        connect({"Work|c7"});
        platform.settle();
        platform.logged();
        platform.managerCalls();
    }
    void connect(const Strings& records) {
        provider->connections.with([&](auto& current) { current = records; });
    }
    /// "ID/-", or "-/CODE", with "progress" in front when the progress stands at 1 of 1.
    std::string lookup(const std::string& identifier) {
        Strings results;
        const auto progress = provider->item(identifier, [&](const auto& item, const auto& error) {
            results.push_back((item ? std::string(item->itemIdentifier()) : "-") + "/" +
                              (error ? std::to_string(error->code) : "-"));
        });
        platform.settle();
        if (results.size() != 1) return std::to_string(results.size()) + " completions";
        const bool whole = progress->totalUnitCount() == 1 && progress->completedUnitCount() == 1;
        return (whole ? "progress " : "") + results[0];
    }
    Strings list(const std::string& container, NSFileProviderPage page = NSFileProviderPage(0), std::int64_t size = 2) {
        auto result = provider->enumerator(container);
        if (const auto* error = std::get_if<NSError>(&result))
            return {error->domain + " " + std::to_string(error->code)};
        observer = std::make_shared<RecordingObserver>(size);
        std::get<0>(result)->enumerateItems(observer, page);
        platform.settle();
        return observer->events;
    }
    static std::string hostItem(const std::string& id) {
        return R"({"name":")" + id + R"(","itemID":")" + id + R"(","parentID":"0","mtime":1})";
    }
    const std::string root{NSFileProviderRootContainerItemIdentifier},
        trash{NSFileProviderTrashContainerItemIdentifier}, workingSet{NSFileProviderWorkingSetContainerItemIdentifier};
    FakePlatform platform;
    std::map<std::string, std::string> replies; // by identifier
    int asked = 0;
    std::shared_ptr<RecordingObserver> observer;
    std::shared_ptr<BrindlemarFileProvider> provider =
        BrindlemarFileProvider::make({std::string(ExtensionBundleIdentifier), "Brindlemar"});
};

TEST_F(ProviderTests, Construction) {
    for (const std::string identifier : {"rw.x", "x.y.RW", "x.rw.", "x.y.rw", "rw"}) {
        platform.managers.known[identifier] = platform.manager;
        const auto made = BrindlemarFileProvider::make({identifier, ""});
        EXPECT_EQ(made->writableRoot, identifier.ends_with("rw")) << identifier;
        EXPECT_EQ(made->tempURL, FileURL{"/tmp/d"});
        EXPECT_EQ(made->rootURL.copy(), FileURL{"/visible"});
    }
    EXPECT_EQ(Strings(platform.stores.emptied.end() - 2, platform.stores.emptied.end()), (Strings{"f-rw", "ff-rw"}));
    platform.managerCalls();
    platform.manager->answer = cannotSynchronize();
    platform.stores.failing = {"f-rw", "ff-rw"};
    EXPECT_EQ(BrindlemarFileProvider::make({"rw", ""})->caches->listing("k"), nullptr); // no store is a miss
    EXPECT_EQ(platform.managerCalls(), Strings{"reconnect"});
    EXPECT_EQ(platform.logged("ERROR"),
              Strings{"ERROR The operation couldn’t be completed. (NSFileProviderErrorDomain error -2005.)"});
    EXPECT_NO_THROW(BrindlemarFileProvider::make({"unregistered", ""}));
}

TEST_F(ProviderTests, LookupResults) {
    replies = {{"42", hostItem("42")},      {"none", "{}"}, {"empty", ""}, {"junk", "junk"},
               {"part", R"({"name":"n"})"}, {"bad", "\xff"}};
    const std::pair<std::string, Strings> cases[] = {{"progress c7|42/-", {"c7|42"}},
                                                     {"progress -/-1005", {"c7|none", "c7|0", "0"}},
                                                     {"progress -/-1004", {"c7|empty", "c7|bad", "plain"}},
                                                     {"progress -/-2005", {"c7|junk", "c7|part"}},
                                                     {"-/-2005", {"c7|\xff"}}, // cannot even be asked for
                                                     {"-/-1005", {"d9|42"}},
                                                     {"progress " + root + "/-", {root}},
                                                     {"progress " + trash + "/-", {trash}}};
    for (const auto& [result, identifiers] : cases)
        for (const auto& identifier : identifiers) EXPECT_EQ(lookup(identifier), result) << identifier;
    EXPECT_EQ(asked, 6);
    platform.logged();
    lookup("c7|42");
    EXPECT_EQ(platform.logged("INFO"),
              (Strings{"INFO Item coming in for c7|42", "INFO In info for 42",
                       R"(INFO itemJSON {\"name\":\"42\",\"itemID\":\"42\",\"parentID\":\"0\",\"mtime\":1})"}));
}

TEST_F(ProviderTests, AListingIsCutIntoPagesAndCachedForTenSeconds) {
    replies["box"] = "[" + hostItem("a") + "," + hostItem("b") + "," + hostItem("c") + "]";
    const NSFileProviderPage first{std::string(NSFileProviderInitialPageSortedByName)}, below(std::int64_t{-5});
    EXPECT_EQ(list("c7|box", first), (Strings{"batch c7|a c7|b", "page 2"}));
    EXPECT_EQ(list("c7|box", NSFileProviderPage(2)), (Strings{"batch c7|c", "end"}));
    EXPECT_EQ(list("c7|box", NSFileProviderPage(100)), (Strings{"batch", "end"}));
    EXPECT_EQ(list("c7|box", first, 0), (Strings{"batch c7|a", "page 1"}));
    EXPECT_EQ(list("c7|box", below, 3), (Strings{"batch c7|a c7|b c7|c", "end"}));
    const auto* start = observer->last.items().data();
    list("c7|box", NSFileProviderPage(2), 1);
    EXPECT_EQ(observer->last.items().data(), start + 2); // pages share one list
    EXPECT_EQ(lookup("c7|b"), "progress c7|b/-");        // from the single-item cache
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(provider->caches->item("c7-b"), provider->caches->listing("c7-box")->at(1));
    platform.stores.decodes = true; // as when the entries come from the disk
    platform.clock.advance(10s - 1ns);
    EXPECT_EQ(list("c7|box"), (Strings{"batch c7|a c7|b", "page 2"}));
    EXPECT_TRUE(provider->caches->item("c7-b"));
    EXPECT_EQ(asked, 1);
    platform.clock.advance(1ns);
    replies["box"] = "[]";
    EXPECT_EQ(list("c7|box"), Strings{"end"});
    EXPECT_EQ(asked, 2);
}

TEST_F(ProviderTests, WhatOtherContainersList) {
    connect({"Work|c7", "x|d1|y", "p||q"});
    replies = {{"object", "{}"}, {"empty", ""}, {"junk", "[{}"}};
    const std::pair<std::string, Strings> cases[] = {
        {"end", {"c7|object", "c7|empty", "c7|junk", "c7|\xff", "plain"}},
        {"NSFileProviderErrorDomain -1005", {"d9|1", "q|1"}}, // the latter connected, but no record's second piece
        {"NSCocoaErrorDomain 3328", {trash}}};
    for (const auto& [event, containers] : cases)
        for (const auto& container : containers) EXPECT_EQ(list(container), Strings{event}) << container;
    EXPECT_EQ(provider->enumerators.copy().liveEnumerators.size(), 5u);
    connect({"Work|c7", "plain", "Home|h2"});
    EXPECT_EQ(list(root), (Strings{"batch c7|0 h2|0", "end"}));
    const auto& work = static_cast<const BrindlemarFileProviderItem&>(*observer->last.items()[0]);
    EXPECT_EQ(work.description(), "n: Work s:0 f:true m:2022-08-03 14:51:28 +0000 id:c7|0 parent:" + root +
                                      ", cv:content-id mv:metadata-id");
    EXPECT_EQ(work.capabilities(), 3u);
}

TEST_F(ProviderTests, EnumeratorsAreKeptInTheirListsAndSignalTheWorkingSet) {
    for (const std::string& container : {root, std::string("c7|a"), root, workingSet})
        EXPECT_EQ(provider->enumerator(container).index(), 0u);
    EXPECT_EQ(provider->enumerators.copy().recentEnumerators, (Strings{"c7|a", root}));
    EXPECT_EQ(provider->enumerators.copy().liveEnumerators, (Strings{"c7|a", root}));
    platform.mainQueue.advance(999ms);
    EXPECT_TRUE(platform.managerCalls().empty());
    platform.mainQueue.advance(1ms);
    EXPECT_EQ(platform.managerCalls(), Strings(3, "signal " + workingSet));
    std::get<0>(provider->enumerator("c7|a"))->invalidate();
    EXPECT_EQ(provider->enumerators.copy().liveEnumerators, Strings{root});
    platform.logged();
    list(workingSet);
    EXPECT_EQ(platform.logged("INFO"),
              (Strings{"INFO Create enumerator for " + workingSet, "INFO enumerateItems(for: " + workingSet + ")",
                       "INFO recentEnumerators includes " + root, "INFO recentEnumerators includes c7|a"}));
    EXPECT_TRUE(provider->enumerators.copy().recentEnumerators.empty());
}

TEST_F(ProviderTests, TheHostConfiguresTheExtension) {
    std::shared_ptr<BrindlemarServiceSource> source;
    int completions = 0;
    const auto progress = provider->supportedServiceSources("any", [&](const auto& list, const auto&) {
        ++completions;
        if (list) source = std::static_pointer_cast<BrindlemarServiceSource>(list->at(0));
    });
    progress->cancel();
    EXPECT_EQ(completions, 1);
    struct Listener final : XPCListener {
        void setDelegate(std::weak_ptr<XPCListenerDelegate>) override {}
        void resume() override {}
        XPCListenerEndpoint endpoint() const override { return {}; }
    } listener;
    const auto connection = std::make_shared<FakeConnection>();
    EXPECT_TRUE(source->shouldAcceptNewConnection(listener, connection));
    EXPECT_EQ(connection->events, (Strings{"resumed", "hello"}));
    EXPECT_EQ(connection->protocol, "BrindlemarServiceV1");
    connection->exportedObject->receive("configureWithConnections:", {"Work|c7", "A&B|\"x"});
    platform.settle();
    EXPECT_EQ(platform.logged(),
              (Strings{"DEBUG 2 connections", R"(DEBUG connections: [\"Work|c7\", \"A&B|\\\"x\"])"}));
    EXPECT_EQ(provider->connectedDomains(), (Strings{"c7", "\"x"}));
    EXPECT_TRUE(provider->configured);
    EXPECT_EQ(platform.managerCalls(), Strings{"reconnect"});
    EXPECT_NE(platform.files.written["connections.plist"].find("<string>A&amp;B|\"x</string>"), std::string::npos);
    connection->invalidationHandler();
    platform.settle();
    EXPECT_EQ(platform.managerCalls(), Strings{"disconnect Please Launch Brindlemar to continue syncing. 1"});
    platform.managers.known.clear();
    connection->invalidationHandler();
    platform.settle();
    EXPECT_EQ(platform.logged("ERROR"), Strings{"ERROR Failed to disconnect: The operation couldn’t be completed. "
                                                "(BrindlemarFileProvider.FileProviderError error 0.)"});
    std::weak_ptr<BrindlemarFileProvider> weak = provider;
    provider.reset();
    EXPECT_TRUE(weak.expired()); // the source does not keep the extension, and works without it
    connection->exportedObject->receive("configureWithConnections:", {"Late|c9"});
    EXPECT_NE(platform.files.written["connections.plist"].find("Late"), std::string::npos);
}

} // namespace
} // namespace brindlemar
