// The domains of the service and what is known of their state.
#pragma once

#include "platform/Clock.h"
#include "platform/Domain.h"
#include "support/Guarded.h"

#include <memory>
#include <set>
#include <unordered_map>

namespace brindlemar {

/// The manager of one domain, as the extension sees it, and the state that it asked for.
class DomainManager final : public NSFileProviderManager {
public:
    struct State {
        bool connected = true;
        std::string reason;            // why not, for the user
        Timestamp since{};             // of this state
        std::set<std::string> signals; // containers whose changes are to be asked for
        std::uint64_t signalCount = 0; // of the whole run
    };
    struct Places {
        std::string temporaryDirectory; // made when first asked for
        std::string userVisibleRoot;
    };
    DomainManager(Places places, Clock& clock) : places_(std::move(places)), clock_(clock) {
        state_.with([&](State& state) { state.since = clock.now(); });
    }

    void reconnect(ErrorHandler completionHandler) override;
    void disconnect(std::string reason, unsigned options, ErrorHandler completionHandler) override;
    void
    getUserVisibleURL(std::string_view itemIdentifier,
                      std::function<void(std::optional<FileURL>, std::optional<NSError>)> completionHandler) override;
    std::optional<FileURL> temporaryDirectoryURL() override;
    void signalEnumerator(std::string_view container, ErrorHandler completionHandler) override;

    State state() const { return state_.copy(); }
    bool isConnected() const {
        return state_.with([](const State& state) { return state.connected; });
    }
    bool hasSignals() const {
        return state_.with([](const State& state) { return !state.signals.empty(); });
    }
    void takeSignals() {
        state_.with([](State& state) { state.signals.clear(); });
    }
    /// Called after each signal, disconnection and reconnection, on the thread that caused it.
    void setListener(std::function<void()> listener);
    /// The right to look for the host of a connection, for as long as the value lives. One at a time has it; none for
    /// all others.
    std::shared_ptr<const void> probe(const std::string& connection);

private:
    void tell() const;

    const Places places_;
    Clock& clock_;
    Guarded<State> state_;
    Guarded<std::function<void()>> listener_;
    const std::shared_ptr<Guarded<std::set<std::string>>> probed_ = std::make_shared<Guarded<std::set<std::string>>>();
};

/// The one domain that the service serves.
class DomainRegistry final : public NSFileProviderManagers {
public:
    /// The clock outlives the registry and its manager. `topLevel` gives the items on show at the top, with their
    /// names; it may be called on any thread.
    DomainRegistry(NSFileProviderDomain domain, DomainManager::Places places, Clock& clock,
                   std::function<std::unordered_map<ItemIdentifier, std::string>()> topLevel)
        : domain_(std::move(domain)), root_(places.userVisibleRoot),
          manager_(std::make_shared<DomainManager>(std::move(places), clock)), topLevel_(std::move(topLevel)) {}
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain& domain) override;
    void getIdentifierForUserVisibleFile(const FileURL& at, IdentifierHandler completionHandler) override;

    /// Where the items at the top are on show; none when the place is not the user-visible root.
    std::optional<std::vector<FileURL>> entriesOf(const FileURL& directory) const;

    const NSFileProviderDomain& domain() const { return domain_; }
    DomainManager& ownManager() const { return *manager_; }

private:
    const NSFileProviderDomain domain_;
    const std::string root_;
    const std::shared_ptr<DomainManager> manager_;
    const std::function<std::unordered_map<ItemIdentifier, std::string>()> topLevel_;
};

} // namespace brindlemar
