// Tells the host what has changed here.
#pragma once

#include "provider/mount/Contents.h"
#include "provider/mount/Downloads.h"
#include "provider/mount/OpenFiles.h"

namespace brindlemar {

/// Takes jobs from the replica's queue, several at a time, once what they are about has been left alone for a moment.
/// Thread-safe; nothing waits for the host but the tasks.
class Uploads : public std::enable_shared_from_this<Uploads> {
public:
    /// All of them outlive the last task.
    struct Places {
        Folders::Places common;
        std::shared_ptr<Folders> folders;
        Contents& contents;
        OpenFiles& open;
    };
    explicit Uploads(const Places& places) : places_(places) {}

    /// The item was changed here just now.
    void touched(replica::Inode inode);
    /// There may be something to do: a file was closed, a host has come back.
    void look();
    /// What has failed for want of a host may be told again.
    void hostIsBack();
    std::int64_t retry();
    /// Takes no jobs any more.
    void stop() { stopping_ = true; }

    std::vector<Transfer> transfers() const;
    /// A job is under way, or waits for a listing of its folder.
    bool isAtWork() const;
    /// Programs write to it: what is not safe is not told, nor what was never the same for long.
    bool isBusy(replica::Inode inode);

private:
    struct State {
        struct Touch {
            Timestamp first, last;
            bool isRecent(Timestamp now) const;
        };
        std::unordered_map<replica::Inode, Touch> touched;
        struct Pause {
            Timestamp since;
            std::chrono::milliseconds length{0};
        };
        std::unordered_map<replica::Inode, Pause> paused; // open files that changed while they were copied
        std::vector<replica::Inode> refreshed;            // items whose folders were listed for them
        struct Running {
            std::int64_t job = 0; // its number: the next one about the item may begin before the end of this is heard
            std::shared_ptr<NSProgress> progress;
        };
        std::unordered_map<replica::Inode, Running> running;
        bool isScheduled = false;
        bool isPumping = false, again = false;
        bool isRetrying = false;    // see retryLater()
        std::size_t refreshing = 0; // jobs that wait for a listing
        unsigned resting = 0;       // see rest()
    };
    void pump();
    bool takeOne();
    void refresh(const replica::Job& job, replica::Inode folder);
    replica::Inode lostIn(const replica::Job& job);
    void run(const replica::Job& job);
    void sendUnlessConflict(const replica::Job& job);
    void send(const replica::Job& job, const std::optional<replica::HostVersion>& seen);
    void call(const replica::Job& job, const std::optional<replica::HostVersion>& seen);
    bool resize(const replica::Job& job);
    void unlessParentIsGone(const replica::Job& job);
    void putBackWithout(const ItemIdentifier& gone, const replica::Job& job);
    void putBack(const replica::Job& job, const std::optional<NSError>& error);
    bool untilTaken(const std::function<void()>& body);
    void retryLater();
    void rest();
    void finished(const replica::Job& job);
    void pause(replica::Inode inode);
    void ended(const replica::Job& job, const std::shared_ptr<NSFileProviderItem>& item,
               const std::optional<NSError>& error);
    void succeeded(const replica::Job& job, const std::shared_ptr<NSFileProviderItem>& item);
    void failed(const replica::Job& job, const NSError& error);

    const Places places_;
    std::atomic<bool> stopping_{false};
    Guarded<State> state_;
};

} // namespace brindlemar
