#include "cli/CommandLine.h"

namespace brindlemar::cli {

CommandLine::CommandLine() : app("Asks the running file-provider service.", "brindlemar") {
    app.fallthrough();
    app.require_subcommand(1); // and no second one: a PATH may be called like a command
    app.add_flag("--json", json, "Print what the service tells as JSON, one object a line");
    app.set_version_flag("--version", std::string("brindlemar ") + BRINDLEMAR_VERSION);
    app.footer("PATH is a path of names as shown, such as Work/photos; FILE is one of this machine's.\n"
               "Exit status: 0 done, 1 failed or no service, 2 wrong usage, 3 no such item, 4 no host running,\n"
               "130 interrupted.");
    addStatusCommands(*this);
    addListCommands(*this);
    addGetCommand(*this);
    addPutCommand(*this);
    addChangeCommands(*this);
    addRemoveCommand(*this);
    addWatchCommands(*this);
    addMountCommands(*this);
    addAdminCommands(*this);
    addCallCommands(*this);
    addSelfDescription(*this);
}

CLI::App& CommandLine::add(CLI::App& above, const std::string& name, const std::string& description, Run run) {
    CLI::App* added = above.add_subcommand(name, description);
    added->callback([this, run = std::move(run)] { command = run; });
    return *added;
}

CLI::App& CommandLine::addGroup(const std::string& name, const std::string& description) {
    CLI::App* added = app.add_subcommand(name, description);
    added->require_subcommand(1);
    return *added;
}

} // namespace brindlemar::cli
