#include "core/BrindlemarFileProvider.h"
#include "core/ModificationDispatch.h"
#include "fakes/FakePlatform.h"
#include "fakes/TemporaryDirectory.h"
#include "items/ChangeEnumeration.h"
#include "provider/ItemDraft.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace brindlemar {
namespace {

namespace F = ItemField;
using namespace std::chrono_literals;

const std::string root{NSFileProviderRootContainerItemIdentifier}, trashID{NSFileProviderTrashContainerItemIdentifier},
    workingSet{NSFileProviderWorkingSetContainerItemIdentifier};

TEST(ModificationDispatchTests, TheFirstRowThatMatchesDecides) {
    using enum ModifyAction;
    const std::vector<std::string> connections{"Work|c7", "Home|h|x", "lonely"};
    const struct {
        ItemFields changed;
        std::string item, parent;
        bool hasContents;
        ModifyAction action;
        std::string connection = "";
    } rows[] = {
        {F::lastUsedDate, "c7|a", "c7|0", false, refreshLastUsed},
        {F::lastUsedDate, "c7|0", root, false, refreshLastUsed},
        {F::filename, "c7|0", root, false, connectionFolder, "Work"},
        {F::filename, "h|0", "h|x", false, connectionFolder, "Home"}, // its item ID is the host's root
        {F::filename, "c7|a", root, false, connectionFolder, "Work"},
        {F::filename, "d9|0", root, false, update},
        {F::filename, "lonely", root, false, update},
        {F::fileSystemFlags, "c7|a", "c7|0", false, refresh},
        {F::fileSystemFlags | F::filename, "c7|a", "c7|0", false, update},
        {F::parentItemIdentifier, "c7|a", trashID, false, trash},
        {F::parentItemIdentifier | F::contents, "c7|a", trashID, true, trash},
        {F::filename, "c7|a", trashID, false, update},
        {F::extendedAttributes, "c7|a", "c7|0", false, keep},
        {F::extendedAttributes | F::contents, "c7|a", "c7|0", true, upload},
        {F::contents | F::filename | F::parentItemIdentifier, "c7|a", "c7|b", true, upload},
        {F::contents | F::filename, "c7|a", "c7|b", false, missingContents},
        {F::contentModificationDate, "c7|a", "c7|b", false, update},
        {F::parentItemIdentifier, "c7|a", "c7|b", false, update},
        {F::creationDate | F::lastUsedDate, "c7|a", "c7|b", false, keep},
        {0, "c7|a", "c7|b", true, keep},
    };
    for (const auto& row : rows) {
        const auto decision = chooseModifyAction({row.changed, row.hasContents, row.item, row.parent}, connections);
        EXPECT_EQ(decision.action, row.action) << row.changed << " " << row.item;
        EXPECT_EQ(decision.connection ? decision.connection->name : "", row.connection) << row.item;
    }
    EXPECT_EQ(chooseModifyAction({F::filename, false, "c7|0", root}, {}).action, update); // not configured
    EXPECT_EQ(parentIDForHost("c7|b"), "b");
    EXPECT_EQ(parentIDForHost("c7|b|c"), "c7|b|c");
}

TEST(ChangeEnumerationTests, ThePassChoosesARecentContainer) {
    std::vector<ItemIdentifier> recent{root, "c7|photos", "d9|x"};
    EXPECT_EQ(takeRecentContainer(recent), "c7|photos");
    EXPECT_EQ(recent, (std::vector<ItemIdentifier>{"c7|photos", "d9|x"})); // the first went, whichever was chosen
    recent = {root, "plain"};
    EXPECT_EQ(takeRecentContainer(recent), std::nullopt);
    EXPECT_EQ(recent.size(), 2u);
}

/// An extension with connection c7, whose host answers each command with the replies of a list, one by one.
class ChangeTests : public testing::Test {
protected:
    ChangeTests() {
        platform.ports.addPeer(platform.hostPort("c7"), [this](const FakeMessagePorts::Sent& sent) {
            requests.push_back(sent.data);
            lastID = sent.msgid;
            for (const std::string& reply : replies) answer(reply);
        });
        provider->connections.with([](auto& records) { records = {"Work|c7"}; });
        provider->configured = true;
        platform.settle();
        platform.logged();
    }
    void answer(const std::string& reply) { platform.ports.inject(platform.replyPort("c7"), lastID, reply); }

