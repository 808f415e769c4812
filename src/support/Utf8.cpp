#include "support/Utf8.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace brindlemar {

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080;

std::uint64_t wordAt(const char* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

const char* skipAscii(const char* at, const char* end) {
    constexpr std::ptrdiff_t kBlock = 64;
    while (end - at >= kBlock) {
        std::uint64_t seen = 0;
        for (int word = 0; word < 8; ++word) seen |= wordAt(at + 8 * word);
        if (seen & kHighBits) break;
        at += kBlock;
    }
    while (end - at >= 8) {
        const std::uint64_t high = wordAt(at) & kHighBits;
        if (high && std::endian::native == std::endian::little) return at + std::countr_zero(high) / 8;
        if (high) break;
        at += 8;
    }
    while (at != end && !(*at & 0x80)) ++at;
    return at;
}

bool isBetween(unsigned char byte, unsigned char low, unsigned char high) {
    return static_cast<unsigned char>(byte - low) <= high - low;
}

bool isTail(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// Length of the sequence of two or more bytes at the start of `at`, 0 when it is none. The rows of RFC 3629,
/// section 4.
std::size_t sequenceLength(const unsigned char* at, std::size_t available) {
    const unsigned char lead = at[0];
    if (lead < 0xE0) return lead >= 0xC2 && available >= 2 && isTail(at[1]) ? 2 : 0;
    if (lead < 0xF0) {
        if (available < 3 || !isTail(at[2])) return 0;
        const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
        return isBetween(at[1], low, high) ? 3 : 0;
    }
    if (lead > 0xF4 || available < 4 || !isTail(at[2]) || !isTail(at[3])) return 0;
    const unsigned char low = lead == 0xF0 ? 0x90 : 0x80, high = lead == 0xF4 ? 0x8F : 0xBF;
    return isBetween(at[1], low, high) ? 4 : 0;
}

} // namespace

bool isValidUtf8(std::string_view bytes) {
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    while ((at = skipAscii(at, end)) != end) {
        do {
            const std::size_t length =
                sequenceLength(reinterpret_cast<const unsigned char*>(at), static_cast<std::size_t>(end - at));
            if (length == 0) return false;
            at += length;
        } while (at != end && (*at & 0x80));
    }
    return true;
}

} // namespace brindlemar
