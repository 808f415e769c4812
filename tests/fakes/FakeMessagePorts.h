// Message ports inside one process, without sockets: they record what is sent and do what the test says.
#pragma once

#include "linux/ports/PendingAnswers.h"
#include "linux/ports/QueuedLocalPort.h"

#include <atomic>
#include <future>
#include <map>
#include <vector>

namespace brindlemar {

/// Thread-safe. A remote port can be created for a peer that the test added, or for a local port of this object.
class FakeMessagePorts final : public MessagePorts {
public:
    /// One sendRequest, as it was called, whatever its status.
    struct Sent {
        std::string port;
        std::int32_t msgid = 0;
        std::string data;
        std::chrono::nanoseconds sendTimeout{};
        std::optional<std::chrono::nanoseconds> receiveTimeout{};
    };
    using Answer = std::optional<std::string>;
    using PeerHandler = std::function<void(const Sent&)>; // runs inside the sender's call
    static void ignore(const Sent&) {}
    /// The queue outlives this object and its ports.
    explicit FakeMessagePorts(Queue& mainQueue) : mainQueue_(mainQueue) {}
    std::shared_ptr<RemotePort> createRemote(std::string_view text) override {
        const std::string name(text);
        const auto created = std::make_shared<Remote>(name, registry_, mainQueue_);
        std::shared_ptr<Remote> known;
        return registry_->with([&](Registry& registry) -> std::shared_ptr<RemotePort> {
            ++registry.remoteAttempts;
            if (registry.failingRemotes > 0 && registry.failingRemotes--) return nullptr;
            if ((known = find(registry.remotes, name))) {
                if (known->isValid()) return known;
                registry.remotes.erase(name);
                return nullptr;
            }
            if (!registry.peers.contains(name) && !find(registry.locals, name)) return nullptr;
            registry.remotes[name] = created;
            return created;
        });
    }
    std::shared_ptr<LocalPort> createLocal(std::string_view text, MessageCallback callback) override {
        const std::string name(text);
        const auto created = std::make_shared<Local>(name, registry_, mainQueue_, std::move(callback));
        return registry_->with([&](Registry& registry) -> std::shared_ptr<LocalPort> {
            if (registry.peers.contains(name)) return nullptr;
            if (const auto known = find(registry.locals, name)) return known;
            registry.locals[name] = created;
            return created;
        });
    }
    /// Somebody in another process listens under the name: createRemote finds it, createLocal gives none.
    void addPeer(const std::string& name, PeerHandler handler = ignore) {
        registry_->with([&](Registry& registry) { registry.peers[name].swap(handler); });
    }
    /// The peer goes away: its remote port turns invalid.
    void removePeer(const std::string& name) {
        decltype(Registry::peers)::node_type gone;
        const auto remote = registry_->with([&](Registry& registry) {
            gone = registry.peers.extract(name);
            return find(registry.remotes, name);
        });
        if (remote) remote->invalidate();
    }
    /// The next `count` calls of createRemote give none, and the next sends on valid ports do nothing but time out.
    void fail(int creations, int sends) {
        registry_->with(
            [&](Registry& registry) { registry.failingRemotes = creations, registry.failingSends = sends; });
    }
    std::vector<Sent> sent() const { return registry_->copy().sent; }
    /// How often createRemote was called, failed calls too.
    int remoteAttempts() const { return registry_->copy().remoteAttempts; }
    /// A message for the local port of the name, handed over on its dispatch queue. The future holds the callback's
    /// result.
    std::future<Answer> inject(const std::string& name, std::int32_t msgid, std::string_view data) {
        const auto promise = std::make_shared<std::promise<Answer>>();
        if (const auto port = local(name))
            port->receive(msgid, data, [promise](Answer answer) { promise->set_value(std::move(answer)); });
        return promise->get_future();
    }

private:
    class Local;
    class Remote;
    struct Registry {
        std::map<std::string, PeerHandler> peers;
        std::map<std::string, std::weak_ptr<Remote>> remotes;
        std::map<std::string, std::weak_ptr<Local>> locals;
        std::vector<Sent> sent;
        int remoteAttempts = 0, failingRemotes = 0, failingSends = 0;
    };
    using Shared = std::shared_ptr<Guarded<Registry>>;
    template <class Port>
    static std::shared_ptr<Port> find(const std::map<std::string, std::weak_ptr<Port>>& ports,
                                      const std::string& name) {
        const auto it = ports.find(name);
        return it == ports.end() ? nullptr : it->second.lock();
    }
    class Local final : public QueuedLocalPort {
    public:
        Local(std::string name, Shared registry, Queue& mainQueue, MessageCallback callback)
            : QueuedLocalPort(mainQueue, std::move(callback)), name_(std::move(name)), registry_(std::move(registry)) {}
        ~Local() override { stopListening(); }
        void receive(std::int32_t msgid, std::string_view data, std::function<void(Answer)> answer) {
            deliver({msgid, Payload::copy(data), std::move(answer)});
        }

