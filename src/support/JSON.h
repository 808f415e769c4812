// The dynamic JSON value (RFC 8259) in which requests are built and replies are read.
#pragma once

#include <boost/json/value.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brindlemar {

/// A JSON number, read as the integer type that is wanted: fractions are dropped toward zero, the unsigned readings
/// keep the low bits (70000 read as 16 bits is 4464).
class JSONNumber {
public:
    explicit constexpr JSONNumber(std::int64_t value) : integer_(value) {}
    explicit JSONNumber(std::uint64_t value) : integer_(static_cast<std::int64_t>(value)), real_(double(value)) {}
    explicit JSONNumber(double value);

    /// Reads beyond 64 bits stop at the limits; what is not a number reads as 0.
    std::int64_t int64Value() const { return integer_; }
    std::uint32_t uint32Value() const { return static_cast<std::uint32_t>(integer_); }
    std::uint16_t uint16Value() const { return static_cast<std::uint16_t>(integer_); }
    bool isZero() const { return real_ ? *real_ == 0 : integer_ == 0; }

    /// The leading decimal number of a text ("420abc" is 420); none when it starts with no number.
    static std::optional<JSONNumber> leadingIn(std::string_view text);

private:
    std::int64_t integer_;
    std::optional<double> real_;
};

/// A value or a place inside one; copies share the document and are cheap. Never fails loudly: what is missing, or
/// asked of a value of the wrong kind, is null. Immutable, so any thread may read it.
class JSON {
public:
    JSON() = default;
    JSON(std::string_view text);
    JSON(const char* text) : JSON(std::string_view(text)) {}
    JSON(const std::string& text) : JSON(std::string_view(text)) {}
    JSON(std::int64_t number);
    JSON(int number) : JSON(std::int64_t{number}) {}
    JSON(bool flag);
    using Members = std::vector<std::pair<std::string_view, JSON>>;
    static JSON object(const Members& members);
    static JSON array(const std::vector<JSON>& elements);

    /// Objects and arrays, nested at most 512 deep, a byte-order mark before them accepted; anything else is null.
    static JSON parse(std::string_view text);

    bool isNull() const;
    bool isArray() const;
    JSON operator[](std::string_view key) const;
    JSON operator[](std::size_t index) const;
    std::size_t count() const; // members of an object, elements of an array, else 0

    std::optional<std::string_view> string() const; // lives as long as any copy of the document
    std::string stringValue() const;
    std::optional<JSONNumber> number() const; // a flag is 1 or 0
    std::uint16_t uInt16Value() const;        // also from a text's leading decimal number, else 0

    /// Calls body(key, value) for each member, or body(index as text, element).
    template <class Body>
    void forEach(Body&& body) const;

    /// Compact text; none when a text in it is not valid UTF-8.
    std::optional<std::string> serialized() const;
    /// The printed form: pretty-printed, a top-level text raw; "unknown" when it cannot be serialised
    /// or takes more than 128 MiB: nested lists grow a thousandfold.
    std::string description() const;

    static constexpr std::size_t maximumDepth = 512;

private:
    JSON(std::shared_ptr<const boost::json::value> document, const boost::json::value* at)
        : document_(std::move(document)), at_(at) {}
    static JSON of(boost::json::value value);
    JSON inside(const boost::json::value* at) const { return at ? JSON(document_, at) : JSON(); }

    std::shared_ptr<const boost::json::value> document_;
    const boost::json::value* at_ = nullptr;
};

template <class Body>
void JSON::forEach(Body&& body) const {
    if (!at_) return;
    if (const auto* object = at_->if_object()) {
        for (const auto& member : *object) body(std::string_view(member.key()), inside(&member.value()));
    } else if (const auto* array = at_->if_array()) {
        std::size_t index = 0;
        for (const auto& element : *array) body(std::string_view(std::to_string(index++)), inside(&element));
    }
}

/// The text without a UTF-8 byte-order mark in front.
std::string_view withoutByteOrderMark(std::string_view text);

} // namespace brindlemar
