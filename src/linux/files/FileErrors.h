// System errors as the platform's.
#pragma once

#include "platform/Errors.h"

namespace brindlemar {

enum class FileAccess { reading, writing };

/// The platform's error for an errno(3) that an access to a file gave, with the system's text.
NSError fileError(int error, FileAccess access);

} // namespace brindlemar
