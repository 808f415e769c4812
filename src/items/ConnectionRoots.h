// The top folders of the connections, which no host describes.
#pragma once

#include "items/BrindlemarFileProviderItem.h"
#include "items/ItemIdentifiers.h"

namespace brindlemar {

std::shared_ptr<BrindlemarFileProviderItem> connectionRoot(const Connection& connection,
                                                           const BrindlemarFileProviderItem::Context& context);

/// The records of the connections' top folders, in order. A connection record without a domain is left out.
std::shared_ptr<const ItemList> connectionRoots(const std::vector<std::string>& connections,
                                                const BrindlemarFileProviderItem::Context& context);

} // namespace brindlemar
