#include "linux/log/BatchedLog.h"
#include "support/Guarded.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
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

class WireOutput : public LogOutput {
public:
    explicit WireOutput(std::shared_ptr<Guarded<Wire>> wire) : wire_(std::move(wire)) {}
    std::size_t write(std::string_view bytes) override {
        return wire_->with([&](Wire& wire) {
            const std::size_t taken = std::min(bytes.size(), wire.room);
            wire.bytes.append(bytes.substr(0, taken));
            if (wire.room != std::string::npos) wire.room -= taken;
            return taken;
        });
    }

private:
    std::shared_ptr<Guarded<Wire>> wire_;
};

struct BatchedLogTest : ::testing::Test {
    std::shared_ptr<Guarded<Wire>> wire = std::make_shared<Guarded<Wire>>();
    std::unique_ptr<BatchedLog> make(BatchedLog::Limits limits) {
        return std::make_unique<BatchedLog>(std::make_unique<WireOutput>(wire), limits);
    }
    std::string bytes() { return wire->copy().bytes; }
    void setRoom(std::size_t room) {
        wire->with([room](Wire& wire) { wire.room = room; });
    }
};

constexpr auto kNever = std::chrono::hours(1);

TEST_F(BatchedLogTest, UrgentLinesTakeAllBeforeThemAlong) {
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
}

TEST_F(BatchedLogTest, OtherLinesArriveByThemselves) {
    std::promise<void> arrived;
    struct Signalling : LogOutput {
        explicit Signalling(std::promise<void>& promise) : arrived(promise) {}
        std::size_t write(std::string_view bytes) override {
            if (!bytes.empty()) arrived.set_value();
            return bytes.size();
        }
        std::promise<void>& arrived;
    };
    BatchedLog log(std::make_unique<Signalling>(arrived));
    log.write("one", false);
    EXPECT_EQ(arrived.get_future().wait_for(60s), std::future_status::ready);
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

TEST_F(BatchedLogTest, CallersWaitForAnOutputThatIsMerelyBehind) {
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
}

TEST_F(BatchedLogTest, AnOutputThatStandsStillHoldsNobodyForLong) {
    struct Stuck : LogOutput {
        std::size_t write(std::string_view bytes) override {
            released.wait();
            return bytes.size();
        }
        explicit Stuck(std::shared_future<void> future) : released(std::move(future)) {}
        std::shared_future<void> released;
    };
    std::promise<void> release;
    BatchedLog log(std::make_unique<Stuck>(release.get_future().share()), {.patience = 1ms});
    log.write("urgent", true); // comes back
    log.flush();
    release.set_value();
}

TEST_F(BatchedLogTest, LinesOfManyThreadsStayWholeAndInOrder) {
    constexpr int kThreads = 4, kLines = 5'000;
    auto log = make({.backlog = std::size_t{64} << 20});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&log, thread] {
            const std::string fill(static_cast<std::size_t>(thread) * 13, 'f');
            for (int i = 0; i < kLines; ++i)
                log->write(std::to_string(thread) + " " + std::to_string(i) + " " + fill + "end", i % 1000 == 0);
        });
    for (auto& thread : threads) thread.join();
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
