// Domains and their managers: what the extension asks of the file-provider service.
#pragma once

#include "platform/Errors.h"
#include "platform/Item.h"

#include <functional>

namespace brindlemar {

/// A file on this machine. `path` is absolute; a directory's path has no trailing slash.
struct FileURL {
    std::string path;
    bool isDirectory = false; // where it is known; for the text form
    bool operator==(const FileURL&) const = default;
};

struct NSFileProviderDomain {
    std::string identifier;
    std::string displayName;

    /// Stable and distinct per domain; fit for a part of a file name after escaping.
    std::string description() const { return identifier; }
};

/// Bits of the options of NSFileProviderManager::disconnect.
namespace DisconnectionOption {
inline constexpr unsigned temporary = 1;
}

/// The manager of one domain. Thread-safe. Handlers are called exactly once, on any thread, possibly before the
/// call returns.
class NSFileProviderManager {
public:
    using ErrorHandler = std::function<void(std::optional<NSError>)>;

    virtual ~NSFileProviderManager() = default;
    virtual void reconnect(ErrorHandler completionHandler) = 0;
    /// `reason` is shown to the user.
    virtual void disconnect(std::string reason, unsigned options, ErrorHandler completionHandler) = 0;
    virtual void
    getUserVisibleURL(std::string_view itemIdentifier,
                      std::function<void(std::optional<FileURL>, std::optional<NSError>)> completionHandler) = 0;
    /// Where contents are handed over; on one file system with the files shown to the user. None on failure.
    virtual std::optional<FileURL> temporaryDirectoryURL() = 0;
    /// Makes the platform ask the container's enumerator for changes again. Signals coalesce.
    virtual void signalEnumerator(std::string_view container, ErrorHandler completionHandler) = 0;
};

class NSFileProviderManagers {
public:
    virtual ~NSFileProviderManagers() = default;
    /// The manager of the domain with this identifier; none when no such domain is registered.
    virtual std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain& domain) = 0;
    using IdentifierHandler = std::function<void(std::optional<ItemIdentifier> item,
                                                 std::optional<std::string> domainIdentifier, std::optional<NSError>)>;
    /// Which item, of which domain, the user sees at this place. The handler is called exactly once, on any thread,
    /// possibly before the call returns.
    virtual void getIdentifierForUserVisibleFile(const FileURL& at, IdentifierHandler completionHandler) = 0;
};

} // namespace brindlemar
