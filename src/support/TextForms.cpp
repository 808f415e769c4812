#include "support/TextForms.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace brindlemar {

std::string shortestText(double value) {
    const double size = std::fabs(value);
    const bool decimal = size == 0 || (size >= 1e-4 && size <= 9007199254740992.0);
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof digits, value,
                                   decimal ? std::chars_format::fixed : std::chars_format::scientific);
    std::string text(digits, end.ptr);
    if (decimal && text.find('.') == std::string::npos) text += ".0";
    return text;
}

std::string timestampText(Timestamp time) {
    const auto seconds = std::chrono::sys_seconds(std::chrono::seconds(wholeSecondsSince1970(time)));
    const auto day = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(seconds - day);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d +0000", int(date.year()), unsigned(date.month()),
                  unsigned(date.day()), int(clock.hours().count()), int(clock.minutes().count()),
                  int(clock.seconds().count()));
    return text;
}

std::string printedList(const std::vector<std::string>& texts) {
    std::string out = "[";
    for (const std::string& text : texts) {
        out += out.size() > 1 ? ", \"" : "\"";
        for (const char c : text) {
            switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\'':
                out += "\\'";
                break;
            case '\0':
                out += "\\0";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (const auto byte = static_cast<unsigned char>(c); byte < 0x20 || byte == 0x7F) {
                    char escape[12];
                    std::snprintf(escape, sizeof escape, "\\u{%X}", byte);
                    out += escape;
                } else {
                    out += c;
                }
            }
        }
        out += '"';
    }
    return out + "]";
}

std::string absoluteString(const FileURL& url) {
    constexpr std::string_view kept =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,;=:@/";
    std::string out = "file://";
    for (const char c : url.path) {
        if (kept.find(c) != std::string_view::npos) {
            out += c;
        } else {
            char escape[4];
            std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned char>(c));
            out += escape;
        }
    }
    if (url.isDirectory && !out.ends_with('/')) out += '/';
    return out;
}

std::string propertyList(const std::vector<std::string>& strings) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";
    if (strings.empty()) return out + "<array/>\n</plist>\n";
    out += "<array>\n";
    for (const std::string& text : strings) {
        out += "\t<string>";
        for (const char c : text) {
            if (c == '&')
                out += "&amp;";
            else if (c == '<')
                out += "&lt;";
            else if (c == '>')
                out += "&gt;";
            else
                out += c;
        }
        out += "</string>\n";
    }
    return out + "</array>\n</plist>\n";
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const std::size_t end = text.find(separator, start);
        pieces.push_back(text.substr(start, end - start));
        if (end == std::string_view::npos) return pieces;
        start = end + 1;
    }
}

} // namespace brindlemar
