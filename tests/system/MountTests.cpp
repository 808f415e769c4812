// The view as programs see it: system calls on a real mount, with the reference host behind it.
#include "system/ProgramsTest.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace brindlemar::system_tests {
namespace {

namespace fs = std::filesystem;

class MountTests : public ProgramsTest {
protected:
    void SetUp() override {
        if (::access("/dev/fuse", R_OK | W_OK) != 0)
            GTEST_SKIP() << "/dev/fuse is missing or not ours to open: the mount is not tested here";
        ProgramsTest::SetUp();
        startMounted();
        world.startHost(connections());
        ASSERT_TRUE(eventually([&] { return fs::exists(at("Work/b.txt")); }));
    }
    void TearDown() override {
        if (IsSkipped()) return;
        ProgramsTest::TearDown();
        world.service.end(SIGTERM);
    }
    void startMounted() { world.service = Process(BRINDLEMARD, {"--mount", mount}, world.path + "/service"); }
    std::string at(const std::string& path) const { return mount + "/" + path; }
    std::string served(const std::string& path) const { return world.path + "/" + path; }
    /// Opens, writes, closes; 0 or the errno of what failed.
    static int write(const std::string& path, std::string_view bytes, int flags = O_CREAT | O_TRUNC) {
        const FileDescriptor file(::open(path.c_str(), O_WRONLY | flags, 0644));
        if (!file || ::write(file.get(), bytes.data(), bytes.size()) < 0) return errno;
        return ::close(const_cast<FileDescriptor&>(file).release()) == 0 ? 0 : errno;
    }
    static std::string attribute(const std::string& path, const std::string& name) {
        char value[1024];
        const ssize_t size = ::getxattr(path.c_str(), ("user.brindlemar." + name).c_str(), value, sizeof value);
        return size < 0 ? "" : std::string(value, static_cast<std::size_t>(size));
    }
    static int errnoOf(int result) { return result < 0 ? errno : 0; }
    bool isDrained() {
        return eventually([&] { return status()["queue"]["length"].number()->int64Value() == 0; });
    }
    const std::string mount = world.path + "/mount";
};

TEST_F(MountTests, ReadsFetchAndNothingElseDoes) {
    const FileDescriptor file(::open(at("Photos/2024/a.txt").c_str(), O_RDONLY));
    EXPECT_EQ(fs::file_size(at("Photos/2024/a.txt")), 13u);
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(at("Photos")), {}), 2);
    EXPECT_EQ(attribute(at("Photos/2024/a.txt"), "state"), "known");
    struct stat before {
    }, after{};
    ASSERT_EQ(::stat(at("Photos/2024/a.txt").c_str(), &before), 0);
    EXPECT_EQ(before.st_blocks, 1) << "tar(1) would take it for a hole";
    EXPECT_EQ(::listxattr(at("Photos/2024/a.txt").c_str(), nullptr, 0), 0) << "cp(1) would carry them away";
    ASSERT_EQ(::chmod(at("Photos/2024/a.txt").c_str(), 0640), 0);
    ASSERT_EQ(::stat(at("Photos/2024/a.txt").c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_GT(std::pair(after.st_ctim.tv_sec, after.st_ctim.tv_nsec),
              std::pair(before.st_ctim.tv_sec, before.st_ctim.tv_nsec))
        << "backups go by it";
    EXPECT_EQ(contentsOf(at("Photos/2024/a.txt")), "12 bytes long");
    EXPECT_EQ(attribute(at("Photos/2024/a.txt"), "state"), "local");
    EXPECT_EQ(attribute(at("Photos/2024/a.txt"), "identifier"), "photos|2024/a.txt");
    EXPECT_EQ(attribute(mount, "connection"), "connected");
}

TEST_F(MountTests, ChangesReachTheHost) {
    ASSERT_EQ(write(at("Work/new.txt"), "one"), 0);
    ASSERT_EQ(write(at("Work/b.txt"), " and more", O_APPEND), 0);
    ASSERT_TRUE(fs::create_directory(at("Work/folder")));
    ASSERT_EQ(write(at("Work/folder/inside"), "in"), 0);
    fs::rename(at("Work/new.txt"), at("Work/folder/moved.txt"));
    // As editors save: a new file takes an old one's place.
    ASSERT_EQ(write(at("Photos/2024/.a.txt.tmp"), "saved"), 0);
    fs::rename(at("Photos/2024/.a.txt.tmp"), at("Photos/2024/a.txt"));
    // A folder in a new one of its own name.
    ASSERT_TRUE(fs::create_directories(at("Photos/nest/in")));
    ASSERT_TRUE(isDrained());
    fs::rename(at("Photos/nest"), at("Photos/egg"));
    ASSERT_TRUE(fs::create_directory(at("Photos/nest")));
    fs::rename(at("Photos/egg"), at("Photos/nest/nest"));
    ASSERT_TRUE(isDrained());
    EXPECT_TRUE(fs::exists(served("photos/nest/nest/in")));
    EXPECT_EQ(contentsOf(served("work/b.txt")), "x and more");
    EXPECT_EQ(contentsOf(served("work/folder/inside")), "in");
    EXPECT_EQ(contentsOf(served("work/folder/moved.txt")), "one");
    EXPECT_FALSE(fs::exists(served("work/new.txt")));
    EXPECT_EQ(contentsOf(served("photos/2024/a.txt")), "saved");
    fs::remove_all(at("Work/folder"));
    ASSERT_TRUE(isDrained());
    EXPECT_FALSE(fs::exists(served("work/folder")));
}

TEST_F(MountTests, OpenFilesStayWhatTheyAre) {
    const auto size = [](const FileDescriptor& file) {
        struct stat now {};
        EXPECT_EQ(::fstat(file.get(), &now), 0);
        return std::pair(now.st_size, now.st_nlink);
    };
    const auto read = [](const FileDescriptor& file) {
        char bytes[100];
        const ssize_t count = ::pread(file.get(), bytes, sizeof bytes, 0);
        return count < 0 ? std::to_string(errno) : std::string(bytes, static_cast<std::size_t>(count));
    };
    // Without a name.
    const FileDescriptor unnamed(::open(at("Work/unnamed").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::unlink(at("Work/unnamed").c_str()), 0);
    ASSERT_EQ(::write(unnamed.get(), "four", 4), 4);
    ASSERT_EQ(::fsync(unnamed.get()), 0);
    EXPECT_EQ(size(unnamed), std::pair(off_t{4}, nlink_t{0}));
    EXPECT_EQ(read(unnamed), "four");
    // With another file in their place.
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "x");
    const FileDescriptor replaced(::open(at("Work/b.txt").c_str(), O_RDONLY));
    ASSERT_EQ(write(at("Work/other"), "other"), 0);
    fs::rename(at("Work/other"), at("Work/b.txt"));
    EXPECT_EQ(read(replaced), "x");
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "other");
    // Pages of a mapping have their place, in a file that is appended to as well.
    FileDescriptor mapped(::open(at("Work/b.txt").c_str(), O_RDWR | O_APPEND));
    void* const page = ::mmap(nullptr, 5, PROT_READ | PROT_WRITE, MAP_SHARED, mapped.get(), 0);
    ASSERT_NE(page, MAP_FAILED);
    std::memcpy(page, "OTHER", 5);
    ASSERT_EQ(::msync(page, 5, MS_SYNC), 0);
    ::munmap(page, 5);
    EXPECT_EQ(read(mapped), "OTHER");
    // Emptied by who only reads.
    ASSERT_EQ(write(at("Work/full"), "full"), 0);
    { const FileDescriptor emptied(::open(at("Work/full").c_str(), O_RDONLY | O_TRUNC)); }
    EXPECT_EQ(contentsOf(at("Work/full")), "");
    ASSERT_TRUE(isDrained());
    EXPECT_EQ(fs::file_size(served("work/full")), 0u);
    EXPECT_EQ(contentsOf(served("work/b.txt")), "OTHER") << "while it is open: msync(2) has made it safe";
    EXPECT_FALSE(fs::exists(served("work/unnamed")));
}

