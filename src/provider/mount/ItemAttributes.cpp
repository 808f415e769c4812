#include "provider/mount/ItemAttributes.h"

#include "provider/mount/ErrorNumbers.h"

namespace brindlemar {

namespace {
constexpr std::string_view kPrefix = "user.brindlemar.";
using Value = std::optional<std::string>;

Value unlessEmpty(const std::string& text) { return text.empty() ? Value() : Value(text); }

Value stateOf(const AttributeSource& source) {
    if (source.row.error) return "failed";
    if (source.row.pending.any()) return "changed";
    if (source.transfer) return "fetching";
    return source.row.contents || (source.row.folder && source.row.listed) ? "local" : "known";
}

constexpr struct {
    std::string_view name;
    Value (*value)(const AttributeSource&);
} kAttributes[] = {
    {"identifier", [](const AttributeSource& source) { return Value(source.row.identifier); }},
    {"state", stateOf},
    {"storageClass", [](const AttributeSource& source) { return unlessEmpty(source.row.storageClass); }},
    {"decoration", [](const AttributeSource& source) { return unlessEmpty(source.row.decoration); }},
    {"progress",
     [](const AttributeSource& source) {
         if (!source.transfer || source.transfer->total <= 0) return Value();
         return Value(std::to_string(source.transfer->completed * 100 / source.transfer->total));
     }},
    {"error",
     [](const AttributeSource& source) { return source.row.error ? Value(whyFailed(*source.row.error)) : Value(); }},
    {"connection",
     [](const AttributeSource& source) {
         if (source.row.inode != replica::kRoot) return Value();
         return Value(source.domain.connected ? "connected" : source.domain.reason);
     }},
};
} // namespace

bool isItemAttribute(std::string_view name) {
    if (!name.starts_with(kPrefix)) return false;
    for (const auto& attribute : kAttributes)
        if (name.substr(kPrefix.size()) == attribute.name) return true;
    return false;
}

std::optional<std::string> itemAttribute(std::string_view name, const AttributeSource& source) {
    for (const auto& attribute : kAttributes)
        if (name.starts_with(kPrefix) && name.substr(kPrefix.size()) == attribute.name) return attribute.value(source);
    return std::nullopt;
}

} // namespace brindlemar
