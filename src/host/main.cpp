// brindlemar-host: offers directories of this machine as connections.
#include "host/PortServer.h"
#include "host/ServiceLink.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"
#include "linux/queues/SystemClock.h"
#include "linux/queues/WorkerPool.h"

#include <CLI/CLI.hpp>

#include <signal.h>

#include <cstdlib>
#include <iostream>

namespace brindlemar::host {
namespace {

enum Exit { ok = 0, failure = 1, usage = 2, noDirectory = 3, interrupted = 130 };

constexpr unsigned kCopiers = 4; // threads

void say(const std::string& text) { std::cerr << "brindlemar-host: " + text + "\n"; }

constexpr unsigned kLongestDelay = 3'600'000; // milliseconds

struct Options {
    std::vector<std::string> connections;
    Misbehaviour::Options misbehaviour;
};

/// None after the user was told why; `code` is then the process's.
std::optional<Options> readCommandLine(int argc, char** argv, int& code) {
    Options options;
    CLI::App app("Offers directories of this machine as connections, until it is ended by SIGTERM or Control-C.\n"
                 "It may be started before the service or after it, and stays when the service is restarted.\n",
                 "brindlemar-host");
    app.add_option("CONNECTION", options.connections,
                   "NAME=DIRECTORY, or NAME:DOMAIN=DIRECTORY to choose the connection's domain identifier")
        ->required();
    app.add_option("--hold", options.misbehaviour.held, "Never answer requests with this command; for tests")
        ->type_name("COMMAND")
        ->allow_extra_args(false);
    app.add_option("--fail", options.misbehaviour.failing, "Let the first N requests with this command fail; for tests")
        ->type_name("COMMAND=N")
        ->allow_extra_args(false);
    app.add_option_function<unsigned>(
           "--delay", [&](unsigned ms) { options.misbehaviour.delay = std::chrono::milliseconds(ms); },
           "Let each request wait before it is answered; for tests")
        ->type_name("MS")
        ->check(CLI::Range(0U, kLongestDelay))
        ->take_last();
    app.set_version_flag("--version", std::string("brindlemar-host ") + BRINDLEMAR_VERSION);
    app.footer("Exit status: 0 ended, 1 another host already serves a domain, 2 wrong usage, 3 no such directory,\n"
               "130 interrupted.\nExample: brindlemar-host Work=/home/me/work Photos:photos=/srv/photos");
    try {
        app.parse(argc, argv);
        return options;
    } catch (const CLI::ParseError& error) {
        code = Exit::usage;
        if (error.get_exit_code() == 0)
            code = app.exit(error);
        else
            say(std::string(error.what()) + ". Try brindlemar-host --help.");
        return std::nullopt;
    }
}

/// None after the user was told what is wrong with the directory.
std::optional<Tree> openDirectory(const Connection& connection) {
    try {
        return Tree(TopDirectory::open(connection.directory));
    } catch (const std::system_error& error) {
        say("The directory of \"" + connection.name + "\", " + connection.directory +
            ", cannot be served: " + error.code().message() + ". Make it, or name another one.");
        return std::nullopt;
    }
}

/// Blocks the signals that end the program, for every thread started from here on.
sigset_t blockEndingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN); // a file that grows too long is a failed copy
    return signals;
}

int serve(const std::vector<Connection>& connections, std::vector<Tree> trees, Misbehaviour& misbehaviour) {
    const sigset_t signals = blockEndingSignals();
    const RuntimeDirectory directory = RuntimeDirectory::open();
    QueueTimers timers;
    SerialQueue dispatch(timers, "requests");
    WorkerPool workers(timers), copiers(timers, {.usualThreads = kCopiers, .mostThreads = kCopiers});
    SystemClock clock;
    const auto complain = [](std::string_view text) { say(std::string(text)); };
    SocketMessagePorts ports(RuntimeDirectory::open(), dispatch, limited(complain, timers));
    std::vector<std::unique_ptr<PortServer>> servers;
    std::vector<std::string> records;
    for (std::size_t i = 0; i < connections.size(); ++i) {
        const Connection& connection = connections[i];
        std::unique_ptr<Served> served(new Served{connection, std::move(trees[i]), say, clock, workers,
                                                  ItemAttributes(ItemAttributes::usualFile(connection.domain))});
        servers.push_back(PortServer::open({ports, dispatch, {workers, copiers}, misbehaviour}, std::move(served)));
        if (!servers.back()) {
            say("Another host already serves the domain \"" + connection.domain + "\". End it, or write " +
                connection.name + ":DOMAIN=" + connection.directory + " with another domain.");
            return Exit::failure;
        }
        records.push_back(connection.record());
        say("Serving \"" + connection.name + "\" (domain " + connection.domain + ") from " + connection.directory +
            ".");
    }
    const ServiceLink link(directory, std::move(records), say);
    int signal = 0;
    while (::sigwait(&signals, &signal) != 0) {
    }
    servers.clear(); // the ports are gone from here on
    // Without waiting for a listing or for a service that does not answer.
    std::_Exit(signal == SIGINT ? Exit::interrupted : Exit::ok);
}

int run(int argc, char** argv) {
    int code = Exit::ok;
    const std::optional<Options> options = readCommandLine(argc, argv, code);
    if (!options) return code;
    try {
        const std::vector<Connection> connections = parseConnections(options->connections);
        Misbehaviour misbehaviour(options->misbehaviour);
        std::vector<Tree> trees;
        for (const Connection& connection : connections) {
            std::optional<Tree> tree = openDirectory(connection);
            if (!tree) return Exit::noDirectory;
            trees.push_back(std::move(*tree));
        }
        return serve(connections, std::move(trees), misbehaviour);
    } catch (const ArgumentError& error) {
        say(std::string(error.what()) + " Try brindlemar-host --help.");
        return Exit::usage;
    } catch (const std::exception& error) {
        say(error.what());
        return Exit::failure;
    }
}

} // namespace
} // namespace brindlemar::host

int main(int argc, char** argv) { return brindlemar::host::run(argc, argv); }