TEST_F(MountTests, WhatIsRefused) {
    const auto calls = std::vector<std::pair<int, std::function<int()>>>{
        {EACCES, [&] { return ::mkdir(at("Third").c_str(), 0700); }},
        {EACCES, [&] { return ::mkdir(at(".Trash-0").c_str(), 0700); }},
        {EACCES, [&] { return ::rename(at("Work").c_str(), at("Play").c_str()); }},
        {EXDEV, [&] { return ::rename(at("Work/b.txt").c_str(), at("Photos/b.txt").c_str()); }},
        {EPERM, [&] { return ::symlink("b.txt", at("Work/link").c_str()); }},
        {EPERM, [&] { return ::link(at("Work/b.txt").c_str(), at("Work/link").c_str()); }},
        {EPERM, [&] { return ::mknod(at("Work/pipe").c_str(), S_IFIFO | 0600, 0); }},
        {EPERM, [&] { return ::chown(at("Work/b.txt").c_str(), 12345, -1); }},
        {EILSEQ, [&] { return ::mkdir(at("Work/\xFF").c_str(), 0700); }},
        {ENOTEMPTY, [&] { return ::rmdir(at("Photos/2024").c_str()); }},
        {ENOENT, [&] { return ::unlink(at("Work/nothing").c_str()); }},
        {EOPNOTSUPP, [&] { return ::setxattr(at("Work/b.txt").c_str(), "user.mine", "1", 1, 0); }},
    };
    for (std::size_t index = 0; index < calls.size(); ++index)
        EXPECT_EQ(errnoOf(calls[index].second()), calls[index].first) << "call " << index;
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "x");
    const std::string reserved = at("Work/.brindlemar-" + std::string(32, '0') + ".part"); // a name of the host's own
    EXPECT_EQ(write(reserved, "x"), 0);
    EXPECT_TRUE(eventually([&] { return attribute(reserved, "error") == "The host could not do this."; }));
    EXPECT_EQ(attribute(at("Work"), "identifier"), "work|0") << "nothing else is the worse for it";
}

