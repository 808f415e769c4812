#include "host/Misbehaviour.h"

#include "host/Arguments.h"
#include "host/commands/CommandTable.h"

#include <charconv>

namespace brindlemar::host {

namespace {
const std::string& known(const std::string& command, const std::string& where) {
    if (!findCommand(command))
        throw ArgumentError(where + "there is no command \"" + command + "\". Write one of those in docs/host.md.");
    return command;
}
} // namespace

Misbehaviour::Misbehaviour(const Options& options)
    : held_(options.held.begin(), options.held.end()), delay_(options.delay) {
    for (const std::string& command : options.held) known(command, "--hold " + command + ": ");
    for (const std::string& text : options.failing) {
        const std::string where = "--fail " + text + ": ";
        const std::size_t equals = text.rfind('=');
        unsigned times = 0;
        const char* const end = text.data() + text.size();
        if (equals == std::string::npos || std::from_chars(text.data() + equals + 1, end, times).ptr != end ||
            times == 0)
            throw ArgumentError(where + "write COMMAND=N, for example fetchItem=2.");
        failures_.with([&](auto& failures) { failures[known(text.substr(0, equals), where)] += times; });
    }
}

bool Misbehaviour::takeFailure(const std::string& command) {
    return failures_.with([&](auto& failures) {
        const auto left = failures.find(command);
        return left != failures.end() && left->second > 0 && left->second-- > 0;
    });
}

} // namespace brindlemar::host
