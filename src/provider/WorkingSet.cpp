#include "provider/WorkingSet.h"

namespace brindlemar {

void WorkingSet::look() {
    const bool start = state_.with([&](State& state) {
        if (state.running || !(state.again || manager_.hasSignals()) || !manager_.isConnected()) return false;
        manager_.takeSignals();
        state.again = false;
        return state.running = true;
    });
    if (start) tasks_.async([self = shared_from_this()] { self->enumerate(); });
}

void WorkingSet::enumerate() {
    State now = state_.copy();
    if (!now.enumerator) {
        auto made = extension_->enumerator(ItemIdentifier(NSFileProviderWorkingSetContainerItemIdentifier));
        if (const auto* error = std::get_if<NSError>(&made); error) return finished({});
        now.enumerator = std::get<0>(std::move(made));
        now.enumerator->currentSyncAnchor([&](NSFileProviderSyncAnchor anchor) { now.anchor = std::move(anchor); });
        state_.with([&](State& state) {
            state.enumerator = now.enumerator;
            state.anchor = now.anchor;
        });
    }
    now.enumerator->enumerateChanges(
        std::make_shared<ChangeCollector>([self = shared_from_this(), began = clock_.now()](ChangeSet changes) {
            changes.began = began;
            self->feed_.apply(changes);
            self->finished(changes);
        }),
        now.anchor.value_or(NSFileProviderSyncAnchor()));
}

void WorkingSet::finished(const ChangeSet& changes) {
    state_.with([&](State& state) {
        state.running = false;
        state.again = changes.moreComing;
        state.anchor = changes.anchor;
    });
    look();
}

} // namespace brindlemar
