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
    int remoteAttempts = 0, failingRemotes = 0, failingSends = 0;
    std::int32_t failingStatus = SendStatus::success;

    static auto find(const auto& ports, const std::string& name) {
        const auto it = ports.find(name);
        return it == ports.end() ? nullptr : it->second.lock();
    }
};

class FakeMessagePorts::Local final : public QueuedLocalPort {
public:
    Local(std::string name, std::shared_ptr<Guarded<Registry>> registry, Queue& mainQueue, MessageCallback callback)
        : QueuedLocalPort(mainQueue, std::move(callback)), name_(std::move(name)), registry_(std::move(registry)) {}
    ~Local() override { stopListening(); }

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
        const Sent sent{name_, request.msgid, std::string(request.data), request.sendTimeout, request.receiveTimeout};
        PeerHandler peer;
        std::shared_ptr<Local> local;
        const std::int32_t status = registry_->with([&](Registry& registry) {
            registry.sent.push_back(sent);
            if (!valid_) return SendStatus::invalid;
            if (registry.failingSends > 0 && registry.failingSends--) return registry.failingStatus;
            if (const auto found = registry.peers.find(name_); found != registry.peers.end()) peer = found->second;
            local = Registry::find(registry.locals, name_);
            return peer || local ? SendStatus::success : SendStatus::transportError;
        });
        if (status != SendStatus::success) return {status};
        PendingAnswers::Place place(*answers_, request.msgid);
        std::function<void(Answer)> answer;
        if (request.receiveTimeout)
            answer = [answers = answers_, msgid = request.msgid](Answer text) {
                answers->arrived(msgid, text ? Payload::of(*std::move(text)) : Payload());
            };
        peer ? peer(sent) : local->receive(request.msgid, request.data, std::move(answer));
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
    const auto remote = registry_->with([&](Registry& registry) -> std::shared_ptr<Remote> {
        const auto it = registry.locals.find(name_);
        const bool ours = it != registry.locals.end() && !it->second.owner_before(weak_from_this()) &&
                          !weak_from_this().owner_before(it->second);
        if (!ours) return nullptr;
        registry.locals.erase(it);
        return Registry::find(registry.remotes, name_);
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
        ++registry.remoteAttempts;
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
        if (registry.peers.contains(name)) return nullptr;
        if (const auto known = Registry::find(registry.locals, name)) return known;
        registry.locals[name] = created;
        return created;
    });
}

void FakeMessagePorts::addPeer(const std::string& name, PeerHandler handler) {
    registry_->with([&](Registry& registry) { registry.peers[name].swap(handler); });
}

void FakeMessagePorts::removePeer(const std::string& name) {
    decltype(Registry::peers)::node_type gone;
    const auto remote = registry_->with([&](Registry& registry) {
        gone = registry.peers.extract(name);
        return Registry::find(registry.remotes, name);
    });
    if (remote) remote->invalidate();
}

void FakeMessagePorts::failCreateRemote(int count) {
    registry_->with([&](Registry& registry) { registry.failingRemotes = count; });
}

void FakeMessagePorts::failSends(int count, std::int32_t status) {
    registry_->with([&](Registry& registry) { registry.failingSends = count, registry.failingStatus = status; });
}

std::vector<FakeMessagePorts::Sent> FakeMessagePorts::sent() const {
    return registry_->with([](const Registry& registry) { return registry.sent; });
}

int FakeMessagePorts::remoteAttempts() const {
    return registry_->with([](const Registry& registry) { return registry.remoteAttempts; });
}

std::future<FakeMessagePorts::Answer> FakeMessagePorts::inject(const std::string& name, std::int32_t msgid,
                                                               std::string_view data) {
    const auto promise = std::make_shared<std::promise<Answer>>();
    const auto port = registry_->with([&](Registry& registry) { return Registry::find(registry.locals, name); });
    if (port) port->receive(msgid, data, [promise](Answer answer) { promise->set_value(std::move(answer)); });
    return promise->get_future();
}

std::shared_ptr<LocalPort> FakeMessagePorts::local(const std::string& name) const {
    return registry_->with([&](const Registry& registry) { return Registry::find(registry.locals, name); });
}

} // namespace brindlemar
