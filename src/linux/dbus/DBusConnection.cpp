#include "linux/dbus/DBusConnection.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace brindlemar {

namespace {
constexpr const char* kPath = "/io/brindlemar/FileProvider";
constexpr std::string_view kInterfacePrefix = "io.brindlemar.";
/// A peer that takes nothing off is given up beyond these.
constexpr std::size_t kMostOutgoing = 1024;
constexpr std::size_t kMostOutgoingBytes = 64 << 20;
/// Messages handed to sd-bus ahead of the peer; the rest waits in our own queue.
constexpr std::size_t kMostUnsent = 16;

std::string interfaceName(const XPCInterface& interface) {
    return std::string(kInterfacePrefix).append(interface.protocolName);
}

std::string memberName(std::string_view selector) {
    if (selector.ends_with(':')) selector.remove_suffix(1);
    return std::string(selector);
}

std::optional<std::vector<std::string>> readStrings(sd_bus_message* message) {
    std::vector<std::string> strings;
    if (sd_bus_message_enter_container(message, 'a', "s") < 0) return std::nullopt;
    const char* text = nullptr;
    int step;
    while ((step = sd_bus_message_read_basic(message, 's', &text)) > 0) strings.emplace_back(text);
    if (step < 0) return std::nullopt;
    return strings;
}

bool appendStrings(sd_bus_message* message, const std::vector<std::string>& strings) {
    if (sd_bus_message_open_container(message, 'a', "s") < 0) return false;
    for (const std::string& text : strings)
        if (sd_bus_message_append_basic(message, 's', text.c_str()) < 0) return false;
    return sd_bus_message_close_container(message) >= 0;
}
} // namespace

void DBusConnection::setExportedInterface(const XPCInterface& interface) {
    state_.with([&](State& state) { state.exported = interface; });
}

void DBusConnection::setExportedObject(std::shared_ptr<XPCExportedObject> object) {
    state_.with([&](State& state) {
        if (!state.ended) state.object.swap(object);
    });
}

void DBusConnection::setRemoteObjectInterface(const XPCInterface& interface) {
    state_.with([&](State& state) { state.remote = interface; });
}

void DBusConnection::setInvalidationHandler(std::function<void()> handler) {
    const bool runNow = state_.with([&](State& state) {
        if (!state.ended) state.onInvalidation.swap(handler);
        return state.ended && handler && !std::exchange(state.handlerRan, true);
    });
    if (runNow) handler();
}

void DBusConnection::resume() {
    state_.with([](State& state) { state.resumed = true; });
    wake_->signal();
}

bool DBusConnection::isResumed() const {
    return state_.with([](const State& state) { return state.resumed; });
}

bool DBusConnection::send(std::string_view selector, std::vector<std::string> strings) {
    std::size_t bytes = 0;
    for (const std::string& text : strings) {
        bytes += text.size() + 1;
        if (text.find('\0') == std::string::npos) continue;
        diagnostic_("A message with a text that holds a zero byte was not sent.");
        return false;
    }
    enum class Result { refused, queued, overflow };
    const Result result = state_.with([&](State& state) {
        const auto& methods = state.remote.methods;
        const auto method = std::find_if(methods.begin(), methods.end(),
                                         [&](const XPCMethod& each) { return each.selector == selector; });
        if (state.ended || wake_->stopped() || method == methods.end()) return Result::refused;
        if (state.outgoing.size() >= kMostOutgoing || state.outgoingBytes + bytes > kMostOutgoingBytes)
            return Result::overflow;
        state.outgoingBytes += bytes;
        state.outgoing.push_back(
            {interfaceName(state.remote), memberName(selector), method->takesStrings, std::move(strings)});
        return Result::queued;
    });
    if (result == Result::overflow) {
        diagnostic_("A service connection whose peer takes no messages is ended.");
        invalidate();
    }
    if (result != Result::queued) return false;
    wake_->signal();
    return true;
}

