#include "core/BrindlemarFileProvider.h"
#include "fakes/FakePlatform.h"
#include "fakes/TemporaryDirectory.h"
#include "items/ItemListing.h"
#include "provider/Calls.h"
#include "provider/EventText.h"
#include "provider/ServiceFiles.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        ::signal(SIGPIPE, SIG_IGN);
        reader = FileDescriptor(ends[0]);
        writer = FileDescriptor(ends[1]);
    }
    std::string readAll() const {
        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = ::read(reader.get(), buffer, sizeof buffer)) > 0;) text.append(buffer, count);
        return text;
    }
    FileDescriptor reader, writer;
};

TEST(EventTests, LinesAreWholeObjects) {
    FakePlatform platform;
    const auto list =
        parseItemListing(R"([{"name":"a \"b\"\né","itemID":"x","parentID":"00","mtime":5,"atime":6,"folder":true}])",
                         {.withDomain = "c7"});
    EXPECT_EQ(
        itemsEvent(ItemBatch(list).items()),
        R"({"event":"items","items":[{"itemIdentifier":"x|0","parentItemIdentifier":"NSFileProviderRootContainerItemIdentifier",)"
        R"("filename":"a \"b\"\né","contentType":"public.folder","capabilities":43,"fileSystemFlags":6,"documentSize":0,)"
        R"("childItemCount":0,"creationDate":5,"contentModificationDate":5,"lastUsedDate":6,"contentVersion":"content-id",)"
        R"("metadataVersion":"metadata-id","symlinkTargetPath":"","userInfo":{"isBucket":1,"isFolder":1},)"
        R"("decorations":["io.brindlemar.FileProvider.bucket_badge"]}]})");
    EXPECT_EQ(base64("") + base64("foo") + base64("foob") + base64("\xff\xfe\xfd"), "Zm9vZm9vYg==//79");
    EXPECT_EQ(completionEvent(nullptr, serverUnreachable()),
              R"({"event":"completion","item":null,"error":{"domain":"NSFileProviderErrorDomain","code":-1004}})");
}

