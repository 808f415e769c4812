#include "cli/FakeService.h"
#include "cli/Probes.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>

namespace brindlemar::cli {
namespace {

constexpr std::uint64_t kMebibyte = 1 << 20;

Findings healthy() {
    Findings found;
    found.mountHelper = "/bin/fusermount3";
    found.helperIsSetuid = found.serviceTakesCalls = found.hasSessionBus = true;
    found.runtimePath = "/run/x";
    found.home.path = found.state.path = found.cache.path = "/d";
    found.freeBytes = 1024 * kMebibyte;
    found.service = ServiceStatus();
    found.service->domain.state = "connected";
    found.service->configured = found.service->tellsMount = true;
    found.service->connections.resize(1);
    found.service->mount = {"/m", true, ""};
    found.service->queueLength = 2;
    found.mountPath = "/m";
    found.mountPlace = MountPlace::mounted;
    return found;
}

void nothing(Findings&) {}
void noAnswer(Findings& found) { found.service.reset(); }
void noService(Findings& found) {
    noAnswer(found);
    found.serviceTakesCalls = false;
}
void notMounted(Findings& found) { found.service->mount = {"/m", false, "no fuse"}; }
void notWanted(Findings& found) {
    found.service->mount.reset();
    found.deviceError = EPERM;
    found.mountHelper.clear();
}
void older(Findings& found) {
    found.service->mount.reset();
    found.service->tellsMount = false;
}

/// "problem NAME: TEXT REMEDY", lines for all that is not ok.
std::string complaints(const Findings& found) {
    std::string lines;
    for (const Check& check : diagnose(found)) {
        EXPECT_EQ(check.verdict == Verdict::ok, check.remedy.empty()) << check.name;
        EXPECT_TRUE(check.text.ends_with('.') && !check.text.ends_with("..")) << check.text;
        if (check.verdict != Verdict::ok)
            lines += std::string(check.verdict == Verdict::problem ? "problem " : "warning ") + check.name + ": " +
                     check.text + " " + check.remedy + "\n";
    }
    return lines;
}

struct Row {
    void (*change)(Findings&);
    Strings said; // in this order, one a line
    MountPlace place = MountPlace::mounted;
};
void check(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        Findings found = healthy();
        found.mountPlace = row.place;
        row.change(found);
        const std::string all = complaints(found);
        std::istringstream lines(all);
        std::size_t count = 0;
        for (std::string line; std::getline(lines, line); ++count)
            EXPECT_TRUE(count < row.said.size() && line.find(row.said[count]) != line.npos) << line;
        EXPECT_EQ(count, row.said.size()) << &row - rows.begin() << ": " << all;
    }
}

TEST(Diagnosis, TellsWhatIsWrongWithTheMachine) {
    check({
        {nothing, {}},
        {[](Findings& f) { f.deviceError = ENOENT; }, {"problem fuse-device: /dev/fuse cannot be opened: No such"}},
        {[](Findings& f) { f.deviceError = EACCES; }, {"Permission denied. Let your user"}},
        {[](Findings& f) { f.mountHelper.clear(); }, {"problem mount-helper: fusermount3 is in no directory"}},
        {[](Findings& f) { f.helperIsSetuid = false; }, {"chmod u+s /bin/fusermount3"}},
        {[](Findings& f) {
             f.isRoot = true;
             f.mountHelper.clear();
         },
         {}},
        {notWanted, {"warning fuse-device", "warning mount-helper"}, MountPlace::stale},
        {[](Findings& f) { f.runtimeFault = "The directory x; y is bad; set V."; },
         {"problem runtime-directory: The directory x; y is bad. Make it your own"}},
        {[](Findings& f) { f.home.path.clear(); }, {"problem home-directory: The home directory is not known"}},
        {[](Findings& f) { f.state.error = EROFS; }, {"problem state-directory: The state directory /d cannot"}},
        {[](Findings& f) { f.cache.isOurs = false; }, {"warning cache-directory: The cache directory /d belongs"}},
        {[](Findings& f) { --*f.freeBytes; }, {"warning disk-space: Only 1.1 GB are free"}},
        {[](Findings& f) { f.freeBytes = 100 * kMebibyte; }, {"warning disk-space"}},
        {[](Findings& f) { f.freeBytes = 100 * kMebibyte - 1; }, {"problem disk-space"}},
        {[](Findings& f) { f.freeBytes.reset(); }, {}},
        {[](Findings& f) { f.hasSessionBus = false; }, {"warning notifications"}},
    });
}

TEST(Diagnosis, TellsWhatIsWrongWithTheServiceAndItsMount) {
    check({
        {noService, {"problem service: The service is not running."}, MountPlace::absent},
        {noService, {"service", "problem mount: Something else is mounted at /m"}},
        {noService,
         {"service", "mount: /m is a mount whose program has ended. Take it away with "
                     "\"fusermount3 -u /m\""},
         MountPlace::stale},
        {noAnswer,
         {"problem service: The service is running, but", "problem mount: /m does not answer. Take"},
         MountPlace::silent},
        {[](Findings& f) { f.mountPath = "/a@b/@"; }, {"mount: /a@b/@ is not empty, so"}, MountPlace::occupied},
        {notMounted, {"problem mount: /m is not mounted: no fuse. Put that right"}, MountPlace::empty},
        {notMounted, {"problem mount: Something else is mounted at /m"}},
        {notMounted, {"problem mount: /m is no directory"}, MountPlace::noDirectory},
        {notMounted, {"problem mount: /m cannot be looked into. Let"}, MountPlace::closed},
        {nothing, {"problem mount: /m is no longer mounted"}, MountPlace::empty},
        {older, {}, MountPlace::empty},
        {[](Findings& f) { f.service->domain = {.identifier = "", .state = "disconnected", .reason = "Please."}; },
         {"problem host: No host application is connected: Please. Start", "warning queue: There are 2 changes"}},
        {[](Findings& f) {
             f.service->configured = false;
             f.service->queueLength = 0;
         },
         {"problem host: No host application has handed over"}},
        {[](Findings& f) { f.service->connections.clear(); }, {"warning host: The host application offers no"}},
        {[](Findings& f) {
             f.service->failureCount = 3;
             f.service->failures = {{"Work/a", "Too big."}};
         },
         {"warning failures: 3 items could not be brought or sent; the first: Work/a: Too big. See"}},
    });
}

struct ProbesTest : ::testing::Test {
    TemporaryDirectory here;
};

TEST_F(ProbesTest, MountPlacesAndDirectoriesAreLookedAtAsTheyAre) {
    std::filesystem::create_directories(here / "empty");
    std::filesystem::create_directories(here / "full/x");
    std::filesystem::create_directory_symlink("empty", here / "link");
    std::ofstream(here / "file") << "x";
    const std::tuple<std::string, MountPlace, int> rows[] = {
        {here / "none", MountPlace::absent, 0},
        {here / "none/below/it", MountPlace::absent, 0},
        {here / "empty", MountPlace::empty, 0},
        {here / "link", MountPlace::empty, 0},
        {here / "full", MountPlace::occupied, 0},
        {here / "file", MountPlace::noDirectory, ENOTDIR},
        {here / "file/below", MountPlace::noDirectory, ENOTDIR},
        {"/proc", MountPlace::mounted, ::geteuid() == 0 ? 0 : EACCES},
    };
    for (const auto& [path, place, error] : rows) {
        EXPECT_EQ(lookAtMountPlace(path), place) << path;
        const DirectoryFinding found = lookAtDirectory(path);
        EXPECT_EQ(found.error, error) << path;
        EXPECT_TRUE(found.isOurs || error != 0) << path;
    }
    std::filesystem::create_directories(here / "tool");
    std::ofstream(here / "full/tool") << "x";
    std::ofstream(here / "empty/tool") << "x";
    ::chmod((here / "empty/tool").c_str(), 0700);
    EXPECT_EQ(findProgram("tool", here.path() + "::" + (here / "full") + ":" + (here / "empty")), here / "empty/tool")
        << "a directory and a file that cannot be run are passed over";
    EXPECT_EQ(findProgram("tool", ""), "");
}

TEST_F(ProbesTest, DoctorPrintsEachCheckAndFailsForAProblem) {
    for (const char* name : {"HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME", "BRINDLEMAR_RUNTIME_DIR"})
        ::setenv(name, (here / name).c_str(), 1);
    FakeService service;
    service.status = R"({"domain":{"state":"disconnected","reason":"Gone\u001b"},"queue":{"length":0},"mount":null})";
    const std::string text = run(service, {"doctor"}, true);
    EXPECT_NE(text.find("\nok       The home directory " + (here / "HOME") + " can be written.\n"), text.npos) << text;
    EXPECT_NE(text.find("\nproblem  No host application is connected: Gone\\x1b. Start the"), text.npos) << text;
    EXPECT_NE(text.find("exit 1: "), text.npos) << text;
    EXPECT_FALSE(std::filesystem::exists(here / "HOME")) << "only looked at";
    std::istringstream lines(run(service, {"doctor", "--json"}));
    Strings names;
    for (std::string line; std::getline(lines, line) && line.starts_with('{');) {
        const auto row = boost::json::parse(line).get_object();
        EXPECT_EQ(row.at("result") == "ok", row.at("remedy").is_null()) << line;
        EXPECT_TRUE(row.at("text").is_string()) << line;
        names.emplace_back(row.at("check").get_string());
    }
    EXPECT_EQ(names, (Strings{"fuse-device", "mount-helper", "runtime-directory", "home-directory", "state-directory",
                              "cache-directory", "disk-space", "service", "mount", "host", "failures", "queue",
                              "notifications"}));
}

} // namespace
} // namespace brindlemar::cli
