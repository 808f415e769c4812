// An item as a caller of the extension states it: new, or changed.
#pragma once

#include "platform/Item.h"

namespace brindlemar {

/// Plain values behind the platform's item protocol. Not changed any more once it is shared.
class ItemDraft final : public NSFileProviderItem {
public:
    ItemDraft() = default;
    /// All that the item says.
    explicit ItemDraft(const NSFileProviderItem& item)
        : identifier(item.itemIdentifier()), parent(item.parentItemIdentifier()), name(item.filename()),
          type(item.contentType()), flags(item.fileSystemFlags()), size(item.documentSize()),
          modified(item.contentModificationDate()), used(item.lastUsedDate()) {}

    std::string identifier, parent, name;
    std::string type{UTType::content};
    unsigned flags = FileSystemFlag::userReadable | FileSystemFlag::userWritable;
    std::optional<std::uint64_t> size;
    std::optional<Timestamp> modified, used;

    std::string_view itemIdentifier() const override { return identifier; }
    std::string_view parentItemIdentifier() const override { return parent; }
    std::string_view filename() const override { return name; }
    std::string_view contentType() const override { return type; }
    unsigned capabilities() const override { return Capability::reading | Capability::writing; }
    unsigned fileSystemFlags() const override { return flags; }
    std::optional<std::uint64_t> documentSize() const override { return size; }
    std::optional<std::uint64_t> childItemCount() const override { return std::nullopt; }
    std::optional<Timestamp> creationDate() const override { return std::nullopt; }
    std::optional<Timestamp> contentModificationDate() const override { return modified; }
    std::optional<Timestamp> lastUsedDate() const override { return used; }
    std::optional<std::string> tagData() const override { return std::nullopt; }
    NSFileProviderItemVersion itemVersion() const override { return {}; }
    std::optional<std::string> symlinkTargetPath() const override { return std::nullopt; }
    UserInfo userInfo() const override { return {}; }
    std::optional<std::vector<std::string>> decorations() const override { return std::nullopt; }
};

} // namespace brindlemar
