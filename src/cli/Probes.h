// Looks at this machine for the diagnosis.
#pragma once

#include "cli/Diagnosis.h"
#include "cli/Session.h"

namespace brindlemar::cli {

/// What does not answer is given up. Changes nothing, but makes the run-time directory when it is missing.
Findings look(Session& session);

/// Whether the directory can be written or, while it is missing, made.
DirectoryFinding lookAtDirectory(const std::string& path);

/// A mount that nobody serves any more may never answer; it is not waited for.
MountPlace lookAtMountPlace(const std::string& path);

/// The first executable file of the name in the directories; empty when there is none.
std::string findProgram(std::string_view name, std::string_view directories);

} // namespace brindlemar::cli
