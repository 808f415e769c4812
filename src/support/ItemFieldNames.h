// The names of an item's fields, as command lines and arguments write them.
#pragma once

#include "platform/Item.h"
#include "support/TextForms.h"

#include <array>
#include <optional>
#include <string_view>

namespace brindlemar {

struct ItemFieldName {
    std::string_view name;
    ItemFields field;
};
inline constexpr std::array kItemFieldNames{
    ItemFieldName{"contents", ItemField::contents},
    ItemFieldName{"filename", ItemField::filename},
    ItemFieldName{"parentItemIdentifier", ItemField::parentItemIdentifier},
    ItemFieldName{"lastUsedDate", ItemField::lastUsedDate},
    ItemFieldName{"tagData", ItemField::tagData},
    ItemFieldName{"favoriteRank", ItemField::favoriteRank},
    ItemFieldName{"creationDate", ItemField::creationDate},
    ItemFieldName{"contentModificationDate", ItemField::contentModificationDate},
    ItemFieldName{"fileSystemFlags", ItemField::fileSystemFlags},
    ItemFieldName{"extendedAttributes", ItemField::extendedAttributes},
    ItemFieldName{"typeAndCreator", ItemField::typeAndCreator},
};

/// The fields of a list of names, "contents,filename"; none when a name is unknown.
inline std::optional<ItemFields> itemFields(std::string_view list) {
    ItemFields fields = 0;
    for (const std::string_view name : split(list, ',')) {
        ItemFields found = 0;
        for (const ItemFieldName& known : kItemFieldNames)
            if (known.name == name) found = known.field;
        if (found == 0) return std::nullopt;
        fields |= found;
    }
    return fields;
}

} // namespace brindlemar
