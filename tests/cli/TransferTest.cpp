#include "cli/FakeService.h"
#include "cli/ProgressBar.h"
#include "linux/files/FileMode.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

namespace brindlemar::cli {
namespace {

namespace fs = std::filesystem;

struct TransferTest : ::testing::Test {
    TransferTest() {
        service.answers[std::string("browse ") + kRoot] = page(item("c7|0", "Work", true));
        service.answers["browse c7|0"] = page(item("c7|d", "d", true) + "," + item("c7|n", "n", false, 3));
        service.answers["browse c7|d"] = page(item("c7|d/e", "e", true) + "," + item("c7|d/f", "f") + "," +
                                              item("c7|d/x", "..") + "," + item("c7|d/y", "a/b"));
        service.answers["browse c7|d/e"] = page(item("c7|d/e/g", "g"));
    }
    std::size_t left() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(service.fetched.path()), {}));
    }
    FakeService service;
    TemporaryDirectory here;
};

TEST_F(TransferTest, GetReplacesAFileAsAWholeOrNotAtAll) {
    const std::string place = here / "n";
    std::ofstream(place) << "old";
    const int before = ::open(place.c_str(), O_RDONLY);
    EXPECT_EQ(run(service, {"get", "Work/n", here.path()}), "");
    EXPECT_EQ(contentsOf(place), "c7|n");
    EXPECT_EQ(contentsOf("/proc/self/fd/" + std::to_string(before)), "old")
        << "another file, not the old one rewritten";
    ::close(before);
    struct stat info {};
    ASSERT_EQ(::stat(place.c_str(), &info), 0);
    EXPECT_EQ(info.st_mtim.tv_sec, 1659538288);
    EXPECT_EQ(info.st_mode & 07777, newFileMode());
    ::chmod(place.c_str(), 0700);
    EXPECT_EQ(run(service, {"get", "Work/n", place}), "");
    ASSERT_EQ(::stat(place.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u) << "that of the old one";
    fs::create_symlink("nowhere", here / "link");
    EXPECT_NE(run(service, {"get", "Work/n", here / "link"}).find("leads nowhere"), std::string::npos);

    fs::create_directories(here / "taken/x");
    for (const std::string& target : {here / "none/x", std::string("/dev/null"), std::string("/proc/x")})
        EXPECT_TRUE(run(service, {"get", "Work/n", target}).starts_with("exit ")) << target;
    service.answers["fetch"] = completion(R"("url":"file:///nowhere/at%20all","item":null)");
    EXPECT_TRUE(run(service, {"get", "Work/n", place}).starts_with("exit 3: Cannot write"));
    EXPECT_EQ(contentsOf(place), "c7|n");
    EXPECT_EQ(left(), 0u) << "nothing is left with the service";
}

TEST_F(TransferTest, GetCopiesOverABorderOfFileSystems) {
    char name[] = "/dev/shm/brindlemar-test.XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    EXPECT_EQ(run(service, {"get", "Work/n", name}), "");
    EXPECT_EQ(contentsOf(std::string(name) + "/n"), "c7|n");
    fs::create_directory(std::string(name) + "/n2"); // in the way
    EXPECT_EQ(std::distance(fs::directory_iterator(name), {}), 2);
    EXPECT_EQ(left(), 0u);
    fs::remove_all(name);
}

TEST_F(TransferTest, GetBringsATreeAndLeavesOutWhatCannotBe) {
    const std::string said = run(service, {"get", "Work", here / "new"});
    EXPECT_TRUE(said.starts_with("exit 1: ")) << said;
    EXPECT_NE(said.find("\"Work/d/..\" is left out"), std::string::npos);
    EXPECT_NE(said.find("\"Work/d/a/b\" is left out"), std::string::npos);
    for (const char* path : {"d/e/g", "d/f", "n"})
        EXPECT_EQ(contentsOf(here / "new/" + path), std::string("c7|") + path);
    struct stat info {};
    ASSERT_EQ(::stat((here / "new/d").c_str(), &info), 0);
    EXPECT_EQ(info.st_mtim.tv_sec, 1659538288) << "a folder's date comes after its contents";
    service.answers["fetch c7|d/f"] = error(-1005);
    EXPECT_TRUE(run(service, {"get", "Work/d/e", here.path()}).empty());
    EXPECT_EQ(contentsOf(here / "e/g"), "c7|d/e/g");
    EXPECT_NE(run(service, {"get", "Work/d", here.path()}).find("There is no \"Work/d/f\""), std::string::npos);
    EXPECT_EQ(contentsOf(here / "d/e/g"), "c7|d/e/g") << "one failure does not keep the rest";
}

TEST_F(TransferTest, PutMakesOrChangesAndTakesFoldersBeforeTheirContents) {
    fs::create_directories(here / "d/e/deep");
    for (const char* name : {"n", "d/f", "d/e/g", "d/e/deep/h"}) std::ofstream(here / name) << "1";
    const timespec dates[] = {{5, 250'000'000}, {5, 250'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (here / "n").c_str(), dates, 0), 0);
    const std::string file = R"({"file":")" + here / "n" + R"(","mtime":"5.250000000",)";
    const std::pair<const char*, std::string> cases[] = {
        {"Work", "modify " + file + R"("id":"c7|n","fields":"contents,contentModificationDate"})"},
        {"Work/d", "create " + file + R"("parent":"c7|d","name":"n"})"},
        {"Work/d/m", "create " + file + R"("parent":"c7|d","name":"m"})"}};
    for (const auto& [path, call] : cases) {
        service.calls.clear();
        EXPECT_EQ(run(service, {"put", here / "n", path}), "");
        EXPECT_EQ(service.calls, (Strings{"forget {}", call, "forget {}"})) << path;
    }
    for (const Strings& wrong : std::initializer_list<Strings>{
             {here / "n", "Work/none/n"}, {here / "d", "Work/n"}, {here / "none", "Work"}, {"/dev/null", "Work"}})
        EXPECT_TRUE(run(service, {"put", wrong[0], wrong[1]}).starts_with("exit ")) << wrong[0] << wrong[1];

    fs::create_symlink("f", here / "d/link");
    std::ofstream(here / "d/\xff") << "1";
    service.calls.clear();
    const std::string said = run(service, {"put", here / "d", "Work"});
    EXPECT_TRUE(said.starts_with("exit 1: ") && said.find("link") != said.npos && said.find("\\xff") != said.npos)
        << said;
    Strings made, dated;
    for (const std::string& call : service.calls)
        if (call != "forget {}") {
            const auto arguments = boost::json::parse(call.substr(7)).get_object();
            const bool isNew = call.starts_with("create ");
            if (!isNew && arguments.at("fields") == "contentModificationDate")
                dated.emplace_back(arguments.at("id").get_string());
            made.push_back(std::string(isNew ? arguments.at("parent").get_string() : arguments.at("id").get_string()) +
                           (isNew ? "/" + std::string(arguments.at("name").get_string()) : ""));
        }
    const auto at = [&](const std::string& id) { return std::ranges::find(made, id) - made.begin(); };
    EXPECT_EQ((std::set(made.begin(), made.end())),
              (std::set<std::string>{"c7|d/f", "c7|d/e/g", "c7|d/e/deep", "c7|d/e/deep/h"}));
    EXPECT_LT(at("c7|d/e/deep"), at("c7|d/e/deep/h"));
    EXPECT_EQ(dated, Strings{"c7|d/e/deep"}) << "the folder that is new";
}

TEST_F(TransferTest, ProgressNeverFallsAndIsFullOnlyAtTheEnd) {
    EXPECT_EQ(progressLine({"a\nb.txt", 1'200'000, 2'400'000, 50, 4}, 100),
              "a\\nb.txt  [##########          ]  50%  1.2 MB of 2.4 MB  300 kB/s  0:04 left");
    EXPECT_EQ(progressLine({"name", 0, 10, 0, 0}, 10), "name  [  ");
    Text errors;
    Notices notices(errors.file, true);
    {
        ProgressBar bar(notices, "n");
        bar.expect(1000);
        ProgressShare share(bar, 1000);
        for (const int percentage : {100, 30, 20}) // full before there is any
            share.take({"progress", {{"completed", percentage}, {"total", 100}}});
        notices.say("word");
    }
    EXPECT_NE(errors.get().find("30%"), std::string::npos);
    EXPECT_EQ(errors.get().find("100%"), std::string::npos);
    EXPECT_TRUE(errors.get().ends_with("\r\x1b[K")) << "it is taken away";
    EXPECT_EQ(run(service, {"get", "Work/n", here / "n"}), "") << "and not drawn at all in a pipe";
}

} // namespace
} // namespace brindlemar::cli
