// The logger of the host messaging code.
#pragma once

#include "support/Logger.h"

namespace brindlemar {

/// A copy of Logger::shared(), taken at first use and until resetMessageLogger().
Logger messageLogger();
/// For the end of the process and for tests, while nobody logs.
void resetMessageLogger();

} // namespace brindlemar
