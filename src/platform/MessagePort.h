// Named local message ports: one-way messages with a 32-bit id between processes of one user.
#pragma once

#include "platform/Queue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

/// Bytes of a message, shared and never changed, however they are held (a string, a mapping).
class Payload {
public:
    Payload() = default;
    Payload(std::shared_ptr<const void> owner, std::string_view bytes) : owner_(std::move(owner)), bytes_(bytes) {}
    static Payload copy(std::string_view bytes) { return of(std::string(bytes)); }
    static Payload of(std::string bytes) {
        auto owner = std::make_shared<const std::string>(std::move(bytes));
        const std::string_view view = *owner;
        return {std::move(owner), view};
    }
    std::string_view bytes() const { return bytes_; }

private:
    std::shared_ptr<const void> owner_;
    std::string_view bytes_;
};

/// Results of RemotePort::sendRequest.
namespace SendStatus {
inline constexpr std::int32_t success = 0;
inline constexpr std::int32_t sendTimeout = -1;    // the peer's queue stayed full
inline constexpr std::int32_t receiveTimeout = -2; // no answer in time
inline constexpr std::int32_t invalid = -3;        // the port was already invalid
inline constexpr std::int32_t transportError = -4; // the peer is gone but that was not noticed yet, no memory
inline constexpr std::int32_t becameInvalid = -5;  // while waiting for the answer
} // namespace SendStatus

/// Thread-safe. Valid until the peer's end goes away or invalidate() is called.
class MessagePort {
public:
    virtual ~MessagePort() = default;
    virtual bool isValid() const = 0;
    /// Called exactly once when the port turns invalid, on the main queue and after every message that had already
    /// arrived was handed over; never inside a call of this interface. Set on an invalid port it is posted at once.
    virtual void setInvalidationCallback(std::function<void(MessagePort&)> callback) = 0;
    virtual void invalidate() = 0;
};

/// The sending end.
class RemotePort : public MessagePort {
public:
    struct Request {
        std::int32_t msgid = 0;
        std::string_view data;
        std::chrono::nanoseconds sendTimeout{};
        /// With a value the call waits this long for the callback's answer; without one no answer is asked for.
        std::optional<std::chrono::nanoseconds> receiveTimeout{};
    };
    struct Result {
        std::int32_t status = SendStatus::success;
        Payload answer{}; // empty when the callback had none
    };
    /// Queues the whole message or nothing, in order with the caller's earlier ones.
    virtual Result sendRequest(const Request& request) = 0;
};

/// The receiving end.
class LocalPort : public MessagePort {
public:
    /// Messages are handed over one at a time, in order per sender. Nothing is handed over before this is called.
    virtual void setDispatchQueue(Queue& queue) = 0;
};

/// Gets one message; the text returned, if any, is the answer for a sender that asked for one.
using MessageCallback =
    std::function<std::optional<std::string>(LocalPort& local, std::int32_t msgid, const Payload& data)>;

/// Ports by name. A name may hold any bytes and be of any length.
class MessagePorts {
public:
    virtual ~MessagePorts() = default;
    /// None when nobody listens under the name. Asking again for a live name gives the same object.
    virtual std::shared_ptr<RemotePort> createRemote(std::string_view name) = 0;
    /// None when another process listens under the name. While a port of this process under the name is valid, that
    /// port is given, with its old callback.
    virtual std::shared_ptr<LocalPort> createLocal(std::string_view name, MessageCallback callback) = 0;
};

} // namespace brindlemar
