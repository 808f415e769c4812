#include "items/BrindlemarFileProviderItem.h"

#include "platform/Platform.h"
#include "support/Logger.h"
#include "support/TextForms.h"

namespace brindlemar {

namespace {
constexpr std::uint16_t kOwnerWrite = 0200;

/// Places texts in memory of their own.
struct OwnedTexts {
    static ItemText shared(std::string_view text) { return text; }
    static ItemText joined(std::string_view a, std::string_view b, std::string_view c) {
        return std::string_view(std::string(a).append(b).append(c));
    }
    static ItemText sharedJoined(std::string_view a, std::string_view b, std::string_view c) { return joined(a, b, c); }
    static ItemText within(std::string_view, std::string_view text) { return text; }
};

/// The usual nine letters, as in "rw-r--r--".
std::string permissionText(std::uint16_t permissions) {
    std::string text = "rwxrwxrwx";
    for (unsigned bit = 0; bit < 9; ++bit)
        if (!(permissions & (0400u >> bit))) text[bit] = '-';
    for (unsigned special = 0; special < 3; ++special) // set-user-ID, set-group-ID, sticky
        if (permissions & (04000u >> special)) {
            char& letter = text[2 + 3 * special];
            letter = letter == '-' ? "SST"[special] : "sst"[special];
        }
    return text;
}
} // namespace

HostIdentifiers identifiersFromHost(std::string_view itemID, std::string_view parentID, std::string_view withDomain) {
    HostIdentifiers ids{withDomain, itemID, parentID};
    if (ids.itemID == "root" || ids.itemID == NSFileProviderRootContainerItemIdentifier) ids.itemID = "0";
    if (ids.parentID == "root") ids.parentID = "0";
    for (std::string_view* id : {&ids.parentID, &ids.itemID}) {
        const std::size_t bar = id->find('|');
        if (bar == std::string_view::npos) continue;
        ids.domain = id->substr(0, bar);
        *id = id->substr(bar + 1);
        *id = id->substr(0, id->find('|'));
    }
    ids.connectionRoot = ids.parentID == "00";
    return ids;
}

BrindlemarFileProviderItem::BrindlemarFileProviderItem(Timestamp now)
    : aTime(now), versionContentID("content-id-" + shortestText(secondsSince1970(now))),
      versionMetadataID("metadata-" + shortestText(secondsSince1970(now))) {}

std::shared_ptr<BrindlemarFileProviderItem> BrindlemarFileProviderItem::fromJSON(const JSON& json,
                                                                                 const Context& context) {
    return fromFields(HostItemFields::read(json), context);
}

std::shared_ptr<BrindlemarFileProviderItem> BrindlemarFileProviderItem::fromFields(const HostItemFields& fields,
                                                                                   const Context& context) {
    if (!fields.isComplete()) return nullptr;
    return std::make_shared<BrindlemarFileProviderItem>(fields, context, Platform::now(), OwnedTexts{});
}

std::shared_ptr<BrindlemarFileProviderItem> BrindlemarFileProviderItem::rootItemForDomain(std::string_view domain,
                                                                                          bool writableRoot) {
    const Timestamp moment = Platform::now();
    auto item = std::make_shared<BrindlemarFileProviderItem>(moment);
    item->domain = domain;
    item->name = ItemText::borrowed("Brindlemar");
    item->folder = true;
    item->parentID = item->itemID = ItemText::borrowed(NSFileProviderRootContainerItemIdentifier);
    item->isRoot = true;
    item->mTime = moment;
    item->writableRoot = writableRoot;
    return item;
}

std::shared_ptr<BrindlemarFileProviderItem> BrindlemarFileProviderItem::trashItemForDomain(std::string_view domain) {
    auto item = std::make_shared<BrindlemarFileProviderItem>(Platform::now());
    item->domain = domain;
    item->name = ItemText::borrowed("trash");
    item->folder = true;
    item->parentID = item->itemID = ItemText::borrowed(NSFileProviderTrashContainerItemIdentifier);
    item->writableRoot = true;
    return item;
}

void BrindlemarFileProviderItem::encode(KeyedEncoder& encoder) const {
    encoder.encode("name", name.view());
    encoder.encode("size", size);
    encoder.encode("folder", folder);
    encoder.encode("parentID", parentID.view());
    encoder.encode("itemID", itemID.view());
    encoder.encode("mTime", mTime);
    encoder.encode("aTime", aTime);
    encoder.encode("versionMetadataID", versionMetadataID.view());
    encoder.encode("versionContentID", versionContentID.view());
    encoder.encode("storageClass", storageClass.view());
    encoder.encode("permissions", std::uint64_t{permissions});
}

std::shared_ptr<BrindlemarFileProviderItem> BrindlemarFileProviderItem::from(const KeyedDecoder& decoder) {
    auto item = std::make_shared<BrindlemarFileProviderItem>(Platform::now());
    bool complete = true;
    const auto read = [&complete](auto& field, auto value) {
        if (value)
            field = *value;
        else
            complete = false;
    };
    read(item->name, decoder.text("name"));
    read(item->size, decoder.number("size"));
    read(item->folder, decoder.flag("folder"));
    read(item->parentID, decoder.text("parentID"));
    read(item->itemID, decoder.text("itemID"));
    read(item->mTime, decoder.time("mTime"));
    read(item->aTime, decoder.time("aTime"));
    read(item->versionMetadataID, decoder.text("versionMetadataID"));
    read(item->versionContentID, decoder.text("versionContentID"));
    read(item->storageClass, decoder.text("storageClass"));
    read(item->permissions, decoder.number("permissions"));
    return complete ? item : nullptr;
}

unsigned BrindlemarFileProviderItem::capabilities() const {
    const LogScope log{Logger::shared(), "capabilities"};
    log.debugWith({{"itemID", std::string(itemID.view())},
                   {"permissions", permissionText(permissions)},
                   {"folder", folder ? "true" : "false"}},
                  "checking capabilities");
    if (permissions == 0 || (permissions & kOwnerWrite))
        return Capability::reading | Capability::writing | Capability::renaming | Capability::deleting;
    return folder ? Capability::reading | Capability::writing : Capability::reading;
}

NSFileProviderItemVersion BrindlemarFileProviderItem::itemVersion() const {
    return {std::string(versionContentID.view()), std::string(versionMetadataID.view())};
}

UserInfo BrindlemarFileProviderItem::userInfo() const {
    UserInfo info;
    if (storageClass.view() == "GLACIER") info["storageClass"] = "GLACIER";
    if (storageClass.view() == "DEEP_ARCHIVE") info["storageClass"] = "GLACIER_DEEP_ARCHIVE";
    if (parentID.view() == NSFileProviderRootContainerItemIdentifier && !writableRoot) info["isBucket"] = 1;
    if (folder) info["isFolder"] = 1;
    return info;
}

std::optional<std::vector<std::string>> BrindlemarFileProviderItem::decorations() const {
    std::string_view badge;
    if (parentID.view() == NSFileProviderRootContainerItemIdentifier)
        badge = ".bucket_badge";
    else if (storageClass.view() == "GLACIER")
        badge = ".glacier";
    else if (storageClass.view() == "DEEP_ARCHIVE")
        badge = ".deep_archive";
    else
        return std::nullopt;
    return std::vector{std::string(DecorationNamespace).append(badge)};
}

std::string BrindlemarFileProviderItem::description() const {
    std::string text = "n: ";
    text.append(name).append(" s:").append(std::to_string(size)).append(folder ? " f:true" : " f:false");
    text.append(" m:").append(timestampText(mTime)).append(" id:").append(itemID).append(" parent:").append(parentID);
    text.append(", cv:").append(versionContentID).append(" mv:").append(versionMetadataID);
    return text;
}

} // namespace brindlemar
