// Ways in which the host goes wrong on purpose, for tests of what happens then.
#pragma once

#include "support/Guarded.h"

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace brindlemar::host {

/// As the command line asks for it. Thread-safe.
class Misbehaviour {
public:
    struct Options {
        std::vector<std::string> held;    // commands
        std::vector<std::string> failing; // "COMMAND=N"
        std::chrono::milliseconds delay{};
    };
    /// Throws ArgumentError.
    explicit Misbehaviour(const Options& options);

    /// Requests with this command are never answered.
    bool holds(const std::string& command) const { return held_.contains(command); }
    /// True as often as the command is to fail, for all connections together.
    bool takeFailure(const std::string& command);
    /// How long a request waits before it is looked at.
    std::chrono::milliseconds delay() const { return delay_; }

private:
    const std::set<std::string> held_;
    const std::chrono::milliseconds delay_;
    Guarded<std::map<std::string, unsigned>> failures_; // still to come
};

} // namespace brindlemar::host