    void note(const std::shared_ptr<NSFileProviderItem>& item, const std::optional<NSError>& error) {
        const auto modified = item ? item->contentModificationDate() : std::nullopt;
        result += (item ? std::string(item->itemIdentifier()) + " " +
                              std::to_string(modified ? modified->time_since_epoch().count() : -1)
                        : "-") +
                  "/" + (error ? std::to_string(error->code) : "-") + ";";
    }
    NSFileProviderReplicatedExtension::ChangeHandler noted() {
        return [this](const auto& item, ItemFields pending, bool shouldFetch, const auto& error) {
            EXPECT_EQ(pending, 0u);
            EXPECT_FALSE(shouldFetch);
            note(item, error);
        };
    }
    std::string watched(const std::shared_ptr<NSProgress>& progress) {
        steps.clear();
        progress->setObserver([this](std::int64_t done, std::int64_t) { steps += std::to_string(done) + " "; });
        platform.settle();
        return std::exchange(result, "");
    }
    std::string fetch(const std::string& identifier, std::vector<std::string> answers) {
        replies = std::move(answers);
        return watched(
            provider->fetchContents(identifier, [this](const auto& url, const auto& item, const auto& error) {
                result += (url ? url->path : "") + " ";
                note(item, error);
            }));
    }
    std::string create(ItemDraft draft, bool folder, std::vector<std::string> answers) {
        replies = std::move(answers);
        const auto contents = folder ? std::nullopt : std::optional(FileURL{directory / "mine"});
        progress = provider->createItem({std::make_shared<ItemDraft>(std::move(draft)), contents}, noted());
        return watched(progress);
    }
    std::string modify(ItemDraft draft, ItemFields fields, std::vector<std::string> answers, bool contents = false) {
        replies = std::move(answers);
        const auto url = contents ? std::optional(FileURL{directory / "mine"}) : std::nullopt;
        return watched(provider->modifyItem({std::make_shared<ItemDraft>(std::move(draft)), fields, url}, noted()));
    }
    static ItemDraft draft(const std::string& identifier, const std::string& parent, const std::string& name) {
        ItemDraft made;
        made.identifier = identifier;
        made.parent = parent;
        made.name = name;
        return made;
    }
    std::size_t staged() const {
        using Entries = std::filesystem::directory_iterator;
        return static_cast<std::size_t>(std::distance(Entries(temporary), Entries()));
    }
    bool cachesWereEmptied() { return !std::exchange(platform.stores.emptied, {}).empty(); }

