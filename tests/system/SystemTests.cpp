// What must hold between the real programs. The long rounds run when BRINDLEMAR_LONG_TESTS is set.
#include "system/ProgramsTest.h"

#include <map>
#include <sstream>

namespace brindlemar::system_tests {
namespace {

class SystemTests : public ProgramsTest {};

TEST_F(SystemTests, AnyOrderOfStartingShowsTheConnections) {
    const auto expectShown = [this] { EXPECT_TRUE(world.runUntil({"ls"}, kTop, 3)); };
    world.startService();
    world.control();
    world.startHost(connections());
    expectShown();
    EXPECT_EQ(world.host.end(SIGTERM), 0);
    world.startHost(connections());
    expectShown();
    EXPECT_EQ(world.service.end(SIGKILL), 128 + SIGKILL);
    world.startService();
    expectShown();
    EXPECT_EQ(world.service.end(SIGTERM), 0);
    world.host.end(SIGKILL);
    world.startHost(connections());
    ::poll(nullptr, 0, 300); // the host finds no service for a while
    world.startService();
    expectShown();
    EXPECT_NE(world.run({"tree"}).output.find("a.txt"), std::string::npos);
    EXPECT_NE(contentsOf(world.path + "/state/brindlemar/connections.plist").find("<string>Photos|photos</string>"),
              std::string::npos);
}

TEST_F(SystemTests, OneServiceAUserAndACleanEnd) {
    startBoth();
    const Result second = world.run({}, BRINDLEMARD);
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("pid " + std::to_string(world.service.pid())), std::string::npos);
    EXPECT_EQ(world.run({"ls"}).output, kTop);
    const FileDescriptor held =
        std::move(*world.control().call("list", R"({"id":"photos|0","pageSize":1})")); // nobody reads it
    world.host.end(SIGKILL);
    const auto waiting =
        world.control().call("item", R"({"id":"photos|unlisted"})"); // sleeps in the search for the host
    ASSERT_TRUE(world.logs("failed to create bxserver port"));
    const auto start = Clock::now();
    EXPECT_EQ(world.service.end(SIGTERM), 0);
    EXPECT_LT(secondsSince(start), 1);
    EXPECT_EQ(world.run({"ls"}).status, 1);
    for (const auto& entry : std::filesystem::directory_iterator(world.path + "/run"))
        EXPECT_FALSE(entry.is_socket() && entry.path().filename().string().find("bxserver") == std::string::npos)
            << entry.path();
}

TEST_F(SystemTests, AnAbsentHostIsAnErrorNotAnEmptyFolder) {
    startBoth();
    EXPECT_EQ(world.run({"call", "item", "photos|2024"}).status, 0);
    world.host.end(SIGKILL);
    ASSERT_TRUE(becomes("disconnected"));
    ASSERT_TRUE(eventually([&] { return !isEnumerating(); })); // that looks for the host as well
    world.newLog();
    const Result lookup = world.run({"call", "item", "photos|2024", "--json"});
    EXPECT_EQ(lookup.status, 4);
    EXPECT_GE(lookup.seconds, 2.5);
    EXPECT_EQ(lookup.output.substr(0, lookup.output.find('\n')),
              std::string(R"({"event":"completion","item":null,)") + kUnreachable);
    EXPECT_EQ(lookup.errors, "brindlemar: Please Launch Brindlemar to continue syncing.\n");
    const std::string log = world.newLog();
    EXPECT_EQ(count(log, "level=WARNING msg=\"failed to create bxserver port"), 10u);
    EXPECT_EQ(count(log, "and exhausted retries.\""), 1u);
    EXPECT_EQ(world.run({"ls", "Photos"}).status, 4);
    EXPECT_EQ(status()["domain"]["reason"].string(), "Please Launch Brindlemar to continue syncing.");
    const auto start = Clock::now();
    auto control = world.control();
    std::vector<FileDescriptor> outputs;
    for (int i = 1; i <= 10; ++i)
        outputs.push_back(std::move(
            *control.call("item", JSON::object({{"id", "photos|n" + std::to_string(i)}}).serialized().value())));
    const auto other = control.call("item", R"({"id":"work|b.txt"})"); // another domain
    const auto root = control.call("item", R"({"id":"NSFileProviderRootContainerItemIdentifier"})");
    EXPECT_NE(readAll(*root).find("\"Brindlemar\""), std::string::npos);
    EXPECT_LT(secondsSince(start), 2);
    for (const auto& output : outputs) EXPECT_EQ(count(readAll(output), kUnreachable), 1u);
    EXPECT_EQ(count(readAll(*other), kUnreachable), 1u);
    EXPECT_LT(secondsSince(start), 2 * 2.5);
}

TEST_F(SystemTests, AKilledHostFailsEachOfAThousandRequestsOnce) {
    startBoth({"--hold", "itemForIdentifier"});
    auto control = world.control();
    std::size_t descriptors = 0;
    double memory = 0;
    const int rounds = kLong ? 10 : 2;
    for (int round = 1; round <= rounds; ++round) world.file("photos/folder" + std::to_string(round) + "/f");
    for (int round = 1; round <= rounds; ++round) {
        std::vector<FileDescriptor> outputs;
        for (int i = 0; i < 1000; ++i)
            outputs.push_back(std::move(
                *control.call("item", JSON::object({{"id", "photos|n" + std::to_string(i)}}).serialized().value())));
        while (waiting() < 1000) ::poll(nullptr, 0, 10);
        world.host.end(SIGKILL);
        std::string text;
        for (const auto& output : std::exchange(outputs, {})) text += readAll(output);
        EXPECT_EQ(count(text, "completion"), 1000u);
        EXPECT_EQ(count(text, kUnreachable), 1000u);
        EXPECT_TRUE(becomes("disconnected"));
        EXPECT_EQ(waiting(), 0);
        // Its return is found by the next request, which reconnects.
        world.startHost(connections({"--hold", "itemForIdentifier"}));
        const std::string unlisted = "folder" + std::to_string(round); // no cache knows it
        ASSERT_TRUE(world.runUntil({"ls", "Photos/" + unlisted}, "f\n", 10));
        EXPECT_TRUE(becomes("connected"));
        if (round == 2) descriptors = world.service.descriptors(), memory = world.service.megabytes("VmRSS");
    }
    EXPECT_LE(world.service.descriptors(), descriptors + 8);
    EXPECT_LE(world.service.megabytes("VmRSS"), memory + 16);
}

TEST_F(SystemTests, NamesComeThroughAsTheyAre) {
    Arguments names{std::string(255, 'n')};
    std::istringstream list(
        "line\nbreak/quote\"d'/back\\slash/😀🏞/\u00e9/e\u0301/a|b/%7C/0/root/00/-l/tab\tand\x01");
    for (std::string name; std::getline(list, name, '/');) names.push_back(name);
    for (const auto& name : names) world.file("photos/names/" + name);
    world.file("photos/names/bad\xff\xfe");
    startBoth();
    const Result listing = world.run({"call", "list", "photos|names", "--page-size", "3", "--json"});
    EXPECT_EQ(listing.status, 0);
    std::map<std::string, std::string> seen; // name -> identifier
    std::istringstream lines(listing.output);
    for (std::string line; std::getline(lines, line);)
        JSON::parse(line)["items"].forEach([&](std::string_view, const JSON& item) {
            seen[item["filename"].stringValue()] = item["itemIdentifier"].stringValue();
        });
    EXPECT_EQ(seen.size(), std::size(names));
    for (const auto& name : names) {
        SCOPED_TRACE(name);
        const std::string item = world.run({"call", "item", seen[name], "--json"}).output;
        EXPECT_EQ(JSON::parse(item.substr(0, item.find('\n')))["item"]["filename"].string(), name);
        EXPECT_EQ(count(seen[name], "|"), 1u);
    }
    EXPECT_NE(contentsOf(world.path + "/host.err").find("UTF-8"), std::string::npos);
}

TEST_F(SystemTests, ExitStatusesSayWhy) {
    startBoth();
    const std::string photos = world.path + "/photos";
    const struct {
        const char* program;
        int status;
        std::vector<Arguments> commands;
    } cases[] = {
        {BRINDLEMAR, 2, {{}, {"fly"}, {"call", "item"}, {"call", "item", "photos|\xff"}}},
        {BRINDLEMAR, 2, {{"call", "list", "photos|0", "--page-size", "0"}}},
        {BRINDLEMAR, 3, {{"ls", "Photos/none"}, {"call", "item", "nobody|1"}, {"call", "item", "photos|none"}}},
        {BRINDLEMAR, 3, {{"call", "list", "nobody|1"}, {"get", "Photos/none"}, {"rm", "Photos/none"}}},
        {BRINDLEMAR, 3, {{"put", world.path + "/none", "Photos"}, {"put", photos, "Photos/none/x"}}},
        {BRINDLEMAR, 3, {{"mv", "Photos/none", "Photos/x"}, {"mkdir", "Photos/none/x"}, {"watch", "Photos/none"}}},
        {BRINDLEMAR, 3, {{"admin", "getACL", "Photos/none"}, {"get", "Photos/2024/a.txt", "/none/x"}}},
        {BRINDLEMAR, 1, {{"rm", "Photos/2024"}, {"rm", "Photos"}}},
        {BRINDLEMAR_HOST, 2, {{}, {"Work"}, {"Work=" + photos, "--unknown"}}},
        {BRINDLEMAR_HOST, 3, {{"Work=" + photos + "/missing"}, {"Work=" + photos + "/2024/a.txt"}}},
        {BRINDLEMAR_HOST, 1, {{"Photos=" + photos}}}}; // its domain is served already
    for (const auto& [program, status, commands] : cases)
        for (const Arguments& arguments : commands) {
            const Result result = world.run(arguments, program);
            EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << result.errors;
            EXPECT_FALSE(result.errors.empty());
            EXPECT_TRUE(result.output.empty()) << result.output;
        }
    EXPECT_EQ(world.host.end(SIGINT), 130);
}

TEST_F(SystemTests, AMillionEntries) {
    if (!kLong) GTEST_SKIP() << "BRINDLEMAR_LONG_TESTS is not set";
    constexpr std::size_t kEntries = 1'000'000;
    std::filesystem::create_directories(world.path + "/photos/many");
    for (std::size_t i = 0; i < kEntries; ++i)
        std::ofstream(world.path + "/photos/many/file " + std::to_string(i) + ".txt");
    startBoth();
    const auto output = world.control().call("list", R"({"id":"photos|many","pageSize":200})");
    std::size_t items = 0, pages = 0, ends = 0;
    char buffer[1 << 18];
    std::string rest;
    for (ssize_t size; (size = ::read(output->get(), buffer, sizeof buffer)) > 0;) {
        rest.append(buffer, size);
        const std::size_t whole = rest.rfind('\n') + 1;
        const std::string_view lines = std::string_view(rest).substr(0, whole);
        items += count(lines, "\"itemIdentifier\"");
        pages += count(lines, "\"event\":\"finish\"");
        ends += count(lines, "\"page\":null");
        rest.erase(0, whole);
    }
    EXPECT_EQ(items, kEntries);
    EXPECT_EQ(pages, kEntries / 200);
    EXPECT_EQ(ends, 1u);
    EXPECT_LT(world.service.megabytes("VmHWM"), 1200);
    const auto finished = Clock::now();
    while (world.service.megabytes("VmRSS") >= 200 && secondsSince(finished) < 45) ::poll(nullptr, 0, 250);
    EXPECT_LT(world.service.megabytes("VmRSS"), 200);
    EXPECT_LT(secondsSince(finished), 40); // the caches expire after ten seconds
}

} // namespace
} // namespace brindlemar::system_tests
