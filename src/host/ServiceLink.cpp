#include "host/ServiceLink.h"

#include "linux/dbus/DBusServices.h"
#include "platform/Configuration.h"

namespace brindlemar::host {

namespace {
constexpr std::chrono::milliseconds kPause{200};
const XPCInterface kServiceInterface{"BrindlemarServiceV1", {{"configureWithConnections:", true}}};
const XPCInterface kHostInterface{"BrindlemarHostServiceV1", {{"hello", false}}};

class HostService : public XPCExportedObject {
public:
    explicit HostService(std::function<void()> hello) : hello_(std::move(hello)) {}
    void receive(std::string_view, std::vector<std::string>) override { hello_(); }

private:
    const std::function<void()> hello_;
};
} // namespace

ServiceLink::ServiceLink(const RuntimeDirectory& directory, std::vector<std::string> records,
                         std::function<void(const std::string&)> say)
    : directory_(directory), records_(std::move(records)), say_(std::move(say)), thread_([this] { run(); }) {}

ServiceLink::~ServiceLink() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void ServiceLink::run() {
    bool waiting = false;
    do try {
            // The connection's handlers use this object: they have run when the last reference to it is gone.
            if (const std::shared_ptr<XPCConnection> connection = connect()) {
                if (waitForEnd()) waiting = false;
            } else if (!std::exchange(waiting, true)) {
                say_("Waiting for the service; start it with brindlemard.");
            }
        } catch (const std::exception& error) { // descriptors or memory that are not to be had
            say_(error.what());
        }
    while (pause());
}

std::shared_ptr<XPCConnection> ServiceLink::connect() {
    std::optional<ControlClient> control = ControlClient::connect(directory_);
    const auto address = control ? control->endpoint(std::string(brindlemarServiceName)) : std::nullopt;
    if (!address) return nullptr;
    std::shared_ptr<XPCConnection> connection =
        connectXPC({*address}, [say = say_](std::string_view text) { say(std::string(text)); });
    if (!connection) return nullptr;
    {
        std::lock_guard lock(mutex_);
        linked_ = true;
        greeted_ = false;
    }
    connection->setExportedInterface(kHostInterface);
    connection->setExportedObject(std::make_shared<HostService>([this] {
        say_("The service knows of the connections.");
        std::lock_guard lock(mutex_);
        greeted_ = true;
    }));
    connection->setRemoteObjectInterface(kServiceInterface);
    connection->setInvalidationHandler([this] {
        std::lock_guard lock(mutex_);
        linked_ = false;
        changed_.notify_all();
    });
    connection->resume();
    return connection->send("configureWithConnections:", records_) ? connection : nullptr;
}

/// True when the service had said hello before the end.
bool ServiceLink::waitForEnd() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return stopping_ || !linked_; });
    const bool lost = greeted_ && !stopping_;
    lock.unlock();
    if (lost) say_("The link to the service ended.");
    return lost;
}

/// False when it is time to stop.
bool ServiceLink::pause() {
    std::unique_lock lock(mutex_);
    return !changed_.wait_for(lock, kPause, [this] { return stopping_; });
}

} // namespace brindlemar::host
