// brindlemard, the file-provider service of one user.
#include "linux/queues/QueueTimers.h"
#include "provider/Service.h"
#include "support/Utf8.h"

#include <CLI/CLI.hpp>
#include <systemd/sd-daemon.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <shared_mutex>

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

/// Held as long as the service is: two of them would take each other's files for left over.
FileDescriptor holdStateDirectory(const std::string& path) {
    FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(
            errno == EWOULDBLOCK
                ? "Another service keeps its state in " + path + ". End it, or set XDG_STATE_HOME to another directory."
                : "The state directory " + path + " cannot be locked: " + std::generic_category().message(errno) + ".");
    return directory;
}

/// The process ends within a second of being told to, even if a part of it hangs. What programs were told is safe is
/// so.
void limitTheEnd() {
    struct sigaction action {};
    action.sa_handler = [](int) { ::_exit(kFailure); };
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval limit{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 900'000}};
    ::setitimer(ITIMER_REAL, &limit, nullptr);
}

/// The control handlers' way to the service: they wait until there is one, and find none once it is shut.
class Gate {
public:
    template <class Use>
    std::invoke_result_t<Use, Service&> use(Use&& use) {
        std::shared_lock lock(mutex_);
        changed_.wait(lock, [this] { return service_ || closed_; });
        if (!closed_) return use(*service_);
        return std::invoke_result_t<Use, Service&>();
    }
    void open(Service& service) {
        std::lock_guard lock(mutex_);
        service_ = &service;
        changed_.notify_all();
    }
    /// Waits for the handlers that are inside.
    void close() {
        std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

private:
    std::shared_mutex mutex_;
    std::condition_variable_any changed_;
    Service* service_ = nullptr;
    bool closed_ = false;
};

int serve(const sigset_t& ends, const ServicePlaces& places) {
    const RuntimeDirectory directory = RuntimeDirectory::open();

    enterStateDirectory(places.state);

    // The place is taken before the service comes into being, for that empties the caches of whoever holds the place,
    // and given up after it has gone.
    Gate gate;
    ControlHandlers handlers{
        .status = [&gate] { return gate.use([](Service& service) { return service.status(); }); },
        .endpoint =
            [&gate](std::string name) { return gate.use([&](Service& service) { return service.endpoint(name); }); },
        .call =
            [&gate](std::string operation, std::string arguments, CallOutput output) {
                gate.use([&](Service& service) {
                    service.call(std::move(operation), std::move(arguments), std::move(output));
                });
            }};
    QueueTimers timers;
    const auto complain = [](std::string_view text) { std::cerr << "brindlemard: " + std::string(text) + "\n"; };
    auto started = ControlServer::start(directory, std::move(handlers), limited(complain, timers));
    if (const auto* refusal = std::get_if<ControlServer::Refusal>(&started)) {
        std::cerr << "brindlemard " << refusal->reason << ".\n";
        return kFailure;
    }
    struct Closing { // also when the service cannot be made: handlers may be waiting for it
        Gate& gate;
        ~Closing() { gate.close(); }
    } closing{gate};
    const FileDescriptor state = holdStateDirectory(places.state);
    Service service(directory, places);
    gate.open(service);
    service.show();
    ::sd_notify(0, "READY=1");

    int signal = 0;
    ::sigwait(&ends, &signal);
    limitTheEnd();
    service.stop();
    gate.close();
    return kOK;
}
} // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Shows the connections of host applications as files. Runs until SIGTERM, SIGINT or SIGHUP; one a user."};
    app.set_version_flag("--version", std::string("brindlemard ") + BRINDLEMAR_VERSION);
    std::string mountPath;
    bool unmounted = false;
    const auto isPath = [](const std::string& path) {
        return path.empty() ? "it is empty" : isValidUtf8(path) ? "" : "it is not valid UTF-8";
    };
    CLI::Option* const mount = app.add_option("--mount", mountPath,
                                              "Show the connections in this directory, which is made unless it is "
                                              "there; ~/Brindlemar unless given")
                                   ->type_name("DIR")
                                   ->check(isPath);
    app.add_flag("--no-mount", unmounted, "Show no directory; the command line works without")->excludes(mount);
    app.footer("State is kept below $XDG_STATE_HOME/brindlemar, with the log in Logs/Brindlemar/FileProvider.log.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        std::cerr << "brindlemard: " << error.what() << ". Try brindlemard --help.\n";
        return kUsage;
    }
    // Before any thread is made, so that all inherit it: the signals that end the process are waited for.
    sigset_t ends;
    ::sigemptyset(&ends);
    ::sigaddset(&ends, SIGTERM);
    ::sigaddset(&ends, SIGINT);
    ::sigaddset(&ends, SIGHUP); // of a terminal that closes
    ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN); // a write over the limit fails with EFBIG
    ::umask(0077);
    raiseDescriptorLimit();
    try {
        ServicePlaces places = ServicePlaces::ofUser();
        if (!mountPath.empty()) places.userVisibleRoot = std::filesystem::absolute(mountPath).lexically_normal();
        while (places.userVisibleRoot.size() > 1 && places.userVisibleRoot.back() == '/')
            places.userVisibleRoot.pop_back();
        places.isMounted = !unmounted;
        return serve(ends, places);
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
