// Reads a directory that the user has to grant access to.
#pragma once

#include "platform/Domain.h"

#include <optional>
#include <vector>

namespace brindlemar {

/// The locations of the directory's entries, hidden ones included; none, after an error line, when access is refused or
/// the directory cannot be read.
std::optional<std::vector<FileURL>> securityScopedFileURLs(const FileURL& in);

} // namespace brindlemar
