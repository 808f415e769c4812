// The service through which a host application configures the extension.
#pragma once

#include "core/BrindlemarFileProvider.h"
#include "support/Synchronized.h"

#include <set>

namespace brindlemar {

/// What the host may send: "configureWithConnections:" with an array of strings. One-way.
const XPCInterface& brindlemarServiceInterface();
/// What the extension sends: "hello". One-way.
const XPCInterface& brindlemarHostServiceInterface();

/// Hands out listener endpoints and takes the host's configuration. Keeps the extension weakly. Thread-safe. Every
/// accepted connection that ends disconnects the domain.
class BrindlemarServiceSource final : public NSFileProviderServiceSource,
                                      public XPCListenerDelegate,
                                      public XPCExportedObject,
                                      public std::enable_shared_from_this<BrindlemarServiceSource> {
public:
    explicit BrindlemarServiceSource(const std::shared_ptr<BrindlemarFileProvider>& extension) : ext_(extension) {}

    std::string serviceName() const override;
    std::optional<XPCListenerEndpoint> makeListenerEndpoint() override;
    bool shouldAcceptNewConnection(XPCListener& listener, std::shared_ptr<XPCConnection> connection) override;
    void receive(std::string_view selector, std::vector<std::string> strings) override;
    /// Replaces the extension's connections and asks the platform to reconnect the domain. Also writes the list to
    /// "connections.plist" in the current directory.
    void configure(std::vector<std::string> connections);

    std::size_t waitingListeners();

private:
    const std::weak_ptr<BrindlemarFileProvider> ext_;
    Monitor lock_;
    std::set<std::shared_ptr<XPCListener>> listeners_; // handed out, not yet connected; guarded by lock_
};

} // namespace brindlemar
