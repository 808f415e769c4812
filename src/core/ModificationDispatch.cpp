#include "core/ModificationDispatch.h"

namespace brindlemar {

namespace {
/// The connection whose top folder the change is about.
std::optional<Connection> connectionFolder(const ModifyQuestion& question,
                                           const std::vector<std::string>& connections) {
    const bool atTop = question.parentItemIdentifier == NSFileProviderRootContainerItemIdentifier ||
                       resolveIdentifier(question.itemIdentifier).itemID == kHostRootID;
    if (!atTop) return std::nullopt;
    const std::string_view domain = split(question.itemIdentifier, '|').front();
    for (const std::string& record : connections)
        if (const auto connection = parseConnection(record); connection && connection->domain == domain)
            return connection;
    return std::nullopt;
}
} // namespace

ModifyDecision chooseModifyAction(const ModifyQuestion& question, const std::vector<std::string>& connections) {
    const ItemFields changed = question.changedFields;
    if (changed == ItemField::lastUsedDate) return {ModifyAction::refreshLastUsed};
    if (const auto connection = connectionFolder(question, connections))
        return {ModifyAction::connectionFolder, connection};
    if (changed == ItemField::fileSystemFlags) return {ModifyAction::refresh};
    if ((changed & ItemField::parentItemIdentifier) &&
        question.parentItemIdentifier == NSFileProviderTrashContainerItemIdentifier)
        return {ModifyAction::trash};
    if (changed & ItemField::contents)
        return {question.hasContents ? ModifyAction::upload : ModifyAction::missingContents};
    constexpr ItemFields updated =
        ItemField::filename | ItemField::parentItemIdentifier | ItemField::contentModificationDate;
    return {changed & updated ? ModifyAction::update : ModifyAction::keep};
}

std::string_view parentIDForHost(std::string_view parentItemIdentifier) {
    const auto pieces = split(parentItemIdentifier, '|');
    return pieces.size() == 2 ? pieces[1] : parentItemIdentifier;
}

std::vector<std::string> changedFieldNames(ItemFields fields) {
    constexpr std::pair<ItemFields, std::string_view> names[] = {
        {ItemField::contentModificationDate, "contentModificationDate"},
        {ItemField::contents, "contents"},
        {ItemField::creationDate, "creationDate"},
        {ItemField::lastUsedDate, "lastUsedDate"},
        {ItemField::fileSystemFlags, "fileSystemFlags"},
    };
    std::vector<std::string> changed;
    for (const auto& [field, name] : names)
        if (fields & field) changed.emplace_back(name);
    return changed;
}

} // namespace brindlemar
