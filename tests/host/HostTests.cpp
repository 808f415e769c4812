#include "fakes/TemporaryDirectory.h"
#include "host/Arguments.h"
#include "host/RequestHandler.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace brindlemar::host {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using Strings = std::vector<std::string>;

struct RequestHandlerTest : ::testing::Test {
    RequestHandlerTest() {
        fs::create_directories(top / "photos/2019");
        write("photos/a.jpg", "12345");
        write("note.txt", "x");
    }
    void write(const fs::path& path, std::string_view text) { std::ofstream(top / path) << text; }
    json::value ask(std::string_view command, std::string_view identifier) {
        const json::object request{{"command", command}, {"identifier", identifier}, {"from", ""}};
        return json::parse(handler.answer(json::serialize(request)).value());
    }
    /// The texts under a key of a listing, in its order.
    Strings listed(std::string_view folder, std::string_view key = "itemID") {
        Strings result;
        const json::value reply = ask("enumerateItemsJSON", folder);
        for (const json::value& item : reply.as_array()) result.emplace_back(item.at(key).as_string());
        return result;
    }
    Strings deleted(std::string_view folder) { return json::value_to<Strings>(ask("enumerateDeletedJSON", folder)); }
    const TemporaryDirectory directory;
    const fs::path base = directory.path(), top = base / "top";
    Strings warnings;
    RequestHandler handler{
        {"Work", "c7", top}, {"silent"}, [this](const std::string& text) { warnings.push_back(text); }};
};

TEST_F(RequestHandlerTest, ItemHasTheFieldsOfItsFile) {
    ::chmod((top / "photos/a.jpg").c_str(), 0640);
    const timespec times[2] = {{1000000000, 5}, {1659538288, 999}};
    ::utimensat(AT_FDCWD, (top / "photos/a.jpg").c_str(), times, 0);
    const json::value expected = {
        {"name", "a.jpg"},          {"size", 5},           {"folder", false},     {"parentID", "photos"},
        {"itemID", "photos/a.jpg"}, {"mtime", 1659538288}, {"atime", 1000000000}, {"permissions", 0640}};
    EXPECT_EQ(ask("itemForIdentifier", "photos/a.jpg"), expected);
    EXPECT_EQ(ask("enumerateItemsJSON", "photos").as_array().at(1), expected);
    const json::value folder = ask("itemForIdentifier", "photos");
    EXPECT_EQ(folder.at("folder"), true);
    EXPECT_EQ(folder.at("parentID"), "0");
    for (const char* id : {"0", "root", "NSFileProviderRootContainerItemIdentifier"}) {
        const json::value root = ask("itemForIdentifier", id);
        EXPECT_EQ((json::array{root.at("itemID"), root.at("parentID"), root.at("name")}),
                  (json::array{"c7", "00", "Work"}));
        EXPECT_EQ(listed(id), (Strings{"note.txt", "photos"}));
    }
}

TEST_F(RequestHandlerTest, NothingLeadsOutOfTheDirectory) {
    std::ofstream(base / "secret") << "s";
    fs::create_symlink(base / "secret", top / "link");
    fs::create_directory_symlink(base, top / "out");
    fs::create_directory_symlink("photos", top / "inside");
    ::mkfifo((top / "pipe").c_str(), 0600);
    for (const char* id : {"../secret", "photos/../../secret", "/etc/passwd", "link", "out/secret", "out",
                           "inside/a.jpg", "pipe", "photos/", "photos//a.jpg", "./photos", "photos/../note.txt", "",
                           "%2E%2E/secret", "photos%2Fa.jpg", "photos%", "note.txt%0"})
        EXPECT_EQ(ask("itemForIdentifier", id), json::object()) << id;
    for (const char* id : {"..", "out", "inside", "note.txt", "missing"}) EXPECT_EQ(listed(id), Strings{}) << id;
    EXPECT_EQ(listed("0"), (Strings{"note.txt", "photos"}));
}

