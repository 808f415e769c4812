// The real programs in a place of their own.
#pragma once

#include "fakes/TemporaryDirectory.h"
#include "linux/dbus/Control.h"

#include <chrono>
#include <vector>

namespace brindlemar::system_tests {

using Arguments = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start);
std::size_t count(std::string_view text, std::string_view part);
/// Everything that comes from the descriptor, to its end.
std::string readAll(const FileDescriptor& descriptor);

/// A running program; killed with this object.
class Process {
public:
    Process() = default;
    Process(const std::string& program, const Arguments& arguments, const std::string& outputPath,
            const std::string& errorPath);
    Process(Process&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
    Process& operator=(Process&& other) noexcept {
        std::swap(pid_, other.pid_);
        return *this;
    }
    ~Process();
    pid_t pid() const { return pid_; }
    /// Sends the signal and waits for the end; the exit status, or 128 + the signal that ended it.
    int end(int signal);
    int wait();
    /// A line of /proc/<pid>/status, in MB.
    double megabytes(const std::string& field) const;
    std::size_t descriptors() const;

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
public:
    World();

    void startService() { service = Process(BRINDLEMARD, {}, path + "/service.out", path + "/service.err"); }
    /// Connections as on the host's command line; further options too.
    void startHost(const Arguments& arguments);
    /// Runs `brindlemar`, or another program.
    Result run(const Arguments& arguments, const char* program = BRINDLEMAR) const;
    /// Runs it until it succeeds with this output, at most `limit` long; the seconds it took, or none.
    std::optional<double> runUntil(const Arguments& arguments, const std::string& output, double limit) const;
    ControlClient control() const;
    /// Makes a file below the world's directory.
    void file(const std::string& name, const std::string& contents = "x") const;

    /// What was logged since the last call.
    std::string newLog();
    /// Waits until the log since the last newLog() has the text; false after ten seconds.
    bool logs(const std::string& text) const;

private:
    const TemporaryDirectory directory_;
    std::size_t logStart_ = 0;
    mutable int run_ = 0;

public:
    const std::string path = directory_.path();
    Process service, host;
};

} // namespace brindlemar::system_tests
