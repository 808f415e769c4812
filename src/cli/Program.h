// The program, apart from the process that it runs in.
#pragma once

#include "cli/Session.h"

#include <vector>

namespace brindlemar::cli {

/// Does what the command line, without the program's name, asks for.
Exit runProgram(std::vector<std::string> arguments, const Surroundings& surroundings);

} // namespace brindlemar::cli
