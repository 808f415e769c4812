// One thread for each connected peer, with a bound on their number.
#pragma once

#include "linux/Wake.h"

#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace brindlemar {

/// Thread-safe. Peers count as strangers until they have proved themselves by admit(); when the house is full the
/// oldest stranger has to go, so that silent peers cannot keep others out.
class PeerThreads {
public:
    /// What a peer's thread knows of its place here.
    class Seat {
    public:
        /// Asks the thread to finish, or carries whatever else the owner of the connection signals.
        const std::shared_ptr<Wake>& wake() const { return wake_; }
        /// The peer is no stranger any more: it stays until it leaves.
        void admit();

    private:
        friend class PeerThreads;
        explicit Seat(PeerThreads& house) : house_(house), wake_(std::make_shared<Wake>()) {}
        PeerThreads& house_;
        std::shared_ptr<Wake> wake_;
        std::thread thread_;
        bool admitted_ = false;
    };
    using Body = std::function<void(Seat& seat)>;

    explicit PeerThreads(std::size_t limit) : limit_(limit) {}
    /// Stops every thread and waits for its end; never on one of these threads.
    ~PeerThreads();

    /// Runs the body on a thread of its own; may wait a moment for a stranger to leave. False when there is no room, or
    /// no thread or descriptor to be had.
    bool start(Body body);

private:
    void leave(std::list<Seat>::iterator seat);
    void joinFinished();

    const std::size_t limit_;
    std::mutex mutex_;
    std::condition_variable left_;
    bool closing_ = false;
    std::list<Seat> seats_;    // running, oldest first
    std::list<Seat> finished_; // to be joined
};

} // namespace brindlemar
