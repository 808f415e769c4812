// A FUSE session: libfuse's low-level interface (https://libfuse.github.io) on threads of its own.
#pragma once

#define FUSE_USE_VERSION 314
#include <fuse_lowlevel.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace brindlemar::fuse {

/// Requests are answered from its threads, or later from any other, until it ends.
class FuseSession {
public:
    /// Mounts at once; why not, as a sentence for the user. The operations get `user` as fuse_req_userdata(), which
    /// outlives the session.
    static std::variant<std::unique_ptr<FuseSession>, std::string>
    mount(const std::string& path, const fuse_lowlevel_ops& operations, void* user);
    /// Unmounts, even while programs have files open, which get ENOTCONN or ECONNABORTED then.
    ~FuseSession();

    void start(unsigned threads);
    /// True once the kernel asks no more: somebody else has unmounted it, or ended its connection.
    bool isOver() const { return isOver_; }
    /// What programs have written through mappings has come when it returns, unless somebody else has unmounted it.
    void writeBack();
    /// No operation runs any more when it returns; the kernel's requests wait for the session's end. Not from an
    /// operation.
    void stop();

    // Must not be called from an operation, nor under a lock that one needs; see fuse_lowlevel_notify_inval_inode().
    // What the kernel does not know is no error.
    void invalidateEntry(fuse_ino_t parent, const std::string& name);
    void invalidateAttributes(fuse_ino_t inode);
    void invalidateContents(fuse_ino_t inode); // of a file, or the entries of a directory

private:
    FuseSession(fuse_session* session, std::string path);
    bool isMounted() const;
    void serve();

    fuse_session* const session_;
    const std::string path_;
    const std::optional<std::string> device_;
    std::atomic<bool> ending_{false}, isOver_{false};
    std::atomic<bool> isGone_{false}; // and its device number may be another's
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> ended = std::make_shared<std::atomic<bool>>(false);
    };
    std::vector<Worker> workers_;
};

} // namespace brindlemar::fuse
