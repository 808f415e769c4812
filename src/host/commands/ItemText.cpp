#include "host/commands/ItemText.h"

#include "host/commands/Commands.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace brindlemar::host {

namespace {
void appendNumber(std::string& json, std::int64_t number) {
    char digits[24];
    json.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

bool needsEscape(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; }

void appendEscape(std::string& json, char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    if (c == '"' || c == '\\')
        json.append({'\\', c});
    else
        json.append("\\u00").append({digits[static_cast<unsigned char>(c) >> 4], digits[c & 15]});
}
} // namespace

std::int64_t toldSeconds(const timespec& time) { return std::clamp<std::int64_t>(time.tv_sec, 0, UINT32_MAX); }

void appendQuoted(std::string& json, std::string_view text) {
    json.push_back('"');
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), needsEscape) - text.begin());
        json.append(text.substr(0, plain));
        if (plain == text.size()) break;
        appendEscape(json, text[plain]);
        text.remove_prefix(plain + 1);
    }
    json.push_back('"');
}

void appendItem(std::string& json, const ItemText& item, const struct stat& status) {
    const bool folder = S_ISDIR(status.st_mode);
    json.append("{\"name\":");
    appendQuoted(json, item.name);
    json.append(",\"size\":");
    appendNumber(json, folder ? 0 : status.st_size);
    json.append(folder ? ",\"folder\":true,\"parentID\":" : ",\"folder\":false,\"parentID\":");
    appendQuoted(json, item.parentID);
    json.append(",\"itemID\":");
    appendQuoted(json, item.itemID);
    json.append(",\"mtime\":");
    appendNumber(json, toldSeconds(status.st_mtim));
    json.append(",\"atime\":");
    appendNumber(json, toldSeconds(status.st_atim));
    json.append(",\"permissions\":");
    appendNumber(json, status.st_mode & 0777);
    if (item.archiveMark != 0) {
        json.append(",\"glacier\":");
        appendNumber(json, item.archiveMark);
    }
    json.push_back('}');
}

std::string itemText(const Served& served, const ItemPath& item, const struct stat& status) {
    const Connection& connection = served.connection;
    std::string text;
    if (item.id == kTopID) // the extension makes "DOMAIN|0" of it, below its own root
        appendItem(text, {connection.name, connection.domain, "00"}, status);
    else
        appendItem(text, {item.name, item.id, item.parentID, archiveMarkOf(*served.attributes.all(), item.path)},
                   status);
    return text;
}

std::string newItemText(Served& served, const ItemPath& item, const struct stat& status) {
    served.known.with([&](auto& known) { known[item.folder()].add(item.name); });
    return itemText(served, item, status);
}

} // namespace brindlemar::host
