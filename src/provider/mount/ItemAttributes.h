// The extended attributes of items, see xattr(7). All are read-only.
#pragma once

#include "provider/mount/Downloads.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace brindlemar {

/// What an attribute is read from.
struct AttributeSource {
    const replica::Row& row;
    const std::optional<Transfer>& transfer; // of a fetch under way
    const DomainManager::State& domain;
};

/// The attribute's value; none when the item has none of that name.
std::optional<std::string> itemAttribute(std::string_view name, const AttributeSource& source);
/// False for names that no item has: there is no need to look.
bool isItemAttribute(std::string_view name);

} // namespace brindlemar
