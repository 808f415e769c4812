#include "host/Arguments.h"
#include "host/RequestHandler.h"

#include "host/ItemID.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <thread>

namespace brindlemar::host {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using Strings = std::vector<std::string>;

struct RequestHandlerTest : ::testing::TestWithParam<TopDirectory::Way> {
    RequestHandlerTest() { write("note.txt", "x"); }
    ~RequestHandlerTest() override { fs::remove_all(base); }

    void write(const fs::path& path, std::string_view text) { std::ofstream(top / path) << text; }
    void request(std::string_view command, std::string_view identifier, Reply reply) {
        handler.handle(json::serialize(json::object{{"command", command}, {"identifier", identifier}, {"from", ""}}),
                       std::move(reply));
    }
    /// Its one reply, given on whichever thread, which is then sent or lost.
    std::string answer(std::string_view command, std::string_view identifier, bool sent = true) {
        const auto answer = std::make_shared<std::promise<std::string>>();
        request(command, identifier, [=](std::string_view reply) {
            answer->set_value(std::string(reply));
            return sent;
        });
        return answer->get_future().get();
    }
    json::value ask(std::string_view command, std::string_view identifier) {
        return json::parse(answer(command, identifier));
    }
    /// The texts under a key of a listing, in its order.
    Strings listed(std::string_view folder, std::string_view key = "itemID") {
        Strings result;
        const json::value reply = ask("enumerateItemsJSON", folder);
        for (const json::value& item : reply.as_array()) result.emplace_back(item.at(key).as_string());
        return result;
    }
    Strings deleted(std::string_view folder, bool sent = true) {
        return json::value_to<Strings>(json::parse(answer("enumerateDeletedJSON", folder, sent)));
    }

    static fs::path temporary() {
        std::string name = fs::temp_directory_path() / "brindlemar-host-XXXXXX";
        return ::mkdtemp(name.data());
    }
    /// The served directory with a photo in it, opened as on a kernel that can or cannot follow whole paths.
    TopDirectory makeTop() {
        fs::create_directories(top / "photos/2019");
        write("photos/a.jpg", "12345");
        return {FileDescriptor(::open(top.c_str(), O_RDONLY | O_DIRECTORY)), GetParam()};
    }
    const fs::path base = temporary(), top = base / "top";
    Strings warnings;
    RequestHandler handler{{"Work", "c7", top}, Tree(makeTop()), {"silent"}, [this](const std::string& text) {
                               warnings.push_back(text);
                           }};
};
INSTANTIATE_TEST_SUITE_P(Paths, RequestHandlerTest,
                         ::testing::Values(TopDirectory::Way::whole, TopDirectory::Way::byName),
                         [](const auto& way) { return way.param == TopDirectory::Way::whole ? "Whole" : "ByName"; });

TEST_P(RequestHandlerTest, ItemHasTheFieldsOfItsFile) {
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
}

TEST_P(RequestHandlerTest, TopIsTheConnectionBelowTheExtensionsRoot) {
    for (const char* id : {"0", "root", "NSFileProviderRootContainerItemIdentifier"}) {
        const json::value root = ask("itemForIdentifier", id);
        EXPECT_EQ(root.at("itemID"), "c7");
        EXPECT_EQ(root.at("parentID"), "00");
        EXPECT_EQ(root.at("name"), "Work");
        EXPECT_EQ(listed(id), (Strings{"note.txt", "photos"}));
    }
}

TEST_P(RequestHandlerTest, NothingLeadsOutOfTheDirectory) {
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

TEST_P(RequestHandlerTest, AwkwardNamesGoThereAndBack) {
    const Strings names = {"0",   "00",      "root", "NSFileProviderRootContainerItemIdentifier",
                           "a|b", "50%",     "%7C",  "q\"\\\n\x01",
                           "ü",   "photos|x"};
    for (const std::string& name : names) write(name, name);
    const Strings ids = listed("0"), shown = listed("0", "name");
    ASSERT_EQ(ids.size(), names.size() + 2);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(ids[i].find('|'), std::string::npos);
        EXPECT_FALSE(isTopID(ids[i]) || ids[i] == "00" || ids[i].starts_with("NSFileProvider")) << ids[i];
        EXPECT_EQ(ask("itemForIdentifier", ids[i]).at("name"), json::value(shown[i]));
        EXPECT_TRUE(fs::exists(top / shown[i]));
    }
    fs::create_directory(top / "photos/root");
    write("photos/root/0", "");
    EXPECT_EQ(listed("photos/root"), Strings{"photos/root/0"});
}

TEST_P(RequestHandlerTest, NamesThatAreNoTextAreLeftOutAndSaid) {
    write("bad\xff", "");
    write("bad\xc0\x80", "");
    EXPECT_EQ(listed("0"), (Strings{"note.txt", "photos"}));
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].substr(0, 10), "2 names in");
}

TEST_P(RequestHandlerTest, VanishedNamesAreToldOnce) {
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
    fs::remove(top / "note.txt");
    EXPECT_EQ(deleted("0"), Strings{"c7|note.txt"});
}

TEST_P(RequestHandlerTest, VanishedNamesAreToldUntilAnAnswerWasSent) {
    listed("photos");
    fs::remove(top / "photos/a.jpg");
    for (const bool sent : {false, false, true}) EXPECT_EQ(deleted("photos", sent), Strings{"c7|photos/a.jpg"});
    EXPECT_EQ(deleted("photos"), Strings{});
}

