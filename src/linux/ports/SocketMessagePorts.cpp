#include "linux/ports/SocketMessagePorts.h"

namespace brindlemar {

namespace {

template <class Map>
auto find(const Map& ports, std::string_view name) {
    const auto entry = ports.find(name);
    return entry == ports.end() ? nullptr : entry->second.lock();
}

/// Forgets the ports that are gone on the way.
template <class Map, class Port>
void store(Map& ports, std::string_view name, const std::shared_ptr<Port>& port) {
    std::erase_if(ports, [](const auto& entry) { return entry.second.expired(); });
    ports[std::string(name)] = port;
}

template <class Ports>
void invalidateAll(Ports& ports) {
    const auto left = ports.copy();
    for (const auto& [name, weak] : left)
        if (const auto port = weak.lock()) port->invalidate();
}

} // namespace

SocketMessagePorts::SocketMessagePorts(RuntimeDirectory directory, Queue& mainQueue, Diagnostic diagnostic,
                                       std::chrono::milliseconds helloLimit)
    : context_(new PortContext{std::move(directory), mainQueue, std::move(diagnostic), helloLimit}) {}

SocketMessagePorts::~SocketMessagePorts() {
    context_->poller.stop();
    invalidateAll(remotes_);
    invalidateAll(locals_);
}

std::shared_ptr<RemotePort> SocketMessagePorts::createRemote(std::string_view name) {
    const auto known = remotes_.with([&](auto& ports) { return find(ports, name); });
    if (known && known->isValid()) return known;
    if (known) { // the poller invalidates it, behind what its process had sent before
        remotes_.with([&](auto& ports) {
            if (find(ports, name) == known) ports.erase(ports.find(name));
        });
        return nullptr;
    }
    const auto port = SocketRemotePort::connect(context_, name);
    if (!port) return nullptr;
    std::shared_ptr<SocketRemotePort> other; // made by another caller meanwhile
    const bool first = remotes_.with([&](auto& ports) {
        other = find(ports, name);
        if (other && other->isValid()) return false;
        store(ports, name, port);
        return true;
    });
    return first ? port : other;
}

std::shared_ptr<LocalPort> SocketMessagePorts::createLocal(std::string_view name, MessageCallback callback) {
    std::shared_ptr<SocketLocalPort> known, made; // given up after the turn
    std::lock_guard turn(creatingLocal_);
    known = locals_.with([&](auto& ports) { return find(ports, name); });
    if (known && known->isValid()) return known;
    made = SocketLocalPort::listen(context_, name, callback);
    if (made) locals_.with([&](auto& ports) { store(ports, name, made); });
    return made;
}

} // namespace brindlemar
