#include "host/ItemAttributes.h"

#include "host/admin/StorageClass.h"
#include "linux/FileDescriptor.h"
#include "linux/files/LinuxFiles.h"
#include "linux/ports/PortAddress.h"
#include "support/JSON.h"

#include <fcntl.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace brindlemar::host {

namespace {
namespace fs = std::filesystem;

/// Takes out what is known of the item and of all below it.
AttributesByPath extract(AttributesByPath& all, const std::string& path) {
    AttributesByPath taken;
    const auto take = [&](auto item) {
        const auto next = std::next(item);
        taken.insert(all.extract(item));
        return next;
    };
    if (const auto item = all.find(path); item != all.end()) take(item);
    const std::string below = path + "/";
    for (auto item = all.lower_bound(below); item != all.end() && item->first.starts_with(below);) item = take(item);
    return taken;
}

bool knowsOf(const AttributesByPath& all, const std::string& path) {
    const auto below = all.lower_bound(path + "/");
    return all.contains(path) || (below != all.end() && below->first.starts_with(path + "/"));
}

AttributesByPath read(const std::string& file) {
    AttributesByPath all;
    if (!fs::exists(file)) return all;
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    const JSON json = JSON::parse(text.str());
    if (json.isNull() || json.isArray())
        throw std::runtime_error("The state file " + file + " cannot be read. Repair it, or move it away.");
    json.forEach([&](std::string_view path, const JSON& attributes) {
        attributes.forEach([&](std::string_view name, const JSON& value) {
            setAttribute(all, std::string(path), name, value.stringValue());
        });
    });
    return all;
}

std::string textOf(const AttributesByPath& all) {
    JSON::Members items;
    for (const auto& [path, attributes] : all) {
        JSON::Members members;
        for (const auto& [name, value] : attributes) members.emplace_back(name, value);
        items.emplace_back(path, JSON::object(members));
    }
    return JSON::object(items).serialized().value_or("");
}

bool write(const std::string& file, const std::string& text) {
    const std::string directory = fs::path(file).parent_path();
    std::error_code error;
    if (fs::create_directories(directory, error)) fs::permissions(directory, fs::perms::owner_all, error);
    const FileDescriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened && !text.empty() && LinuxFiles().writeAtomically(file, text) && ::fsync(opened.get()) == 0;
}
} // namespace

std::string findAttribute(const AttributesByPath& all, std::string_view path, std::string_view name) {
    const auto item = all.find(path);
    if (item == all.end()) return {};
    const auto attribute = item->second.find(name);
    return attribute == item->second.end() ? std::string() : attribute->second;
}

void setAttribute(AttributesByPath& all, const std::string& path, std::string_view name, const std::string& value) {
    Attributes& attributes = all[path];
    if (value.empty())
        attributes.erase(std::string(name));
    else
        attributes[std::string(name)] = value;
    if (attributes.empty()) all.erase(path);
}

int archiveMarkOf(const AttributesByPath& all, std::string_view path) {
    if (all.empty()) return 0;
    return archiveMark(findAttribute(all, path, attribute::storageClass)).value_or(0);
}

bool isArchived(const AttributesByPath& all, std::string_view path, Timestamp now) {
    if (archiveMarkOf(all, path) == 0) return false;
    const std::string until = findAttribute(all, path, attribute::restoredUntil);
    std::int64_t seconds = 0;
    std::from_chars(until.data(), until.data() + until.size(), seconds);
    return wholeSecondsSince1970(now) >= seconds;
}

ItemAttributes::ItemAttributes(std::string file)
    : file_(std::move(file)), current_(std::make_shared<const AttributesByPath>(read(file_))) {}

bool ItemAttributes::change(const std::function<void(AttributesByPath& all)>& change) {
    std::lock_guard turn(changing_);
    const auto before = all();
    const auto after = std::make_shared<AttributesByPath>(*before);
    change(*after);
    if (*after == *before) return true;
    if (!write(file_, textOf(*after))) return false;
    current_.with([&](auto& current) { current = after; });
    return true;
}

bool ItemAttributes::forget(const std::string& path) {
    return !knowsOf(*all(), path) || change([&](AttributesByPath& all) { extract(all, path); });
}

bool ItemAttributes::move(const std::string& from, const std::string& to) {
    if (!knowsOf(*all(), from) && !knowsOf(*all(), to)) return true;
    return change([&](AttributesByPath& all) {
        const AttributesByPath moved = extract(all, from);
        extract(all, to); // of an item that was removed by others
        for (const auto& [path, attributes] : moved) all[to + path.substr(from.size())] = attributes;
    });
}

std::string ItemAttributes::usualFile(std::string_view domain) {
    const auto directory = [](const char* variable) {
        const char* value = std::getenv(variable);
        return value && *value == '/' ? std::string(value) : std::string();
    };
    std::string state = directory("XDG_STATE_HOME");
    if (state.empty()) {
        state = directory("HOME");
        if (state.empty())
            throw std::runtime_error("There is no home directory to keep state in; set HOME or XDG_STATE_HOME.");
        state += "/.local/state";
    }
    return state + "/brindlemar-host/" + portFileName(domain) + ".json";
}

} // namespace brindlemar::host
