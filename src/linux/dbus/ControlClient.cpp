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

struct ControlClient::Question {
    const char* member;
    std::vector<const std::string*> texts{};
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
std::optional<std::string> ControlClient::ask(const Question& question) {
    const BusMessage message = peer_->makeCall({control::kPath, control::kInterface, question.member});
    int status = message ? 0 : -ENOMEM;
    for (const std::string* text : question.texts)
        if (status >= 0) status = sd_bus_message_append(message.get(), "s", text->c_str());
    if (status >= 0 && question.descriptor >= 0)
        status = sd_bus_message_append(message.get(), "h", question.descriptor);
    BusError error;
    sd_bus_message* raw = nullptr;
    if (status >= 0) status = sd_bus_call(peer_->get(), message.get(), kAnswerTime, error.get(), &raw);
    const BusMessage answer(raw);
    const char* text = "";
    if (status >= 0 && question.answersText) status = sd_bus_message_read(answer.get(), "s", &text);
    if (status >= 0) return text;
    error_ = error.text(status);
    return std::nullopt;
}

std::optional<std::string> ControlClient::status() { return ask({.member = "Status", .answersText = true}); }

std::optional<std::string> ControlClient::endpoint(const std::string& name) {
    return ask({.member = "Endpoint", .texts = {&name}, .answersText = true});
}

/// The last argument is the writing end of a new pipe, whose reading end is the result.
std::optional<FileDescriptor> ControlClient::call(const std::string& operation, const std::string& arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error_ = std::strerror(errno);
        return std::nullopt;
    }
    FileDescriptor reading(ends[0]);
    const FileDescriptor writing(ends[1]);
    const auto taken = ask({.member = "Call", .texts = {&operation, &arguments}, .descriptor = writing.get()});
    return taken ? std::optional(std::move(reading)) : std::nullopt;
}

} // namespace brindlemar
