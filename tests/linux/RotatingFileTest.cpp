#include "linux/log/RotatingFile.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/log/LogArchives.h"
#include "linux/log/LogFiles.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cctype>
#include <thread>

namespace brindlemar {
namespace {

namespace fs = std::filesystem;

struct RotatingFileTest : ::testing::Test {
    TemporaryDirectory directory;
    const std::string path = directory / "Logs/Brindlemar/FileProvider.log";
    RotatingLogFile file{.path = path, .maximumFileSize = 100, .maximumArchives = 3};
};

const std::string kLine(39, 'x');

std::string numbered(int number) { return std::to_string(number) + kLine.substr(3) + "\n"; }

TEST_F(RotatingFileTest, RotatesAtLineEndsAndKeepsTheNewestArchives) {
    const mode_t before = ::umask(0077);
    auto output = RotatingFile::open(file);
    ::umask(before);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u); // whatever the umask
    std::string lines, all;
    for (int i = 100; i < 112; ++i) lines += numbered(i);
    EXPECT_EQ(output->write(lines), lines.size());
    const std::vector<std::string> archives = archivesOf(path);
    ASSERT_EQ(archives.size(), 3u);
    for (const std::string& archive : archives) {
        std::string suffix = archive.substr(path.size());
        for (char& c : suffix) c = std::isxdigit(static_cast<unsigned char>(c)) ? 'X' : c;
        EXPECT_EQ(suffix, ".XXXXXXXXTXXXXXX.XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
        all += contentsOf(archive);
    }
    EXPECT_EQ(all + contentsOf(path), lines.substr(4 * numbered(100).size())); // two lines a file, four files left
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
    std::string all;
    for (const std::string& archive : archivesOf(path)) all += contentsOf(archive);
    all += contentsOf(path);
    for (int i = 100; i < 500; ++i) EXPECT_NE(all.find(numbered(i)), all.npos) << i;
    EXPECT_EQ(all.size(), 400 * numbered(100).size());
    EXPECT_GT(archivesOf(path).size(), 40u);
}

TEST_F(RotatingFileTest, WhatCannotBeOpenedOrWrittenNeverReachesTheCaller) {
    LogFiles logs;
    std::ofstream(directory / "occupied") << "a file";
    file.path = directory / "occupied/log";
    EXPECT_EQ(logs.file(file), nullptr);
    file.path = "/dev/full";
    auto full = logs.file(file);
    ASSERT_NE(full, nullptr);
    for (int i = 0; i < 100; ++i) full->write(kLine, i % 10 == 0);
    full->flush();
}

TEST(LogFiles, LibraryDirectoryComesFromTheEnvironment) {
    const char* names[] = {"BRINDLEMAR_LIBRARY_DIR", "XDG_STATE_HOME", "HOME"};
    const std::optional<std::string> none;
    const struct {
        const char* values[3];
        std::optional<std::string> expected;
    } rows[] = {{{"/own", "/state", "/home"}, "/own"},
                {{"", "/state", "/home"}, "/state/brindlemar"},
                {{"relative", "relative", "/home"}, "/home/.local/state/brindlemar"},
                {{"", "", ""}, none}};
    for (const auto& row : rows) {
        for (int i = 0; i < 3; ++i) ::setenv(names[i], row.values[i], 1);
        EXPECT_EQ(LogFiles().libraryDirectory(), row.expected);
    }
}

} // namespace
} // namespace brindlemar