TEST_F(MountTests, WithoutAHostWhatIsLocalGoesOn) {
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "x");
    ASSERT_TRUE(fs::exists(at("Photos/2024/a.txt")));
    world.host.end(SIGKILL);
    ASSERT_TRUE(becomes("disconnected"));
    const auto start = Clock::now();
    EXPECT_EQ(write(at("Work/offline.txt"), "kept"), 0);
    EXPECT_EQ(write(at("Work/b.txt"), "changed"), 0);
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "changed");
    const FileDescriptor remote(::open(at("Photos/2024/a.txt").c_str(), O_RDONLY));
    char byte = 0;
    EXPECT_EQ(errnoOf(static_cast<int>(::read(remote.get(), &byte, 1))), EHOSTDOWN);
    EXPECT_LT(secondsSince(start), 1);
    EXPECT_EQ(attribute(mount, "connection"), "Please Launch Brindlemar to continue syncing.");
    world.startHost(connections());
    ASSERT_TRUE(becomes("connected"));
    ASSERT_TRUE(isDrained());
    EXPECT_EQ(contentsOf(served("work/offline.txt")), "kept");
    EXPECT_EQ(contentsOf(served("work/b.txt")), "changed");
}

TEST_F(MountTests, WhatBothSidesChangeIsKeptTwice) {
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "x");
    world.host.end(SIGKILL);
    ASSERT_TRUE(becomes("disconnected"));
    ASSERT_EQ(write(at("Work/b.txt"), "mine"), 0);
    ASSERT_EQ(write(at("Work/new.txt"), "mine, too"), 0);
    std::ofstream(served("work/b.txt")) << "theirs";
    std::ofstream(served("work/new.txt")) << "theirs, too";
    world.startHost(connections());
    const auto copy = [&](const std::string& folder, const std::string& name = "b") {
        std::error_code notYetThere;
        for (const auto& entry : fs::directory_iterator(folder, notYetThere))
            if (entry.path().filename().string().starts_with(name + " (remote copy ")) return contentsOf(entry.path());
        return std::string();
    };
    EXPECT_TRUE(eventually([&] { return copy(at("Work")) == "theirs"; }));
    ASSERT_TRUE(isDrained());
    EXPECT_EQ(contentsOf(at("Work/b.txt")), "mine");
    EXPECT_EQ(contentsOf(served("work/b.txt")), "mine");
    EXPECT_EQ(copy(served("work")), "theirs");
    EXPECT_EQ(contentsOf(served("work/new.txt")), "mine, too");
    EXPECT_EQ(copy(served("work"), "new"), "theirs, too");
}

