#include "provider/replica/Ballast.h"

#include "linux/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace brindlemar::replica {

namespace {
constexpr off_t kSize = 1 << 20; // some hundred removals
}

Ballast::Ballast(std::string path) : path_(std::move(path)) { restore(); }

bool Ballast::release() { return std::exchange(isThere_, false) && ::unlink(path_.c_str()) == 0; }

void Ballast::restore() {
    if (isThere_) return;
    const FileDescriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    isThere_ = file && ::posix_fallocate(file.get(), 0, kSize) == 0;
    if (!isThere_) ::unlink(path_.c_str());
}

} // namespace brindlemar::replica
