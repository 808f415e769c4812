#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Control.h"
#include "linux/dbus/ControlNames.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace brindlemar {

namespace {
constexpr std::size_t kMostConnections = 128;
constexpr std::chrono::minutes kIdleTime{15};
constexpr std::chrono::seconds kLockTime{5};
constexpr std::chrono::milliseconds kLockPause{20};

// Each handler reads its arguments, whose types were checked, and answers.

int answerText(sd_bus_message* call, const std::string& text) {
    return sd_bus_reply_method_return(call, "s", text.c_str());
}

int status(const ControlHandlers& handlers, sd_bus_message* call) { return answerText(call, handlers.status()); }

int endpoint(const ControlHandlers& handlers, sd_bus_message* call) {
    const char* name = nullptr;
    if (const int failed = sd_bus_message_read(call, "s", &name); failed < 0) return failed;
    const std::optional<std::string> address = handlers.endpoint(name);
    if (address) return answerText(call, *address);
    return sd_bus_reply_method_errorf(call, SD_BUS_ERROR_NAME_HAS_NO_OWNER, "there is no service named %s", name);
}

/// Answers before the handler runs: the caller then waits for lines, not for an answer.
FileDescriptor takeOutput(sd_bus_message* call, int borrowed) {
    struct stat info {};
    if (::fstat(borrowed, &info) != 0 || !(S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode))) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_INVALID_ARGS, "the output must be a pipe or a socket");
        return {}; // writing elsewhere could block without end
    }
    FileDescriptor output(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3));
    if (output)
        sd_bus_reply_method_return(call, nullptr);
    else
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_LIMITS_EXCEEDED, "the service has no descriptor left");
    return output;
}

int callItem(const ControlHandlers& handlers, sd_bus_message* call) {
    const char* identifier = nullptr;
    int borrowed = -1;
    if (const int failed = sd_bus_message_read(call, "sh", &identifier, &borrowed); failed < 0) return failed;
    if (FileDescriptor output = takeOutput(call, borrowed)) handlers.callItem(identifier, std::move(output));
    return 0;
}

int callList(const ControlHandlers& handlers, sd_bus_message* call) {
    const char* identifier = nullptr;
    std::uint32_t pageSize = 0;
    int borrowed = -1;
    if (const int failed = sd_bus_message_read(call, "suh", &identifier, &pageSize, &borrowed); failed < 0)
        return failed;
    if (FileDescriptor output = takeOutput(call, borrowed)) handlers.callList(identifier, pageSize, std::move(output));
    return 0;
}

struct Method {
    std::string_view member;
    const char* signature;
    int (*handler)(const ControlHandlers& handlers, sd_bus_message* call);
};
constexpr Method kMethods[] = {
    {"Status", "", status},
    {"Endpoint", "s", endpoint},
    {"CallItem", "sh", callItem},
    {"CallList", "suh", callList},
};

void dispatch(const ControlHandlers& handlers, sd_bus_message* call, const Diagnostic& diagnostic) {
    int result = -EBADRQC;
    if (isCallTo(call, control::kPath, control::kInterface)) {
        const std::string_view member = sd_bus_message_get_member(call);
        for (const Method& method : kMethods)
            if (method.member == member && sd_bus_message_has_signature(call, method.signature))
                result = method.handler(handlers, call);
    }
    if (result >= 0) return;
    diagnostic("A control message was dropped: " + describe(call) + ".");
    if (sd_bus_message_get_expect_reply(call) > 0)
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "the service does not take %s",
                                   describe(call).c_str());
}

/// Held while a server looks whether there is another. None, with errno set, when that fails or takes too long.
FileDescriptor lock(const RuntimeDirectory& directory) {
    FileDescriptor file(::openat(directory.descriptor(), control::kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    const auto deadline = std::chrono::steady_clock::now() + kLockTime;
    while (file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= deadline) return {};
        std::this_thread::sleep_for(kLockPause);
    }
    return file;
}

ControlServer::Refusal failed(const std::string& what) {
    return {.reason = "cannot open its control socket: " + what + ": " + std::strerror(errno)};
}
} // namespace

ControlServer::Result ControlServer::start(const RuntimeDirectory& directory, ControlHandlers handlers,
                                           Diagnostic diagnostic) {
    const FileDescriptor locked = lock(directory);
    if (!locked) return failed("control.lock");
    const std::string path = directory.path() + "/" + control::kSocket;
    if (const FileDescriptor other = connectSocket(path)) {
        const pid_t holder = peerProcess(other.get());
        return Refusal{holder, "is already running (pid " + std::to_string(holder) + ")"};
    }
    if (errno == EAGAIN) return Refusal{0, "is already running, but does not answer"};
    if (errno != ECONNREFUSED && errno != ENOENT) return failed(path);
    if (errno == ECONNREFUSED) ::unlinkat(directory.descriptor(), control::kSocket, 0);
    try {
        std::unique_ptr<ControlServer> server(new ControlServer(std::move(handlers), std::move(diagnostic)));
        server->socket_ = ListeningSocket::open(directory, control::kSocket);
        if (!server->socket_) return failed(path);
        server->socket_->start(
            [self = server.get()](FileDescriptor connection) {
                auto socket = std::make_shared<FileDescriptor>(std::move(connection));
                const bool started = self->threads_.start(
                    [self, socket](PeerThreads::Seat& seat) { self->serve(std::move(*socket), seat); });
                if (!started) self->diagnostic_("A control connection was refused: there are too many.");
            },
            server->diagnostic_);
        return server;
    } catch (const std::system_error& error) {
        errno = error.code().value();
        return failed(path);
    }
}

ControlServer::ControlServer(ControlHandlers handlers, Diagnostic diagnostic)
    : handlers_(std::move(handlers)), diagnostic_(std::move(diagnostic)), threads_(kMostConnections) {}

ControlServer::~ControlServer() = default;

void ControlServer::serve(FileDescriptor socket, PeerThreads::Seat& seat) {
    Wake& wake = *seat.wake();
    const std::unique_ptr<BusPeer> peer = BusPeer::open(std::move(socket), BusPeer::Role::server);
    if (!peer || !peer->authenticate(wake)) return;
    seat.admit();
    auto deadline = std::chrono::steady_clock::now() + kIdleTime;
    while (!wake.stopped() && !peer->isClogged()) {
        BusMessage message;
        const BusPeer::Next next = peer->next(message);
        if (next == BusPeer::Next::ended) return;
        if (next == BusPeer::Next::message) {
            dispatch(handlers_, message.get(), diagnostic_);
            deadline = std::chrono::steady_clock::now() + kIdleTime;
        } else if (std::chrono::steady_clock::now() >= deadline) {
            return;
        } else {
            peer->wait(wake, deadline);
        }
    }
}

} // namespace brindlemar
