// One process at a time at a step in the run-time directory.
#pragma once

#include "linux/RuntimeDirectory.h"

#include <chrono>

namespace brindlemar {

/// An exclusive flock(2) on a file in the directory, made when missing and never removed; held as long as the result.
/// Waits for whoever has it. None, with errno set, when that takes longer than the limit or the file cannot be opened.
FileDescriptor lockFile(const RuntimeDirectory& directory, const char* name, std::chrono::milliseconds limit);

} // namespace brindlemar
