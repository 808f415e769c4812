#include "linux/WriteFully.h"

#include <unistd.h>

#include <cerrno>

namespace brindlemar {

std::size_t writeFully(int descriptor, std::string_view bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        written += static_cast<std::size_t>(count);
    }
    return written;
}

} // namespace brindlemar
