// A host's listing reply turned into item records, in one pass over the text.
#pragma once

#include "items/BrindlemarFileProviderItem.h"

namespace brindlemar {

/// The elements of the JSON array `reply` as records, in order; elements that cannot become one are left out. Anything
/// but a valid JSON array gives an empty list. The records of a list lie together in blocks that live as long as any
/// record in them. Reads the clock once. Time and memory: about those of a plain parse, at most 300 bytes a record.
std::shared_ptr<const ItemList> parseItemListing(std::string_view reply,
                                                 const BrindlemarFileProviderItem::Context& context);

} // namespace brindlemar
