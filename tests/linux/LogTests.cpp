#include "fakes/Patience.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/log/BatchedLog.h"
#include "linux/log/LogFiles.h"
#include "linux/log/RotatingFile.h"
#include "support/Guarded.h"

#include <gtest/gtest.h>

#include <sys/file.h>

#include <fcntl.h>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <thread>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// An output that does what the test says.
struct Output : LogOutput {
    explicit Output(std::function<std::size_t(std::string_view)> body) : body(std::move(body)) {}
    std::size_t write(std::string_view bytes) override { return body(bytes); }
    std::function<std::size_t(std::string_view)> body;
};

struct BatchedLogTest : ::testing::Test {
    Guarded<std::string> arrived;
    std::atomic<std::size_t> room = std::string::npos; // what the output takes yet
    std::unique_ptr<BatchedLog> make(BatchedLog::Limits limits) {
        const auto write = [this](std::string_view bytes) {
            const std::size_t taken = std::min(bytes.size(), room.load());
            arrived.with([&](std::string& all) { all.append(bytes.substr(0, taken)); });
            if (room != std::string::npos) room -= taken;
            return taken;
        };
        return std::make_unique<BatchedLog>(std::make_unique<Output>(write), limits);
    }
    std::string bytes() { return arrived.copy(); }
};

constexpr auto kNever = std::chrono::hours(1);

TEST_F(BatchedLogTest, UrgentLinesTakeAllBeforeThemAlongAndOthersFollow) {
    auto log = make({.gathering = kNever, .patience = kNever});
    log->write("one", false);
    EXPECT_EQ(bytes(), "");
    log->write("two", true);
    EXPECT_EQ(bytes(), "one\ntwo\n");
    log->write("three", false);
    log->flush();
    EXPECT_EQ(bytes(), "one\ntwo\nthree\n");
    log->write("four", false);
    log.reset();
    EXPECT_EQ(bytes(), "one\ntwo\nthree\nfour\n");
    Event came;
    BatchedLog alone(std::make_unique<Output>([&](std::string_view line) {
        if (!line.empty()) came.happen();
        return line.size();
    }));
    alone.write("by itself", false);
    EXPECT_TRUE(came.happens());
}

TEST_F(BatchedLogTest, DropsAndCountsWhatTheBacklogCannotHold) {
    auto log = make({.backlog = 100, .retry = kNever, .patience = kNever});
    const std::string line(39, 'x');
    room = 3;
    log->write("first", true);
    EXPECT_EQ(bytes(), "fir"); // it goes on from there
    for (int i = 0; i < 5; ++i) log->write(line, false);
    log->flush();
    log->write(line, true);
    room = std::string::npos;
    log->flush();
    log->write("after", true);
    const std::string all = bytes(), kept = "first\n" + line + "\n" + line + "\n";
    EXPECT_TRUE(all.starts_with(kept + "t=")) << all;
    EXPECT_NE(all.find("level=WARNING msg=\"4 log lines were dropped\""), std::string::npos) << all;
    EXPECT_TRUE(all.ends_with("\nafter\n"));
}

TEST_F(BatchedLogTest, CallersWaitForAnOutputThatIsBehindButNotForOneThatStandsStill) {
    auto log = make({.backlog = 100, .gathering = kNever, .patience = kNever});
    std::string all;
    for (int i = 0; i < 1000; ++i) {
        log->write(i < 999 ? std::to_string(i) : std::string(1000, 'x'), false); // the last fits no backlog
        all += (i < 999 ? std::to_string(i) : std::string(1000, 'x')) + "\n";
    }
    log->flush();
    EXPECT_EQ(bytes(), all);
    Event release;
    const auto stuck = [&](std::string_view line) { return release.happens() ? line.size() : 0; };
    BatchedLog still(std::make_unique<Output>(stuck), {.patience = 1ms});
    still.write("urgent", true); // comes back
    still.flush();
    release.happen();
}

TEST_F(BatchedLogTest, LinesOfManyThreadsStayWholeAndInOrder) {
    auto log = make({.backlog = std::size_t{64} << 20});
    const auto line = [](int thread, int number) {
        return std::to_string(thread) + " " + std::to_string(number) + std::string(thread * 13ul, 'f') + "end";
    };
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 5'000; ++i) log->write(line(thread, i), i % 1000 == 0);
        });
    threads.clear();
    log.reset();
    std::istringstream lines(bytes());
    std::vector<int> next(4);
    for (std::string text; std::getline(lines, text);) {
        const int thread = text[0] - '0';
        ASSERT_EQ(text, line(thread, next.at(thread)++));
    }
    EXPECT_EQ(next, std::vector(4, 5'000));
}

/// The oldest first.
std::vector<std::string> archivesOf(const std::string& path) {
    std::vector<std::string> archives;
    for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path()))
        if (entry.path() != path) archives.push_back(entry.path());
    std::sort(archives.begin(), archives.end());
    return archives;
}

