// brindlemar: asks the running service.
#include "cli/Commands.h"
#include "cli/Failure.h"
#include "cli/Items.h"
#include "cli/LiveControl.h"
#include "support/Utf8.h"

#include <CLI/CLI.hpp>

#include <signal.h>

#include <iostream>

namespace brindlemar::cli {
namespace {

void say(const std::string& text) { std::cerr << "brindlemar: " + text + "\n"; }

/// What the command line asks for; a command is run with the service and the output.
struct CommandLine {
    CLI::App app{"Asks the running file-provider service.\n", "brindlemar"};
    std::function<void(Control&, Output&)> command;
    ListOptions list;
    ListCall call{.identifier = "", .pageSize = kUsualPageSize, .json = false};
    std::string path;
    bool json = false;

    CommandLine() {
        app.fallthrough();
        app.add_flag("--json", json, "Print JSON, one object a line");
        app.set_version_flag("--version", std::string("brindlemar ") + BRINDLEMAR_VERSION);
        app.footer("PATH is a path of names as shown, such as Work/photos; without it, the connections.\n"
                   "Exit status: 0 done, 1 failed or no service, 2 wrong usage, 3 no such item, 4 no host running,\n"
                   "130 interrupted.");

        CLI::App* ls = app.add_subcommand("ls", "List a folder");
        ls->add_flag("-l", list.details, "Show kind, size in bytes, date and name");
        ls->add_option("PATH", path, "The folder");
        ls->callback([this] {
            command = [this](Control& control, Output& output) {
                list.path = path;
                list.json = json;
                printFolder(control, output, list);
            };
        });

        CLI::App* tree = app.add_subcommand("tree", "Draw a folder and all below it");
        tree->add_option("PATH", path, "The folder");
        tree->callback(
            [this] { command = [this](Control& control, Output& output) { printTree(control, output, path, json); }; });

        app.add_subcommand("status", "Show the state of the service")->callback([this] {
            command = [this](Control& control, Output& output) { printStatus(control, output, json); };
        });

        CLI::App* calls = app.add_subcommand("call", "Call an entry point of the extension");
        CLI::App* item = calls->add_subcommand("item", "Look an item up");
        item->add_option("ID", call.identifier, "Its identifier, such as work|photos/a.jpg")->required();
        item->callback([this] {
            command = [this](Control& control, Output& output) { callItem(control, output, call.identifier, json); };
        });
        CLI::App* listing = calls->add_subcommand("list", "List a container page by page");
        listing->add_option("ID", call.identifier, "Its identifier, such as work|0")->required();
        listing->add_option("--page-size", call.pageSize, "Items in a page")
            ->check(CLI::Range(1u, 1'000'000u))
            ->capture_default_str();
        listing->callback([this] {
            command = [this](Control& control, Output& output) {
                call.json = json;
                callList(control, output, call);
            };
        });
        for (CLI::App* each : {ls, tree, calls, item, listing}) each->fallthrough();
    }
};

LiveControl connectToService() {
    std::optional<ControlClient> client = ControlClient::connect(RuntimeDirectory::open());
    if (!client)
        throw Failure(Exit::failure, "The service is not running. Start it with \"brindlemard\" and try again.");
    return LiveControl(std::move(*client));
}

Exit run(const CommandLine& line) {
    Output output(stdout, ::isatty(STDOUT_FILENO) == 1 && !line.json);
    Exit exit = Exit::ok;
    std::string message;
    try {
        LiveControl control = connectToService();
        line.command(control, output);
    } catch (const Failure& failure) {
        exit = failure.exit;
        message = failure.what();
    } catch (const std::exception& error) {
        exit = Exit::failure;
        message = error.what();
    }
    const bool written = output.flush();
    if (!message.empty()) say(message);
    if (written || exit != Exit::ok) return exit;
    say("Not everything could be written to the standard output.");
    return Exit::failure;
}

int start(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_DFL); // a reader that goes away ends the program without a word
    ::signal(SIGINT, [](int) { ::_exit(static_cast<int>(Exit::interrupted)); });
    for (int i = 1; i < argc; ++i) {
        if (isValidUtf8(argv[i])) continue;
        say("Argument " + std::to_string(i) + " is not valid UTF-8, which all names and identifiers are.");
        return static_cast<int>(Exit::usage);
    }
    CommandLine line;
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return line.app.exit(error);
        say(std::string(error.what()) + ". Try brindlemar --help.");
        return static_cast<int>(Exit::usage);
    }
    if (line.command) return static_cast<int>(run(line));
    say("There is no command. Name ls, tree, status, call item or call list. Try brindlemar --help.");
    return static_cast<int>(Exit::usage);
}

} // namespace
} // namespace brindlemar::cli

int main(int argc, char** argv) { return brindlemar::cli::start(argc, argv); }
