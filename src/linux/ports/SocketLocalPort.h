// The receiving end of a message port: a listening socket and the connections made to it.
#pragma once

#include "linux/ports/PortPlace.h"
#include "linux/ports/QueuedLocalPort.h"

#include <map>

namespace brindlemar {

class AcceptedConnection;

/// Messages are taken off the sockets on the poller's thread as soon as they come, whatever the dispatch queue does.
/// Connections are few, so that no peer can use up the process's descriptors: one that is too many makes another give
/// way. It is of the process that has the most, and there one that has sent no message, else the longest silent.
class SocketLocalPort final : public QueuedLocalPort, public PortPoller::Client {
public:
    /// None where PortPlace::take gives none.
    static std::shared_ptr<SocketLocalPort> listen(std::shared_ptr<PortContext> context, std::string_view name,
                                                   const MessageCallback& callback);
    ~SocketLocalPort() override { stopListening(); }

    const std::string& name() const { return name_; }
    const std::string& file() const { return file_; }

    // From the connections, on the poller's thread.
    void arrived(const std::shared_ptr<AcceptedConnection>& from, Received message);
    void forget(int connection);

    void ready(PacketReader& reader) override;
    void timeUp() override;
    void failed(const char* why) override { pauseAccepting(why); }

private:
    struct Listening {
        bool over = false;
        std::map<int, std::shared_ptr<AcceptedConnection>> connections; // by descriptor
    };
    SocketLocalPort(std::shared_ptr<PortContext> context, std::string_view name, std::string file,
                    std::unique_ptr<PortPlace> place, const MessageCallback& callback);
    void stopListening() override;
    void adopt(FileDescriptor socket);
    void pauseAccepting(const char* why);

    const std::shared_ptr<PortContext> context_;
    const std::string name_, file_;
    const std::unique_ptr<PortPlace> place_;
    // The poller thread's:
    bool pausing_ = false; // accepting waits for the system to have descriptors again
    std::uint64_t moment_ = 0;

    Guarded<Listening> listening_;
};

} // namespace brindlemar
