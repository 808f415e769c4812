// What of an item the host has still to hear.
#pragma once

#include "platform/Item.h"

#include <optional>

namespace brindlemar::replica {

/// What says where an item is.
inline constexpr ItemFields kPlaceFields = ItemField::filename | ItemField::parentItemIdentifier;
/// What new contents change.
inline constexpr ItemFields kContentsFields = ItemField::contents | ItemField::contentModificationDate;

/// The changes of one item that wait for the host.
struct Pending {
    bool creation = false, deletion = false;
    ItemFields fields = 0; // of a modification

    bool any() const { return creation || deletion || fields != 0; }
    bool operator==(const Pending&) const = default;
};

enum class LocalChange { modification, deletion };

/// What waits after one more change. None when the item need never be known to the host: it was made and removed
/// before the host has heard of it. `isSent`: its creation is on its way, so it may be there.
std::optional<Pending> afterLocalChange(const Pending& before, LocalChange change, ItemFields fields, bool isSent);

/// What still waits after the host has carried out `sent`; `changedSince`: the fields that changed while it did.
Pending afterSuccess(const Pending& now, const Pending& sent, ItemFields changedSince);

/// The part of what waits that is told first: a place by itself, before contents.
Pending nextRequest(const Pending& waiting);

} // namespace brindlemar::replica
