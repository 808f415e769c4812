#include "fakes/FakeMessagePorts.h"

#include "linux/ports/PendingAnswers.h"
#include "linux/ports/QueuedLocalPort.h"

#include <atomic>

namespace brindlemar {

struct FakeMessagePorts::Registry {
    std::map<std::string, PeerHandler> peers;
    std::map<std::string, std::weak_ptr<Remote>> remotes;
    std::map<std::string, std::weak_ptr<Local>> locals;
    std::vector<Sent> sent;
    std::vector<std::string> remoteAttempts;
    int failingRemotes = 0, failingLocals = 0, failingSends = 0;
    std::int32_t failingStatus = SendStatus::success;

    template <class Port>
    static std::shared_ptr<Port> find(const std::map<std::string, std::weak_ptr<Port>>& ports,
                                      const std::string& name) {
        const auto it = ports.find(name);
        return it == ports.end() ? nullptr : it->second.lock();
    }
};

class FakeMessagePorts::Local final : public QueuedLocalPort {
public:
    Local(std::string name, std::shared_ptr<Guarded<Registry>> registry, Queue& mainQueue, MessageCallback callback)
        : QueuedLocalPort(mainQueue, std::move(callback)), name_(std::move(name)), registry_(std::move(registry)) {}
    ~Local() override { stopListening(); }

    std::future<Answer> receive(std::int32_t msgid, std::string_view data) {
        const auto promise = std::make_shared<std::promise<Answer>>();
        deliver({msgid, Payload::copy(data), [promise](Answer answer) { promise->set_value(std::move(answer)); }});
        return promise->get_future();
    }
    void receive(std::int32_t msgid, std::string_view data, std::function<void(Answer)> answer) {
        deliver({msgid, Payload::copy(data), std::move(answer)});
    }

private:
    void stopListening() override;

    const std::string name_;
    const std::shared_ptr<Guarded<Registry>> registry_;
};

class FakeMessagePorts::Remote final : public RemotePort, public std::enable_shared_from_this<Remote> {
public:
    Remote(std::string name, std::shared_ptr<Guarded<Registry>> registry, Queue& mainQueue)
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
        Sent sent{name_, request.msgid, std::string(request.data), request.sendTimeout, request.receiveTimeout};
        PeerHandler handler;
        std::shared_ptr<Local> local;
        registry_->with([&](Registry& registry) {
            if (!valid_)
                sent.status = SendStatus::invalid;
            else if (registry.failingSends > 0 && registry.failingSends--)
                sent.status = registry.failingStatus;
            else if (const auto peer = registry.peers.find(name_); peer != registry.peers.end())
                handler = peer->second;
            else if (!(local = Registry::find(registry.locals, name_)))
                sent.status = SendStatus::transportError;
            registry.sent.push_back(sent);
        });
        if (sent.status != SendStatus::success) return {sent.status};
        PendingAnswers::Place place(*answers_, request.msgid);
        const auto answer = [answers = answers_, msgid = request.msgid](Answer text) {
            answers->arrived(msgid, text ? Payload::of(*std::move(text)) : Payload());
        };
        if (local)
            local->receive(request.msgid, request.data,
                           request.receiveTimeout ? answer : std::function<void(Answer)>());
        else
            answer(handler ? handler(sent) : Answer());
        return request.receiveTimeout ? place.wait(*request.receiveTimeout) : Result{};
    }

private:
    const std::string name_;
    const std::shared_ptr<Guarded<Registry>> registry_;
    const std::shared_ptr<PendingAnswers> answers_ = std::make_shared<PendingAnswers>();
    InvalidationNotice invalidation_;
    std::atomic<bool> valid_{true};
};

void FakeMessagePorts::Local::stopListening() {
    const auto remote = registry_->with([&](Registry& registry) {
        const auto it = registry.locals.find(name_);
        const bool ours = it != registry.locals.end() && !it->second.owner_before(weak_from_this()) &&
                          !weak_from_this().owner_before(it->second);
        if (ours) registry.locals.erase(it);
        return ours && !registry.peers.contains(name_) ? Registry::find(registry.remotes, name_) : nullptr;
    });
    if (remote) remote->invalidate();
}

