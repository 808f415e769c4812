// Brings what the service fetched to where the user wants it.
#pragma once

#include "cli/Session.h"

#include <optional>

namespace brindlemar::cli {

/// True when the name can stand in a directory without leading elsewhere.
bool isPlainName(std::string_view name);

struct FilePlace {
    std::string path;
    std::optional<mode_t> replaced{}; // the mode of the regular file that is there
};

/// Where a file asked for by this path is to stand: the path itself, or for a directory the name in it; where a link
/// leads. Throws Failure when nothing can be put there.
FilePlace filePlace(const std::string& path, const std::string& name);

/// Moves the fetched file to its place. Over a file that was there when the place was found: at every moment, also
/// after a power cut, there is the old one or the whole new one, with the old one's mode. Nothing else is replaced. It
/// gets the date in seconds since 1970. Throws Failure.
void deliver(Temporaries::File& fetched, Temporaries& temporaries, const FilePlace& place,
             std::optional<double> modified);

/// Makes the directory unless there is one. Throws Failure.
void makeDirectory(const std::string& path);

/// False with errno set.
bool setModified(const std::string& path, std::optional<double> modified);

} // namespace brindlemar::cli
