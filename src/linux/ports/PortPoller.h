// The one thread that takes messages off the sockets of all ports.
#pragma once

#include "linux/Deadline.h"
#include "linux/FileDescriptor.h"
#include "linux/ports/PortPacket.h"
#include "support/Guarded.h"

#include <atomic>
#include <set>
#include <thread>
#include <unordered_map>

namespace brindlemar {

/// Level-triggered epoll(7). Clients are known by their descriptor, which they own, keep open until they are destroyed
/// and register at most once. Thread-safe, but wakeAt() is for the poller's own thread.
class PortPoller {
public:
    class Client {
    public:
        virtual ~Client() = default;
        /// On the poller's thread: the descriptor may be readable, writable or at its end; it may also be a false
        /// alarm.
        virtual void ready(PacketReader& reader) = 0;
        /// On the poller's thread: the time asked for has come.
        virtual void timeUp() {}
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
    /// Runs the task once a look finds nothing to read anywhere: all that had arrived has been taken. Other peers can
    /// put that off only for a moment. On the poller's thread, and from it.
    void whenQuiet(std::function<void()> task);
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
    int timeout() const;
    void callDue();
    void callQuiet();

    FileDescriptor epoll_, wakeUp_;
    Guarded<State> state_;
    std::atomic<bool> stopping_{false};
    std::vector<std::function<void()>> quiet_; // the thread's own
    std::thread thread_;                       // last: it uses all of the above
};

} // namespace brindlemar