    const std::string hosted = R"({"name":"n","itemID":"n","parentID":"0","mtime":7})";
    TemporaryDirectory directory;
    const std::string temporary = directory / "tmp";
    FakePlatform platform;
    std::vector<std::string> replies, requests;
    std::int32_t lastID = 0;
    std::string result, steps;
    std::shared_ptr<NSProgress> progress;
    std::shared_ptr<BrindlemarFileProvider> provider = [this] {
        std::filesystem::create_directory(temporary);
        std::ofstream(directory / "mine") << "contents";
        platform.manager->temporaryDirectory = FileURL{temporary};
        return BrindlemarFileProvider::make({std::string(ExtensionBundleIdentifier), "Brindlemar"});
    }();
};

TEST_F(ChangeTests, FetchesEndOnceWhateverTheHostSays) {
    const auto report = [](const std::string& percentage) {
        return R"({"status":"progress","progressPercentage":)" + percentage + "}";
    };
    const std::string done =
        R"({"status":"success","item":{"name":"n","itemID":"n","parentID":"0","mtime":7,"path":"f.txt"}})";
    const std::string failed = " -/-2005;", fetched = temporary + "f.txt c7|n 7000000000/-;";
    const struct {
        std::vector<std::string> replies;
        std::string result, steps;
    } rows[] = {
        {{report("10"), report("55"), done}, fetched, "10 55 90 100 "},
        {{report("300"), report("-4"), report("\"x\""), "{\"status\":\"progress\"}", done}, fetched, "100 0 90 100 "},
        {{done, done, report("3")}, fetched, "90 100 "},
        {{R"({"status":"failure_no_retry"})", done}, failed, ""},
        {{R"({"status":"who knows"})"}, failed, ""},
        {{"{}"}, failed, ""},
        {{"junk"}, failed, ""},
        {{""}, failed, ""},
        {{R"({"status":"success"})"}, failed, "90 "},
        {{R"({"status":"success","item":{"name":"n","itemID":"n","parentID":"0","mtime":7}})"}, failed, "90 "},
        {{R"({"status":"success","item":{"path":"/f"}})"}, failed, "90 "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(fetch("c7|n", row.replies), row.result) << row.replies[0];
        EXPECT_EQ(steps, row.steps) << row.replies[0];
    }
    EXPECT_EQ(JSON::parse(requests[0])["toFolder"].stringValue(), temporary);
    platform.logged();
    fetch("c7|n", {""});
    EXPECT_EQ(platform.logged("ERROR").size(), 1u);
    EXPECT_EQ(fetch("d9|n", {done}), " -/-1005;");
    EXPECT_EQ(fetch("c7|\xff", {done}), failed); // cannot even be asked for
    EXPECT_EQ(fetch("plain", {done}), failed);
}

TEST_F(ChangeTests, CreationsStageUploadAndCleanUp) {
    ItemDraft made = draft("template", "c7|17", "n");
    made.modified = Timestamp(2900ms);
    EXPECT_EQ(create(made, false, {}), "");
    const JSON request = JSON::parse(requests.at(0));
    EXPECT_EQ(contentsOf(request["path"].stringValue()), "contents");
    EXPECT_EQ(request["parentID"].stringValue() + request["name"].stringValue() + request["mtime"].stringValue(),
              "17n2");
    answer(R"({"status":"progress","progressPercentage":40})");
    platform.settle();
    EXPECT_EQ(staged(), 1u); // the host still reads it
    cachesWereEmptied();
    answer(hosted);
    answer(hosted);
    platform.settle();
    EXPECT_EQ(std::exchange(result, ""), "c7|n 7000000000/-;");
    EXPECT_EQ(steps, "100 "); // never the percentages
    EXPECT_EQ(staged(), 0u);
    EXPECT_TRUE(cachesWereEmptied());

    EXPECT_EQ(create(made, true, {}), "");
    EXPECT_TRUE(std::filesystem::is_directory(JSON::parse(requests.at(1))["path"].stringValue()));
    progress->cancel();
    EXPECT_EQ(std::exchange(result, ""), "-/3072;");
    EXPECT_EQ(staged(), 1u);
    answer(hosted); // too late for the platform, not for the copy
    platform.settle();
    EXPECT_EQ(result, "");

    const std::size_t before = requests.size();
    EXPECT_EQ(create(draft("t", "c7|17", "Icon\r"), false, {}), "t -1/-;");
    EXPECT_EQ(create(draft("t", root, "top"), true, {}), "t -1/-;");
    EXPECT_EQ(create(draft("t", "d9|1", "n"), false, {}), "-/-1005;");
    std::filesystem::rename(directory / "mine", directory / "gone");
    EXPECT_EQ(create(made, false, {}), "-/260;");
    EXPECT_EQ(requests.size(), before);
    for (const std::string reply : {"", "{}", "junk", R"({"name":"n"})"})
        EXPECT_EQ(create(made, true, {reply}), "-/-2005;");
    EXPECT_EQ(create(draft("t", "plain", "n"), true, {}), "-/-2005;");
    EXPECT_EQ(create(draft("t", "c7|1", "\xff"), true, {}), "-/-2005;"); // its request cannot be written
    EXPECT_EQ(create(made, true, {}), "");
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(result, "-/-2005;");
    EXPECT_EQ(staged(), 0u);
}

TEST_F(ChangeTests, ModificationsSendOneRequestAndEndOnce) {
    ItemDraft changed = draft("c7|a", "c7|b", "new");
    changed.modified = Timestamp(5s + 123456789ns);
    changed.used = Timestamp(9s);
    const struct {
        ItemFields fields;
        std::string reply, result, request;
    } rows[] = {
        {F::filename, hosted, "c7|n 7000000000/-;",
         R"({"command":"updateItem","identifier":"a","parentID":"b","name":"new","mtime":5})"},
        {F::filename, "{}", "-/-1005;", ""},
        {F::filename, "", "-/-1004;", ""},
        {F::filename, R"({"status":"failure"})", "-/-2005;", ""},
        {F::fileSystemFlags, hosted, "c7|n 7000000000/-;", R"({"command":"itemForIdentifier","identifier":"a"})"},
        {F::lastUsedDate, hosted, "c7|n 7000000000/-;", R"({"command":"itemForIdentifier","identifier":"a"})"},
        {F::lastUsedDate, "{}", "-/-1005;", ""},
        {F::lastUsedDate, "", "-/-1004;", ""},
        {F::tagData, hosted, "c7|a 5123456789/-;", ""},
        {F::contents, hosted, "-/-2005;", ""}, // contents without a file
    };
    for (const auto& row : rows) {
        requests.clear();
        EXPECT_EQ(modify(changed, row.fields, {row.reply, row.reply}), row.result) << row.fields << row.reply;
        if (!row.request.empty()) {
            EXPECT_EQ(requests, std::vector{row.request});
        }
    }
    requests.clear();
    const std::string partial = R"({"name":"n","itemID":"n","parentID":"0"})"; // its dates come from here
    EXPECT_EQ(
        modify(changed, F::contents | F::filename, {R"({"status":"progress","progressPercentage":40})", partial}, true),
        "c7|n 5123456789/-;");
    EXPECT_EQ(steps, "100 40 100 ");
    EXPECT_EQ(requests.size(), 1u);
    EXPECT_EQ(modify(changed, F::contents, {""}, true), "-/-1004;");
    EXPECT_EQ(staged(), 0u);

    cachesWereEmptied();
    requests.clear();
    EXPECT_EQ(modify(draft("c7|a", trashID, "a"), F::parentItemIdentifier, {"{}"}), "-/-;");
    EXPECT_EQ(requests, std::vector<std::string>{R"({"command":"deleteItem","identifier":"a","recursive":"false"})"});
    EXPECT_TRUE(cachesWereEmptied());
    requests.clear();
    EXPECT_EQ(modify(draft("c7|0", root, "Other"), F::filename, {}), "c7|0 1659538288000000000/-;");
    EXPECT_EQ(modify(draft("d9|0", root, "x"), F::filename, {}), "-/-1005;");
    EXPECT_TRUE(requests.empty());
    modify(draft("c7|a", "c7|b", "untimed"), F::filename, {hosted});
    EXPECT_EQ(JSON::parse(requests.at(0))["mtime"].number()->int64Value(), wholeSecondsSince1970(platform.clock.now()));
}

TEST_F(ChangeTests, DeletionsReportTheHostsOutcome) {
    const auto remove = [&](const std::string& identifier) {
        replies = {"anything"};
        return watched(provider->deleteItem(identifier, [this](const auto& error) { note(nullptr, error); }));
    };
    EXPECT_EQ(remove("c7|box"), "-/-;");
    EXPECT_EQ(steps, "1 ");
    EXPECT_EQ(requests, std::vector<std::string>{R"({"command":"deleteItem","identifier":"box","recursive":"false"})"});
    EXPECT_EQ(remove("d9|box"), "-/-1005;");
    EXPECT_EQ(remove("plain"), "-/-1004;");
    EXPECT_EQ(remove("c7|\xff"), "-/-2005;");
}

class Changes final : public NSFileProviderChangeObserver {
public:
    void didUpdateItems(ItemBatch items) override {
        events += "updated";
        for (const auto& item : items.items()) events += " " + std::string(item->itemIdentifier());
        events += ";";
    }
    void didDeleteItems(std::vector<ItemIdentifier> identifiers) override {
        events += "deleted";
        for (const auto& identifier : identifiers) events += " " + identifier;
        events += ";";
    }
    void finishEnumeratingChanges(NSFileProviderSyncAnchor upTo, bool moreComing) override {
        EXPECT_EQ(upTo.rawValue.size(), 5u);
        events += moreComing ? "more" : "end";
    }
    std::string events;
};

class EnumerationOfChangesTests : public ChangeTests {
protected:
    std::string changes(const std::string& container, std::vector<std::string> answers = {}) {
        replies = std::move(answers);
        auto made = provider->enumerator(container);
        const auto observer = std::make_shared<Changes>();
        std::get<0>(made)->enumerateChanges(observer, {});
        platform.settle();
        return observer->events;
    }
    void recent(std::vector<ItemIdentifier> containers) {
        provider->enumerators.with([&](EnumeratorLists& lists) { lists.recentEnumerators = containers; });
    }
};

TEST_F(EnumerationOfChangesTests, AFolderReportsWhatTheHostHasDeleted) {
    const std::pair<std::string, std::string> rows[] = {
        {R"(["c7|a.txt","c7|b",3,null])", "deleted c7|a.txt c7|b 3 ;end"},
        {"[]", "end"},
        {"{}", "end"},
        {"", "end"},
        {"junk", "end"}};
    for (const auto& [reply, events] : rows) {
        cachesWereEmptied();
        EXPECT_EQ(changes("c7|box", {reply, reply}), events) << reply;
        EXPECT_EQ(cachesWereEmptied(), events != "end") << reply;
    }
    EXPECT_EQ(changes("c7|\xff", {"[]"}), "end");
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(changes("c7|box"), "end");
}

TEST_F(EnumerationOfChangesTests, TheWorkingSetListsAgainThenReconcilesTheTop) {
    recent({root, "c7|photos"});
    platform.files.visible = {{"/visible/Work"}, {"/visible/Old/"}, {"/visible/unknown"}, {"/visible/Bin"}};
    platform.managers.visible = {{"/visible/Work", "c7|0"}, {"/visible/Old/", "d9|0"}, {"/visible/Bin", trashID}};
    const std::string listing = "[" + hosted + "]";
    EXPECT_EQ(changes(workingSet, {listing}), "updated c7|n;more");
    EXPECT_NE(provider->caches->item("c7-n"), nullptr);
    EXPECT_NE(provider->caches->listing("c7-photos"), nullptr);
    EXPECT_EQ(changes(workingSet, {"junk"}), "updated;more");
    EXPECT_EQ(changes(workingSet), "deleted d9|0;updated c7|0;end");
    EXPECT_EQ(platform.files.accesses, 0);
    EXPECT_EQ(platform.logged("WARNING"),
              std::vector<std::string>{"WARNING Could not get item for file:///visible/unknown"});

    recent({"c7|\xff"});
    EXPECT_EQ(changes(workingSet), "more"); // cannot be asked for, and does not stop the rest
    provider->connections.with([](auto& records) { records = {"Work|c7|x", "a/b|c8"}; });
    EXPECT_EQ(changes(workingSet), "deleted d9|0;updated c8|0;end");
    platform.files.grantsAccess = false;
    EXPECT_EQ(changes(workingSet), "end");
    provider->rootURL.with([](auto& url) { url.reset(); });
    EXPECT_EQ(changes(workingSet), "end");
    provider->configured = false;
    EXPECT_EQ(changes(workingSet), "updated;end");
}

} // namespace
} // namespace brindlemar
