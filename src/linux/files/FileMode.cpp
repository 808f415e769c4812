#include "linux/files/FileMode.h"

#include <sys/stat.h>

namespace brindlemar {

namespace {
/// Read before there are threads: the call that tells it also sets it.
const mode_t kMask = [] {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}();
} // namespace

mode_t newFileMode() { return 0666 & ~kMask; }

} // namespace brindlemar
