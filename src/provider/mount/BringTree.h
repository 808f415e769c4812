// Makes a tree local.
#pragma once

#include "provider/mount/Downloads.h"

#include <vector>

namespace brindlemar {

/// Lists what is not known of the tree and fetches what is not local, some at once. What it is made of outlives it.
class BringTree : public std::enable_shared_from_this<BringTree> {
public:
    /// Called on any thread, one call at a time.
    struct Listener {
        std::function<void(std::int64_t done, std::int64_t known)> progress; // in files
        std::function<void(const std::optional<NSError>& error)> end;        // once; the first error, if there was one
        std::function<void(std::function<void()> stop)> whenGone;            // calls it when nobody listens any more
    };
    BringTree(replica::Replica& replica, Folders& folders, Downloads& downloads, Listener listener)
        : replica_(replica), folders_(folders), downloads_(downloads), listener_(std::move(listener)) {}
    void start(replica::Inode top);
    /// What is fetched for it only is cancelled.
    void stop();

private:
    struct State {
        std::vector<replica::Inode> waiting;
        std::int64_t done = 0, known = 0;
        std::size_t running = 0;
        bool ended = false, stopped = false;
        std::unordered_map<replica::Inode, Downloads::Token> fetches; // 0 while it is asked for
        std::optional<NSError> error;
    };
    void goOn();
    void take(replica::Inode inode);
    void addEntries(replica::Inode folder);
    void list(replica::Inode folder);
    void fetch(replica::Inode file);
    void fetched(replica::Inode file, const std::optional<NSError>& error);
    void finished(const std::optional<NSError>& error, std::int64_t files);

    replica::Replica& replica_;
    Folders& folders_;
    Downloads& downloads_;
    const Listener listener_;
    Guarded<State> state_;
    std::mutex telling_;
};

} // namespace brindlemar
