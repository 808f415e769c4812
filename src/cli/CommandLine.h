// What can be asked for on the command line.
#pragma once

#include "cli/Session.h"

#include <CLI/CLI.hpp>

namespace brindlemar::cli {

/// The tree of commands, and after parsing the one that was asked for.
struct CommandLine {
    using Run = std::function<void(Session&)>;

    CommandLine();

    /// A command below the other. `run` throws Failure.
    CLI::App& add(CLI::App& above, const std::string& name, const std::string& description, Run run);
    /// A group of commands, of which one must be named.
    CLI::App& addGroup(const std::string& name, const std::string& description);

    CLI::App app;
    bool json = false;
    Run command;
};

// Each adds a family of commands.
void addStatusCommands(CommandLine& line);
void addListCommands(CommandLine& line);
void addGetCommand(CommandLine& line);
void addPutCommand(CommandLine& line);
void addChangeCommands(CommandLine& line);
void addRemoveCommand(CommandLine& line);
void addWatchCommands(CommandLine& line);
void addMountCommands(CommandLine& line);
void addAdminCommands(CommandLine& line);
void addCallCommands(CommandLine& line);
void addSelfDescription(CommandLine& line);

} // namespace brindlemar::cli
