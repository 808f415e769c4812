// The manual page, from the commands.
#pragma once

#include "cli/CommandTree.h"

namespace brindlemar::cli {

/// man(7) source of section 1.
std::string manualPage(const Command& program);

} // namespace brindlemar::cli
