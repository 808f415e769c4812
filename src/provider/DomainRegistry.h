// The domains of the service and what is known of their state.
#pragma once

#include "platform/Domain.h"
#include "support/Guarded.h"

#include <set>

namespace brindlemar {

/// The manager of one domain, as the extension sees it, and the state that it asked for.
class DomainManager final : public NSFileProviderManager {
public:
    struct State {
        bool connected = true;
        std::string reason;            // why not, for the user
        std::set<std::string> signals; // containers whose changes are to be asked for
        std::uint64_t signalCount = 0; // of the whole run
    };
    struct Places {
        std::string temporaryDirectory; // made when first asked for
        std::string userVisibleRoot;
    };
    explicit DomainManager(Places places) : places_(std::move(places)) {}

    void reconnect(ErrorHandler completionHandler) override;
    void disconnect(std::string reason, unsigned options, ErrorHandler completionHandler) override;
    void
    getUserVisibleURL(std::string_view itemIdentifier,
                      std::function<void(std::optional<FileURL>, std::optional<NSError>)> completionHandler) override;
    std::optional<FileURL> temporaryDirectoryURL() override;
    void signalEnumerator(std::string_view container, ErrorHandler completionHandler) override;

    State state() const { return state_.copy(); }

private:
    const Places places_;
    Guarded<State> state_;
};

/// The one domain that the service serves.
class DomainRegistry final : public NSFileProviderManagers {
public:
    DomainRegistry(NSFileProviderDomain domain, DomainManager::Places places)
        : domain_(std::move(domain)), manager_(std::make_shared<DomainManager>(std::move(places))) {}
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain& domain) override;

    const NSFileProviderDomain& domain() const { return domain_; }
    DomainManager& ownManager() const { return *manager_; }

private:
    const NSFileProviderDomain domain_;
    const std::shared_ptr<DomainManager> manager_;
};

} // namespace brindlemar
