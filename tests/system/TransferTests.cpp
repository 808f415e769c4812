// Files on their way between the user, the service and the host, with the ends that they can come to.
#include "system/ProgramsTest.h"

#include <sys/stat.h>

#include <random>

namespace brindlemar::system_tests {
namespace {

namespace fs = std::filesystem;

struct stat infoOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info : (ADD_FAILURE() << "no " << path, info);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

class TransferTests : public ProgramsTest {
protected:
    /// What the service keeps of transfers: private copies, and fetched files that nobody has taken away.
    std::size_t kept() const {
        std::size_t count = 0;
        for (const char* place : {"tmp", "fetched"})
            count += std::distance(fs::directory_iterator(domain() / place), fs::directory_iterator());
        return count;
    }
    fs::path domain() const { return fs::directory_iterator(world.path + "/state/brindlemar/domains")->path(); }
    /// One request waits, and it is no working set's; `copies` are kept for it.
    bool isUnderWay(std::size_t copies) {
        return eventually([&] { return waiting() == 1 && !isEnumerating() && kept() == copies; });
    }
    std::string served(const std::string& name) const { return world.path + "/photos/" + name; }
    Process start(const Arguments& arguments, const std::string& name) {
        return Process(BRINDLEMAR, arguments, world.path + "/" + name);
    }
    void restartService() {
        world.startService();
        ASSERT_TRUE(world.runUntil({"ls"}, kTop, 10));
    }
};

TEST_F(TransferTests, TreesComeBackAsTheyWentWithTheirDates) {
    startBoth();
    const int files = kLong ? 10'000 : 200;
    const std::string up = world.path + "/up", back = world.path + "/back";
    for (int i = 0; i < files; ++i) {
        const std::string name = "up/folder " + std::to_string(i % 7) + "/" + std::to_string(i);
        world.file(name, std::string(static_cast<std::size_t>(i * 37 % 5000), static_cast<char>('a' + i % 26)));
    }
    fs::create_directory(up + "/empty");
    timespec dates[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, {.tv_sec = 1'000'000'000, .tv_nsec = 0}};
    for (const auto& entry : fs::recursive_directory_iterator(up)) {
        ++dates[1].tv_sec;
        ::utimensat(AT_FDCWD, entry.path().c_str(), dates, 0);
    }
    ASSERT_EQ(world.run({"put", up, "Photos/up"}).errors, "");
    ASSERT_EQ(world.run({"get", "Photos/up", back}).errors, "");
    for (const std::string& copy : {served("up"), back}) {
        const Result difference = world.run({"-r", up, copy}, "/usr/bin/diff");
        EXPECT_EQ(difference.status, 0) << difference.output << difference.errors;
        for (const auto& entry : fs::recursive_directory_iterator(up))
            EXPECT_EQ(infoOf(copy + entry.path().string().substr(up.size())).st_mtime, infoOf(entry.path()).st_mtime)
                << entry.path();
    }
    EXPECT_TRUE(eventually([&] { return kept() == 0; }));
}

TEST_F(TransferTests, AFileBeyondThirtyTwoBitsStaysWholeAndSparse) {
    startBoth();
    const std::string local = world.path + "/sparse", back = world.path + "/back";
    const off_t size = (off_t{4} << 30) + 5;
    {
        const FileDescriptor file(::open(local.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        for (const off_t at : {off_t{0}, off_t{3} << 30, size - 3}) ASSERT_EQ(::pwrite(file.get(), "abc", 3, at), 3);
    }
    ASSERT_EQ(world.run({"put", local, "Photos/"}).errors, "");
    ASSERT_EQ(world.run({"get", "Photos/sparse", back}).errors, "");
    for (const std::string& copy : {served("sparse"), back}) {
        EXPECT_EQ(infoOf(copy).st_size, size);
        EXPECT_EQ(infoOf(copy).st_mtime, infoOf(local).st_mtime);
        EXPECT_LE(infoOf(copy).st_blocks, infoOf(local).st_blocks + 128) << "blocks of 512 bytes";
        const FileDescriptor file(::open(copy.c_str(), O_RDONLY | O_CLOEXEC));
        for (const off_t at : {off_t{0}, off_t{3} << 30, size - 3}) {
            char bytes[4] = "";
            EXPECT_EQ(::pread(file.get(), bytes, 3, at), 3);
            EXPECT_STREQ(bytes, "abc");
        }
        if (kLong) {
            EXPECT_EQ(world.run({local, copy}, "/usr/bin/cmp").status, 0);
        }
    }
    const std::string item = world.run({"call", "item", "photos|sparse", "--json"}).output;
    EXPECT_EQ(JSON::parse(item.substr(0, item.find('\n')))["item"]["documentSize"].number()->int64Value(), 5)
        << "items keep 32 bits";
}

TEST_F(TransferTests, AHostKilledInATransferLeavesNothingHalf) {
    world.file("up", "new contents");
    const std::string back = world.path + "/back";
    const struct {
        const char* held;
        std::size_t copies;
        Arguments command;
        std::string target, contents;
    } cases[] = {{"fetchItem", 0, {"get", "Photos/2024/a.txt", back}, back, "12 bytes long"},
                 {"uploadItemAtPath", 1, {"put", world.path + "/up", "Photos/up"}, served("up"), "new contents"}};
    world.startService();
    for (const auto& [held, copies, command, target, contents] : cases) {
        SCOPED_TRACE(held);
        world.startHost(connections({"--hold", held}));
        ASSERT_TRUE(world.runUntil({"ls", "Photos/2024"}, "a.txt\n", 10));
        Process transfer = start(command, "transfer");
        ASSERT_TRUE(isUnderWay(copies));
        const auto killed = Clock::now();
        world.host.end(SIGKILL);
        EXPECT_EQ(transfer.wait(), 4);
        EXPECT_LT(secondsSince(killed), kSanitized ? 5 : 1);
        EXPECT_FALSE(fs::exists(target));
        EXPECT_TRUE(eventually([&] { return kept() == 0; }));
        world.startHost(connections());
        ASSERT_TRUE(world.runUntil({"ls"}, kTop, 10));
        EXPECT_EQ(world.run(command).errors, "");
        EXPECT_EQ(contentsOf(target), contents);
        world.host.end(SIGKILL);
    }
}

TEST_F(TransferTests, AServiceKilledInAnUploadLeavesTheOldFile) {
    world.file("up", "new contents");
    world.file("photos/up", "old contents");
    startBoth({"--hold", "uploadItemAtPath"});
    Process transfer = start({"put", world.path + "/up", "Photos/up"}, "transfer");
    ASSERT_TRUE(isUnderWay(1));
    world.service.end(SIGKILL);
    EXPECT_EQ(transfer.wait(), 1);
    restartService();
    EXPECT_EQ(kept(), 0u);
    EXPECT_EQ(contentsOf(served("up")), "old contents");
}

TEST_F(TransferTests, ManyAtOnceAndSomeInterruptedEndOnceAndLeaveNothing) {
    const std::size_t pairs = kLong ? 100 : 16;
    const std::string contents(300'000, 'c');
    for (std::size_t i = 0; i < pairs; ++i) {
        world.file("photos/down" + std::to_string(i), contents);
        world.file("local/" + std::to_string(i), contents);
    }
    startBoth();
    ASSERT_EQ(world.run({"ls", "Photos"}).status, 0);
    const std::size_t descriptors = world.service.descriptors();
    std::vector<Process> transfers(2 * pairs);
    std::vector<std::string> targets;
    std::mt19937 random(7);
    for (std::size_t i = 0; i < pairs; ++i) {
        const std::string number = std::to_string(i), back = world.path + "/back" + number;
        targets.insert(targets.end(), {back, served("up" + number)});
        transfers[2 * i] = start({"get", "Photos/down" + number, back}, "get" + number);
        transfers[2 * i + 1] = start({"put", world.path + "/local/" + number, "Photos/up" + number}, "put" + number);
        if (i % 2) ::kill(transfers[2 * i + 1 - random() % 4].pid(), SIGINT); // one of the last, which run yet
    }
    std::size_t ended = 0;
    for (std::size_t i = 0; i < transfers.size(); ++i) {
        const int status = transfers[i].wait();
        const bool there = fs::exists(targets[i]);
        ended += status == 130;
        EXPECT_TRUE(status == 130 || (status == 0 && there))
            << status << contentsOf(world.path + "/get" + std::to_string(i / 2) + ".err");
        if (there) {
            EXPECT_EQ(contentsOf(targets[i]) == contents, true) << targets[i];
        }
    }
    EXPECT_GE(ended, 1u);
    EXPECT_TRUE(eventually([&] { return waiting() == 0 && kept() == 0; })) << waiting() << " " << kept();
    EXPECT_TRUE(eventually([&] { return world.service.descriptors() <= descriptors; })) << world.service.descriptors();
}

TEST_F(TransferTests, WatchTellsWhatTheHostChanged) {
    startBoth();
    const auto output = world.control().call("watch", "{}");
    ::fcntl(output->get(), F_SETFL, O_NONBLOCK);
    std::string told;
    const auto tells = [&](const std::string& event) {
        return eventually([&] {
            told += readAll(*output);
            return told.find(event) != std::string::npos;
        });
    };
    ASSERT_EQ(world.run({"ls", "Photos/2024"}).status, 0);
    EXPECT_TRUE(tells(R"("filename":"a.txt")"));
    world.file("photos/2024/a.txt", "other contents");
    world.file("photos/2024/new.txt");
    // Listed lately; what that puts into the cache may come there after it was emptied.
    EXPECT_TRUE(eventually([&] {
        readAll(*world.control().call("forget", "{}"));
        EXPECT_EQ(world.run({"ls", "Photos/2024"}).status, 0);
        told += readAll(*output);
        return told.find(R"("filename":"new.txt")") != std::string::npos;
    }));
    EXPECT_TRUE(tells(R"("documentSize":14)"));
    if (kLong) { // a folder is asked for its deletions when it is opened again ten seconds later
        fs::remove(served("2024/a.txt"));
        const auto start = Clock::now();
        const std::string event = R"({"event":"deleted","identifiers":["photos|2024/a.txt"]})";
        while (told.find(event) == std::string::npos && secondsSince(start) < 15) {
            world.run({"ls", "Photos/2024"});
            told += readAll(*output);
        }
        EXPECT_NE(told.find(event), std::string::npos) << told;
    }
    world.host.end(SIGTERM);
    world.startHost({"Work=" + world.path + "/work", "Third=" + world.path + "/photos"});
    ASSERT_TRUE(world.runUntil({"ls"}, "Third\nWork\n", 10));
    EXPECT_TRUE(tells(R"("filename":"Third")"));
    EXPECT_TRUE(tells(R"({"event":"deleted","identifiers":["photos|0"]})")) << told;
}

} // namespace
} // namespace brindlemar::system_tests
