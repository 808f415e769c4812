// The extension object: one per domain, driven by the platform.
#pragma once

#include "items/ProviderState.h"
#include "platform/Extension.h"
#include "platform/Queue.h"

namespace brindlemar {

/// Every entry point may be called on any thread, several at once, and returns at once. Completions come exactly once,
/// on whichever thread reaches the result, possibly before the call returns. Nothing is torn down by invalidate(): the
/// platform drops the object.
class BrindlemarFileProvider final : public NSFileProviderReplicatedExtension,
                                     public ProviderState,
                                     public std::enable_shared_from_this<BrindlemarFileProvider> {
public:
    /// The extension for this domain, ready for use: it has asked the platform to reconnect the domain and for the
    /// root's location, and its caches are empty.
    static std::shared_ptr<BrindlemarFileProvider> make(const NSFileProviderDomain& domain);

    std::shared_ptr<NSProgress> item(ItemIdentifier identifier, ItemHandler completionHandler) override;
    std::variant<std::shared_ptr<NSFileProviderEnumerator>, NSError> enumerator(ItemIdentifier container) override;
    std::shared_ptr<NSProgress> supportedServiceSources(ItemIdentifier identifier,
                                                        ServiceSourcesHandler completionHandler) override;
    std::shared_ptr<NSProgress> fetchContents(ItemIdentifier identifier, FetchHandler completionHandler) override;
    std::shared_ptr<NSProgress> createItem(ItemTemplate basedOn, ChangeHandler completionHandler) override;
    std::shared_ptr<NSProgress> modifyItem(ItemChange change, ChangeHandler completionHandler) override;
    std::shared_ptr<NSProgress> deleteItem(ItemIdentifier identifier, ErrorHandler completionHandler) override;
    void invalidate() override;

private:
    explicit BrindlemarFileProvider(const NSFileProviderDomain& domain);
    void start();
    void doTimer() {}
    void scheduleWorkingSetSignal() const;

    const NSFileProviderDomain fpDomain_;
    const std::shared_ptr<NSFileProviderManager> fpManager_; // may be absent
    Guarded<std::unique_ptr<Timer>> timer_;
};

} // namespace brindlemar
