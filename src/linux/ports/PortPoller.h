// The one thread that takes messages off the sockets of all ports.
#pragma once

#include "linux/Deadline.h"
#include "linux/Wake.h"
#include "linux/ports/PortPacket.h"
#include "support/Guarded.h"

#include <set>
#include <thread>
#include <unordered_map>
#include <vector>

namespace brindlemar {

/// Level-triggered epoll(7). Clients are known by their descriptor, which they own, keep open until they are destroyed
/// and register at most once. Thread-safe.
class PortPoller {
public:
    /// Called on the poller's thread.
    class Client {
    public:
        virtual ~Client() = default;
        /// The descriptor may be readable, writable or at its end; it may also be a false alarm.
        virtual void ready(PacketReader& reader) = 0;
        /// The time asked for has come.
        virtual void timeUp() {}
        /// All that had arrived anywhere when the client asked for this has been taken.
        virtual void quiet() {}
        /// One of the above threw, for want of memory as a rule. What is lost is this client's alone.
        virtual void failed(const char* why) = 0;
    };

    /// Throws std::system_error when the system has no descriptor or thread to spare.
    PortPoller();
    ~PortPoller() { stop(); }

    /// Watches for input. False when the system refuses. A client that has been destroyed is not called any more.
    bool add(int descriptor, std::weak_ptr<Client> client);
    void remove(int descriptor);
    void watch(int descriptor, bool input, bool output);
    /// Calls timeUp() once; without a time, not at all.
    void wakeAt(int descriptor, std::optional<Deadline> time);
    /// Calls quiet() once a look finds nothing to read anywhere. Other peers can put that off only for a moment. For
    /// the poller's thread only.
    void whenQuiet(std::weak_ptr<Client> client);
    /// Joins the thread; no client is called after it. Not for the poller's own thread.
    void stop();

private:
    struct Entry {
        std::weak_ptr<Client> client;
        std::optional<Deadline> wake;
    };
    struct State {
        std::unordered_map<int, Entry> entries;
        std::set<std::pair<Deadline, int>> wakes;
        void setWake(int descriptor, Entry& entry, std::optional<Deadline> time);
    };
    void run();
    void take(int descriptor);
    int timeout() const;
    void callDue();
    void callQuiet();

    FileDescriptor epoll_;
    Wake wake_;
    Guarded<State> state_;
    // The thread's own:
    PacketReader reader_;
    std::vector<std::weak_ptr<Client>> quiet_;

    std::thread thread_; // last: it uses all of the above
};

} // namespace brindlemar
