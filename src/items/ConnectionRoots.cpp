#include "items/ConnectionRoots.h"

namespace brindlemar {

std::shared_ptr<BrindlemarFileProviderItem> connectionRoot(const Connection& connection,
                                                           const BrindlemarFileProviderItem::Context& context) {
    return BrindlemarFileProviderItem::fromJSON(JSON::object({{"name", connection.name},
                                                              {"size", 0},
                                                              {"folder", true},
                                                              {"parentID", "00"},
                                                              {"itemID", connection.domain},
                                                              {"permissions", 550},
                                                              {"mtime", 1659538288}}),
                                                context);
}

std::shared_ptr<const ItemList> connectionRoots(const std::vector<std::string>& connections,
                                                const BrindlemarFileProviderItem::Context& context) {
    auto list = std::make_shared<ItemList>();
    for (const std::string& record : connections) {
        const auto connection = parseConnection(record);
        if (!connection) continue;
        if (auto item = connectionRoot(*connection, context)) list->push_back(std::move(item));
    }
    return list;
}

} // namespace brindlemar
