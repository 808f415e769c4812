#include "items/ItemCaches.h"

#include "items/ItemIdentifiers.h"
#include "platform/Clock.h"

namespace brindlemar {

namespace {
constexpr auto kLifetime = std::chrono::seconds(10);

using Item = BrindlemarFileProviderItem;

void encodeItem(const Item& item, std::string& bytes) {
    KeyedEncoder encoder(bytes);
    item.encode(encoder);
}

std::shared_ptr<Item> decodeItem(std::string_view bytes) {
    const auto decoder = KeyedDecoder::open(bytes);
    return decoder ? Item::from(*decoder) : nullptr;
}

const Item& record(const std::shared_ptr<NSFileProviderItem>& item) { return static_cast<const Item&>(*item); }

ObjectCoder itemCoder() {
    return {.encode = [](const StoredObject& object,
                         std::string& bytes) { encodeItem(*static_cast<const Item*>(object.get()), bytes); },
            .decode = [](std::string_view bytes) -> StoredObject { return decodeItem(bytes); }};
}

ObjectCoder listCoder() {
    return {.encode =
                [](const StoredObject& object, std::string& bytes) {
                    std::string piece;
                    for (const auto& item : *static_cast<const ItemList*>(object.get())) {
                        piece.clear();
                        encodeItem(record(item), piece);
                        appendPiece(bytes, piece);
                    }
                },
            .decode = [](std::string_view bytes) -> StoredObject {
                auto list = std::make_shared<ItemList>();
                while (!bytes.empty()) {
                    const auto piece = takePiece(bytes);
                    auto item = piece ? decodeItem(*piece) : nullptr;
                    if (!item) return nullptr;
                    list->push_back(std::move(item));
                }
                return list;
            },
            .estimatedSize =
                [](const StoredObject& object) {
                    constexpr std::size_t kUsualItem = 250; // bytes
                    return static_cast<const ItemList*>(object.get())->size() * kUsualItem;
                }};
}

/// A listing's items as objects of the item cache.
class ListingGroup final : public ObjectGroup {
public:
    ListingGroup(std::shared_ptr<const ItemList> list, std::string_view domain)
        : list_(std::move(list)), prefix_(cacheKey(domain, "")) {}
    std::size_t count() const override { return list_->size(); }
    void appendKey(std::size_t index, std::string& key) const override {
        const ResolvedIdentifier id = resolveIdentifier(record((*list_)[index]).itemID);
        key.append(prefix_).append(id.itemID);
    }
    StoredObject object(std::size_t index) const override {
        // The store holds records as what they are, not as their base.
        return std::static_pointer_cast<Item>((*list_)[index]);
    }

private:
    const std::shared_ptr<const ItemList> list_;
    const std::string prefix_;
};
} // namespace

ItemCaches::ItemCaches(ObjectStores& stores, Clock& clock, std::string_view domainDescription) : clock_(clock) {
    StoreConfiguration configuration{.name = std::string("f-").append(domainDescription),
                                     .expiry = expiry(),
                                     .diskMaximumSize = 0,
                                     .memoryCountLimit = 1000,
                                     .memoryTotalCostLimit = 10};
    storage_ = stores.make(configuration, listCoder());
    configuration.name = std::string("ff-").append(domainDescription);
    itemStorage_ = stores.make(configuration, itemCoder());
    removeAll();
}

Timestamp ItemCaches::expiry() const { return clock_.now() + kLifetime; }

std::shared_ptr<const ItemList> ItemCaches::listing(std::string_view key) const {
    return storage_ ? std::static_pointer_cast<const ItemList>(storage_->object(key)) : nullptr;
}

void ItemCaches::storeListing(const std::shared_ptr<const ItemList>& list, std::string_view key) const {
    if (storage_) storage_->setObject(std::const_pointer_cast<ItemList>(list), key, expiry());
}

std::shared_ptr<NSFileProviderItem> ItemCaches::item(std::string_view key) const {
    return itemStorage_ ? std::static_pointer_cast<Item>(itemStorage_->object(key)) : nullptr;
}

void ItemCaches::storeItems(std::shared_ptr<const ItemList> list, std::string_view domain) const {
    if (itemStorage_) itemStorage_->setObjects(std::make_shared<ListingGroup>(std::move(list), domain), expiry());
}

void ItemCaches::removeExpiredListings() const {
    if (storage_) storage_->removeExpiredObjects();
}

void ItemCaches::removeAll() const {
    if (storage_) storage_->removeAll();
    if (itemStorage_) itemStorage_->removeAll();
}

} // namespace brindlemar
