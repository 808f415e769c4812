#include "cli/Program.h"

#include "cli/CommandLine.h"
#include "support/Utf8.h"

#include <algorithm>
#include <sstream>

namespace brindlemar::cli {

namespace {
/// The parser takes "[a,b]" for a list where several values may come; behind a slash it is a PATH like any other.
void protectLists(std::vector<std::string>& arguments) {
    const auto command = std::ranges::find_if(arguments, [](const auto& each) { return !each.starts_with('-'); });
    if (command == arguments.end() || *command != "rm") return;
    for (std::string& each : arguments)
        if (each.starts_with('[')) each.insert(0, "/");
}

Exit run(const CommandLine& line, const Surroundings& surroundings) {
    Session session(surroundings, line.json);
    try {
        line.command(session);
        return session.exit();
    } catch (const Failure& failure) {
        session.output.flush();
        session.notices.say(failure.what());
        return failure.exit;
    } catch (const std::exception& error) {
        session.notices.say(error.what());
        return Exit::failure;
    }
}

Exit parseAndRun(std::vector<std::string> arguments, const Surroundings& surroundings) {
    CommandLine line;
    protectLists(arguments);
    std::ranges::reverse(arguments); // as the parser takes them
    try {
        line.app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            const std::vector<std::string> strange = line.app.remaining(true); // which the parser may not complain of
            surroundings.notices.say(
                (strange.empty() ? error.what() : "\"" + strange.front() + "\" is not expected here") +
                ". Try brindlemar --help.");
            return Exit::usage;
        }
        std::ostringstream help;
        line.app.exit(error, help, help);
        surroundings.output.text(help.str());
        return Exit::ok;
    }
    return run(line, surroundings);
}
} // namespace

Exit runProgram(std::vector<std::string> arguments, const Surroundings& surroundings) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (isValidUtf8(arguments[i])) continue;
        surroundings.notices.say("Argument " + std::to_string(i + 1) +
                                 " is not valid UTF-8, which all names and identifiers are.");
        return Exit::usage;
    }
    const Exit exit = parseAndRun(std::move(arguments), surroundings);
    if (surroundings.output.flush() || exit != Exit::ok) return exit;
    surroundings.notices.say("Not everything could be written to the standard output.");
    return Exit::failure;
}

} // namespace brindlemar::cli
