// A service with scripted answers, and the program run against it.
#pragma once

#include "cli/Program.h"
#include "fakes/TemporaryDirectory.h"

#include <boost/json.hpp>

#include <map>
#include <sstream>

namespace brindlemar::cli {

using Strings = std::vector<std::string>;
inline constexpr const char* kRoot = "NSFileProviderRootContainerItemIdentifier";

inline std::string item(const std::string& id, const std::string& name, bool folder = false, int size = 0) {
    return R"({"itemIdentifier":")" + id + R"(","filename":")" + name + R"(","contentType":"public.)" +
           (folder ? "folder" : "content") + R"(","documentSize":)" + std::to_string(size) +
           R"(,"contentModificationDate":1659538288})";
}
inline std::string page(const std::string& items, const std::string& next = "null") {
    return R"({"event":"items","items":[)" + items + "]}\n" + R"({"event":"finish","page":)" + next + "}\n";
}
inline std::string completion(const std::string& members) { return R"({"event":"completion",)" + members + "}\n"; }
inline std::string error(int code, const std::string& domain = "NSFileProviderErrorDomain") {
    return completion(R"("item":null,"error":{"domain":")" + domain + R"(","code":)" + std::to_string(code) + "}");
}

struct FakeService {
    std::mutex mutex;
    std::map<std::string, std::string> answers; // by "operation subject", the subject alone, or the operation alone
    Strings calls;                              // "operation ARGUMENTS", without listings
    std::string status = R"({"domain":{"state":"connected"},"configured":true,"connections":[{"domain":"c7"}]})";
    TemporaryDirectory fetched; // what "fetch" gives: the item's identifier as contents

    std::optional<std::string> answer(const std::string& operation, const boost::json::object& arguments) {
        std::lock_guard lock(mutex);
        if (operation != "browse") calls.push_back(operation + " " + boost::json::serialize(arguments));
        const auto* id = arguments.if_contains(arguments.contains("id") ? "id" : "name");
        const std::string subject = id ? std::string(id->get_string()) : "";
        for (const std::string& key : {operation + " " + subject, subject, operation})
            if (const auto found = answers.find(key); found != answers.end()) return found->second;
        if (operation == "fetch") {
            const std::string path = fetched / std::to_string(calls.size());
            std::ofstream(path) << subject;
            return completion(R"("url":"file://)" + path + R"(","item":)" + item(subject, "x"));
        }
        if (operation == "create")
            return completion(R"("item":)" +
                              item(std::string(arguments.at("parent").get_string()) + "/" + subject, ""));
        if (operation == "browse") return std::nullopt;
        return completion(R"("item":null,"reply":"{}","error":null)");
    }
};

struct FakeControl : Control {
    explicit FakeControl(FakeService& service) : service(service) {}
    std::optional<std::string> status() override { return service.status; }
    bool call(const std::string& operation, const boost::json::object& arguments, const LineHandler& handler) override {
        const auto answer = service.answer(operation, arguments);
        std::istringstream lines(answer.value_or(""));
        for (std::string line; std::getline(lines, line) && handler(line);) {
        }
        return answer.has_value();
    }
    std::string error() const override { return "gone"; }
    FakeService& service;
};

/// A file in memory.
class Text {
public:
    ~Text() {
        std::fclose(file);
        std::free(text_);
    }
    std::string get() const {
        std::fflush(file);
        return {text_, size_};
    }

private:
    char* text_ = nullptr;
    std::size_t size_ = 0;

public:
    std::FILE* const file = ::open_memstream(&text_, &size_);
};

/// What the program prints, then "exit N: messages" when it fails.
inline std::string run(FakeService& service, const Strings& arguments, bool terminal = false) {
    Text out, errors;
    Output output(out.file, terminal);
    Notices notices(errors.file, false);
    Temporaries temporaries;
    const Exit exit = runProgram(
        arguments, {[&](int) { return std::make_unique<FakeControl>(service); }, output, notices, temporaries});
    if (exit == Exit::ok) return out.get() + errors.get();
    std::string said = errors.get();
    for (std::size_t at; (at = said.find("brindlemar: ")) != said.npos;) said.erase(at, 12);
    return out.get() + "exit " + std::to_string(static_cast<int>(exit)) + ": " + said.substr(0, said.size() - 1);
}

} // namespace brindlemar::cli
