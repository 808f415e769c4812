#include "cli/ManualPage.h"

#include <string_view>

namespace brindlemar::cli {

namespace {
/// As it stands in a line of text: "-" and "\" are special, "." and "'" at a line's start, too.
std::string roff(std::string_view text) {
    std::string result;
    if (text.starts_with('.') || text.starts_with('\'')) result = "\\&";
    for (const char c : text) {
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

std::string bold(std::string_view text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + roff(text) + "\\fR"; }

std::string optionText(const CommandOption& option) {
    std::string text;
    for (const std::string& name : option.names) text += (text.empty() ? "" : ", ") + bold(name);
    if (option.names.empty()) return italic(option.place) + (option.repeats ? " ..." : "");
    return text + (option.takesValue ? " " + italic("VALUE") : "");
}

std::string synopsis(const Command& command) {
    std::string text = bold("brindlemar " + command.words);
    for (const CommandOption& option : command.options)
        text += option.required ? " " + optionText(option) : " [" + optionText(option) + "]";
    return text;
}

void appendOptions(std::string& page, const Command& command) {
    for (const CommandOption& option : command.options)
        page += ".TP\n" + optionText(option) + "\n" + roff(option.description) + ".\n";
}
} // namespace

std::string manualPage(const Command& program) {
    std::string page = ".TH BRINDLEMAR 1\n.SH NAME\nbrindlemar \\- asks the running file\\-provider service\n"
                       ".SH SYNOPSIS\n" +
                       bold("brindlemar") + " " + italic("COMMAND") + " [" + italic("ARGUMENT") + " ...]\n" +
                       ".SH DESCRIPTION\n"
                       "Shows and changes what host applications offer, through the file\\-provider service\n"
                       ".BR brindlemard (1).\n"
                       "Data goes to the standard output, messages to the standard error.\n"
                       ".SH OPTIONS\n";
    appendOptions(page, program);
    page += ".SH COMMANDS\n";
    for (const Command* command : allCommands(program)) {
        if (command->words.empty() || !command->commands.empty()) continue;
        page += ".SS " + synopsis(*command) + "\n" + roff(command->description) + ".\n";
        appendOptions(page, *command);
    }
    page += ".SH NOTES\n.nf\n" + roff(program.footer) + "\n.fi\n";
    page += ".SH SEE ALSO\n.BR brindlemard (1),\n.BR brindlemar\\-host (1)\n";
    return page;
}

} // namespace brindlemar::cli