    private:
        void stopListening() override {
            const auto remote = registry_->with([&](Registry& registry) -> std::shared_ptr<Remote> {
                const auto it = registry.locals.find(name_);
                const bool ours = it != registry.locals.end() && !it->second.owner_before(weak_from_this()) &&
                                  !weak_from_this().owner_before(it->second);
                if (!ours) return nullptr;
                registry.locals.erase(it);
                return find(registry.remotes, name_);
            });
            if (remote) remote->invalidate();
        }
        const std::string name_;
        const Shared registry_;
    };
    class Remote final : public RemotePort, public std::enable_shared_from_this<Remote> {
    public:
        Remote(std::string name, Shared registry, Queue& mainQueue)
            : name_(std::move(name)), registry_(std::move(registry)), invalidation_(mainQueue) {}
        bool isValid() const override { return valid_; }
        void setInvalidationCallback(std::function<void(MessagePort&)> callback) override {
            invalidation_.set(shared_from_this(), std::move(callback));
        }
        void invalidate() override {
            if (!valid_.exchange(false)) return;
            answers_->end();
            invalidation_.announce(shared_from_this());
        }
        Result sendRequest(const Request& request) override {
            const Sent sent{name_, request.msgid, std::string(request.data), request.sendTimeout,
                            request.receiveTimeout};
            PeerHandler peer;
            std::shared_ptr<Local> local;
            const std::int32_t status = registry_->with([&](Registry& registry) {
                registry.sent.push_back(sent);
                if (!valid_) return SendStatus::invalid;
                if (registry.failingSends > 0 && registry.failingSends--) return SendStatus::sendTimeout;
                if (const auto found = registry.peers.find(name_); found != registry.peers.end()) peer = found->second;
                local = find(registry.locals, name_);
                return peer || local ? SendStatus::success : SendStatus::transportError;
            });
            if (status != SendStatus::success) return {status};
            PendingAnswers::Place place(*answers_, request.msgid);
            std::function<void(Answer)> answer;
            if (request.receiveTimeout)
                answer = [answers = answers_, msgid = request.msgid](Answer text) {
                    answers->arrived(msgid, Payload::of(std::move(text).value_or("")));
                };
            peer ? peer(sent) : local->receive(request.msgid, request.data, std::move(answer));
            return request.receiveTimeout ? place.wait(*request.receiveTimeout) : Result{};
        }

    private:
        const std::string name_;
        const Shared registry_;
        const std::shared_ptr<PendingAnswers> answers_ = std::make_shared<PendingAnswers>();
        InvalidationNotice invalidation_;
        std::atomic<bool> valid_{true};
    };
    const Shared registry_ = std::make_shared<Guarded<Registry>>();
    Queue& mainQueue_;

public:
    /// The valid local port of the name, or none.
    std::shared_ptr<Local> local(const std::string& name) const {
        return registry_->with([&](const Registry& registry) { return find(registry.locals, name); });
    }
};

} // namespace brindlemar