struct RotatingFileTest : ::testing::Test {
    TemporaryDirectory directory;
    const std::string path = directory / "Logs/Brindlemar/FileProvider.log", fill = std::string(36, 'x') + "\n";
    RotatingLogFile file{.path = path, .maximumFileSize = 100, .maximumArchives = 3};
    std::string numbered(int number) const { return std::to_string(number) + fill; } // two of them fill a file
};

TEST_F(RotatingFileTest, RotatesAtLineEndsAndKeepsTheNewestArchives) {
    const mode_t before = ::umask(0077);
    auto output = RotatingFile::open(file);
    ::umask(before);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640)); // whatever the umask
    std::string lines, all;
    for (int i = 100; i < 112; ++i) lines += numbered(i);
    EXPECT_EQ(output->write(lines), lines.size());
    const Strings archives = archivesOf(path);
    ASSERT_EQ(archives.size(), 3u);
    for (const std::string& archive : archives) {
        std::string suffix = archive.substr(path.size());
        for (char& c : suffix) c = std::isxdigit(static_cast<unsigned char>(c)) ? 'X' : c;
        EXPECT_EQ(suffix, ".XXXXXXXXTXXXXXX.XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
        all += contentsOf(archive);
    }
    EXPECT_EQ(all + contentsOf(path), lines.substr(lines.size() * 4 / 12)); // four files are left
    const std::string big = std::string(500, 'b') + "\n";
    EXPECT_EQ(output->write(big + "small\n"), 6 + big.size());
    EXPECT_EQ(contentsOf(archivesOf(path)[2]), big); // a file of its own
}

TEST_F(RotatingFileTest, ARemovedFileIsMadeAgain) {
    auto output = RotatingFile::open(file);
    output->write("lost\n");
    fs::remove_all(directory / "Logs");
    EXPECT_EQ(output->write("found\n"), 6u);
    EXPECT_EQ(contentsOf(path), "found\n");
    fs::remove_all(directory / "Logs");
    std::ofstream(directory / "Logs") << "in the way";
    EXPECT_EQ(output->write("later\n"), 0u);
    fs::remove(directory / "Logs");
    EXPECT_EQ(output->write("later\n"), 6u);
    EXPECT_EQ(contentsOf(path), "later\n");
    LogFiles logs;
    std::ofstream(directory / "occupied") << "a file";
    file.path = directory / "occupied/log";
    EXPECT_EQ(logs.file(file), nullptr);
    file.path = "/dev/full";
    const auto full = logs.file(file);
    for (int i = 0; i < 100; ++i) full->write("what cannot be written never reaches the caller", i % 10 == 0);
}

TEST_F(RotatingFileTest, TwoWritersShareOnePathWithoutLosingLines) {
    file.maximumArchives = 250;
    const auto writer = [this](int first) {
        auto output = RotatingFile::open(file);
        for (int i = first; i < first + 200; ++i) EXPECT_EQ(output->write(numbered(i)), numbered(i).size());
    };
    std::thread other(writer, 100);
    writer(300);
    other.join();
    std::string all = contentsOf(path);
    for (const std::string& archive : archivesOf(path)) all += contentsOf(archive);
    for (int i = 100; i < 500; ++i) EXPECT_NE(all.find(numbered(i)), all.npos) << i;
    EXPECT_EQ(all.size(), 400 * numbered(100).size());
    EXPECT_GT(archivesOf(path).size(), 40u);
}

TEST_F(RotatingFileTest, AFileThatCannotBeMovedIsWrittenOnAndNotKeptLocked) {
    file.path = directory / std::string(230, 'n'); // an archive's name would be too long
    auto output = RotatingFile::open(file);
    const std::string lines = std::string(99, 'a') + "\n" + std::string(99, 'b') + "\n";
    EXPECT_EQ(output->write(lines), lines.size());
    EXPECT_EQ(contentsOf(file.path), lines);
    const FileDescriptor other(::open(file.path.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0) << "nobody else may ever move it";
}

TEST(LogFiles, LibraryDirectoryComesFromTheEnvironment) {
    const auto libraryWith = [](const char* own, const char* state) {
        ::setenv("BRINDLEMAR_LIBRARY_DIR", own, 1);
        ::setenv("XDG_STATE_HOME", state, 1);
        ::setenv("HOME", "/home", 1);
        return LogFiles().libraryDirectory();
    };
    EXPECT_EQ(libraryWith("/own", "/state"), "/own");
    EXPECT_EQ(libraryWith("", "/state"), "/state/brindlemar");
    EXPECT_EQ(libraryWith("relative", "relative"), "/home/.local/state/brindlemar");
}

} // namespace
} // namespace brindlemar
