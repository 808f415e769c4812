// What new files of this process may be.
#pragma once

#include <sys/types.h>

namespace brindlemar {

/// The mode of a new file for the user's own use, 0666 without what the mask (umask(2)) at the process's start takes
/// away.
mode_t newFileMode();

} // namespace brindlemar
