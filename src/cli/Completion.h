// Completion for shells, from the commands.
#pragma once

#include "cli/CommandTree.h"

namespace brindlemar::cli {

/// The shell is "bash", "zsh" or "fish".
std::string completionScript(const Command& program, const std::string& shell);

} // namespace brindlemar::cli
