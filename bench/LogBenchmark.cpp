// One log line to both sinks against two write() calls of a ready line, and formatting against its pieces appended by
// hand. To reach: line <= 1.2 x two writes, formatting <= 3 x the pieces.
#include "linux/files/LinuxFiles.h"
#include "linux/log/LogFiles.h"
#include "platform/Platform.h"
#include "support/LogFormatter.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace brindlemar {
namespace {

const std::string kMessage = "In info for c7|photos/2024/holiday/IMG_20240305_140709.jpg";
constexpr std::string_view kFunction = "item(for:request:completionHandler:)";

struct TemporaryDirectory {
    TemporaryDirectory() { path = ::mkdtemp(path.data()); }
    ~TemporaryDirectory() { std::filesystem::remove_all(path); }
    std::string path = "/tmp/brindlemar-bench.XXXXXX";
};

/// Both destinations are files, so that no terminal's speed counts.
struct TwoFiles : LogFiles {
    TemporaryDirectory directory;
    std::unique_ptr<LogDestination> console() override { return open("console.log"); }
    std::unique_ptr<LogDestination> file(const RotatingLogFile&) override { return open("file.log"); }
    std::unique_ptr<LogDestination> open(const std::string& name) {
        return LogFiles::file(
            {.path = directory.path + "/" + name, .maximumFileSize = 31'457'280, .maximumArchives = 99});
    }
    double lines() const {
        double count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory.path)) {
            std::ifstream file(entry.path());
            count += static_cast<double>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
        }
        return count;
    }
};

struct WallClock : Clock {
    Timestamp now() override { return std::chrono::system_clock::now(); }
    void sleep(std::chrono::nanoseconds) override {}
};

/// Stands where the logger never looks.
struct NoServices : Queue, MessagePorts, NSFileProviderManagers, XPCServices, LinuxFiles, ObjectStores {
    void async(Task) override {}
    void after(std::chrono::nanoseconds, Task) override {}
    std::unique_ptr<Timer> repeat(std::chrono::nanoseconds, Task) override { return nullptr; }
    std::shared_ptr<RemotePort> createRemote(std::string_view) override { return nullptr; }
    std::shared_ptr<LocalPort> createLocal(std::string_view, MessageCallback) override { return nullptr; }
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain&) override { return nullptr; }
    void getIdentifierForUserVisibleFile(const FileURL&, IdentifierHandler) override {}
    std::shared_ptr<XPCListener> makeAnonymousListener() override { return nullptr; }
    bool writeAtomically(std::string_view, std::string_view) override { return false; }
    void printLine(std::string_view) override {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration, ObjectCoder) override { return nullptr; }
};

LogMessage sampleMessage() {
    static const LogMetadata none;
    return {.level = LogLevel::info,
            .message = kMessage,
            .function = kFunction,
            .file = "BrindlemarFileProvider/ItemLookup.cpp",
            .line = 41,
            .information = none,
            .date = std::chrono::system_clock::now(),
            .threadID = 123456};
}

void twoWrites(benchmark::State& state) {
    const std::string line = LogFormatter().formatMessage(sampleMessage()) + "\n";
    const TemporaryDirectory directory;
    const int first = ::open((directory.path + "/a").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int second = ::open((directory.path + "/b").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    for (auto _ : state)
        for (const int file : {first, second})
            if (::write(file, line.data(), line.size()) < 0) state.SkipWithError("write failed");
    ::close(first);
    ::close(second);
}
BENCHMARK(twoWrites)->Iterations(1'000'000)->UseRealTime();

void lineToBothSinks(benchmark::State& state) {
    WallClock clock;
    TwoFiles log;
    NoServices none;
    Platform::install({clock, none, none, none, none, none, none, none, none, log});
    for (auto _ : state) {
        const LogScope scope{Logger::shared(), kFunction};
        scope.info("In info for ", std::string_view(kMessage).substr(12));
    }
    Logger::reset(); // the last millisecond is not timed: the floor's pages do not wait for the disk either
    state.counters["dropped"] = static_cast<double>(state.iterations()) - log.lines() / 2.0;
}
BENCHMARK(lineToBothSinks)->Iterations(1'000'000)->UseRealTime();

void formattingFloor(benchmark::State& state) {
    const LogMessage message = sampleMessage();
    std::string line;
    for (auto _ : state) {
        line.clear();
        line.append("t=").append("2024-03-05T14:07:09.042+01:00").append(" level=").append("INFO").append(" msg=\"");
        line.append(message.message).append("\" thread=");
        char digits[20];
        line.append(digits, std::to_chars(digits, digits + sizeof digits, message.threadID).ptr);
        line.append("  location=\"").append("BrindlemarFileProvider").append("/").append("ItemLookup").append(":");
        line.append(digits, std::to_chars(digits, digits + sizeof digits, message.line).ptr);
        line.append("\" function=\"").append(message.function).append("\"");
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(formattingFloor);

void formatting(benchmark::State& state) {
    LogMessage message = sampleMessage();
    LogLine line;
    const LogFormatter formatter;
    for (auto _ : state) {
        line.truncate(0);
        message.date += std::chrono::microseconds(10);
        formatter.appendMessage(line, message);
        benchmark::DoNotOptimize(line.text());
    }
}
BENCHMARK(formatting);

} // namespace
} // namespace brindlemar
