// The entry points of a file-provider extension, as the platform calls them.
#pragma once

#include "platform/Domain.h"
#include "platform/Enumerator.h"
#include "platform/Progress.h"
#include "platform/XPC.h"

#include <variant>

namespace brindlemar {

/// A named service that the extension offers to host applications.
class NSFileProviderServiceSource {
public:
    virtual ~NSFileProviderServiceSource() = default;
    virtual std::string serviceName() const = 0;
    /// A new endpoint for one connection; none only when the platform cannot open a listener.
    virtual std::optional<XPCListenerEndpoint> makeListenerEndpoint() = 0;
};

using ServiceSources = std::vector<std::shared_ptr<NSFileProviderServiceSource>>;

/// An item that the user has made: its parent, name and dates count.
struct ItemTemplate {
    std::shared_ptr<NSFileProviderItem> item;
    std::optional<FileURL> contents; // none for a folder; stays the caller's
};

/// An item as the user has changed it.
struct ItemChange {
    std::shared_ptr<NSFileProviderItem> item;
    ItemFields changedFields = 0;
    std::optional<FileURL> contents; // with changed contents; stays the caller's
};

/// One instance per domain. Calls are concurrent, on any thread. Completion handlers are called exactly once, on any
/// thread, possibly before the call returns its progress.
class NSFileProviderReplicatedExtension {
public:
    using ItemHandler = std::function<void(std::shared_ptr<NSFileProviderItem>, std::optional<NSError>)>;
    using ServiceSourcesHandler = std::function<void(std::optional<ServiceSources>, std::optional<NSError>)>;

    using FetchHandler = std::function<void(std::optional<FileURL> contents, std::shared_ptr<NSFileProviderItem>,
                                            std::optional<NSError>)>;
    /// The item as the remote side has it now, the fields that are still to be applied, and whether its contents must
    /// be fetched again.
    using ChangeHandler = std::function<void(std::shared_ptr<NSFileProviderItem>, ItemFields stillPendingFields,
                                             bool shouldFetchContent, std::optional<NSError>)>;
    using ErrorHandler = std::function<void(std::optional<NSError>)>;

    virtual ~NSFileProviderReplicatedExtension() = default;
    /// The item's current metadata.
    virtual std::shared_ptr<NSProgress> item(ItemIdentifier identifier, ItemHandler completionHandler) = 0;
    /// An enumerator for the container, or the error that the platform's caller gets.
    virtual std::variant<std::shared_ptr<NSFileProviderEnumerator>, NSError> enumerator(ItemIdentifier container) = 0;
    virtual std::shared_ptr<NSProgress> supportedServiceSources(ItemIdentifier identifier,
                                                                ServiceSourcesHandler completionHandler) = 0;
    /// The current contents, as a file in the domain's temporary directory that the caller takes over, and the item as
    /// it is now.
    virtual std::shared_ptr<NSProgress> fetchContents(ItemIdentifier identifier, FetchHandler completionHandler) = 0;
    virtual std::shared_ptr<NSProgress> createItem(ItemTemplate basedOn, ChangeHandler completionHandler) = 0;
    /// No item and no error mean that the item is no longer shown. The progress is complete from the start; completion
    /// is the handler's call alone.
    virtual std::shared_ptr<NSProgress> modifyItem(ItemChange change, ChangeHandler completionHandler) = 0;
    virtual std::shared_ptr<NSProgress> deleteItem(ItemIdentifier identifier, ErrorHandler completionHandler) = 0;
    virtual void invalidate() = 0;
};

} // namespace brindlemar
