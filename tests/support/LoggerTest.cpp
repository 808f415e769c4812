#include "support/Logger.h"
#include "fakes/FakeClock.h"
#include "fakes/UnusedServices.h"
#include "support/Guarded.h"

#include <gtest/gtest.h>

#include <thread>

namespace brindlemar {
namespace {

struct Recorded {
    std::vector<std::string> lines;
    int urgent = 0, flushes = 0;
};
using Record = std::shared_ptr<Guarded<Recorded>>;

class RecordingDestination : public LogDestination {
public:
    explicit RecordingDestination(Record record) : record_(std::move(record)) {}
    void write(std::string_view line, bool urgent) override {
        record_->with([&](Recorded& recorded) {
            recorded.lines.emplace_back(line);
            recorded.urgent += urgent;
        });
    }
    void flush() override {
        record_->with([](Recorded& recorded) { ++recorded.flushes; });
    }

private:
    Record record_;
};

struct RecordingBackend : LogBackend {
    std::unique_ptr<LogDestination> console() override {
        ++consoles;
        return std::make_unique<RecordingDestination>(consoleRecord);
    }
    std::unique_ptr<LogDestination> file(const RotatingLogFile& file) override {
        opened = file;
        return fileFails ? nullptr : std::make_unique<RecordingDestination>(fileRecord);
    }
    std::optional<std::string> libraryDirectory() override { return library; }
    std::uint64_t threadID() override { return 42; }

    std::atomic<int> consoles{0};
    std::optional<std::string> library = "/library";
    bool fileFails = false;
    std::optional<RotatingLogFile> opened;
    Record consoleRecord = std::make_shared<Guarded<Recorded>>(), fileRecord = std::make_shared<Guarded<Recorded>>();
};

struct LoggerTest : ::testing::Test {
    LoggerTest() { Platform::install(services.platform(clock, backend)); }
    ~LoggerTest() override { Logger::reset(); }
    FakeClock clock;
    RecordingBackend backend;
    UnusedServices services;
};

TEST_F(LoggerTest, WritesOneLineToBothSinks) {
    const LogScope log{Logger::shared(), "a(b:)"};
    log.debug("pages: ", 3, " of ", std::string("four"));
    log.errorWith({{"itemID", "7"}}, "failed");
    Logger::shared().log(LogLevel::trace, {}, "not written");
    const Recorded console = backend.consoleRecord->copy(), file = backend.fileRecord->copy();
    ASSERT_EQ(console.lines.size(), 2u);
    EXPECT_EQ(console.lines, file.lines);
    EXPECT_EQ(console.urgent, 1);
    const std::string location = "location=\"BrindlemarFileProvider/LoggerTest:" + std::to_string(__LINE__ - 7) + "\"";
    EXPECT_NE(
        console.lines[0].find("level=DEBUG msg=\"pages: 3 of four\" thread=42  " + location + " function=\"a(b:)\""),
        std::string::npos)
        << console.lines[0];
    EXPECT_NE(console.lines[1].find("level=ERROR msg=\"failed\" thread=42 itemID=\"7\" location="), std::string::npos);
    EXPECT_EQ(Logger::shared().label(), "io.brindlemar.FileProvider.log");
}

TEST_F(LoggerTest, OpensTheRotatingFileUnderTheLibraryDirectory) {
    Logger::shared();
    ASSERT_TRUE(backend.opened);
    EXPECT_EQ(backend.opened->path, "/library/Logs/Brindlemar/FileProvider.log");
    EXPECT_EQ(backend.opened->permission, 0640u);
    EXPECT_EQ(backend.opened->maximumFileSize, 31457280u);
    EXPECT_EQ(backend.opened->maximumArchives, 7u);
}

TEST_F(LoggerTest, CarriesOnWithTheConsoleWithoutAFile) {
    for (const bool noLibrary : {true, false}) {
        Logger::reset();
        backend.library = noLibrary ? std::nullopt : std::optional<std::string>("/library");
        backend.fileFails = !noLibrary;
        LogScope{Logger::shared(), "f()"}.info("still heard");
    }
    EXPECT_EQ(backend.consoleRecord->copy().lines.size(), 2u);
    EXPECT_TRUE(backend.fileRecord->copy().lines.empty());
}

TEST_F(LoggerTest, IsBuiltOnceHoweverManyThreadsAskFirst) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([] { LogScope{Logger::shared(), "f()"}.info("here"); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(backend.consoles, 1);
    EXPECT_EQ(backend.fileRecord->copy().lines.size(), 8u);
}

TEST_F(LoggerTest, ResetFlushesAndTheNextUseBuildsANewOne) {
    Logger::shared();
    Logger::reset();
    EXPECT_EQ(backend.fileRecord->copy().flushes, 1);
    Logger::shared();
    EXPECT_EQ(backend.consoles, 2);
}

} // namespace
} // namespace brindlemar
