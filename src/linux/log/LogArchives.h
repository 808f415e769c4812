// The archives that a rotating log file leaves behind, told apart by their names.
#pragma once

#include <cstddef>
#include <string>

namespace brindlemar {

/// `path` + ".20240305T140709." + a UUID. The date is UTC and the UUID of version 7 (RFC 9562), so that the order of
/// the names is the order in which this process made them, however many a second. Thread-safe.
std::string newArchivePath(const std::string& path);

/// Removes the oldest archives until at most `maximum` are left. Failures are ignored.
void pruneArchives(const std::string& path, std::size_t maximum);

} // namespace brindlemar
