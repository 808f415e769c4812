// The system's one item record: a file, folder, bucket, connection root, the root container or the trash.
#pragma once

#include "items/HostItemFields.h"
#include "items/ItemText.h"
#include "platform/Item.h"
#include "support/KeyedCoding.h"

namespace brindlemar {

/// Built on any thread, afterwards read from any; shared, without a lock. The views that the properties return live
/// until the field is set.
class BrindlemarFileProviderItem final : public NSFileProviderItem {
public:
    struct Context {
        std::string_view withDomain;
        bool writableRoot = false;
    };

    /// The default record: the version texts and the access time carry the moment of construction.
    explicit BrindlemarFileProviderItem(Timestamp now);

    /// A record of one item object of the host; none when the object lacks name, parentID, itemID or mtime.
    static std::shared_ptr<BrindlemarFileProviderItem> fromJSON(const JSON& json, const Context& context);
    static std::shared_ptr<BrindlemarFileProviderItem> fromFields(const HostItemFields& fields, const Context& context);
    static std::shared_ptr<BrindlemarFileProviderItem> rootItemForDomain(std::string_view domain, bool writableRoot);
    static std::shared_ptr<BrindlemarFileProviderItem> trashItemForDomain(std::string_view domain);
    /// The record as cached; none when a member is missing or of another type.
    static std::shared_ptr<BrindlemarFileProviderItem> from(const KeyedDecoder& decoder);
    void encode(KeyedEncoder& encoder) const;

    /// The rules by which the host's fields become a record. `place` joins pieces of text into one ItemText, wherever
    /// the caller wants the bytes to lie. `fields` must be complete.
    template <class Place>
    BrindlemarFileProviderItem(const HostItemFields& fields, const Context& context, Timestamp now, Place&& place);

    std::string_view itemIdentifier() const override { return itemID; }
    std::string_view parentItemIdentifier() const override { return parentID; }
    std::string_view filename() const override { return name; }
    std::string_view contentType() const override { return folder ? UTType::directory : UTType::content; }
    unsigned capabilities() const override; // writes one debug line
    unsigned fileSystemFlags() const override { return FileSystemFlag::userReadable | FileSystemFlag::userWritable; }
    std::optional<std::uint64_t> documentSize() const override { return size; }
    std::optional<std::uint64_t> childItemCount() const override { return 0; }
    std::optional<Timestamp> creationDate() const override { return mTime; }
    std::optional<Timestamp> contentModificationDate() const override { return mTime; }
    std::optional<Timestamp> lastUsedDate() const override { return aTime; }
    std::optional<std::string> tagData() const override { return std::nullopt; }
    NSFileProviderItemVersion itemVersion() const override;
    std::optional<std::string> symlinkTargetPath() const override { return ""; }
    UserInfo userInfo() const override;
    std::optional<std::vector<std::string>> decorations() const override;
    std::string description() const;

    // The stored fields.
    bool isRoot = false;
    bool folder = false;
    bool isBucket = false;
    std::uint64_t size = 0; // bytes; hosts give the low 32 bits
    Timestamp mTime{};
    Timestamp aTime;
    ItemText versionContentID;
    ItemText versionMetadataID;
    ItemText tagDataString;
    ItemText storageClass = ItemText::borrowed("STANDARD");
    ItemText domain;
    ItemText name;
    ItemText itemID = ItemText::borrowed(NSFileProviderWorkingSetContainerItemIdentifier);
    ItemText parentID = ItemText::borrowed(NSFileProviderWorkingSetContainerItemIdentifier);
    bool writableRoot = false;
    std::uint16_t permissions = 0; // POSIX mode bits
};

/// The identifiers that the host's texts stand for.
struct HostIdentifiers {
    std::string_view domain;
    std::string_view itemID, parentID; // the host's own
    bool connectionRoot = false;       // the item lies at the top level: "<itemID>|0" in the root container
};
HostIdentifiers identifiersFromHost(std::string_view itemID, std::string_view parentID, std::string_view withDomain);

template <class Place>
BrindlemarFileProviderItem::BrindlemarFileProviderItem(const HostItemFields& fields, const Context& context,
                                                       Timestamp now, Place&& place)
    : folder(fields.folder && !fields.folder->isZero()), size(fields.size ? fields.size->uint32Value() : 0),
      mTime(timestampFromSeconds(fields.mtime->uint32Value())),
      aTime(fields.atime ? timestampFromSeconds(fields.atime->uint32Value()) : now),
      versionContentID(ItemText::borrowed("content-id")), versionMetadataID(ItemText::borrowed("metadata-id")),
      writableRoot(context.writableRoot), permissions(fields.permissions) {
    const HostIdentifiers ids = identifiersFromHost(*fields.itemID, *fields.parentID, context.withDomain);
    domain = place.shared(ids.domain);
    if (ids.connectionRoot) {
        parentID = ItemText::borrowed(NSFileProviderRootContainerItemIdentifier);
        itemID = place.joined(ids.itemID, "|", "0");
    } else {
        parentID = place.sharedJoined(ids.domain, "|", ids.parentID);
        itemID = place.joined(ids.domain, "|", ids.itemID);
    }
    name = place.within(itemID.view(), *fields.name);
    const std::int64_t archive = fields.glacier ? fields.glacier->int64Value() : 0;
    if (archive == 4) storageClass = ItemText::borrowed("GLACIER");
    if (archive == 5) storageClass = ItemText::borrowed("DEEP_ARCHIVE");
    const std::string_view id = itemID;
    if (id.find("teamDrives") != id.npos || id.find("sharedWithMe") != id.npos) writableRoot = false;
}

} // namespace brindlemar
