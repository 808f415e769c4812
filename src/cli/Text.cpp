#include "cli/Text.h"

#include "support/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace brindlemar::cli {

namespace {
/// Bytes of the character that the text begins with; 0 when it begins with no valid one.
std::size_t characterLength(std::string_view text) {
    for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length)
        if (isValidUtf8(text.substr(0, length))) return length;
    return 0;
}

/// U+0000 to U+001F, U+007F to U+009F.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7f;
    return character.size() == 2 && first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0;
}

void appendEscape(std::string& result, char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n' || c == '\r' || c == '\t')
        result.append({'\\', c == '\n' ? 'n' : c == '\r' ? 'r' : 't'});
    else
        result.append({'\\', 'x', digits[byte >> 4], digits[byte & 15]});
}

/// `asText`: line ends, tabs and backslashes stay.
std::string escape(std::string_view text, bool asText) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        const bool kept = asText && (character == "\n" || character == "\t");
        if (length == 0 || (isControl(character) && !kept))
            for (const char c : character) appendEscape(result, c);
        else
            result.append(character == "\\" && !asText ? "\\\\" : character);
        text.remove_prefix(character.size());
    }
    return result;
}
} // namespace

std::string escaped(std::string_view text) { return escape(text, false); }
std::string withoutControls(std::string_view text) { return escape(text, true); }

std::string localTime(double seconds) {
    const auto time = static_cast<std::time_t>(std::clamp(seconds, -1e15, 1e15));
    std::tm parts{};
    char text[64];
    if (!::localtime_r(&time, &parts)) return "?";
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts)};
}

std::string counted(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string byteCount(double bytes) {
    constexpr const char* units[] = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    for (; bytes >= 999.5 && unit + 1 < std::size(units); ++unit) bytes /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 || bytes >= 99.95 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

std::optional<std::string> pathOfFileURL(std::string_view url) {
    if (!url.starts_with("file:///")) return std::nullopt;
    url.remove_prefix(std::string_view("file://").size());
    std::string path;
    while (!url.empty()) {
        unsigned char byte = 0;
        const bool isEncoded = url.size() >= 3 && url[0] == '%' &&
                               std::from_chars(url.data() + 1, url.data() + 3, byte, 16).ptr == url.data() + 3;
        path += isEncoded ? static_cast<char>(byte) : url[0];
        url.remove_prefix(isEncoded ? 3 : 1);
    }
    return path;
}

} // namespace brindlemar::cli