FakeMessagePorts::FakeMessagePorts(Queue& mainQueue)
    : registry_(std::make_shared<Guarded<Registry>>()), mainQueue_(mainQueue) {}

FakeMessagePorts::~FakeMessagePorts() = default;

std::shared_ptr<RemotePort> FakeMessagePorts::createRemote(std::string_view text) {
    const std::string name(text);
    auto created = std::make_shared<Remote>(name, registry_, mainQueue_);
    std::shared_ptr<Remote> known;
    return registry_->with([&](Registry& registry) -> std::shared_ptr<RemotePort> {
        registry.remoteAttempts.push_back(name);
        if (registry.failingRemotes > 0 && registry.failingRemotes--) return nullptr;
        if ((known = Registry::find(registry.remotes, name))) {
            if (known->isValid()) return known;
            registry.remotes.erase(name);
            return nullptr;
        }
        if (!registry.peers.contains(name) && !Registry::find(registry.locals, name)) return nullptr;
        registry.remotes[name] = created;
        return created;
    });
}

std::shared_ptr<LocalPort> FakeMessagePorts::createLocal(std::string_view text, MessageCallback callback) {
    const std::string name(text);
    auto created = std::make_shared<Local>(name, registry_, mainQueue_, std::move(callback));
    return registry_->with([&](Registry& registry) -> std::shared_ptr<LocalPort> {
        if (registry.failingLocals > 0 && registry.failingLocals--) return nullptr;
        if (registry.peers.contains(name)) return nullptr;
        if (const auto known = Registry::find(registry.locals, name)) return known;
        registry.locals[name] = created;
        return created;
    });
}

void FakeMessagePorts::addPeer(std::string name, PeerHandler handler) {
    registry_->with([&](Registry& registry) { registry.peers[std::move(name)].swap(handler); });
}

void FakeMessagePorts::removePeer(const std::string& name) {
    PeerHandler gone;
    const auto remote = registry_->with([&](Registry& registry) {
        if (const auto it = registry.peers.find(name); it != registry.peers.end()) {
            it->second.swap(gone);
            registry.peers.erase(it);
        }
        return Registry::find(registry.remotes, name);
    });
    if (remote) remote->invalidate();
}

void FakeMessagePorts::failCreateRemote(int count) {
    registry_->with([&](Registry& registry) { registry.failingRemotes = count; });
}

void FakeMessagePorts::failCreateLocal(int count) {
    registry_->with([&](Registry& registry) { registry.failingLocals = count; });
}

void FakeMessagePorts::failSends(int count, std::int32_t status) {
    registry_->with([&](Registry& registry) {
        registry.failingSends = count;
        registry.failingStatus = status;
    });
}

std::vector<FakeMessagePorts::Sent> FakeMessagePorts::sent() const {
    return registry_->with([](const Registry& registry) { return registry.sent; });
}

std::vector<std::string> FakeMessagePorts::remoteAttempts() const {
    return registry_->with([](const Registry& registry) { return registry.remoteAttempts; });
}

std::future<FakeMessagePorts::Answer> FakeMessagePorts::inject(const std::string& name, std::int32_t msgid,
                                                               std::string_view data) {
    const auto port = registry_->with([&](Registry& registry) { return Registry::find(registry.locals, name); });
    return port ? port->receive(msgid, data) : std::future<Answer>();
}

std::shared_ptr<RemotePort> FakeMessagePorts::remote(const std::string& name) const {
    const auto port = registry_->with([&](const Registry& registry) { return Registry::find(registry.remotes, name); });
    return port && port->isValid() ? port : nullptr;
}

std::shared_ptr<LocalPort> FakeMessagePorts::local(const std::string& name) const {
    return registry_->with([&](const Registry& registry) { return Registry::find(registry.locals, name); });
}

void FakeMessagePorts::invalidate(const std::string& name) {
    if (const auto port = remote(name)) port->invalidate();
    if (const auto port = local(name)) port->invalidate();
}

} // namespace brindlemar
