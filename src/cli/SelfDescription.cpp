#include "cli/CommandLine.h"
#include "cli/CommandTree.h"
#include "cli/Completion.h"
#include "cli/ManualPage.h"

namespace brindlemar::cli {

void addSelfDescription(CommandLine& line) {
    const auto shell = std::make_shared<std::string>();
    CLI::App& completion =
        line.add(line.app, "completion", "Print a shell's completion script", [&line, shell](Session& session) {
            session.output.text(completionScript(commandTree(line.app), *shell));
        });
    completion.add_option("SHELL", *shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    line.add(line.app, "man", "Print this program's manual page",
             [&line](Session& session) { session.output.text(manualPage(commandTree(line.app))); });
}

} // namespace brindlemar::cli
