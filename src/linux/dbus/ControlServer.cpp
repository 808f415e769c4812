#include "linux/LockFile.h"
#include "linux/dbus/BusPeer.h"
#include "linux/dbus/Control.h"
#include "linux/dbus/ControlNames.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace brindlemar {

namespace {
constexpr std::size_t kMostConnections = 512;
constexpr std::chrono::minutes kIdleTime{15};
constexpr std::chrono::seconds kLockTime{5};

/// Its references tell how many calls are under way: each holds one, beside the owner's.
using Count = std::shared_ptr<void>;

struct Client {
    Count calls = std::make_shared<char>();
};

/// One message of a client, and what it is served with.
struct Call {
    const ControlHandlers& handlers;
    const Client& client;
    const Count& all;
    sd_bus_message* message;

    int refuse(const char* error, const std::string& text) const {
        return sd_bus_reply_method_errorf(message, error, "%s", text.c_str());
    }
};

// Each handler reads its arguments, whose types were checked, and answers.

int answerText(const Call& call, const std::string& text) {
    return sd_bus_reply_method_return(call.message, "s", text.c_str());
}

int status(const Call& call) { return answerText(call, call.handlers.status()); }

int endpoint(const Call& call) {
    const char* name = nullptr;
    if (const int failed = sd_bus_message_read(call.message, "s", &name); failed < 0) return failed;
    const std::optional<std::string> address = call.handlers.endpoint(name);
    if (address) return answerText(call, *address);
    return call.refuse(SD_BUS_ERROR_NAME_HAS_NO_OWNER, std::string("there is no service named ") + name);
}

/// Answers before the handler runs: the caller then waits for lines, not for an answer.
CallOutput takeOutput(const Call& call, int borrowed, const Count& count) {
    struct stat info {};
    CallOutput output;
    if (::fstat(borrowed, &info) != 0 || !(S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode))) {
        call.refuse(SD_BUS_ERROR_INVALID_ARGS, "the output must be a pipe or a socket");
        return output; // writing elsewhere could block without end
    }
    if (count.use_count() > ControlServer::kMostCallsOfOne || call.all.use_count() > ControlServer::kMostCalls) {
        call.refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "too many calls are under way");
        return output;
    }
    FileDescriptor own(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3));
    if (!own) {
        call.refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "the service has no descriptor left");
        return output;
    }
    output = {std::move(own), std::make_shared<std::pair<Count, Count>>(count, call.all)};
    sd_bus_reply_method_return(call.message, nullptr);
    return output;
}

int takeCall(const Call& call) {
    const char *operation = nullptr, *arguments = nullptr;
    int borrowed = -1;
    if (const int failed = sd_bus_message_read(call.message, "ssh", &operation, &arguments, &borrowed); failed < 0)
        return failed;
    CallOutput output = takeOutput(call, borrowed, call.client.calls);
    if (output) call.handlers.call(operation, arguments, std::move(output));
    return 0;
}

struct Method {
    std::string_view member;
    const char* signature;
    int (*handler)(const Call& call);
};
constexpr Method kMethods[] = {
    {"Status", "", status},
    {"Endpoint", "s", endpoint},
    {"Call", "ssh", takeCall},
};

void dispatch(const Call& call, const Diagnostic& diagnostic) {
    int result = -EBADRQC;
    if (isCallTo(call.message, control::kPath, control::kInterface)) {
        const std::string_view member = sd_bus_message_get_member(call.message);
        for (const Method& method : kMethods)
            if (method.member == member && sd_bus_message_has_signature(call.message, method.signature))
                result = method.handler(call);
    }
    if (result >= 0) return;
    diagnostic("A control message was dropped: " + describe(call.message) + ".");
    if (sd_bus_message_get_expect_reply(call.message) > 0)
        call.refuse(SD_BUS_ERROR_UNKNOWN_METHOD, "the service does not take " + describe(call.message));
}

ControlServer::Refusal failed(const std::string& what) {
    return {.reason = "cannot open its control socket: " + what + ": " + std::strerror(errno)};
}
} // namespace

ControlServer::Result ControlServer::start(const RuntimeDirectory& directory, ControlHandlers handlers,
                                           Diagnostic diagnostic) {
    const FileDescriptor locked = lockFile(directory, control::kLock, kLockTime);
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
                const bool started =
                    self->threads_.start(peerProcess(socket->get()), [self, socket](PeerThreads::Seat& seat) {
                        self->serve(std::move(*socket), seat);
                    });
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
    : handlers_(std::move(handlers)), diagnostic_(std::move(diagnostic)), threads_(kMostConnections, diagnostic_) {}

ControlServer::~ControlServer() = default;

void ControlServer::serve(FileDescriptor socket, PeerThreads::Seat& seat) {
    Wake& wake = *seat.wake();
    const std::unique_ptr<BusPeer> peer = BusPeer::open(std::move(socket), BusPeer::Role::server);
    if (!peer || !peer->authenticate(wake)) return;
    seat.admit();
    const Client client;
    auto deadline = std::chrono::steady_clock::now() + kIdleTime;
    while (!wake.stopped() && !peer->isClogged()) {
        BusMessage message;
        const BusPeer::Next next = peer->next(message);
        if (next == BusPeer::Next::ended) return;
        if (next == BusPeer::Next::message) {
            seat.heard();
            dispatch({handlers_, client, calls_, message.get()}, diagnostic_);
            deadline = std::chrono::steady_clock::now() + kIdleTime;
        } else if (std::chrono::steady_clock::now() >= deadline) {
            return;
        } else {
            peer->wait(wake, deadline);
        }
    }
}

} // namespace brindlemar
