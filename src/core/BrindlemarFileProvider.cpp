#include "core/BrindlemarFileProvider.h"

#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/Logger.h"

namespace brindlemar {

std::shared_ptr<BrindlemarFileProvider> BrindlemarFileProvider::make(const NSFileProviderDomain& domain) {
    std::shared_ptr<BrindlemarFileProvider> extension(new BrindlemarFileProvider(domain));
    extension->start();
    return extension;
}

BrindlemarFileProvider::BrindlemarFileProvider(const NSFileProviderDomain& domain)
    : fpDomain_(domain), fpManager_(Platform::current().managers.manager(domain)) {}

void BrindlemarFileProvider::start() {
    const Platform& platform = Platform::current();
    const LogScope log{Logger::shared(), "init(domain:)"};
    platform.mainQueue.async([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        auto timer = Platform::current().mainQueue.repeat(std::chrono::seconds(1), [weak] {
            if (const auto self = weak.lock()) self->doTimer();
        });
        self->timer_.with([&](auto& current) { current.swap(timer); });
    });
    if (fpManager_)
        fpManager_->reconnect([log](std::optional<NSError> error) {
            if (error) log.error(error->localizedDescription());
        });
    caches = std::make_unique<const ItemCaches>(platform.stores, platform.clock, fpDomain_.description());
    BxMessages::sharedInstance().setBxMessagesName("bxclient");
    writableRoot = split(fpDomain_.identifier, '.').back() == "rw";
    if (!fpManager_) return;
    fpManager_->getUserVisibleURL(NSFileProviderRootContainerItemIdentifier,
                                  [weak = weak_from_this()](std::optional<FileURL> url, const auto&) {
                                      if (const auto self = weak.lock())
                                          self->rootURL.with([&](auto& current) { current.swap(url); });
                                  });
    tempURL = fpManager_->temporaryDirectoryURL();
}

void BrindlemarFileProvider::invalidate() { LogScope(Logger::shared(), "invalidate()").info("INVALIDATE"); }

} // namespace brindlemar
