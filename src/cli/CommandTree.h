// The commands as plain values, for what describes them.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brindlemar::cli {

struct CommandOption {
    std::vector<std::string> names; // "-l", "--json"; none for what stands in a place of its own
    std::string place;              // "PATH"
    std::string description;
    bool takesValue = false, required = false, repeats = false;
};

struct Command {
    std::string words; // "admin getACL"; empty for the program
    std::string description, footer;
    std::vector<CommandOption> options; // also the places, in their order
    std::vector<Command> commands;
};

Command commandTree(const CLI::App& app);

/// The command and all below it, each before those below it.
std::vector<const Command*> allCommands(const Command& top);

} // namespace brindlemar::cli
