#include "linux/log/BatchedLog.h"
#include "fakes/Patience.h"
#include "support/Guarded.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace brindlemar {
namespace {

using namespace std::chrono_literals;

/// What arrived, and how much of it may.
struct Wire {
    std::string bytes;
    std::size_t room = std::string::npos;
};

/// An output that does what the test says.
struct Output : LogOutput {
    explicit Output(std::function<std::size_t(std::string_view)> body) : body(std::move(body)) {}
    std::size_t write(std::string_view bytes) override { return body(bytes); }
    std::function<std::size_t(std::string_view)> body;
};

struct BatchedLogTest : ::testing::Test {
    Guarded<Wire> shared;
    std::unique_ptr<BatchedLog> make(BatchedLog::Limits limits) {
        const auto write = [this](std::string_view bytes) {
            return shared.with([&](Wire& wire) {
                const std::size_t taken = std::min(bytes.size(), wire.room);
                wire.bytes.append(bytes.substr(0, taken));
                if (wire.room != std::string::npos) wire.room -= taken;
                return taken;
            });
        };
        return std::make_unique<BatchedLog>(std::make_unique<Output>(write), limits);
    }
    std::string bytes() { return shared.copy().bytes; }
    void setRoom(std::size_t room) {
        shared.with([room](Wire& wire) { wire.room = room; });
    }
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
    Event arrived;
    BatchedLog alone(std::make_unique<Output>([&](std::string_view line) {
        if (!line.empty()) arrived.happen();
        return line.size();
    }));
    alone.write("by itself", false);
    EXPECT_TRUE(arrived.happens());
}

TEST_F(BatchedLogTest, GoesOnWhereAFailingOutputStopped) {
    auto log = make({.retry = kNever, .patience = kNever});
    setRoom(5);
    log->write("first line", true);
    EXPECT_EQ(bytes(), "first");
    log->write("second line", true);
    EXPECT_EQ(bytes(), "first");
    setRoom(std::string::npos);
    log->flush();
    EXPECT_EQ(bytes(), "first line\nsecond line\n");
}

TEST_F(BatchedLogTest, DropsAndCountsWhatTheBacklogCannotHold) {
    auto log = make({.backlog = 100, .retry = kNever, .patience = kNever});
    setRoom(0);
    const std::string line(39, 'x');
    log->write("first", true);
    for (int i = 0; i < 5; ++i) log->write(line, false);
    log->flush();
    log->write(line, true);
    setRoom(std::string::npos);
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
        log->write(std::to_string(i), false);
        all += std::to_string(i) + "\n";
    }
    const std::string longerThanAllRoom(1000, 'x');
    log->write(longerThanAllRoom, false);
    log->flush();
    EXPECT_EQ(bytes(), all + longerThanAllRoom + "\n");

    Event release;
    const auto stuck = [&](std::string_view line) { return release.happens() ? line.size() : 0; };
    BatchedLog still(std::make_unique<Output>(stuck), {.patience = 1ms});
    still.write("urgent", true); // comes back
    still.flush();
    release.happen();
}

TEST_F(BatchedLogTest, LinesOfManyThreadsStayWholeAndInOrder) {
    constexpr int kThreads = 4, kLines = 5'000;
    auto log = make({.backlog = std::size_t{64} << 20});
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&log, thread] {
                const std::string end = " " + std::string(static_cast<std::size_t>(thread) * 13, 'f') + "end";
                for (int i = 0; i < kLines; ++i)
                    log->write(std::to_string(thread) + " " + std::to_string(i) + end, i % 1000 == 0);
            });
    }
    log.reset();
    std::istringstream lines(bytes());
    std::map<int, int> next;
    for (std::string line; std::getline(lines, line);) {
        int thread = -1, number = -1;
        std::string rest;
        std::istringstream(line) >> thread >> number >> rest;
        ASSERT_EQ(number, next[thread]++) << line;
        ASSERT_EQ(rest, std::string(static_cast<std::size_t>(thread) * 13, 'f') + "end");
    }
    for (int thread = 0; thread < kThreads; ++thread) EXPECT_EQ(next[thread], kLines);
}

} // namespace
} // namespace brindlemar
