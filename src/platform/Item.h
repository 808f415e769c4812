// What the platform asks of an item, and the identifiers of its own containers.
#pragma once

#include "platform/Timestamp.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brindlemar {

/// Opaque text that names an item to the platform.
using ItemIdentifier = std::string;

inline constexpr std::string_view NSFileProviderRootContainerItemIdentifier =
    "NSFileProviderRootContainerItemIdentifier";
inline constexpr std::string_view NSFileProviderWorkingSetContainerItemIdentifier =
    "NSFileProviderWorkingSetContainerItemIdentifier";
inline constexpr std::string_view NSFileProviderTrashContainerItemIdentifier =
    "NSFileProviderTrashContainerItemIdentifier";

/// Bits of NSFileProviderItem::capabilities().
namespace Capability {
inline constexpr unsigned reading = 1;
inline constexpr unsigned writing = 2; // for folders: adding sub-items
inline constexpr unsigned reparenting = 4;
inline constexpr unsigned renaming = 8;
inline constexpr unsigned trashing = 16;
inline constexpr unsigned deleting = 32;
inline constexpr unsigned evicting = 64;
inline constexpr unsigned excludingFromSync = 128;
} // namespace Capability

/// Bits of NSFileProviderItem::fileSystemFlags().
namespace FileSystemFlag {
inline constexpr unsigned userExecutable = 1;
inline constexpr unsigned userReadable = 2;
inline constexpr unsigned userWritable = 4;
inline constexpr unsigned hidden = 8;
} // namespace FileSystemFlag

/// Bits of a set of changed fields.
namespace ItemField {
inline constexpr unsigned contents = 1;
inline constexpr unsigned filename = 2;
inline constexpr unsigned parentItemIdentifier = 4;
inline constexpr unsigned lastUsedDate = 8;
inline constexpr unsigned tagData = 16;
inline constexpr unsigned favoriteRank = 32;
inline constexpr unsigned creationDate = 64;
inline constexpr unsigned contentModificationDate = 128;
inline constexpr unsigned fileSystemFlags = 256;
inline constexpr unsigned extendedAttributes = 512;
inline constexpr unsigned typeAndCreator = 1024;
} // namespace ItemField
using ItemFields = unsigned;

/// Uniform type identifiers that items report.
namespace UTType {
inline constexpr std::string_view directory = "public.folder";
inline constexpr std::string_view content = "public.content";
} // namespace UTType

struct NSFileProviderItemVersion {
    std::string contentVersion; // bytes, at most 128
    std::string metadataVersion;
    bool operator==(const NSFileProviderItemVersion&) const = default;
};

using UserInfo = std::map<std::string, std::variant<std::string, std::int64_t>>;

/// An item as the platform reads it, from any thread. The views live as long as the item and until it is changed.
class NSFileProviderItem {
public:
    virtual ~NSFileProviderItem() = default;
    virtual std::string_view itemIdentifier() const = 0;
    virtual std::string_view parentItemIdentifier() const = 0;
    virtual std::string_view filename() const = 0;
    virtual std::string_view contentType() const = 0;
    virtual unsigned capabilities() const = 0;
    virtual unsigned fileSystemFlags() const = 0;
    virtual std::optional<std::uint64_t> documentSize() const = 0; // bytes
    virtual std::optional<std::uint64_t> childItemCount() const = 0;
    virtual std::optional<Timestamp> creationDate() const = 0;
    virtual std::optional<Timestamp> contentModificationDate() const = 0;
    virtual std::optional<Timestamp> lastUsedDate() const = 0;
    virtual std::optional<std::string> tagData() const = 0;
    virtual NSFileProviderItemVersion itemVersion() const = 0;
    virtual std::optional<std::string> symlinkTargetPath() const = 0;
    virtual UserInfo userInfo() const = 0;
    /// Identifiers of the badges; none when there are none.
    virtual std::optional<std::vector<std::string>> decorations() const = 0;
};

using ItemList = std::vector<std::shared_ptr<NSFileProviderItem>>;

/// Consecutive items of a shared list: a page is cut from its listing without copying it.
class ItemBatch {
public:
    ItemBatch() = default;
    explicit ItemBatch(const std::shared_ptr<const ItemList>& whole) : ItemBatch(whole, 0, whole ? whole->size() : 0) {}
    ItemBatch(std::shared_ptr<const ItemList> list, std::size_t first, std::size_t count)
        : list_(std::move(list)), first_(first), count_(count) {}
    std::span<const std::shared_ptr<NSFileProviderItem>> items() const {
        return list_ ? std::span(*list_).subspan(first_, count_)
                     : std::span<const std::shared_ptr<NSFileProviderItem>>{};
    }

private:
    std::shared_ptr<const ItemList> list_;
    std::size_t first_ = 0;
    std::size_t count_ = 0;
};

} // namespace brindlemar
