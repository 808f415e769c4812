#include "provider/replica/Pending.h"

namespace brindlemar::replica {

std::optional<Pending> afterLocalChange(const Pending& before, LocalChange change, ItemFields fields, bool isSent) {
    Pending after = before;
    switch (change) {
    case LocalChange::modification:
        if (!after.creation || isSent) after.fields |= fields; // a creation takes the item as it is by then
        break;
    case LocalChange::deletion:
        if (after.creation && !isSent) return std::nullopt;
        after = {.creation = after.creation, .deletion = true};
    }
    return after;
}

Pending afterSuccess(const Pending& now, const Pending& sent, ItemFields changedSince) {
    if (sent.deletion) return {};
    if (now.deletion) return {.deletion = true};
    return {.fields = (now.fields & ~sent.fields) | changedSince};
}

Pending nextRequest(const Pending& waiting) {
    if (waiting.deletion) return {.deletion = true};
    if (waiting.creation) return {.creation = true};
    if (const ItemFields place = waiting.fields & kPlaceFields) {
        // New contents bring their date themselves.
        const bool sendsDate = !(waiting.fields & ItemField::contents);
        return {.fields = place | (sendsDate ? waiting.fields & ItemField::contentModificationDate : 0)};
    }
    return waiting;
}

} // namespace brindlemar::replica
