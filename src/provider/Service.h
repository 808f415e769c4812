// The file-provider service: one extension for one domain, on the platform's services on Linux.
#pragma once

#include "linux/RuntimeDirectory.h"
#include "linux/dbus/Control.h"

#include <memory>
#include <string>

namespace brindlemar {

/// Where the service keeps what is its own. Absolute paths.
struct ServicePlaces {
    std::string state;           // the domain's temporary directory; also the process's current directory
    std::string cache;           // item caches
    std::string userVisibleRoot; // where the user's view is to be
    bool isMounted = true;       // the view is shown there, as a file system

    /// $XDG_STATE_HOME, $XDG_CACHE_HOME and $HOME, as the XDG base directories are defined; throws
    /// std::runtime_error with a sentence for the user when there is no home directory.
    static ServicePlaces ofUser();
};

/// Its construction installs the platform and creates the extension; the process has one at a time. The control
/// handlers may be called from any thread.
class Service {
public:
    /// The run-time directory outlives the service.
    Service(const RuntimeDirectory& directory, const ServicePlaces& places);
    /// Stops all work within a moment, whatever hosts and readers do. No control handler may run any more.
    ~Service();

    /// Shows the mount, if there is to be one. Why it is not shown is told by status().
    void show();
    /// Ends waits for absent hosts and slow readers, now and from now on. The first step of an end.
    void stop();

    // What the control socket offers. Return at once; calls run on a queue of their own.
    std::string status() const;
    std::optional<std::string> endpoint(const std::string& serviceName);
    void call(std::string operation, std::string arguments, CallOutput output);

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

} // namespace brindlemar