TEST_F(RequestHandlerTest, AwkwardNamesGetIdentifiersOfTheirOwn) {
    const Strings names = {"%7C", "0", "00", "NSFileProviderX", "a|b", "root"};
    for (const std::string& name : names) write(name, name);
    EXPECT_EQ(listed("0"),
              (Strings{"%257C", "%30", "%300", "%4ESFileProviderX", "a%7Cb", "note.txt", "photos", "%72oot"}));
    for (const auto& id : listed("0")) EXPECT_EQ(ask("itemForIdentifier", id).at("itemID"), json::value(id));
    fs::create_directory(top / "photos/root");
    for (const char* name : {"0", "bad\xff", "bad\xc0\x80"}) write(fs::path("photos/root") / name, "");
    EXPECT_EQ(listed("photos/root"), Strings{"photos/root/0"});
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].substr(0, 10), "2 names in");
}

TEST_F(RequestHandlerTest, VanishedNamesAreToldOnce) {
    write("photos/b", "");
    write("photos/c|", "");
    EXPECT_EQ(deleted("photos"), Strings{}) << "never listed";
    listed("photos");
    fs::remove(top / "photos/b");
    listed("photos"); // a listing does not tell of b's end
    fs::remove(top / "photos/c|");
    write("photos/new", "");
    EXPECT_EQ(deleted("photos"), (Strings{"c7|photos/b", "c7|photos/c%7C"}));
    EXPECT_EQ(deleted("photos"), Strings{});
    fs::remove(top / "photos/new");
    EXPECT_EQ(deleted("photos"), Strings{}) << "nobody had heard of it";
    fs::remove_all(top / "photos");
    EXPECT_EQ(deleted("photos"), (Strings{"c7|photos/2019", "c7|photos/a.jpg"}));
    listed("0");
    fs::rename(top, base / "away"); // a directory that is absent has lost nothing
    EXPECT_EQ(deleted("0"), Strings{});
    EXPECT_EQ(handler.answer(R"({"command":"itemForIdentifier","identifier":"note.txt"})"), ""); // not: gone
    fs::rename(base / "away", top);
    fs::remove(top / "note.txt");
    EXPECT_EQ(deleted("0"), Strings{"c7|note.txt"});
}

TEST_F(RequestHandlerTest, WhatIsNoRequestGetsAnEmptyObject) {
    for (const char* text :
         {"", "{", "[]", "7", R"({"command":"fly"})", R"({"command":5})", "deletedItemIDs:x", "{}", "\xff",
          R"({"command":"itemForIdentifier"})", R"({"command":"itemForIdentifier","identifier":5})"})
        EXPECT_EQ(handler.answer(text), "{}") << text;
    EXPECT_EQ(handler.answer(R"({"command":"silent"})"), std::nullopt);
}

/// "RECORD=DIRECTORY" of each connection, or the error's text.
Strings parsed(const Strings& arguments) {
    Strings result;
    try {
        for (const auto& each : parseConnections(arguments)) result.push_back(each.record() + "=" + each.directory);
    } catch (const ArgumentError& error) {
        result = {error.what()};
    }
    return result;
}

TEST(Arguments, DomainsComeFromNamesAndAreUnique) {
    EXPECT_EQ(parsed({"Work Files=/w", "work-files=/x", "Ünï=/u", "Brindlemar=/b", "Ж=/r"}),
              (Strings{"Work Files|work-files=/w", "work-files|work-files-2=/x", "Ünï|n=/u",
                       "Brindlemar|brindlemar-2=/b", "Ж|connection=/r"}));
    EXPECT_EQ(parsed({"a=/1", "B:a=/2=3", "c:d:work.rw=."}), (Strings{"a|a-2=/1", "B|a=/2=3", "c:d|work.rw=."}));
    const std::pair<std::string, std::string> faults[] = {{"Work", "has no \"=\""},
                                                          {"=/x", "is empty"},
                                                          {"a=", "no directory after"},
                                                          {"a|b=/x", "holds a \"|\" or a \"/\""},
                                                          {"..=/x", "cannot be the name of a folder"},
                                                          {"\xff=/x", "is not UTF-8"},
                                                          {"one=/2", "the name \"one\" was given before"},
                                                          {"b:d=/2", "the domain \"d\" was given before"},
                                                          {"a:brindlemar=/1", "\"brindlemar\" is reserved"},
                                                          {"a:=/1", "the domain after \":\" is empty"}};
    for (const auto& [argument, part] : faults) {
        const std::string text = parsed({"one:d=/1", argument}).at(0);
        EXPECT_TRUE(text.starts_with("Argument 2, \"" + argument + "\": ")) << text;
        EXPECT_NE(text.find(part), text.npos) << text;
    }
}

} // namespace
} // namespace brindlemar::host
