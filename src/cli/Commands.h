// The commands of the program. Each writes its data to the output and throws Failure.
#pragma once

#include "cli/Control.h"
#include "cli/Output.h"

namespace brindlemar::cli {

void printStatus(Control& control, Output& output, bool json);

struct ListOptions {
    std::string path;
    bool details = false;
    bool json = false; // one item a line, as the service tells it
};
void printFolder(Control& control, Output& output, const ListOptions& options);

/// With `json` one item a line, in the order of the drawing, with its path of names as member "path".
void printTree(Control& control, Output& output, const std::string& path, bool json);

/// With `json` the service's lines unchanged.
void callItem(Control& control, Output& output, const std::string& identifier, bool json);

struct ListCall {
    std::string identifier;
    std::uint32_t pageSize;
    bool json;
};
void callList(Control& control, Output& output, const ListCall& call);

} // namespace brindlemar::cli
