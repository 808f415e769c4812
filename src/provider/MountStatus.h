// What the status tells of the mount.
#pragma once

#include "provider/mount/Mount.h"
#include "support/JSON.h"

namespace brindlemar {

/// "mount", "queue", "transfers", "failures" and "failureCount"; with none only "mount", which is null then.
JSON::Members mountStatus(Mount* mount);

} // namespace brindlemar
