// A served directory of a test's own, and the host's replies about it.
#pragma once

#include "fakes/FakeClock.h"
#include "fakes/TemporaryDirectory.h"
#include "host/RequestHandler.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <numeric>

namespace brindlemar::host {

namespace fs = std::filesystem;
namespace json = boost::json;
using Strings = std::vector<std::string>;

/// Runs tasks within the call, unless it is paused; timers tick once, when they are made.
struct InlineQueue final : Queue {
    void async(Task task) override { paused ? waiting.push_back(std::move(task)) : task(); }
    void after(std::chrono::nanoseconds, Task task) override { async(std::move(task)); }
    std::unique_ptr<Timer> repeat(std::chrono::nanoseconds, Task handler) override { return handler(), nullptr; }
    bool paused = false;
    std::vector<Task> waiting;
};

/// In JSON ' stands for ", and @ for the directory outside. The reply has these members, or equals a reply that is no
/// object with members. Where `files` are given, the served directory has these then.
struct Step {
    std::string_view command, keys, reply;
    std::string files = {};
};

struct HostFixture : ::testing::Test {
    HostFixture() {
        fs::create_directories(top / "photos/2019");
        fs::create_directories(outside / "folder");
        std::ofstream(outside / "staged") << "new";
        write("note.txt", "x");
        write("photos/a.jpg", "12345");
        start(TopDirectory::Way::whole);
    }
    std::unique_ptr<Served> serve(TopDirectory::Way way = TopDirectory::Way::whole) {
        TopDirectory opened(FileDescriptor(::open(top.c_str(), O_RDONLY | O_DIRECTORY)), way);
        const auto say = [this](const std::string& text) { warnings.push_back(text); };
        return std::unique_ptr<Served>(new Served{
            {"Work", "c7", top}, Tree(std::move(opened)), say, clock, queue, ItemAttributes(base / "state/c7.json")});
    }
    void start(TopDirectory::Way way) {
        handler.emplace(serve(way), RequestHandler::Queues{queue, copiers}, misbehaviour);
    }
    void write(const fs::path& path, std::string_view text) const { std::ofstream(top / path) << text; }

    std::string expand(std::string text) const {
        if (const std::size_t at = text.find('@'); at != text.npos) text.replace(at, 1, outside);
        std::ranges::replace(text, '\'', '"');
        return text;
    }
    void request(std::string_view command, std::string_view keys, Reply reply) {
        const std::string text = expand("{'command':'" + std::string(command) + (keys.empty() ? "'" : "',"));
        handler->handle(text + expand(std::string(keys)) + "}", std::move(reply));
    }
    /// The reply that ends the request. It, and a report of progress before it, is sent or lost.
    std::string ask(std::string_view command, std::string_view keys, bool sent = true, bool progressSent = true) {
        std::string last;
        request(command, keys, [&](std::string_view reply) {
            if (reply == R"({"status":"progress","progressPercentage":0})") return progressSent;
            EXPECT_EQ(std::exchange(last, reply), "") << command << " " << keys;
            return sent;
        });
        return last;
    }
    static std::string id(std::string_view id) { return "'identifier':" + json::serialize(json::string(id)); }
    json::value about(std::string_view command, std::string_view item) { return json::parse(ask(command, id(item))); }
    Strings itemIDs(std::string_view command, std::string_view keys) {
        Strings texts;
        const json::value reply = json::parse(ask(command, keys));
        for (const json::value& item : reply.as_array()) texts.emplace_back(item.at("itemID").as_string());
        return texts;
    }
    Strings listed(std::string_view folder) { return itemIDs("enumerateItemsJSON", id(folder)); }
    void run(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            const std::string reply = ask(step.command, step.keys);
            json::value expected = json::parse(expand(std::string(step.reply))), got = json::parse(reply);
            json::object wanted;
            if (const auto* members = expected.if_object(); members && got.is_object())
                for (const auto& member : *members)
                    if (const auto* value = got.get_object().if_contains(member.key())) wanted[member.key()] = *value;
            if (!wanted.empty()) got = wanted;
            EXPECT_EQ(got, expected) << step.command << " " << step.keys << ": " << reply;
            EXPECT_EQ(step.files.empty() ? "" : files(top), step.files) << step.command << " " << step.keys;
        }
    }
    /// "FILE=CONTENTS FOLDER/ ..." in order.
    static std::string files(const fs::path& folder) {
        std::set<std::string> all;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            all.insert(fs::relative(entry.path(), folder).string() +
                       (entry.is_regular_file() ? "=" + contentsOf(entry.path()) + " " : "/ "));
        return std::accumulate(all.begin(), all.end(), std::string());
    }

    const TemporaryDirectory place;
    const fs::path base = place.path(), top = base / "top", outside = base / "outside";
    Strings warnings;
    FakeClock clock;
    InlineQueue queue, copiers;
    Misbehaviour misbehaviour{{.held = {"shutdown"}, .failing = {"getACL=1"}}};
    std::optional<RequestHandler> handler;
};

} // namespace brindlemar::host
