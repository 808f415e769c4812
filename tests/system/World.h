// The real programs in a place of their own.
#pragma once

#include "fakes/TemporaryDirectory.h"
#include "linux/dbus/Control.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <vector>

namespace brindlemar::system_tests {

using Arguments = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}
inline std::size_t count(std::string_view text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++found;
    return found;
}
/// False when it is not so within half a minute.
template <class Condition>
bool eventually(Condition&& condition) {
    for (const auto start = Clock::now(); secondsSince(start) < 30; ::poll(nullptr, 0, 10))
        if (condition()) return true;
    return false;
}
/// Everything that comes from the descriptor, to its end.
inline std::string readAll(const FileDescriptor& descriptor) {
    std::string text;
    char buffer[65536];
    for (ssize_t size; (size = ::read(descriptor.get(), buffer, sizeof buffer)) > 0;) text.append(buffer, size);
    return text;
}

/// A running program, with its output in PLACE.out and PLACE.err; killed with this object.
class Process {
public:
    Process() = default;
    Process(const std::string& program, const Arguments& arguments, const std::string& place) {
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        if ((pid_ = ::fork()) != 0) return;
        ::signal(SIGINT, SIG_DFL); // ignored in what a shell runs in the background
        ::dup2(::open((place + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
        ::dup2(::open((place + ".err").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), 2);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    Process& operator=(Process&& other) noexcept {
        std::swap(pid_, other.pid_);
        return *this;
    }
    ~Process() {
        if (pid_ > 0) end(SIGKILL);
    }
    pid_t pid() const { return pid_; }
    /// Sends the signal and waits for the end; the exit status, or 128 + the signal that ended it.
    int end(int signal) {
        ::kill(pid_, signal);
        return wait();
    }
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    /// A line of /proc/<pid>/status, in MB.
    double megabytes(const std::string& field) const {
        const std::string status = contentsOf("/proc/" + std::to_string(pid_) + "/status");
        return std::stod(status.substr(status.find(field + ":") + field.size() + 1)) / 1024;
    }
    std::size_t descriptors() const {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& each :
             std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/fd"))
            ++count;
        return count;
    }

private:
    pid_t pid_ = 0;
};

struct Result {
    int status = -1;
    std::string output, errors;
    double seconds = 0;
};

/// Directories, environment and programs of one test. The environment is the process's: one world at a time.
class World {
    const TemporaryDirectory directory_;
    std::size_t logStart_ = 0;
    int run_ = 0;
    std::string wholeLog() const { return contentsOf(path + "/state/brindlemar/Logs/Brindlemar/FileProvider.log"); }

public:
    World() {
        ::setenv("BRINDLEMAR_RUNTIME_DIR", (path + "/run").c_str(), 1);
        ::setenv("XDG_STATE_HOME", (path + "/state").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (path + "/cache").c_str(), 1);
        ::unsetenv("BRINDLEMAR_LIBRARY_DIR");
    }
    void startService() { service = Process(BRINDLEMARD, {"--no-mount"}, path + "/service"); }
    /// Connections as on the host's command line; further options too.
    void startHost(const Arguments& arguments) { host = Process(BRINDLEMAR_HOST, arguments, path + "/host"); }
    /// Runs `brindlemar`, or another program.
    Result run(const Arguments& arguments, const char* program = BRINDLEMAR) {
        const std::string place = path + "/run" + std::to_string(run_++);
        const auto start = Clock::now();
        const int status = Process(program, arguments, place).wait();
        return {status, contentsOf(place + ".out"), contentsOf(place + ".err"), secondsSince(start)};
    }
    /// Runs it until it succeeds with this output; false when it does not within `limit` seconds.
    bool runUntil(const Arguments& arguments, const std::string& output, double limit) {
        for (const auto start = Clock::now(); secondsSince(start) < limit; ::poll(nullptr, 0, 10))
            if (const Result result = run(arguments); result.status == 0 && result.output == output) return true;
        return false;
    }
    ControlClient control() const {
        for (const auto start = Clock::now(); secondsSince(start) < 10;)
            if (auto client = ControlClient::connect(RuntimeDirectory::open())) return std::move(*client);
        throw std::runtime_error("no service answers");
    }
    /// Makes a file below the world's directory.
    void file(const std::string& name, const std::string& contents = "x") const {
        const std::filesystem::path target = path + "/" + name;
        std::filesystem::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary) << contents;
    }
    /// What was logged since the last call.
    std::string newLog() {
        const std::string all = wholeLog();
        return all.substr(std::exchange(logStart_, all.size()));
    }
    /// Waits until the log since the last newLog() has the text; false after ten seconds.
    bool logs(const std::string& text) const {
        return eventually([&] { return wholeLog().find(text, logStart_) != std::string::npos; });
    }
    const std::string path = directory_.path();
    Process service, host;
};

} // namespace brindlemar::system_tests
