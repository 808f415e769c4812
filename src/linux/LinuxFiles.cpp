#include "linux/LinuxFiles.h"

#include "linux/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace brindlemar {

namespace {
bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}
} // namespace

bool LinuxFiles::writeAtomically(std::string_view path, std::string_view bytes) {
    const std::string target(path);
    std::string temporary = target + ".XXXXXX";
    const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return false;
    const bool written =
        writeAll(file.get(), bytes) && ::fsync(file.get()) == 0 && ::rename(temporary.c_str(), target.c_str()) == 0;
    if (!written) ::unlink(temporary.c_str());
    return written;
}

void LinuxFiles::printLine(std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

} // namespace brindlemar
