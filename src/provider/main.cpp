// brindlemard, the file-provider service of one user.
#include "provider/Service.h"

#include <CLI/CLI.hpp>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <future>
#include <iostream>

namespace {
using namespace brindlemar;

constexpr int kOK = 0, kFailure = 1, kUsage = 2;

int fail(const std::string& what) {
    std::cerr << "brindlemard: " << what << "\n";
    return kFailure;
}

/// As many descriptors as the system lets us have: each waiting call holds one.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// Where the process runs: what it writes by relative path lands there.
void enterStateDirectory(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!error) std::filesystem::current_path(path, error);
    if (error) throw std::runtime_error("The state directory " + path + " cannot be used: " + error.message() + ".");
}

/// The process ends within a second of being told to, even if a part of it hangs.
void limitTheEnd() {
    struct sigaction action {};
    action.sa_handler = [](int) { ::_exit(kOK); };
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval limit{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 900'000}};
    ::setitimer(ITIMER_REAL, &limit, nullptr);
}

int serve(const sigset_t& ends) {
    const RuntimeDirectory directory = RuntimeDirectory::open();
    const ServicePlaces places = ServicePlaces::ofUser();

    enterStateDirectory(places.state);

    // The place is taken before the service comes into being, for that empties the caches of whoever holds the place.
    // Calls that come early wait; they get nothing when the service cannot be made.
    std::promise<Service*> made;
    const std::shared_future<Service*> service = made.get_future().share();
    ControlHandlers handlers{
        .status = [service] { return service.get() ? service.get()->status() : "{}"; },
        .endpoint =
            [service](std::string name) { return service.get() ? service.get()->endpoint(name) : std::nullopt; },
        .callItem =
            [service](std::string identifier, FileDescriptor output) {
                if (service.get()) service.get()->callItem(std::move(identifier), std::move(output));
            },
        .callList =
            [service](std::string identifier, std::uint32_t pageSize, FileDescriptor output) {
                if (service.get()) service.get()->callList(std::move(identifier), pageSize, std::move(output));
            }};
    auto started = ControlServer::start(directory, std::move(handlers), [](std::string_view text) {
        std::cerr << "brindlemard: " + std::string(text) + "\n";
    });
    if (const auto* refusal = std::get_if<ControlServer::Refusal>(&started)) {
        std::cerr << "brindlemard " << refusal->reason << ".\n";
        return kFailure;
    }
    auto& control = std::get<std::unique_ptr<ControlServer>>(started);

    std::unique_ptr<Service> instance;
    try {
        instance = std::make_unique<Service>(directory, places);
    } catch (...) {
        made.set_value(nullptr);
        throw;
    }
    made.set_value(instance.get());

    int signal = 0;
    ::sigwait(&ends, &signal);
    limitTheEnd();
    control.reset(); // no handler runs from here on
    return kOK;
}
} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Shows the connections of host applications as files. Runs until SIGTERM or SIGINT; one a user."};
    app.set_version_flag("--version", BRINDLEMAR_VERSION);
    app.footer("State is kept below $XDG_STATE_HOME/brindlemar, with the log in Logs/Brindlemar/FileProvider.log.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kOK : kUsage;
    }
    // Before any thread is made, so that all inherit it: the signals that end the process are waited for.
    sigset_t ends;
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGTERM);
    ::sigaddset(&ends, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ::umask(0077);
    raiseDescriptorLimit();
    try {
        return serve(ends);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
