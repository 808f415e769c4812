#include "fakes/FakePlatform.h"
#include "items/ItemListing.h"
#include "provider/Calls.h"
#include "provider/EventText.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <csignal>
#include <future>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
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
    ::signal(SIGPIPE, SIG_IGN);
    Pipe slow, stubborn;
    {
        auto output = std::make_unique<LineOutput>(std::move(slow.writer), stopping);
        auto received = std::async(std::launch::async, [&] { return slow.readAll(); });
        EXPECT_TRUE(output->write(line));
        output.reset();
        EXPECT_EQ(received.get(), line + "\n");
    }
    Pipe gone;
    LineOutput unread(std::move(gone.writer), stopping);
    gone.reader = FileDescriptor();
    EXPECT_FALSE(unread.write("gone"));
    LineOutput output(std::move(stubborn.writer), stopping, 200ms);
    EXPECT_FALSE(output.write(line)); // nobody reads
    EXPECT_FALSE(output.write("short"));
    stopping = true;
    Pipe late;
    EXPECT_FALSE(LineOutput(std::move(late.writer), stopping).write("late"));
    EXPECT_EQ(late.readAll(), "");
}

/// Three pages, the second empty.
class PagedExtension final : public NSFileProviderReplicatedExtension {
public:
    std::shared_ptr<NSProgress> item(ItemIdentifier, ItemHandler handler) override {
        auto progress = std::make_shared<NSProgress>(1);
        later = [handler, progress] {
            handler(nullptr, noSuchItem());
            progress->setCompletedUnitCount(1);
        };
        return progress;
    }
    std::variant<std::shared_ptr<NSFileProviderEnumerator>, NSError> enumerator(ItemIdentifier container) override {
        if (container == "none") return noSuchItem();
        return std::make_shared<Enumerator>(*this);
    }
    std::shared_ptr<NSProgress> supportedServiceSources(ItemIdentifier, ServiceSourcesHandler) override {
        return nullptr;
    }
    void invalidate() override {}

    Task later;
    int invalidated = 0;

private:
    struct Enumerator final : NSFileProviderEnumerator {
        explicit Enumerator(PagedExtension& owner) : owner(owner) {}
        void enumerateItems(std::shared_ptr<NSFileProviderEnumerationObserver> observer,
                            NSFileProviderPage page) override {
            EXPECT_EQ(observer->suggestedPageSize(), 7);
            const std::int64_t at = page.toInt64();
            if (at != 1) observer->didEnumerateItems({});
            observer->finishEnumeratingUpToPage(at < 2 ? std::optional<NSFileProviderPage>(at + 1) : std::nullopt);
        }
        void invalidate() override { ++owner.invalidated; }
        PagedExtension& owner;
    };
};

TEST(CallTests, EveryEventInOrderToTheEnd) {
    const std::atomic<bool> running{false};
    ManualQueue tasks;
    PagedExtension extension;
    const auto call = [&](auto&& body) {
        Pipe pipe;
        body(std::make_shared<LineOutput>(std::move(pipe.writer), running));
        tasks.runAll();
        if (extension.later) std::exchange(extension.later, nullptr)();
        return pipe.readAll(); // ends only when the output was let go
    };
    EXPECT_EQ(call([&](auto output) { callList(extension, "box", 7, output, tasks); }),
              R"({"event":"items","items":[]}
{"event":"finish","page":"AQAAAAAAAAA="}
{"event":"finish","page":"AgAAAAAAAAA="}
{"event":"items","items":[]}
{"event":"finish","page":null}
)");
    EXPECT_EQ(extension.invalidated, 1);
    const std::string error = completionEvent(nullptr, noSuchItem()) + "\n";
    EXPECT_EQ(call([&](auto output) { callList(extension, "none", 7, output, tasks); }), error);
    EXPECT_EQ(call([&](auto output) { callItem(extension, "x", output); }), error + progressEvent(1, 1) + "\n");
    Pipe pipe;
    pipe.reader = FileDescriptor();
    ::signal(SIGPIPE, SIG_IGN);
    callList(extension, "box", 7, std::make_shared<LineOutput>(std::move(pipe.writer), running), tasks);
    EXPECT_EQ(tasks.runAll(), 1u); // no page is asked for without a reader
    EXPECT_EQ(extension.invalidated, 2);
}

} // namespace
} // namespace brindlemar
