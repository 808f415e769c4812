// Which container a working-set pass lists again. Pure: value in, value out.
#pragma once

#include "platform/Item.h"

#include <optional>
#include <vector>

namespace brindlemar {

/// The first container of a connection, if there is one; the list then loses its first entry, whichever that is, so
/// that passes come to an end.
std::optional<ItemIdentifier> takeRecentContainer(std::vector<ItemIdentifier>& recentEnumerators);

} // namespace brindlemar
