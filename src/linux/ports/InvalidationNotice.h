// The one call that tells a port's owner that the port turned invalid.
#pragma once

#include "platform/MessagePort.h"
#include "support/Guarded.h"

#include <utility>

namespace brindlemar {

/// Thread-safe. The callback is posted to the main queue, never called here; the posted task keeps the port alive.
class InvalidationNotice {
public:
    using Callback = std::function<void(MessagePort&)>;

    /// The queue outlives this object.
    explicit InvalidationNotice(Queue& mainQueue) : mainQueue_(mainQueue) {}

    void set(std::shared_ptr<MessagePort> port, Callback callback) {
        const bool late = state_.with([&](State& state) {
            if (!state.announced) state.callback.swap(callback);
            return state.announced;
        });
        if (late) post(std::move(port), std::move(callback));
    }
    /// The first call posts; further ones do nothing.
    void announce(std::shared_ptr<MessagePort> port) {
        post(std::move(port), state_.with([](State& state) {
            state.announced = true;
            return std::exchange(state.callback, nullptr);
        }));
    }

private:
    struct State {
        Callback callback;
        bool announced = false;
    };

    void post(std::shared_ptr<MessagePort> port, Callback callback) {
        if (!callback) return;
        mainQueue_.async([port = std::move(port), callback = std::move(callback)] { callback(*port); });
    }

    Queue& mainQueue_;
    Guarded<State> state_;
};

} // namespace brindlemar
