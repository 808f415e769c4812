// What the kernel has to forget.
#pragma once

#include "linux/fuse/FuseSession.h"
#include "provider/mount/OpenFiles.h"
#include "provider/replica/Replica.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace brindlemar {

/// Files that are open let go of contents that are out of date. The kernel is told from a thread of its own, which
/// holds no lock meanwhile: a notice may wait for a request that is being answered. That of an open file's contents,
/// whose reader may wait for the host, has one for itself. Thread-safe.
class KernelNotices {
public:
    /// The files outlive the notices.
    explicit KernelNotices(OpenFiles& open);
    ~KernelNotices();
    /// From now on; the session ends after stop().
    void start(fuse::FuseSession& session);
    /// The session is not used any more when it returns. Its requests must have been answered.
    void stop();

    void tell(replica::Effects effects);
    /// At once, on the calling thread: the item's attributes are not as they were. Such a notice waits for nobody. Not
    /// from an operation on it.
    void attributesChanged(replica::Inode inode);

private:
    void run();
    void tellOne(fuse::FuseSession& session, const replica::Effect& effect, replica::Inode& lastFolder);
    void invalidateContents(fuse::FuseSession& session, replica::Inode inode);

    OpenFiles& open_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<replica::Effects> waiting_;
    fuse::FuseSession* session_ = nullptr;
    std::atomic<bool> stopping_{false};
    unsigned telling_ = 0; // threads
    std::condition_variable told_;
    std::thread thread_;
};

} // namespace brindlemar
