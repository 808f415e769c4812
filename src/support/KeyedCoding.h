// A keyed container in bytes: the form in which items go to the disk side of their cache.
#pragma once

#include "platform/Timestamp.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar {

/// Appends one container, member by member. A member is the key's length (u8), the key, a type byte, the value;
/// lengths and numbers are little-endian. Keys are shorter than 256 bytes.
class KeyedEncoder {
public:
    explicit KeyedEncoder(std::string& bytes) : bytes_(bytes) {}
    void encode(std::string_view key, std::string_view text);
    void encode(std::string_view key, std::uint64_t number);
    void encode(std::string_view key, bool flag);
    void encode(std::string_view key, Timestamp time);

private:
    std::string& bytes_;
};

/// Reads one container. A member that is missing or of another type gives none. The bytes must outlive the decoder.
class KeyedDecoder {
public:
    /// None when the bytes are not a whole container.
    static std::optional<KeyedDecoder> open(std::string_view bytes);
    std::optional<std::string_view> text(std::string_view key) const;
    std::optional<std::uint64_t> number(std::string_view key) const;
    std::optional<bool> flag(std::string_view key) const;
    std::optional<Timestamp> time(std::string_view key) const;

private:
    struct Member {
        std::string_view key;
        char type;
        std::string_view value;
    };
    std::optional<std::string_view> value(std::string_view key, char type) const;
    std::vector<Member> members_;
};

/// Length-prefixed pieces, for containers in a row.
void appendPiece(std::string& bytes, std::string_view piece);
/// Takes the next piece off the front; none at the end or when the rest is no whole piece.
std::optional<std::string_view> takePiece(std::string_view& bytes);

} // namespace brindlemar
