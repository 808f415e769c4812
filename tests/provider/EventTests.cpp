#include "fakes/FakePlatform.h"
#include "items/ItemListing.h"
#include "provider/Calls.h"
#include "provider/EventText.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

struct Pipe {
    explicit Pipe(int flags = 0) {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC | flags), 0);
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

TEST(Base64Tests, OfTheStandard) { // RFC 4648, section 10
    const std::pair<std::string_view, std::string_view> cases[] = {{"", ""},
                                                                   {"f", "Zg=="},
                                                                   {"fo", "Zm8="},
                                                                   {"foo", "Zm9v"},
                                                                   {"foob", "Zm9vYg=="},
                                                                   {"fooba", "Zm9vYmE="},
                                                                   {"\xff\xfe\xfd", "//79"}};
    for (const auto& [bytes, text] : cases) EXPECT_EQ(base64(bytes), text);
}

TEST(EventTests, LinesAreWholeObjects) {
    FakePlatform platform;
    const auto list =
        parseItemListing(R"([{"name":"a \"b\"\n","itemID":"x","parentID":"00","mtime":5,"atime":6,"folder":true},)"
                         R"({"name":"é","itemID":"y","parentID":"0","mtime":7,"size":9,"permissions":292}])",
                         {.withDomain = "c7"});
    EXPECT_EQ(
        itemsEvent(ItemBatch(list).items()),
        R"({"event":"items","items":[{"itemIdentifier":"x|0","parentItemIdentifier":"NSFileProviderRootContainerItemIdentifier",)"
        R"("filename":"a \"b\"\n","contentType":"public.folder","capabilities":43,"fileSystemFlags":6,"documentSize":0,)"
        R"("childItemCount":0,"creationDate":5,"contentModificationDate":5,"lastUsedDate":6,"contentVersion":"content-id",)"
        R"("metadataVersion":"metadata-id","symlinkTargetPath":"","userInfo":{"isBucket":1,"isFolder":1},)"
        R"("decorations":["io.brindlemar.FileProvider.bucket_badge"]},)"
        R"({"itemIdentifier":"c7|y","parentItemIdentifier":"c7|0","filename":"é","contentType":"public.content",)"
        R"("capabilities":1,"fileSystemFlags":6,"documentSize":9,"childItemCount":0,"creationDate":7,)"
        R"("contentModificationDate":7,"lastUsedDate":1700000000,"contentVersion":"content-id",)"
        R"("metadataVersion":"metadata-id","symlinkTargetPath":"","userInfo":{}}]})");
    EXPECT_EQ(itemsEvent({}), R"({"event":"items","items":[]})");
    EXPECT_EQ(finishEvent(NSFileProviderPage(2)), R"({"event":"finish","page":"AgAAAAAAAAA="})");
    EXPECT_EQ(finishEvent(std::nullopt), R"({"event":"finish","page":null})");
    EXPECT_EQ(completionEvent(nullptr, serverUnreachable()),
              R"({"event":"completion","item":null,"error":{"domain":"NSFileProviderErrorDomain","code":-1004}})");
    EXPECT_EQ(progressEvent(1, 2), R"({"event":"progress","completed":1,"total":2})");
}

TEST(LineOutputTests, SlowGoneAndStubbornReaders) {
    const std::atomic<bool> running{false};
    const std::string line(300'000, 'x'); // several times what a pipe holds
    {
        Pipe pipe;
        std::string received;
        LineOutput output(std::move(pipe.writer), running);
        std::thread reader([&] {
            received.resize(line.size() + 1);
            for (std::size_t at = 0; at < received.size();) {
                const ssize_t count = ::read(pipe.reader.get(), received.data() + at, 1000);
                ASSERT_GT(count, 0);
                at += static_cast<std::size_t>(count);
            }
        });
        EXPECT_TRUE(output.write(line));
        reader.join();
        EXPECT_EQ(received, line + "\n");
        pipe.reader = FileDescriptor();
        ::signal(SIGPIPE, SIG_IGN);
        EXPECT_FALSE(output.write("gone"));
    }
    {
        Pipe pipe;
        LineOutput output(std::move(pipe.writer), running, 200ms);
        EXPECT_FALSE(output.write(line)); // nobody reads
        EXPECT_FALSE(output.write("short"));
    }
    {
        Pipe pipe;
        const std::atomic<bool> stopping{true};
        EXPECT_FALSE(LineOutput(std::move(pipe.writer), stopping).write("late"));
        EXPECT_EQ(pipe.readAll(), "");
    }
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
              "{\"event\":\"items\",\"items\":[]}\n{\"event\":\"finish\",\"page\":\"AQAAAAAAAAA=\"}\n"
              "{\"event\":\"finish\",\"page\":\"AgAAAAAAAAA=\"}\n"
              "{\"event\":\"items\",\"items\":[]}\n{\"event\":\"finish\",\"page\":null}\n");
    EXPECT_EQ(extension.invalidated, 1);
    const std::string error =
        R"({"event":"completion","item":null,"error":{"domain":"NSFileProviderErrorDomain","code":-1005}})"
        "\n";
    EXPECT_EQ(call([&](auto output) { callList(extension, "none", 7, output, tasks); }), error);
    EXPECT_EQ(call([&](auto output) { callItem(extension, "x", output); }),
              error + R"({"event":"progress","completed":1,"total":1})"
                      "\n");
    Pipe pipe;
    pipe.reader = FileDescriptor();
    ::signal(SIGPIPE, SIG_IGN);
    callList(extension, "box", 7, std::make_shared<LineOutput>(std::move(pipe.writer), running), tasks);
    EXPECT_EQ(tasks.runAll(), 1u); // no page is asked for without a reader
    EXPECT_EQ(extension.invalidated, 2);
}

} // namespace
} // namespace brindlemar
