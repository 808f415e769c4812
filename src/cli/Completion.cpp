#include "cli/Completion.h"

#include <string_view>

namespace brindlemar::cli {

namespace {
constexpr std::string_view kHead = R"(# Printed by "brindlemar completion".
)";

/// For bash and zsh. The table sets what may follow a command: words, options with a value, places.
constexpr std::string_view kWalk = R"(
# Goes through the words before the current one; sets what is wanted there: an option's value or a place.
_brindlemar_walk() {
    local command= place=0
    wanted=
    _brindlemar_follow ''
    while [[ $# -gt 0 ]]; do
        if [[ " $valued " == *" $1 "* ]]; then
            [[ $# -gt 1 ]] || wanted=$1
            shift
        elif [[ " $known " == *" $1 "* ]]; then
            if [[ $1 != -* ]]; then
                command=${command:+$command }$1
                _brindlemar_follow "$command"
            fi
        else
            place=$((place + 1))
        fi
        [[ $# -eq 0 ]] || shift
    done
    [[ -z $wanted ]] || return 0
    while [[ $place -gt 0 && $places == *' '* ]]; do
        places=${places#* } place=$((place - 1))
    done
    wanted=${places%% *}
    [[ $place -eq 0 || $wanted == *... ]] || wanted=
    wanted=${wanted%...}
}

# The items whose paths begin with the word; folders end in a slash.
_brindlemar_paths() {
    local folder=
    [[ $1 != */* ]] || folder=${1%/*}/
    brindlemar ls -l "${folder:-/}" 2>/dev/null |
        sed -nE "s/^d +[0-9]+  .{16}  (.*)\$/\\1\\//p; s/^- +[0-9]+  .{16}  (.*)\$/\\1/p" |
        while IFS= read -r name; do printf '%s\n' "$folder$name"; done
}
)";

constexpr std::string_view kBash = R"(
_brindlemar() {
    local known valued places wanted match current=${COMP_WORDS[COMP_CWORD]}
    _brindlemar_walk "${COMP_WORDS[@]:1:COMP_CWORD-1}"
    COMPREPLY=()
    case $wanted in
        PATH | NEWPATH | ID)
            [[ $current != -* ]] || { COMPREPLY=($(compgen -W "$known $valued" -- "$current")); return; }
            current=${current#[\"\']} current=${current//\\/}
            compopt -o filenames -o nospace
            while IFS= read -r match; do
                [[ $match != "$current"* ]] || COMPREPLY+=("$match")
            done < <(_brindlemar_paths "$current")
            ;;
        FILE | --file)
            compopt -o filenames
            while IFS= read -r match; do COMPREPLY+=("$match"); done < <(compgen -f -- "$current")
            ;;
        SHELL) COMPREPLY=($(compgen -W 'bash zsh fish' -- "$current")) ;;
        --enable) COMPREPLY=($(compgen -W 'true false' -- "$current")) ;;
        --*) [[ $current != @* ]] || COMPREPLY=($(compgen -P @ -f -- "${current#@}")) ;;
        *) COMPREPLY=($(compgen -W "$known $valued" -- "$current")) ;;
    esac
}
complete -F _brindlemar brindlemar
)";

constexpr std::string_view kZsh = R"(
_brindlemar() {
    local known valued places wanted
    _brindlemar_walk "${(@Q)words[2,CURRENT-1]}"
    case $wanted in
        PATH | NEWPATH | ID)
            if [[ $PREFIX == -* ]]; then
                compadd -- ${=known} ${=valued}
            else
                local -a paths=("${(@f)$(_brindlemar_paths "${(Q)PREFIX}")}")
                compadd -S '' -- "${paths[@]:#}"
            fi
            ;;
        FILE | --file) _files ;;
        SHELL) compadd bash zsh fish ;;
        --enable) compadd true false ;;
        --*) ! compset -P @ || _files ;;
        *) compadd -- ${=known} ${=valued} ;;
    esac
}
_brindlemar "$@"
)";

constexpr std::string_view kFish = R"(
function __brindlemar_words --description 'the words before the current one that are no options'
    set -l words (commandline -opc)
    string match -v -- '-*' $words[2..-1]
end
function __brindlemar_in --description 'whether the words begin with the command, or for a group are it'
    set -l words (__brindlemar_words)
    set -l command (string split -n ' ' -- $argv[2])
    set -l count (count $command)
    test $argv[1] = group; and test (count $words) -ne $count; and return 1
    test $count -eq 0; or test "$words[1..$count]" = "$argv[2]"
end
function __brindlemar_paths --description 'the items whose paths begin with the current word'
    set -l folder (string match -r '.*/' -- (commandline -ct))
    test -n "$folder"; or set folder ''
    for line in (brindlemar ls -l /$folder 2>/dev/null)
        set -l name (string sub -s 1 -- (string replace -r '^. +\d+  .{16}  ' '' -- $line))
        string match -q 'd*' -- $line; and set name $name/
        echo $folder$name
    end
end
complete -c brindlemar -f
)";

std::string joinedNames(const Command& command, bool withValue) {
    std::string names;
    for (const CommandOption& option : command.options)
        for (const std::string& name : option.names)
            if (option.takesValue == withValue) names += (names.empty() ? "" : " ") + name;
    return names;
}

std::string lastWord(const Command& command) { return command.words.substr(command.words.rfind(' ') + 1); }

std::string followTable(const Command& program) {
    std::string table =
        "\n# What may follow a command.\n_brindlemar_follow() {\n    known= valued= places=\n    case $1 in\n";
    for (const Command* command : allCommands(program)) {
        std::string known = joinedNames(*command, false), places;
        if (!command->words.empty()) known += std::string(known.empty() ? "" : " ") + "--json";
        for (const Command& below : command->commands) known += " " + lastWord(below);
        for (const CommandOption& option : command->options)
            if (option.names.empty())
                places += (places.empty() ? "" : " ") + option.place + (option.repeats ? "..." : "");
        table += "        '" + command->words + "') known='" + known + "' valued='" + joinedNames(*command, true) +
                 "' places='" + places + "' ;;\n";
    }
    return table + "    esac\n}\n";
}

/// What fish offers for a place.
std::string_view fishPlace(const CommandOption& option) {
    if (option.place == "PATH" || option.place == "NEWPATH" || option.place == "ID") return "-a '(__brindlemar_paths)'";
    if (option.place == "FILE") return "-F";
    return option.place == "SHELL" ? "-a 'bash zsh fish'" : "";
}

std::string quoted(std::string_view text) {
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("\\'") : std::string(1, c);
    return result + "'";
}

std::string fishLines(const Command& program) {
    std::string lines;
    for (const Command* command : allCommands(program)) {
        const std::string start = std::string("complete -c brindlemar -n \"__brindlemar_in ") +
                                  (command->commands.empty() ? "leaf" : "group") + " '" + command->words + "'\" ";
        for (const Command& below : command->commands)
            lines += start + "-a " + lastWord(below) + " -d " + quoted(below.description) + "\n";
        for (const CommandOption& option : command->options) {
            std::string offer(option.names.empty() ? fishPlace(option) : "");
            for (const std::string& name : option.names)
                offer += (offer.empty() ? "" : " ") +
                         (name.starts_with("--") ? "-l " + name.substr(2) : "-s " + name.substr(1));
            if (option.takesValue && !option.names.empty())
                offer += option.names.front() == "--enable" ? " -x -a 'true false'" : " -r";
            if (!offer.empty()) lines += start + offer + " -d " + quoted(option.description) + "\n";
        }
    }
    return lines;
}
} // namespace

std::string completionScript(const Command& program, const std::string& shell) {
    const std::string head(kHead);
    if (shell == "fish") return head + std::string(kFish) + fishLines(program);
    const std::string common = head + followTable(program) + std::string(kWalk);
    return shell == "zsh" ? "#compdef brindlemar\n" + common + std::string(kZsh) : common + std::string(kBash);
}

} // namespace brindlemar::cli
