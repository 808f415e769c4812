// The host's item JSON, read into one plain struct: the only place that knows its keys and kinds.
#pragma once

#include "support/JSON.h"

#include <array>
#include <optional>
#include <string_view>

namespace brindlemar {

/// One item object of the host. The views live as long as what they were read from. A key of the wrong kind counts as
/// absent.
struct HostItemFields {
    std::optional<std::string_view> name, parentID, itemID;
    std::optional<JSONNumber> size, folder, mtime, atime, glacier;
    std::uint16_t permissions = 0;

    /// An item cannot be made without these.
    bool isComplete() const { return name && parentID && itemID && mtime; }

    static HostItemFields read(const JSON& object);
};

/// The keys, with the field each one fills.
template <class Field>
struct HostItemKey {
    std::string_view key;
    Field HostItemFields::*field;
};
inline constexpr std::array kHostItemTexts{
    HostItemKey<std::optional<std::string_view>>{"name", &HostItemFields::name},
    HostItemKey<std::optional<std::string_view>>{"parentID", &HostItemFields::parentID},
    HostItemKey<std::optional<std::string_view>>{"itemID", &HostItemFields::itemID},
};
inline constexpr std::array kHostItemNumbers{
    HostItemKey<std::optional<JSONNumber>>{"size", &HostItemFields::size},
    HostItemKey<std::optional<JSONNumber>>{"folder", &HostItemFields::folder},
    HostItemKey<std::optional<JSONNumber>>{"mtime", &HostItemFields::mtime},
    HostItemKey<std::optional<JSONNumber>>{"atime", &HostItemFields::atime},
    HostItemKey<std::optional<JSONNumber>>{"glacier", &HostItemFields::glacier},
};
/// The one key that also takes a number written as a text.
inline constexpr std::string_view kHostItemPermissions = "permissions";

} // namespace brindlemar