TEST(LineOutputTests, SlowGoneAndStubbornReaders) {
    std::atomic<bool> stopping{false};
    const std::string line(300'000, 'x'); // several times what a pipe holds
    Pipe slow, gone, stubborn, late;
    {
        LineOutput output(std::move(slow.writer), stopping);
        std::jthread writer([&] { EXPECT_TRUE(output.write(line)); });
        std::string received(line.size() + 1, ' ');
        for (std::size_t at = 0; at < received.size();)
            at += static_cast<std::size_t>(::read(slow.reader.get(), received.data() + at, 1000));
        EXPECT_EQ(received, line + "\n");
    }
    gone.reader = FileDescriptor();
    EXPECT_FALSE(LineOutput(std::move(gone.writer), stopping).write("gone"));
    LineOutput output(std::move(stubborn.writer), stopping, 200ms);
    EXPECT_FALSE(output.write(line)); // nobody reads
    EXPECT_FALSE(output.write("short"));
    stopping = true;
    EXPECT_FALSE(LineOutput(std::move(late.writer), stopping).write("late"));
    EXPECT_EQ(late.readAll(), "");
}

TEST(CallTests, EveryEventInOrderToTheEnd) {
    ::signal(SIGPIPE, SIG_IGN);
    FakePlatform platform;
    const std::string record = R"({"name":"a","itemID":"a","parentID":"0","mtime":1})";
    const auto addHost = [&] {
        platform.ports.addPeer(platform.hostPort("c7"), [&](const FakeMessagePorts::Sent& sent) {
            const bool listing = sent.data.find("enumerate") != sent.data.npos;
            platform.ports.inject(platform.replyPort("c7"), sent.msgid,
                                  listing ? "[" + record + "," + record + "]" : "{}");
        });
    };
    addHost();
    const auto extension = BrindlemarFileProvider::make({std::string(ExtensionBundleIdentifier), ""});
    extension->connections.with([](auto& records) { records = {"Work|c7"}; });
    ChangeFeed feed;
    TemporaryDirectory directory;
    FetchedFiles fetched(directory / "tmp", directory / "fetched", platform.tasks);
    DomainManager manager({}, platform.clock);
    OpenFolders folders(platform.clock);
    const CallPlaces places{extension, manager, platform.tasks, feed, fetched, folders, platform.clock};
    const std::atomic<bool> running{false};
    const auto call = [&](const std::string& operation, const JSON& arguments) {
        Pipe pipe;
        runCall(places, operation, arguments, std::make_shared<LineOutput>(std::move(pipe.writer), running));
        platform.settle();
        return pipe.readAll(); // ends only when the output was let go
    };
    const auto list = [&](const std::string& container) {
        auto lines = call("list", JSON::object({{"id", container}, {"pageSize", 1}}));
        EXPECT_TRUE(extension->enumerators.copy().liveEnumerators.empty());
        return lines;
    };
    const std::string pages = list("c7|box"), missing = completionEvent(nullptr, noSuchItem()) + "\n",
                      item = itemsEvent(ItemBatch(extension->caches->listing("c7-box"), 0, 1).items()) + "\n",
                      unreachable = completionEvent(nullptr, serverUnreachable()) + "\n",
                      end = "{\"event\":\"finish\",\"page\":null}\n";
    EXPECT_EQ(pages, item + R"({"event":"finish","page":"AQAAAAAAAAA="})" + "\n" + item + end);
    EXPECT_EQ(list("d9|x"), missing);
    EXPECT_EQ(call("item", JSON::object({{"id", "c7|x"}})), missing + progressEvent(1, 1) + "\n");
    EXPECT_EQ(call("nonsense", JSON()), completionEvent(nullptr, featureUnsupported()) + "\n");
    Pipe gone;
    gone.reader = FileDescriptor();
    runCall(places, "list", JSON::object({{"id", "c7|box"}, {"pageSize", 1}}),
            std::make_shared<LineOutput>(std::move(gone.writer), running));
    EXPECT_EQ(platform.tasks.runAll(), 1u); // no second page is asked for without a reader

    const std::string domain = "c7";
    Pipe kept, left;
    LineOutput waits(std::move(kept.writer), running), leaves(std::move(left.writer), running);
    const std::function<bool()> stays = [&] { return waits.isOpen(); }, goes = [&] { return leaves.isOpen(); };
    const CopiesForCall copies(goes, domain), others(stays, domain);
    EXPECT_EQ(others.ended(), std::nullopt);
    leaves.readerGone();
    EXPECT_EQ(copies.ended(), userCancelled());
    manager.disconnect("gone", 0, [](const auto&) {});
    EXPECT_EQ(call("item", JSON::object({{"id", "c7|x"}})), missing + progressEvent(1, 1) + "\n"); // is still there
    platform.ports.removePeer(platform.hostPort("c7"));
    platform.settle();
    EXPECT_EQ(others.ended(), serverUnreachable());
    auto probe = manager.probe("c7");
    EXPECT_EQ(call("item", JSON::object({{"id", "c7|x"}})), unreachable); // another looks for the host already
    EXPECT_TRUE(platform.clock.sleeps.copy().empty());
    EXPECT_EQ(list("plain"), end);
    probe.reset();
    EXPECT_EQ(call("item", JSON::object({{"id", "c7|x"}})), unreachable);
    addHost();
    EXPECT_EQ(call("item", JSON::object({{"id", "c7|x"}})), missing + progressEvent(1, 1) + "\n");
    EXPECT_TRUE(manager.isConnected());
}

struct FetchedFilesTests : testing::Test {
    TemporaryDirectory directory;
    const std::string tmp = directory / "tmp";
    ManualQueue tasks;
    FetchedFiles fetched{tmp, directory / "fetched", tasks};
    bool takes(const std::string& path) { return fetched.take({path}).index() == 0; }
};

TEST_F(FetchedFilesTests, OnlyAFileFromInsideIsTaken) {
    std::filesystem::create_directories(tmp + "/sub");
    std::ofstream(directory / "outside") << "secret";
    std::ofstream(tmp + "x") << "no separator";
    std::filesystem::create_symlink(directory.path(), tmp + "/up");
    std::filesystem::create_symlink(directory / "outside", tmp + "/link");
    ASSERT_EQ(::mkfifo((tmp + "/pipe").c_str(), 0600), 0);
    for (const std::string path : {"/../outside", "/up/outside", "/link", "/pipe", "/sub", "", "/", "x", "/missing",
                                   "/sub/../../outside", "//../outside"})
        EXPECT_FALSE(takes(tmp + path)) << path;
    EXPECT_FALSE(takes(directory / "outside"));
    EXPECT_EQ(contentsOf(directory / "outside"), "secret");
    for (const std::string path : {"/f", "/sub/f", "/sub/../g", "//h"}) {
        std::ofstream(tmp + path) << path;
        const auto taken = fetched.take({tmp + path});
        ASSERT_EQ(taken.index(), 0u) << path;
        EXPECT_EQ(contentsOf(std::get<FileURL>(taken).path), path);
        EXPECT_FALSE(std::filesystem::exists(tmp + path));
    }
    std::ofstream(tmp + "/lent") << "x";
    const FileURL lent = std::get<FileURL>(fetched.take({tmp + "/lent"}));
    const std::atomic<bool> stopping{false};
    Pipe pipe;
    auto reader = std::make_shared<LineOutput>(std::move(pipe.writer), stopping);
    fetched.lend(lent, reader);
    reader->onReaderGone([] {}); // takes nothing from the others
    EXPECT_EQ(reader.use_count(), 2);
    reader->readerGone();
    tasks.runAll();
    EXPECT_FALSE(std::filesystem::exists(lent.path));
    EXPECT_EQ(reader.use_count(), 1);
    const FetchedFiles next(tmp, directory / "fetched", tasks); // what an earlier run has left goes
    EXPECT_TRUE(std::filesystem::is_empty(tmp) && std::filesystem::is_empty(directory / "fetched"));
    EXPECT_TRUE(std::filesystem::exists(directory / "outside"));
}

} // namespace
} // namespace brindlemar
