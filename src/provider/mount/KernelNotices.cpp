#include "provider/mount/KernelNotices.h"

#include "linux/queues/QuietThread.h"
#include "provider/mount/Failures.h"

namespace brindlemar {

KernelNotices::KernelNotices(OpenFiles& open) : open_(open), thread_(startQuietThread([this] { run(); })) {}

KernelNotices::~KernelNotices() {
    stop();
    thread_.join();
}

void KernelNotices::start(fuse::FuseSession& session) {
    std::lock_guard lock(mutex_);
    session_ = &session;
}

void KernelNotices::stop() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    session_ = nullptr;
    waiting_.clear();
    wake_.notify_all();
    told_.wait(lock, [this] { return telling_ == 0; });
}

void KernelNotices::tell(replica::Effects effects) {
    if (effects.empty()) return;
    for (const replica::Effect& effect : effects) {
        const auto file = effect.contents ? open_.find(effect.inode) : nullptr;
        if (file && !file->unsaved) file->setLocal(nullptr);
    }
    {
        std::lock_guard lock(mutex_);
        if (!session_) return; // nothing is known to the kernel yet, or any more
        waiting_.push_back(std::move(effects));
    }
    wake_.notify_one();
}

void KernelNotices::attributesChanged(replica::Inode inode) {
    std::lock_guard lock(mutex_);
    if (session_) session_->invalidateAttributes(static_cast<fuse_ino_t>(inode));
}

void KernelNotices::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (stopping_) return;
        const replica::Effects effects = std::move(waiting_.front());
        waiting_.pop_front();
        fuse::FuseSession* const session = session_;
        ++telling_;
        lock.unlock();
        replica::Inode lastFolder = 0;
        for (const replica::Effect& effect : effects) {
            if (stopping_) break;
            tellOne(*session, effect, lastFolder);
        }
        lock.lock();
        --telling_;
        told_.notify_all();
    }
}

void KernelNotices::tellOne(fuse::FuseSession& session, const replica::Effect& effect, replica::Inode& lastFolder) {
    const auto parent = static_cast<fuse_ino_t>(effect.parent), inode = static_cast<fuse_ino_t>(effect.inode);
    if (effect.entry) {
        session.invalidateEntry(parent, effect.name);
        if (std::exchange(lastFolder, effect.parent) != effect.parent) session.invalidateContents(parent);
    }
    if (effect.contents)
        invalidateContents(session, effect.inode);
    else if (!effect.entry)
        session.invalidateAttributes(inode);
}

void KernelNotices::invalidateContents(fuse::FuseSession& session, replica::Inode inode) {
    const auto forget = [&session, inode] { session.invalidateContents(static_cast<fuse_ino_t>(inode)); };
    if (!open_.find(inode)) return forget();
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    ++telling_;
    const auto run = [this, forget] {
        forget();
        std::lock_guard done(mutex_);
        --telling_;
        told_.notify_all();
    };
    if (!orLog("invalidateContents(_:)", [&] { startQuietThread(run).detach(); })) --telling_;
}

} // namespace brindlemar
