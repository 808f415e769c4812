// What is known of items beside what their files say: settings of buckets, storage classes of objects.
#pragma once

#include "platform/Timestamp.h"
#include "support/Guarded.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace brindlemar::host {

using Attributes = std::map<std::string, std::string, std::less<>>; // none is empty
/// By path below the served directory, as in ItemPath.
using AttributesByPath = std::map<std::string, Attributes, std::less<>>;

namespace attribute {
inline constexpr std::string_view storageClass = "storageClass";
inline constexpr std::string_view restoredUntil = "restoredUntil"; // seconds since 1970
} // namespace attribute

/// Empty when it was not set.
std::string findAttribute(const AttributesByPath& all, std::string_view path, std::string_view name);
/// An empty value removes it.
void setAttribute(AttributesByPath& all, const std::string& path, std::string_view name, const std::string& value);

/// The item's mark for the extension (see archiveMark()); 0 for none.
int archiveMarkOf(const AttributesByPath& all, std::string_view path);
/// True when it lies in an archive and is not restored at that time.
bool isArchived(const AttributesByPath& all, std::string_view path, Timestamp now);

/// The attributes of one connection, kept in a file of their own. Thread-safe.
class ItemAttributes {
public:
    /// Reads the file; one that is not there has none. The directory is made with the first change. Throws
    /// std::runtime_error when the file is there and cannot be understood: it is not ours to replace then.
    explicit ItemAttributes(std::string file);

    std::shared_ptr<const AttributesByPath> all() const { return current_.copy(); }
    /// False when the file cannot be written; then nothing has changed. Waits for the disk.
    bool change(const std::function<void(AttributesByPath& all)>& change);
    /// Changes that forget the item with all below it, and that have all of it known under another path.
    bool forget(const std::string& path);
    bool move(const std::string& from, const std::string& to);

    /// Where the attributes of the connection with this domain are kept: below $XDG_STATE_HOME/brindlemar-host, else
    /// ~/.local/state/brindlemar-host. Throws std::runtime_error when there is no home directory.
    static std::string usualFile(std::string_view domain);

private:
    const std::string file_;
    std::mutex changing_; // held over the write: the file gets the changes in their order
    Guarded<std::shared_ptr<const AttributesByPath>> current_;
};

} // namespace brindlemar::host
