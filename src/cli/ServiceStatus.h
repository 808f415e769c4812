// What the service's status tells.
#pragma once

#include "cli/Events.h"

#include <vector>

namespace brindlemar::cli {

/// What an older service does not tell, or tells as something else, is empty.
struct ServiceStatus {
    struct Domain {
        std::string identifier, state, reason;
        std::optional<double> since{}; // seconds since 1970
    };
    struct Connection {
        std::string name, domain;
    };
    struct Mount {
        std::string path;
        bool mounted = false;
        std::string error;
    };
    struct Transfer {
        std::string kind, path;
        double completed = 0, total = 0;
    };
    struct Failed {
        std::string path, text;
    };

    std::uint64_t pid = 0;
    std::string version;
    Domain domain;
    bool configured = false;
    std::vector<Connection> connections;
    std::uint64_t signalsPending = 0, signalsTotal = 0, requestsWaiting = 0;
    bool tellsMount = false;
    std::optional<Mount> mount; // none also when no mount is wanted
    std::optional<std::uint64_t> queueLength;
    std::vector<std::string> unsaved; // paths of what programs write to
    std::vector<Transfer> transfers;
    std::vector<Failed> failures;   // the first ones
    std::uint64_t failureCount = 0; // of all

    bool hostIsConnected() const { return configured && domain.state == "connected"; }
};

ServiceStatus readStatus(const boost::json::object& json);
/// Asks for it. Throws Failure.
ServiceStatus statusOf(Control& control);

} // namespace brindlemar::cli