void DBusConnection::run(const std::function<std::unique_ptr<BusPeer>()>& open, const std::function<void()>& heard) {
    try {
        if (const std::unique_ptr<BusPeer> peer = open()) serve(*peer, heard);
    } catch (const std::exception& error) { // out of memory
        diagnostic_(std::string("A service connection was given up: ") + error.what());
    }
    end();
}

void DBusConnection::serve(BusPeer& peer, const std::function<void()>& heard) {
    while (!wake_->stopped()) {
        if (!isResumed()) {
            peer.waitForSignal(*wake_);
            continue;
        }
        if (peer.isClogged() || !sendWaiting(peer)) break;
        BusMessage message;
        const BusPeer::Next next = peer.next(message);
        if (next == BusPeer::Next::ended) break;
        if (next == BusPeer::Next::idle) {
            peer.wait(*wake_, std::nullopt);
        } else {
            heard();
            receive(message.get());
        }
    }
    if (isResumed()) sendWaiting(peer);
}

void DBusConnection::end() {
    wake_->stop();
    std::shared_ptr<XPCExportedObject> object;
    std::function<void()> handler;
    std::deque<Outgoing> unsent;
    state_.with([&](State& state) {
        state.ended = true;
        state.object.swap(object);
        state.onInvalidation.swap(handler);
        state.outgoing.swap(unsent);
        if (handler) state.handlerRan = true;
    });
    if (handler) handler();
}

bool DBusConnection::sendWaiting(BusPeer& peer) {
    while (peer.unsent() < kMostUnsent) {
        std::optional<Outgoing> next = state_.with([](State& state) -> std::optional<Outgoing> {
            if (state.outgoing.empty()) return std::nullopt;
            Outgoing first = std::move(state.outgoing.front());
            state.outgoing.pop_front();
            for (const std::string& text : first.strings) state.outgoingBytes -= text.size() + 1;
            return first;
        });
        if (!next) return true;
        const BusMessage message = peer.makeCall({kPath, std::move(next->interface), std::move(next->member)});
        if (!message || sd_bus_message_set_expect_reply(message.get(), 0) < 0 ||
            (next->takesStrings && !appendStrings(message.get(), next->strings)) ||
            sd_bus_send(peer.get(), message.get(), nullptr) < 0)
            return false;
    }
    return true;
}

void DBusConnection::receive(sd_bus_message* message) {
    const bool answer = sd_bus_message_get_expect_reply(message) > 0;
    const std::optional<std::string> problem = deliver(message);
    if (problem) diagnostic_("A message was dropped: " + *problem + ".");
    if (!answer) return;
    if (problem)
        sd_bus_reply_method_errorf(message, SD_BUS_ERROR_INVALID_ARGS, "%s", problem->c_str());
    else
        sd_bus_reply_method_return(message, nullptr);
}

/// What is wrong with the message, if anything.
std::optional<std::string> DBusConnection::deliver(sd_bus_message* message) {
    const auto [interface, object] =
        state_.with([](const State& state) { return std::pair(state.exported, state.object); });
    const char* member = sd_bus_message_get_member(message);
    if (!object || !member || !isCallTo(message, kPath, interfaceName(interface)))
        return "nobody here takes " + describe(message);
    const auto method = std::find_if(interface.methods.begin(), interface.methods.end(),
                                     [&](const XPCMethod& each) { return memberName(each.selector) == member; });
    if (method == interface.methods.end()) return "there is no method for " + describe(message);
    if (!sd_bus_message_has_signature(message, method->takesStrings ? "as" : ""))
        return "the arguments are wrong in " + describe(message);
    std::vector<std::string> strings;
    if (method->takesStrings) {
        std::optional<std::vector<std::string>> read = readStrings(message);
        if (!read) return "a text is not UTF-8 in " + describe(message);
        strings = std::move(*read);
    }
    object->receive(method->selector, std::move(strings));
    return std::nullopt;
}

} // namespace brindlemar
