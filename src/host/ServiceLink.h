// Keeps the file-provider service told about this host's connections, through its restarts.
#pragma once

#include "linux/dbus/Control.h"
#include "platform/XPC.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace brindlemar::host {

/// A thread of its own looks for the service five times a second until it is there, hands it the connection records,
/// and starts over when the link ends. `say` gets sentences for the user, on that thread or the link's.
class ServiceLink {
public:
    /// The directory must outlive the link.
    ServiceLink(const RuntimeDirectory& directory, std::vector<std::string> records,
                std::function<void(const std::string&)> say);
    ~ServiceLink();

private:
    void run();
    /// The connection to the service, configured; none when the service is not there or not ready.
    std::shared_ptr<XPCConnection> connect();
    bool waitForEnd();
    bool pause();

    const RuntimeDirectory& directory_;
    const std::vector<std::string> records_;
    const std::function<void(const std::string&)> say_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    bool linked_ = false;
    bool greeted_ = false;
    std::thread thread_; // last: uses the rest
};

} // namespace brindlemar::host
