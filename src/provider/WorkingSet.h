// The platform's one consumer of the working set.
#pragma once

#include "platform/Clock.h"
#include "platform/Extension.h"
#include "platform/Queue.h"
#include "provider/ChangeFeed.h"
#include "provider/DomainRegistry.h"

#include <memory>

namespace brindlemar {

/// After a signal, asks for the changes since the last anchor, again while more is coming, never two enumerations at
/// once; signals that come meanwhile lead to one more round. While the domain is disconnected signals wait.
/// Thread-safe.
class WorkingSet : public std::enable_shared_from_this<WorkingSet> {
public:
    /// The queue, the manager, the feed and the clock outlive the working set's last enumeration.
    WorkingSet(std::shared_ptr<NSFileProviderReplicatedExtension> extension, Queue& tasks, DomainManager& manager,
               ChangeFeed& feed, Clock& clock)
        : extension_(std::move(extension)), tasks_(tasks), manager_(manager), feed_(feed), clock_(clock) {}

    /// To be called when there are signals, or the domain is connected again.
    void look();
    bool isEnumerating() const {
        return state_.with([](const State& state) { return state.running; });
    }

private:
    struct State {
        bool running = false, again = false;
        std::shared_ptr<NSFileProviderEnumerator> enumerator;
        std::optional<NSFileProviderSyncAnchor> anchor;
    };
    void enumerate();
    void finished(const ChangeSet& changes);

    const std::shared_ptr<NSFileProviderReplicatedExtension> extension_;
    Queue& tasks_;
    DomainManager& manager_;
    ChangeFeed& feed_;
    Clock& clock_;
    Guarded<State> state_;
};

} // namespace brindlemar
