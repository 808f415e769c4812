// Which host request, if any, carries a change. Pure: value in, value out.
#pragma once

#include "items/ItemIdentifiers.h"
#include "platform/Item.h"

namespace brindlemar {

enum class ModifyAction {
    refreshLastUsed,  // ask for the item; the date stays on this side
    connectionFolder, // answered with the connection's folder as it is
    refresh,          // ask for the item
    trash,            // delete it
    upload,           // new contents, and with them name and date
    update,           // name, place or date
    missingContents,  // new contents were announced, but not given
    keep,             // nothing that the host could know
};

struct ModifyQuestion {
    ItemFields changedFields = 0;
    bool hasContents = false;
    std::string_view itemIdentifier;
    std::string_view parentItemIdentifier;
};

struct ModifyDecision {
    ModifyAction action = ModifyAction::keep;
    std::optional<Connection> connection{}; // for the connection folder; views into the records
    bool operator==(const ModifyDecision& other) const { return action == other.action; }
};

/// `connections` are the records of a configured extension; empty when it is not configured.
ModifyDecision chooseModifyAction(const ModifyQuestion& question, const std::vector<std::string>& connections);

/// The host's ID of the new parent, whatever its domain.
std::string_view parentIDForHost(std::string_view parentItemIdentifier);

/// The changed fields that log lines name, in their order there.
std::vector<std::string> changedFieldNames(ItemFields fields);

} // namespace brindlemar
