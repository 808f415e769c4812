#include "core/BrindlemarFileProvider.h"

#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/OnceCompletion.h"

namespace brindlemar {

std::shared_ptr<NSProgress> BrindlemarFileProvider::deleteItem(ItemIdentifier identifier,
                                                               ErrorHandler completionHandler) {
    const ResolvedIdentifier id = resolveIdentifier(identifier);
    if (id.qualified && !isConnected(id.domain)) {
        completionHandler(fileProviderErrorForNonExistentItem(identifier));
        return std::make_shared<NSProgress>();
    }
    auto progress = std::make_shared<NSProgress>(1);
    const OnceCompletion<std::optional<NSError>> completion(std::move(completionHandler), {cannotSynchronize()});
    Platform::current().tasks.async([progress, completion, identifier = std::move(identifier)] {
        const ResolvedIdentifier id = resolveIdentifier(identifier);
        BxMessages::sharedInstance().deleteItem(
            {.item = std::string(id.itemID), .recursive = false, .withDomain = std::string(id.domain)},
            [progress, completion](std::optional<NSError> error) {
                progress->setCompletedUnitCount(1);
                completion(std::move(error));
                return kFinished;
            });
    });
    return progress;
}

} // namespace brindlemar
