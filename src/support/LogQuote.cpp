#include "support/LogQuote.h"

#include "support/Utf8.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace brindlemar {

namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101, kHighBits = 0x8080808080808080;

/// What follows the backslash for each byte; 0 for bytes that stand as they are.
constexpr std::array<char, 256> kEscapes = [] {
    std::array<char, 256> table{};
    for (int control = 0; control < 0x20; ++control) table[control] = 'u';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    table['"'] = '"';
    table['\\'] = '\\';
    return table;
}();

char escapeOf(char byte) { return kEscapes[static_cast<unsigned char>(byte)]; }

/// Nonzero when the eight bytes are not all ASCII that stands for itself. A byte above 0x7F counts by itself; for the
/// others a subtraction sets the high bit exactly below 0x20, at the quotation mark and at the backslash.
std::uint64_t special(const char* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    const std::uint64_t control = word - kOnes * 0x20, quote = (word ^ (kOnes * '"')) - kOnes,
                        backslash = (word ^ (kOnes * '\\')) - kOnes;
    return (word | control | quote | backslash) & kHighBits;
}

bool isPlain(std::string_view value) {
    const char* at = value.data();
    const char* const end = at + value.size();
    if (value.size() < 8) {
        while (at != end && !escapeOf(*at) && !(*at & 0x80)) ++at;
        return at == end;
    }
    std::uint64_t seen = special(end - 8);
    for (; end - at > 8; at += 8) seen |= special(at);
    return seen == 0;
}

void appendEscape(LogLine& line, char byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const char escape = escapeOf(byte);
    line.append('\\').append(escape);
    if (escape == 'u') line.append("00").append(kDigits[byte >> 4]).append(kDigits[byte & 15]);
}

void appendEscaped(LogLine& line, std::string_view value) {
    line.append('"');
    std::size_t written = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (!escapeOf(value[i])) continue;
        line.append(value.substr(written, i - written));
        appendEscape(line, value[i]);
        written = i + 1;
    }
    line.append(value.substr(written)).append('"');
}

} // namespace

void appendQuoted(LogLine& line, std::string_view value) {
    if (isPlain(value)) {
        char* const quoted = line.extend(value.size() + 2);
        quoted[0] = '"';
        value.copy(quoted + 1, value.size());
        quoted[value.size() + 1] = '"';
    } else if (isValidUtf8(value)) {
        appendEscaped(line, value);
    } else {
        line.append(value);
    }
}

} // namespace brindlemar
