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

/// Nonzero when a byte of the word is below `limit`, at most 0x80; bytes above 0x7F do not count.
std::uint64_t below(std::uint64_t word, std::uint64_t limit) { return (word - kOnes * limit) & ~word & kHighBits; }
std::uint64_t equal(std::uint64_t word, unsigned char byte) { return below(word ^ (kOnes * byte), 1); }

/// True when all is ASCII and stands for itself.
bool isPlain(std::string_view value) {
    const char* at = value.data();
    const char* const end = at + value.size();
    for (; end - at >= 8; at += 8) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof word);
        if ((word & kHighBits) | below(word, 0x20) | equal(word, '"') | equal(word, '\\')) return false;
    }
    for (; at != end; ++at)
        if (escapeOf(*at) || (*at & 0x80)) return false;
    return true;
}

void appendEscape(LogLine& line, char byte) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const char escape = escapeOf(byte);
    line.push_back('\\');
    line.push_back(escape);
    if (escape == 'u') line.append("00").append({kDigits[byte >> 4], kDigits[byte & 15]});
}

} // namespace

void appendQuoted(LogLine& line, std::string_view value) {
    const bool plain = isPlain(value);
    if (!plain && !isValidUtf8(value)) {
        line.append(value);
        return;
    }
    line.push_back('"');
    if (plain) {
        line.append(value);
    } else {
        std::size_t written = 0;
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (!escapeOf(value[i])) continue;
            line.append(value, written, i - written);
            appendEscape(line, value[i]);
            written = i + 1;
        }
        line.append(value, written);
    }
    line.push_back('"');
}

} // namespace brindlemar
