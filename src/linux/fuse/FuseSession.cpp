#include "linux/fuse/FuseSession.h"

#include "linux/FileDescriptor.h"
#include "linux/fuse/MountPoint.h"
#include "linux/queues/QuietThread.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>

namespace brindlemar::fuse {

namespace {
/// Ends a blocking read(2); has no other use.
int wakeSignal() { return SIGRTMIN; }
} // namespace

std::variant<std::unique_ptr<FuseSession>, std::string>
FuseSession::mount(const std::string& path, const fuse_lowlevel_ops& operations, void* user) {
    if (::access("/dev/fuse", F_OK) != 0)
        return std::string("/dev/fuse is missing; load the kernel module fuse (modprobe fuse)");
    if (auto why = prepareMountPoint(path)) return *why;
    const std::string name = kFileSystemName;
    std::string options = "fsname=" + name + ",subtype=" + name + ",default_permissions,nosuid,nodev,noatime";
    std::string words[] = {name, "-o", options};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(3, argv);
    fuse_session* session = fuse_session_new(&arguments, &operations, sizeof operations, user);
    fuse_opt_free_args(&arguments);
    if (!session) return std::string("libfuse makes no session");
    if (fuse_session_mount(session, path.c_str()) != 0) {
        fuse_session_destroy(session);
        return path + " cannot be mounted: " + std::generic_category().message(errno);
    }
    return std::unique_ptr<FuseSession>(new FuseSession(session, path));
}

FuseSession::FuseSession(fuse_session* session, std::string path)
    : session_(session), path_(std::move(path)), device_(mountedDevice(path_)) {}

bool FuseSession::isMounted() const { return !isGone_ && device_ && mountedDevice(path_) == device_; }

void FuseSession::start(unsigned threads) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(wakeSignal(), &action, nullptr);
    for (unsigned count = 0; count < threads; ++count) {
        Worker& worker = workers_.emplace_back();
        worker.thread = startQuietThread([this, ended = worker.ended] {
            serve();
            *ended = true;
        });
    }
}

void FuseSession::serve() {
    sigset_t wake;
    ::sigemptyset(&wake);
    ::sigaddset(&wake, wakeSignal());
    ::pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);
    fuse_buf buffer{};
    while (!ending_) {
        const int size = fuse_session_receive_buf(session_, &buffer);
        if (size == -EINTR || size == -EAGAIN) continue;
        if (size <= 0) { // unmounted, or aborted
            isGone_ = size == 0;
            isOver_ = true;
            break;
        }
        fuse_session_process_buf(session_, &buffer);
    }
    std::free(buffer.mem);
}

void FuseSession::stop() {
    ending_ = true; // fuse_session_exit() would drop requests that were just read
    for (Worker& worker : workers_) {
        while (!*worker.ended) { // the signal may come before the read begins
            ::pthread_kill(worker.thread.native_handle(), wakeSignal());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        worker.thread.join();
    }
    workers_.clear();
}

FuseSession::~FuseSession() {
    stop();
    fuse_session_unmount(session_); // ends what programs still wait for, too
    fuse_session_destroy(session_);
    if (isMounted()) detachMount(path_); // libfuse leaves what was aborted
}

void FuseSession::writeBack() {
    if (!isMounted()) return;
    const FileDescriptor top(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (top) ::syncfs(top.get());
}

void FuseSession::invalidateEntry(fuse_ino_t parent, const std::string& name) {
    fuse_lowlevel_notify_inval_entry(session_, parent, name.c_str(), name.size());
}
void FuseSession::invalidateAttributes(fuse_ino_t inode) { fuse_lowlevel_notify_inval_inode(session_, inode, -1, 0); }
void FuseSession::invalidateContents(fuse_ino_t inode) { fuse_lowlevel_notify_inval_inode(session_, inode, 0, 0); }

} // namespace brindlemar::fuse
