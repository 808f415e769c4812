#include "support/StringHelpers.h"

#include <utf8proc.h>

#include <algorithm>

namespace brindlemar {

namespace {
/// Bytes of the first `count` characters; all of the text when it has no more.
std::size_t lengthOf(std::string_view text, std::size_t count) {
    const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    utf8proc_int32_t state = 0, before = 0, point = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto size = utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &point);
        if (size < 0) point = 0xFFFD; // a byte that is no UTF-8 stands for itself
        const bool starts = at == 0 || utf8proc_grapheme_break_stateful(before, point, &state);
        if (starts && count-- == 0) return at;
        before = point;
        at += size < 0 ? 1 : static_cast<std::size_t>(size);
    }
    return text.size();
}

/// Where the extension's dot stands in a last component; its end when there is none.
std::size_t dotOf(std::string_view component) {
    const std::size_t dot = component.rfind('.');
    const bool isExtension =
        dot != component.npos && dot + 1 < component.size() && component.find_first_not_of('.') < dot;
    return isExtension ? dot : component.size();
}
} // namespace

std::string trunc(std::string_view text, std::ptrdiff_t length, std::string_view trailing) {
    const std::size_t kept = lengthOf(text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(length, 0)));
    std::string result(text.substr(0, kept));
    if (kept < text.size()) result.append(trailing);
    return result;
}

std::string_view lastPathComponent(std::string_view path) {
    const std::size_t end = path.find_last_not_of('/');
    if (end == path.npos) return path.substr(0, 1);
    path = path.substr(0, end + 1);
    return path.substr(path.rfind('/') + 1);
}

std::string fileName(std::string_view path) {
    const std::string_view component = lastPathComponent(path);
    return std::string(component.substr(0, dotOf(component)));
}

std::string fileExtension(std::string_view path) {
    const std::string_view component = lastPathComponent(path);
    return std::string(component.substr(std::min(dotOf(component) + 1, component.size())));
}

} // namespace brindlemar
