// Ties the platform's view of the domain to the host: disconnects it when the host goes away, reconnects it when the
// host is back. Both act on the domain named by ExtensionBundleIdentifier.
#pragma once

#include "platform/Errors.h"

#include <functional>
#include <optional>
#include <string>

namespace brindlemar {

/// Why a disconnect or reconnect failed. Has no texts of its own.
struct FileProviderError {
    enum Case { domainNotFound, disconnectFailed, reconnectFailed };
    Case kind;
    std::string domain;
    std::optional<NSError> underlying{}; // the platform's error; none for domainNotFound

    std::string localizedDescription() const;
};

/// Gets none on success. Called exactly once, on any thread.
using DomainHandler = std::function<void(std::optional<FileProviderError>)>;

/// Asks the platform to disconnect the domain for the time being, telling the user to launch the host application.
void disconnectDomain(DomainHandler completionHandler);
void reconnectDomain(DomainHandler completionHandler);

} // namespace brindlemar
