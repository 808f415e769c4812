#include "messaging/DomainConnection.h"

#include "platform/Platform.h"

namespace brindlemar {

namespace {
constexpr std::string_view kDisconnectionReason = "Please Launch Brindlemar to continue syncing.";

/// Runs `request` on the domain's manager; an error that it reports becomes one of kind `failure`.
void withManager(FileProviderError::Case failure, const DomainHandler& handler,
                 const std::function<void(NSFileProviderManager&, NSFileProviderManager::ErrorHandler)>& request) {
    const std::string identifier(ExtensionBundleIdentifier);
    const auto manager = Platform::current().managers.manager({identifier, ""});
    if (!manager) return handler(FileProviderError{FileProviderError::domainNotFound, identifier});
    request(*manager, [failure, identifier, handler](const std::optional<NSError>& error) {
        handler(error ? std::optional(FileProviderError{failure, identifier, error}) : std::nullopt);
    });
}
} // namespace

std::string FileProviderError::localizedDescription() const {
    return stockErrorDescription("BrindlemarFileProvider.FileProviderError", kind);
}

void disconnectDomain(DomainHandler completionHandler) {
    withManager(FileProviderError::disconnectFailed, std::move(completionHandler), [](auto& manager, auto handler) {
        manager.disconnect(std::string(kDisconnectionReason), DisconnectionOption::temporary, std::move(handler));
    });
}

void reconnectDomain(DomainHandler completionHandler) {
    withManager(FileProviderError::reconnectFailed, std::move(completionHandler),
                [](auto& manager, auto handler) { manager.reconnect(std::move(handler)); });
}

} // namespace brindlemar
