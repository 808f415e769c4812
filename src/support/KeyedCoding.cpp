#include "support/KeyedCoding.h"

namespace brindlemar {

namespace {
constexpr char kText = 't', kNumber = 'n', kFlag = 'f', kTime = 'd';

void appendNumber(std::string& bytes, std::uint64_t number) {
    char little[8];
    for (int i = 0; i < 8; ++i) little[i] = static_cast<char>(number >> (8 * i));
    bytes.append(little, sizeof little);
}

std::uint64_t readNumber(std::string_view eight) {
    std::uint64_t number = 0;
    for (int i = 0; i < 8; ++i) number |= std::uint64_t{static_cast<unsigned char>(eight[i])} << (8 * i);
    return number;
}

void appendHead(std::string& bytes, std::string_view key, char type) {
    bytes += static_cast<char>(key.size());
    bytes.append(key);
    bytes += type;
}

std::optional<std::string_view> take(std::string_view& bytes, std::size_t count) {
    if (bytes.size() < count) return std::nullopt;
    const std::string_view taken = bytes.substr(0, count);
    bytes.remove_prefix(count);
    return taken;
}
} // namespace

void appendPiece(std::string& bytes, std::string_view piece) {
    appendNumber(bytes, piece.size());
    bytes.append(piece);
}

std::optional<std::string_view> takePiece(std::string_view& bytes) {
    const auto length = take(bytes, 8);
    return length ? take(bytes, readNumber(*length)) : std::nullopt;
}

void KeyedEncoder::encode(std::string_view key, std::string_view text) {
    appendHead(bytes_, key, kText);
    appendPiece(bytes_, text);
}

void KeyedEncoder::encode(std::string_view key, std::uint64_t number) {
    appendHead(bytes_, key, kNumber);
    appendNumber(bytes_, number);
}

void KeyedEncoder::encode(std::string_view key, bool flag) {
    appendHead(bytes_, key, kFlag);
    bytes_ += flag ? '\1' : '\0';
}

void KeyedEncoder::encode(std::string_view key, Timestamp time) {
    appendHead(bytes_, key, kTime);
    appendNumber(bytes_, static_cast<std::uint64_t>(time.time_since_epoch().count()));
}

std::optional<KeyedDecoder> KeyedDecoder::open(std::string_view bytes) {
    KeyedDecoder decoder;
    while (!bytes.empty()) {
        const auto keyLength = take(bytes, 1);
        const auto key = take(bytes, static_cast<unsigned char>(keyLength->front()));
        const auto type = key ? take(bytes, 1) : std::nullopt;
        if (!type) return std::nullopt;
        const auto value = type->front() == kText ? takePiece(bytes) : take(bytes, type->front() == kFlag ? 1 : 8);
        if (!value) return std::nullopt;
        decoder.members_.push_back({*key, type->front(), *value});
    }
    return decoder;
}

std::optional<std::string_view> KeyedDecoder::value(std::string_view key, char type) const {
    for (const Member& member : members_)
        if (member.key == key && member.type == type) return member.value;
    return std::nullopt;
}

std::optional<std::string_view> KeyedDecoder::text(std::string_view key) const { return value(key, kText); }

std::optional<std::uint64_t> KeyedDecoder::number(std::string_view key) const {
    const auto bytes = value(key, kNumber);
    return bytes ? std::optional(readNumber(*bytes)) : std::nullopt;
}

std::optional<bool> KeyedDecoder::flag(std::string_view key) const {
    const auto bytes = value(key, kFlag);
    return bytes ? std::optional(bytes->front() != 0) : std::nullopt;
}

std::optional<Timestamp> KeyedDecoder::time(std::string_view key) const {
    const auto bytes = value(key, kTime);
    if (!bytes) return std::nullopt;
    return Timestamp(std::chrono::nanoseconds(static_cast<std::int64_t>(readNumber(*bytes))));
}

} // namespace brindlemar
