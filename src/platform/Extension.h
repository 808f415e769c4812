// The entry points of a file-provider extension, as the platform calls them.
#pragma once

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

/// One instance per domain. Calls are concurrent, on any thread. Completion handlers are called exactly once, on any
/// thread, possibly before the call returns its progress.
class NSFileProviderReplicatedExtension {
public:
    using ItemHandler = std::function<void(std::shared_ptr<NSFileProviderItem>, std::optional<NSError>)>;
    using ServiceSourcesHandler = std::function<void(std::optional<ServiceSources>, std::optional<NSError>)>;

    virtual ~NSFileProviderReplicatedExtension() = default;
    /// The item's current metadata.
    virtual std::shared_ptr<NSProgress> item(ItemIdentifier identifier, ItemHandler completionHandler) = 0;
    /// An enumerator for the container, or the error that the platform's caller gets.
    virtual std::variant<std::shared_ptr<NSFileProviderEnumerator>, NSError> enumerator(ItemIdentifier container) = 0;
    virtual std::shared_ptr<NSProgress> supportedServiceSources(ItemIdentifier identifier,
                                                                ServiceSourcesHandler completionHandler) = 0;
    virtual void invalidate() = 0;
};

} // namespace brindlemar
