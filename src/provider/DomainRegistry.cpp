#include "provider/DomainRegistry.h"

#include <sys/stat.h>

#include <filesystem>

namespace brindlemar {

void DomainManager::reconnect(ErrorHandler completionHandler) {
    const Timestamp now = clock_.now();
    state_.with([&](State& state) {
        if (!state.connected) state.since = now;
        state.connected = true;
        state.reason.clear();
        state.signals.emplace(NSFileProviderWorkingSetContainerItemIdentifier); // much may have changed meanwhile
    });
    completionHandler(std::nullopt);
    tell();
}

void DomainManager::disconnect(std::string reason, unsigned, ErrorHandler completionHandler) {
    const Timestamp now = clock_.now();
    state_.with([&](State& state) {
        if (state.connected) state.since = now;
        state.connected = false;
        state.reason = std::move(reason);
    });
    completionHandler(std::nullopt);
    tell();
}

void DomainManager::getUserVisibleURL(
    std::string_view itemIdentifier,
    std::function<void(std::optional<FileURL>, std::optional<NSError>)> completionHandler) {
    if (itemIdentifier == NSFileProviderRootContainerItemIdentifier)
        return completionHandler(FileURL{.path = places_.userVisibleRoot, .isDirectory = true}, std::nullopt);
    completionHandler(std::nullopt, fileProviderErrorForNonExistentItem(itemIdentifier));
}

std::optional<FileURL> DomainManager::temporaryDirectoryURL() {
    std::error_code error;
    std::filesystem::create_directories(places_.temporaryDirectory, error);
    if (error || ::chmod(places_.temporaryDirectory.c_str(), 0700) != 0) return std::nullopt;
    return FileURL{.path = places_.temporaryDirectory, .isDirectory = true};
}

void DomainManager::signalEnumerator(std::string_view container, ErrorHandler completionHandler) {
    state_.with([&](State& state) {
        state.signals.emplace(container);
        ++state.signalCount;
    });
    completionHandler(std::nullopt);
    tell();
}

void DomainManager::setListener(std::function<void()> listener) {
    listener_.with([&](auto& current) { current.swap(listener); });
}

void DomainManager::tell() const {
    if (const auto listener = listener_.copy()) listener();
}

std::shared_ptr<const void> DomainManager::probe(const std::string& connection) {
    const bool first = probed_->with([&](auto& probed) { return probed.insert(connection).second; });
    if (!first) return nullptr;
    return std::shared_ptr<const void>(this, [probed = probed_, connection](const void*) {
        probed->with([&](auto& under) { under.erase(connection); });
    });
}

void DomainRegistry::getIdentifierForUserVisibleFile(const FileURL& at, IdentifierHandler completionHandler) {
    if (at.path == root_)
        return completionHandler(ItemIdentifier(NSFileProviderRootContainerItemIdentifier), domain_.identifier, {});
    for (const auto& [identifier, name] : topLevel_())
        if (at.path == root_ + "/" + name) return completionHandler(identifier, domain_.identifier, std::nullopt);
    completionHandler(std::nullopt, std::nullopt, cocoaError(CocoaErrorCode::noSuchFile));
}

std::optional<std::vector<FileURL>> DomainRegistry::entriesOf(const FileURL& directory) const {
    if (directory.path != root_) return std::nullopt;
    std::vector<FileURL> entries;
    for (const auto& [identifier, name] : topLevel_())
        entries.push_back({.path = root_ + "/" + name, .isDirectory = true});
    return entries;
}

std::shared_ptr<NSFileProviderManager> DomainRegistry::manager(const NSFileProviderDomain& domain) {
    return domain.identifier == domain_.identifier ? manager_ : nullptr;
}

} // namespace brindlemar
