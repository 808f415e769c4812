// Brings what the service fetched to where the user wants it.
#pragma once

#include "cli/Session.h"

#include <optional>

namespace brindlemar::cli {

/// True when the name can stand in a directory without leading elsewhere.
bool isPlainName(std::string_view name);

/// Where a file asked for by this path is to stand: the path itself, or for a directory the name in it; where a link
/// leads. Throws Failure when nothing can be put there.
std::string filePlace(const std::string& path, const std::string& name);

/// Moves the fetched file to its place, over a regular file that is there: at every moment there is the old one or the
/// whole new one. It gets the mode of a new file of the user's and the date in seconds since 1970. Throws Failure.
void deliver(Temporaries::File& fetched, Temporaries& temporaries, const std::string& place,
             std::optional<double> modified);

/// Makes the directory unless there is one. Throws Failure.
void makeDirectory(const std::string& path);

/// False with errno set.
bool setModified(const std::string& path, std::optional<double> modified);

} // namespace brindlemar::cli