TEST_F(MountTests, EvictFreesAndFetchBrings) {
    const std::string file = at("Photos/2024/a.txt");
    for (const auto& [command, state, output] : {std::tuple{"fetch", "local", ""},
                                                 {"evict", "known", "Freed 1 file, 13 B\n"},
                                                 {"fetch", "local", ""},
                                                 {"evict", "known", "Freed 1 file, 13 B\n"}}) {
        const auto run = world.run({command, "Photos"});
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(attribute(file, "state"), state);
    }
    EXPECT_EQ(contentsOf(file), "12 bytes long");
}

TEST_F(MountTests, WhatTheHostDoesNotHaveSurvivesADamagedDatabase) {
    world.host.end(SIGKILL);
    ASSERT_TRUE(becomes("disconnected"));
    ASSERT_EQ(write(at("Work/b.txt"), "changed"), 0);
    ASSERT_TRUE(fs::create_directory(at("Work/new")));
    ASSERT_EQ(write(at("Work/new/file"), std::string(100'000, 'n')), 0);
    world.service.end(SIGKILL);
    const std::string database =
        world.path + "/state/brindlemar/domains/io.brindlemar.FileProvider/replica/items.sqlite";
    ASSERT_TRUE(fs::exists(database));
    for (const std::string part : {"-wal", "-shm"}) fs::remove(database + part);
    std::ofstream(database) << "no database";
    startMounted();
    world.startHost(connections());
    ASSERT_TRUE(eventually([&] { return contentsOf(served("work/b.txt")) == "changed"; }));
    EXPECT_TRUE(eventually([&] { return contentsOf(served("work/new/file")) == std::string(100'000, 'n'); }));
}

TEST_F(MountTests, NothingAcknowledgedIsLostWithTheService) {
    const int rounds = kLong ? 50 : 3;
    std::vector<std::pair<std::string, std::string>> acknowledged;
    for (int round = 0; round < rounds; ++round) {
        for (int number = 0; number < 20; ++number) {
            const std::string name = "Work/" + std::to_string(round) + "-" + std::to_string(number);
            if (write(at(name), name) == 0) acknowledged.emplace_back(name, name);
            const std::string again = "Work/again" + std::to_string(number);
            if (write(at(again), name) == 0) acknowledged.emplace_back(again, name);
        }
        world.service.end(SIGKILL);
        const auto start = Clock::now();
        startMounted();
        // The kernel remembers files of a dead mount, but never its figures.
        struct statfs figures {};
        ASSERT_TRUE(eventually([&] { return ::statfs(at("Work").c_str(), &figures) == 0; }));
        EXPECT_LT(secondsSince(start), 2);
    }
    std::map<std::string, std::string> last;
    for (const auto& [name, contents] : acknowledged) last[name] = contents;
    for (const auto& [name, contents] : last) EXPECT_EQ(contentsOf(at(name)), contents) << name;
    ASSERT_TRUE(becomes("connected"));
    ASSERT_TRUE(isDrained());
    for (const auto& [name, contents] : last) {
        std::string path = name;
        EXPECT_EQ(contentsOf(served(path.replace(0, 4, "work"))), contents) << name;
    }
}

} // namespace
} // namespace brindlemar::system_tests
