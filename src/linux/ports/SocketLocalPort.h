// The receiving end of a message port: a listening socket and the connections made to it.
#pragma once

#include "linux/ports/PortPlace.h"
#include "linux/ports/QueuedLocalPort.h"

#include <map>

namespace brindlemar {

class AcceptedConnection;

/// Messages are taken off the sockets on the poller's thread as soon as they come, whatever the dispatch queue does.
class SocketLocalPort final : public QueuedLocalPort, public PortPoller::Client {
public:
    /// None where PortPlace::take gives none.
    static std::shared_ptr<SocketLocalPort> listen(std::shared_ptr<PortContext> context, std::string_view name,
                                                   const MessageCallback& callback);
    ~SocketLocalPort() override { stopListening(); }

    const std::string& name() const { return name_; }
    const std::string& file() const { return file_; }

    // From the connections, on the poller's thread.
    void arrived(std::weak_ptr<AcceptedConnection> from, Received message);
    void forget(int connection);

    void ready(PacketReader& reader) override;
    void timeUp() override;

private:
    struct Listening {
        bool over = false;
        std::map<int, std::shared_ptr<AcceptedConnection>> connections; // by descriptor
    };
    SocketLocalPort(std::shared_ptr<PortContext> context, std::string_view name, std::string file,
                    std::unique_ptr<PortPlace> place, const MessageCallback& callback);
    void stopListening() override;
    void adopt(FileDescriptor socket);

    const std::shared_ptr<PortContext> context_;
    const std::string name_, file_;
    const std::unique_ptr<PortPlace> place_;
    bool pausing_ = false; // the poller thread's: accepting waits for the system to have descriptors again
    Guarded<Listening> listening_;
};

} // namespace brindlemar
