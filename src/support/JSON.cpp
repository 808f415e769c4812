#include "support/JSON.h"

#include "support/TextForms.h"
#include "support/Utf8.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace brindlemar {

namespace json = boost::json;

namespace {
std::int64_t towardZero(double value) {
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (std::isnan(value)) return 0;
    if (value >= limit) return std::numeric_limits<std::int64_t>::max();
    if (value < -limit) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

bool isEncodable(const json::value& value) {
    switch (value.kind()) {
    case json::kind::string:
        return isValidUtf8(value.get_string());
    case json::kind::double_:
        return std::isfinite(value.get_double());
    case json::kind::array:
        return std::ranges::all_of(value.get_array(), isEncodable);
    case json::kind::object:
        return std::ranges::all_of(value.get_object(),
                                   [](const auto& m) { return isValidUtf8(m.key()) && isEncodable(m.value()); });
    default:
        return true;
    }
}

std::string numberText(const json::value& value) {
    if (const auto* integer = value.if_int64()) return std::to_string(*integer);
    if (const auto* integer = value.if_uint64()) return std::to_string(*integer);
    std::string text = shortestText(value.get_double());
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text;
}

std::string quoted(std::string_view text) {
    std::string result = json::serialize(json::string_view(text.data(), text.size()));
    for (std::size_t at = 0; (at = result.find('/', at)) != std::string::npos; at += 2) result.insert(at, 1, '\\');
    return result;
}

constexpr std::size_t kLongestDescription = std::size_t{128} << 20;

void print(const json::value& value, const std::string& indent, std::string& out) {
    const std::string inner = indent + "  ";
    const auto list = [&](const auto& elements, char open, char close, auto&& printElement) {
        out += open;
        out += '\n';
        bool first = true;
        for (const auto& element : elements) {
            if (out.size() > kLongestDescription) return;
            if (!std::exchange(first, false)) out += ",\n";
            out += inner;
            printElement(element);
        }
        out += '\n'; // also in an empty list
        out += indent;
        out += close;
    };
    switch (value.kind()) {
    case json::kind::object:
        return list(value.get_object(), '{', '}', [&](const json::key_value_pair& member) {
            out += quoted(member.key()) + " : ";
            print(member.value(), inner, out);
        });
    case json::kind::array:
        return list(value.get_array(), '[', ']', [&](const json::value& element) { print(element, inner, out); });
    case json::kind::string:
        out += quoted(value.get_string());
        return;
    case json::kind::bool_:
        out += value.get_bool() ? "true" : "false";
        return;
    case json::kind::null:
        out += "null";
        return;
    default:
        out += numberText(value);
    }
}
} // namespace

JSONNumber::JSONNumber(double value) : integer_(towardZero(value)), real_(value) {}

std::optional<JSONNumber> JSONNumber::leadingIn(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::invalid_argument) return std::nullopt;
    if (error == std::errc::result_out_of_range)
        value =
            text.starts_with('-') ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    return JSONNumber(value);
}

JSON JSON::of(json::value value) {
    auto document = std::make_shared<const json::value>(std::move(value));
    const json::value* at = document.get();
    return {std::move(document), at};
}

JSON::JSON(std::string_view text) : JSON(of(json::string(text.data(), text.size()))) {}
JSON::JSON(std::int64_t number) : JSON(of(number)) {}
JSON::JSON(bool flag) : JSON(of(flag)) {}

JSON JSON::object(const Members& members) {
    json::object object(members.size());
    for (const auto& [key, value] : members) object[key] = value.at_ ? *value.at_ : json::value();
    return of(std::move(object));
}

JSON JSON::array(const std::vector<JSON>& elements) {
    json::array array;
    for (const JSON& element : elements) array.push_back(element.at_ ? *element.at_ : json::value());
    return of(std::move(array));
}

std::string_view withoutByteOrderMark(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    return text;
}

JSON JSON::parse(std::string_view text) {
    json::error_code error;
    json::parse_options options;
    options.max_depth = maximumDepth;
    text = withoutByteOrderMark(text);
    json::value value = json::parse({text.data(), text.size()}, error, {}, options);
    if (error || !value.is_structured()) return {};
    return of(std::move(value));
}

bool JSON::isNull() const { return !at_ || at_->is_null(); }
bool JSON::isArray() const { return at_ && at_->is_array(); }

JSON JSON::operator[](std::string_view key) const {
    const auto* object = at_ ? at_->if_object() : nullptr;
    return inside(object ? object->if_contains(key) : nullptr);
}

JSON JSON::operator[](std::size_t index) const {
    const auto* array = at_ ? at_->if_array() : nullptr;
    return inside(array ? array->if_contains(index) : nullptr);
}

std::size_t JSON::count() const {
    if (!at_) return 0;
    return at_->is_object() ? at_->get_object().size() : at_->is_array() ? at_->get_array().size() : 0;
}

std::optional<std::string_view> JSON::string() const {
    if (!at_ || !at_->is_string()) return std::nullopt;
    return std::string_view(at_->get_string());
}

std::string JSON::stringValue() const {
    if (!at_) return "";
    if (at_->is_string()) return std::string(std::string_view(at_->get_string()));
    if (at_->is_bool()) return at_->get_bool() ? "true" : "false";
    return at_->is_number() ? numberText(*at_) : "";
}

std::optional<JSONNumber> JSON::number() const {
    if (!at_) return std::nullopt;
    switch (at_->kind()) {
    case json::kind::bool_:
        return JSONNumber(std::int64_t{at_->get_bool()});
    case json::kind::int64:
        return JSONNumber(at_->get_int64());
    case json::kind::uint64:
        return JSONNumber(at_->get_uint64());
    case json::kind::double_:
        return JSONNumber(at_->get_double());
    default:
        return std::nullopt;
    }
}

std::uint16_t JSON::uInt16Value() const {
    const auto value = at_ && at_->is_string() ? JSONNumber::leadingIn(at_->get_string()) : number();
    return value ? value->uint16Value() : std::uint16_t{0};
}

std::optional<std::string> JSON::serialized() const {
    if (at_ && !isEncodable(*at_)) return std::nullopt;
    return at_ ? json::serialize(*at_) : "null";
}

std::string JSON::description() const {
    if (!at_ || at_->is_null()) return "null";
    if (!at_->is_structured()) return stringValue();
    if (!isEncodable(*at_)) return "unknown";
    std::string out;
    print(*at_, "", out);
    return out.size() > kLongestDescription ? "unknown" : out;
}

} // namespace brindlemar
