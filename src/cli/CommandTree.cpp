#include "cli/CommandTree.h"

#include <CLI/CLI.hpp>

namespace brindlemar::cli {

namespace {
CommandOption describe(const CLI::Option& option) {
    CommandOption described{.names = {},
                            .place = option.get_positional() ? option.get_name(true) : "",
                            .description = option.get_description(),
                            .takesValue = option.get_items_expected_max() > 0,
                            .required = option.get_required(),
                            .repeats = option.get_items_expected_max() > 1};
    for (const std::string& name : option.get_snames()) described.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) described.names.push_back("--" + name);
    return described;
}

Command describe(const CLI::App& app, const std::string& words) {
    Command command{.words = words,
                    .description = app.get_description(),
                    .footer = app.get_footer(),
                    .options = {},
                    .commands = {}};
    for (const CLI::Option* option : app.get_options())
        if (words.empty() || option != app.get_help_ptr()) command.options.push_back(describe(*option)); // told once
    for (const CLI::App* below : app.get_subcommands({}))
        command.commands.push_back(describe(*below, (words.empty() ? "" : words + " ") + below->get_name()));
    return command;
}

void append(std::vector<const Command*>& all, const Command& command) {
    all.push_back(&command);
    for (const Command& below : command.commands) append(all, below);
}
} // namespace

Command commandTree(const CLI::App& app) { return describe(app, ""); }

std::vector<const Command*> allCommands(const Command& top) {
    std::vector<const Command*> all;
    append(all, top);
    return all;
}

} // namespace brindlemar::cli
