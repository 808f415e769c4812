// One thread for each connected peer, with a bound on their number.
#pragma once

#include "linux/Diagnostic.h"
#include "linux/Wake.h"

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace brindlemar {

/// Thread-safe. When the house is full, a newcomer makes another peer go: of the process that has the most connections
/// a stranger, else one that has not been heard yet, else the one that was heard least lately. So neither idle peers
/// nor any one process can keep others out.
class PeerThreads {
public:
    /// What a peer's thread knows of its place here.
    class Seat {
    public:
        /// Asks the thread to finish, or carries whatever else the owner of the connection signals.
        const std::shared_ptr<Wake>& wake() const { return wake_; }
        /// The peer has proved itself and is no stranger any more.
        void admit() { rise(Standing::admitted); }
        /// The peer has sent something that counts.
        void heard() { rise(Standing::heard); }

    private:
        friend class PeerThreads;
        enum class Standing { stranger, admitted, heard };
        Seat(PeerThreads& house, pid_t process) : house_(house), process_(process), wake_(std::make_shared<Wake>()) {}
        void rise(Standing standing);

        PeerThreads& house_;
        pid_t process_;
        std::shared_ptr<Wake> wake_;
        std::thread thread_;
        Standing standing_ = Standing::stranger;
        std::list<Seat>::iterator place_;
    };
    using Body = std::function<void(Seat& seat)>;

    /// `diagnostic` hears of bodies that threw; their connection is over, and nothing else.
    PeerThreads(std::size_t limit, Diagnostic diagnostic) : limit_(limit), diagnostic_(std::move(diagnostic)) {}
    /// Stops every thread and waits for its end; never on one of these threads.
    ~PeerThreads();

    /// Runs the body for this process on a thread of its own; may wait a moment for another to leave. False when there
    /// is no room, or no thread, descriptor or memory to be had.
    bool start(pid_t process, Body body);

private:
    void run(Seat& seat, Body& body) noexcept;
    void makeRoom(std::unique_lock<std::mutex>& lock);
    void joinFinished();

    const std::size_t limit_;
    const Diagnostic diagnostic_;
    std::mutex mutex_;
    std::condition_variable left_;
    bool closing_ = false;
    std::list<Seat> seats_;    // running, in the order in which they came or last rose
    std::list<Seat> finished_; // to be joined
};

} // namespace brindlemar
