#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Control.h"
#include "linux/dbus/ControlNames.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {
constexpr std::uint64_t kAnswerTime = 10'000'000; // microseconds

class BusError {
public:
    ~BusError() { sd_bus_error_free(&error_); }
    sd_bus_error* get() { return &error_; }
    std::string text(int status) const {
        return error_.message ? error_.message : std::string("the service did not answer: ") + std::strerror(-status);
    }

private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};
} // namespace

struct ControlClient::Call {
    const char* member;
    const std::string* text = nullptr;
    std::optional<std::uint32_t> number{};
    int descriptor = -1;
    bool answersText = false;
};

std::optional<ControlClient> ControlClient::connect(const RuntimeDirectory& directory) {
    FileDescriptor socket = connectSocket(directory.path() + "/" + control::kSocket);
    if (!socket) return std::nullopt;
    std::unique_ptr<BusPeer> peer = BusPeer::open(std::move(socket), BusPeer::Role::client);
    Wake never;
    if (!peer || !peer->authenticate(never)) return std::nullopt;
    return ControlClient(std::move(peer));
}

ControlClient::ControlClient(std::unique_ptr<BusPeer> peer) : peer_(std::move(peer)) {}
ControlClient::ControlClient(ControlClient&&) noexcept = default;
ControlClient& ControlClient::operator=(ControlClient&&) noexcept = default;
ControlClient::~ControlClient() = default;

/// The answer's text, empty for calls without one; none on failure.
std::optional<std::string> ControlClient::ask(const Call& call) {
    const BusMessage message = peer_->makeCall({control::kPath, control::kInterface, call.member});
    int status = message ? 0 : -ENOMEM;
    if (status >= 0 && call.text) status = sd_bus_message_append(message.get(), "s", call.text->c_str());
    if (status >= 0 && call.number) status = sd_bus_message_append(message.get(), "u", *call.number);
    if (status >= 0 && call.descriptor >= 0) status = sd_bus_message_append(message.get(), "h", call.descriptor);
    BusError error;
    sd_bus_message* raw = nullptr;
    if (status >= 0) status = sd_bus_call(peer_->get(), message.get(), kAnswerTime, error.get(), &raw);
    const BusMessage answer(raw);
    const char* text = "";
    if (status >= 0 && call.answersText) status = sd_bus_message_read(answer.get(), "s", &text);
    if (status >= 0) return text;
    error_ = error.text(status);
    return std::nullopt;
}

std::optional<std::string> ControlClient::status() { return ask({.member = "Status", .answersText = true}); }

std::optional<std::string> ControlClient::endpoint(const std::string& name) {
    return ask({.member = "Endpoint", .text = &name, .answersText = true});
}

std::optional<FileDescriptor> ControlClient::callItem(const std::string& identifier) {
    return open({.member = "CallItem", .text = &identifier});
}

std::optional<FileDescriptor> ControlClient::callList(const std::string& identifier, std::uint32_t pageSize) {
    return open({.member = "CallList", .text = &identifier, .number = pageSize});
}

/// As ask(), with the writing end of a new pipe as last argument; the reading end is the result.
std::optional<FileDescriptor> ControlClient::open(Call call) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error_ = std::strerror(errno);
        return std::nullopt;
    }
    FileDescriptor reading(ends[0]);
    const FileDescriptor writing(ends[1]);
    call.descriptor = writing.get();
    return ask(call) ? std::optional(std::move(reading)) : std::nullopt;
}

} // namespace brindlemar
