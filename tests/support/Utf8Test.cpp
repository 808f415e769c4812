#include "support/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace brindlemar {
namespace {

std::string encoded(std::uint32_t code, int length) {
    static constexpr unsigned char kLeads[] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8};
    std::string bytes;
    bytes.push_back(static_cast<char>(kLeads[length] | (code >> (6 * (length - 1)))));
    for (int tail = length - 2; tail >= 0; --tail)
        bytes.push_back(static_cast<char>(0x80 | ((code >> (6 * tail)) & 0x3F)));
    return bytes;
}

TEST(Utf8, AcceptsEveryCodePointInItsShortestFormOnly) {
    const std::uint32_t first[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000};
    for (int length = 2; length <= 4; ++length)
        for (std::uint32_t code = 0; code < (1u << (5 * length + (length == 2))) && code < 0x200000; ++code) {
            const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
            const bool expected = code >= first[length] && code <= 0x10FFFF && !surrogate;
            if (isValidUtf8(encoded(code, length)) != expected) FAIL() << length << " bytes for " << code;
        }
}

TEST(Utf8, RefusesBrokenSequencesWhereverTheyStand) {
    for (std::size_t place = 0; place < 140; ++place) {
        const std::string before(place, 'a');
        for (const std::string sequence : {"é", "漢", "\U0001F600"}) {
            EXPECT_TRUE(isValidUtf8(before + sequence + "tail of plain text"));
            for (std::size_t cut = 1; cut < sequence.size(); ++cut) {
                EXPECT_FALSE(isValidUtf8(before + sequence.substr(0, cut)));
                EXPECT_FALSE(isValidUtf8(before + sequence.substr(0, cut) + "a"));
                EXPECT_FALSE(isValidUtf8(before + sequence.substr(cut)));
            }
        }
        EXPECT_FALSE(isValidUtf8(before + "\xF8\x88\x80\x80\x80" + before));
        EXPECT_FALSE(isValidUtf8(before + "\xFF"));
    }
}

} // namespace
} // namespace brindlemar
