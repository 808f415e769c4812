// Sentences for the user about what is not served whole.
#pragma once

#include "host/commands/Commands.h"

namespace brindlemar::host {

/// Says why the folder cannot be read; nothing when it is just not there.
void warnOfFailure(const Served& served, const std::string& path, const Tree::Names& folder);

/// Says how many names are no UTF-8 text and of how many the status is not to be had; nothing about none.
void warnOfNamesLeftOut(const Served& served, const std::string& path, std::size_t unreadable, std::size_t failed);

/// Says so when what is known of a changed item could not be stored.
void warnUnlessKept(const Served& served, bool kept, const std::string& path);

} // namespace brindlemar::host
