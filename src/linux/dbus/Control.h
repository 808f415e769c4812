// The control socket: how the command line and host applications ask the running service, by D-Bus method calls on a
// private connection.
//
// Socket "control" in the run-time directory, object /io/brindlemar/Control, interface io.brindlemar.Control1:
//   Status() -> s                 JSON text
//   Endpoint(s name) -> s         where the named service listens; an error when there is none of that name
//   Call(s operation, s arguments, h output)
//                                 the arguments are a JSON object; answered as soon as the call is taken; the service
//                                 then writes lines to the descriptor, one JSON object each, and closes it
#pragma once

#include "linux/dbus/PeerThreads.h"
#include "linux/dbus/Sockets.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <variant>

namespace brindlemar {

class BusPeer;

/// Where the lines of a call go. The call counts as under way, for its client, as long as this or a copy of `place`
/// lives.
struct CallOutput : FileDescriptor {
    std::shared_ptr<void> place;
};

/// All are required. Called from one thread for each connection, several at a time; must not throw. The handlers of
/// calls should keep the descriptor and return: a reader may be slow, stop reading, or be gone (EPIPE; the process must
/// ignore SIGPIPE).
struct ControlHandlers {
    std::function<std::string()> status;
    std::function<std::optional<std::string>(std::string name)> endpoint;
    std::function<void(std::string operation, std::string arguments, CallOutput output)> call;
};

class ControlServer {
public:
    /// Why there is no server. `holder` is the process that already serves this user; 0 when that is not the cause or
    /// the process is not known. `reason` goes on from the program's name: "is already running (pid 42)".
    struct Refusal {
        pid_t holder = 0;
        std::string reason;
    };
    using Result = std::variant<std::unique_ptr<ControlServer>, Refusal>;

    /// What one client has under way at most, and what all have together; beyond that a call is answered with an error.
    /// Listings are heavy: each is read, written out page by page, and waits for its reader.
    static constexpr long kMostCallsOfOne = 1024, kMostCalls = 4096;

    /// One server per run-time directory: a socket that nobody answers on is replaced, a live one is left alone. The
    /// directory must outlive the server.
    static Result start(const RuntimeDirectory& directory, ControlHandlers handlers, Diagnostic diagnostic);
    /// Ends all connections and waits for handlers that run; never inside one.
    ~ControlServer();

private:
    ControlServer(ControlHandlers handlers, Diagnostic diagnostic);
    void serve(FileDescriptor socket, PeerThreads::Seat& seat);

    const ControlHandlers handlers_;
    const Diagnostic diagnostic_;
    const std::shared_ptr<void> calls_ = std::make_shared<char>(); // a reference for each call under way
    PeerThreads threads_;
    std::unique_ptr<ListeningSocket> socket_; // stops first
};

/// A blocking client, for one thread. Connections that stay idle for a quarter of an hour are ended by the service.
class ControlClient {
public:
    /// None when no service runs, or it does not answer within a few seconds.
    static std::optional<ControlClient> connect(const RuntimeDirectory& directory);
    ControlClient(ControlClient&&) noexcept;
    ControlClient& operator=(ControlClient&&) noexcept;
    ~ControlClient();

    /// Each gives none on failure; error() then says why.
    std::optional<std::string> status();
    std::optional<std::string> endpoint(const std::string& name);
    /// Where the service's lines are to be read from, to the end of file.
    std::optional<FileDescriptor> call(const std::string& operation, const std::string& arguments);
    const std::string& error() const { return error_; }

private:
    struct Question;
    explicit ControlClient(std::unique_ptr<BusPeer> peer);
    std::optional<std::string> ask(const Question& question);

    std::unique_ptr<BusPeer> peer_;
    std::string error_;
};

} // namespace brindlemar
