// What the platform's errors are to programs.
#pragma once

#include "platform/Errors.h"

namespace brindlemar {

/// The errno(3) for an error of the platform; EIO for those that have none.
int errorNumber(const NSError& error);

/// A sentence for people.
std::string whyFailed(const NSError& error);

} // namespace brindlemar
