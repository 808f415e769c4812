#include "linux/LinuxFiles.h"

#include "linux/FileDescriptor.h"
#include "linux/WriteFully.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

namespace brindlemar {

bool LinuxFiles::writeAtomically(std::string_view path, std::string_view bytes) {
    const std::string target(path);
    std::string temporary = target + ".XXXXXX";
    const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return false;
    const bool written = writeFully(file.get(), bytes) == bytes.size() && ::fsync(file.get()) == 0 &&
                         ::rename(temporary.c_str(), target.c_str()) == 0;
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