TEST_P(RequestHandlerTest, RequestsForOneFolderTakeTurns) {
    Strings order;
    const auto note = [&](std::string_view text) { return order.emplace_back(text), true; };
    listed("photos");
    fs::remove(top / "photos/a.jpg");
    request("enumerateDeletedJSON", "photos", [&](std::string_view first) {
        request("enumerateDeletedJSON", "photos", note); // while the first answer is not sent yet
        request("enumerateItemsJSON", "photos/2019", note);
        return note(first);
    });
    EXPECT_EQ(order, (Strings{"[]", R"(["c7|photos/a.jpg"])", "[]"}));
}

TEST_P(RequestHandlerTest, SideBySideEachEndIsToldOnce) {
    constexpr int kFiles = 100;
    Guarded<std::multiset<std::string>> told;
    std::atomic<bool> changing = true;
    const auto asker = [&](std::string_view command) {
        return std::jthread([&, command] {
            while (changing) answer(command, "photos");
        });
    };
    const auto teller = [&] {
        while (changing)
            for (const std::string& id : deleted("photos")) told.with([&](auto& all) { all.insert(id); });
    };
    {
        const std::jthread threads[] = {asker("enumerateItemsJSON"), asker("enumerateItemsJSON"), std::jthread(teller),
                                        std::jthread(teller)};
        for (int i = 0; i < kFiles; ++i) {
            write("photos/" + std::to_string(i), "");
            listed("photos");
            fs::remove(top / "photos" / std::to_string(i));
        }
        changing = false;
    }
    for (const std::string& id : deleted("photos")) told.with([&](auto& all) { all.insert(id); });
    const auto all = told.copy();
    EXPECT_EQ(all.size(), kFiles);
    EXPECT_EQ(std::set(all.begin(), all.end()).size(), kFiles);
}

TEST_P(RequestHandlerTest, TheDirectoryIsTheOneThatWasOpened) {
    std::ofstream(base / "secret") << "s";
    listed("0");
    fs::rename(top, base / "away");
    fs::create_directory_symlink(base, top);
    EXPECT_EQ(listed("0"), (Strings{"note.txt", "photos"}));
    EXPECT_EQ(ask("itemForIdentifier", "secret"), json::object());
    EXPECT_EQ(deleted("0"), Strings{});
    fs::remove(base / "away/note.txt");
    EXPECT_EQ(deleted("0"), Strings{"c7|note.txt"});

    fs::remove_all(base / "away"); // then nothing is known of what was in it
    EXPECT_EQ(deleted("0"), Strings{});
    for (const char* id : {"0", "photos"}) EXPECT_EQ(answer("enumerateItemsJSON", id), "") << id;
    EXPECT_EQ(answer("itemForIdentifier", "photos"), ""); // not: gone
}

TEST_P(RequestHandlerTest, WhatCannotBeReadIsSaidAndNotGone) {
    listed("photos");
    listed("0");
    fs::permissions(top, fs::perms(0755));
    fs::permissions(top / "photos", fs::perms::none);
    // Without the superuser's privileges, on this thread only.
    const int user = ::setfsuid(65534);
    EXPECT_EQ(answer("enumerateItemsJSON", "photos"), "");
    EXPECT_EQ(deleted("photos"), Strings{});
    EXPECT_EQ(answer("itemForIdentifier", "photos/a.jpg"), "");
    EXPECT_EQ(listed("0"), (Strings{"note.txt", "photos"}));
    ::setfsuid(static_cast<uid_t>(user));
    EXPECT_EQ(warnings.size(), 2u);
    EXPECT_NE(warnings[0].find("/photos\" cannot be read: Permission denied."), std::string::npos) << warnings[0];
}

TEST_P(RequestHandlerTest, PathsMayBeLongerThanTheKernelTakes) {
    const std::string name(200, 'd');
    FileDescriptor folder(::open((top / "photos/2019").c_str(), O_PATH | O_DIRECTORY));
    std::string id = "photos/2019";
    for (int depth = 0; depth < 25; ++depth) {
        EXPECT_EQ(listed(id), Strings{});
        ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0700), 0);
        folder = FileDescriptor(::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY));
        id += "/" + name;
    }
    EXPECT_EQ(ask("itemForIdentifier", id).at("itemID"), json::value(id));
    EXPECT_EQ(ask("itemForIdentifier", std::string(300, 'n')), json::object());
}

TEST_P(RequestHandlerTest, WhatIsNoRequestGetsAnEmptyObject) {
    Strings replies;
    const auto note = [&](std::string_view text) { return replies.emplace_back(text), true; };
    const std::string deep(100'000, '[');
    const std::string_view texts[] = {"",
                                      "{",
                                      "[]",
                                      "7",
                                      R"({"command":"fly"})",
                                      R"({"command":5})",
                                      "deletedItemIDs:x",
                                      "{}",
                                      "\xff",
                                      R"({"command":"itemForIdentifier"})",
                                      R"({"command":"itemForIdentifier","identifier":5})",
                                      deep};
    for (const std::string_view text : texts) handler.handle(text, note);
    handler.handle(R"({"command":"silent"})", note);
    EXPECT_EQ(replies, Strings(std::size(texts), "{}"));
}

TEST_P(RequestHandlerTest, ACommandThatThrowsGivesAnEmptyReply) {
    Strings replies;
    request("itemForIdentifier", "photos", [&](std::string_view text) -> bool {
        replies.emplace_back(text);
        if (replies.size() == 1) throw std::bad_alloc();
        return true;
    });
    EXPECT_EQ(replies.back(), "");
    EXPECT_EQ(warnings.size(), 1u);
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
