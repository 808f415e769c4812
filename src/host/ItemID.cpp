#include "host/ItemID.h"

#include "host/PartialFile.h"
#include "platform/Item.h"
#include "support/Utf8.h"

#include <algorithm>
#include <charconv>

namespace brindlemar::host {

namespace {
void appendEscaped(std::string& id, char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    id.append({'%', digits[byte >> 4], digits[byte & 15]});
}

bool isReserved(std::string_view name) {
    return name == "0" || name == "00" || name == "root" || name.starts_with("NSFileProvider");
}

std::optional<std::string> unescape(std::string_view text) {
    std::string name;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            name.push_back(text[at]);
            continue;
        }
        if (at + 2 >= text.size()) return std::nullopt;
        unsigned byte = 0;
        const char* end = text.data() + at + 3;
        if (std::from_chars(text.data() + at + 1, end, byte, 16).ptr != end) return std::nullopt;
        name.push_back(static_cast<char>(byte));
        at += 2;
    }
    return name;
}

bool isFileName(std::string_view name) {
    constexpr std::size_t longest = 255; // bytes
    return !name.empty() && name.size() <= longest && name != "." && name != ".." && isValidUtf8(name) &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos && !isPartialName(name);
}

/// Turns the ID of a folder into that of a file in it.
void appendChild(std::string& id, std::string_view name) {
    if (id != kTopID) {
        id.push_back('/');
    } else {
        id.clear();
        if (isReserved(name)) {
            appendEscaped(id, name.front());
            name.remove_prefix(1);
        }
    }
    for (const char c : name) {
        if (c == '%' || c == '|')
            appendEscaped(id, c);
        else
            id.push_back(c);
    }
}
} // namespace

bool isTopID(std::string_view id) {
    return id == kTopID || id == "root" || id == NSFileProviderRootContainerItemIdentifier;
}

std::string childID(std::string_view parent, std::string_view name) {
    std::string id(parent);
    appendChild(id, name);
    return id;
}

std::optional<ItemPath> pathOfID(std::string_view id) {
    if (isTopID(id)) return ItemPath{".", "", std::string(kTopID), ""};
    ItemPath result;
    std::string canonical(kTopID);
    for (std::size_t from = 0; from <= id.size();) {
        const std::size_t to = std::min(id.find('/', from), id.size());
        std::optional<std::string> name = unescape(id.substr(from, to - from));
        if (!name || !isFileName(*name)) return std::nullopt;
        if (!result.path.empty()) result.path.push_back('/');
        result.path.append(*name);
        appendChild(canonical, *name);
        result.name = std::move(*name);
        from = to + 1;
    }
    if (canonical != id) return std::nullopt;
    result.id = id;
    const std::size_t slash = id.rfind('/');
    result.parentID = slash == std::string_view::npos ? kTopID : id.substr(0, slash);
    return result;
}

std::optional<ItemPath> newItem(std::string_view parent, std::string_view name) {
    const std::optional<ItemPath> folder = pathOfID(parent);
    if (!folder || !isFileName(name)) return std::nullopt;
    return ItemPath{childPath(folder->path, name), std::string(name), childID(folder->id, name), folder->id};
}

std::string childPath(const std::string& folder, std::string_view name) {
    return folder == "." ? std::string(name) : std::string(folder).append("/").append(name);
}

} // namespace brindlemar::host
