// A completion that is heard once.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <tuple>
#include <utility>

namespace brindlemar {

/// Copies share one completion: the first caller wins, a later call is refused (false), and when the last copy goes
/// away unused the completion gets the stated result, on the thread that dropped it. Thread-safe.
template <class... Args>
class OnceCompletion {
public:
    OnceCompletion(std::function<void(Args...)> handler, std::tuple<Args...> ifDropped)
        : state_(std::make_shared<State>(std::move(handler), std::move(ifDropped))) {}

    bool operator()(Args... args) const { return state_->complete(std::move(args)...); }
    /// True once a caller has won.
    bool isDone() const { return state_->done; }

private:
    struct State {
        State(std::function<void(Args...)> h, std::tuple<Args...> d) : handler(std::move(h)), ifDropped(std::move(d)) {}
        ~State() {
            std::apply([this](Args&... args) { complete(std::move(args)...); }, ifDropped);
        }
        bool complete(Args... args) {
            if (done.exchange(true)) return false;
            const auto call = std::exchange(handler, nullptr); // a finished completion holds on to nothing
            call(std::move(args)...);
            return true;
        }
        std::function<void(Args...)> handler;
        std::tuple<Args...> ifDropped;
        std::atomic<bool> done{false};
    };
    std::shared_ptr<State> state_;
};

} // namespace brindlemar
