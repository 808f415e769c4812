#include "provider/DomainRegistry.h"

#include <sys/stat.h>

#include <filesystem>

namespace brindlemar {

void DomainManager::reconnect(ErrorHandler completionHandler) {
    state_.with([](State& state) {
        state.connected = true;
        state.reason.clear();
    });
    completionHandler(std::nullopt);
}

void DomainManager::disconnect(std::string reason, unsigned, ErrorHandler completionHandler) {
    state_.with([&](State& state) {
        state.connected = false;
        state.reason = std::move(reason);
    });
    completionHandler(std::nullopt);
}

void DomainManager::getUserVisibleURL(
    std::string_view itemIdentifier,
    std::function<void(std::optional<FileURL>, std::optional<NSError>)> completionHandler) {
    if (itemIdentifier == NSFileProviderRootContainerItemIdentifier)
        return completionHandler(FileURL{places_.userVisibleRoot}, std::nullopt);
    completionHandler(std::nullopt, fileProviderErrorForNonExistentItem(itemIdentifier));
}

std::optional<FileURL> DomainManager::temporaryDirectoryURL() {
    std::error_code error;
    std::filesystem::create_directories(places_.temporaryDirectory, error);
    if (error || ::chmod(places_.temporaryDirectory.c_str(), 0700) != 0) return std::nullopt;
    return FileURL{places_.temporaryDirectory};
}

void DomainManager::signalEnumerator(std::string_view container, ErrorHandler completionHandler) {
    state_.with([&](State& state) {
        state.signals.emplace(container);
        ++state.signalCount;
    });
    completionHandler(std::nullopt);
}

std::shared_ptr<NSFileProviderManager> DomainRegistry::manager(const NSFileProviderDomain& domain) {
    return domain.identifier == domain_.identifier ? manager_ : nullptr;
}

} // namespace brindlemar
