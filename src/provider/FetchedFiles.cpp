#include "provider/FetchedFiles.h"

#include "linux/FileDescriptor.h"
#include "linux/files/LinuxFiles.h"
#include "support/TextForms.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace brindlemar {

namespace {
namespace fs = std::filesystem;

void emptyDirectory(const std::string& path) {
    std::error_code ignored;
    fs::create_directories(path, ignored);
    fs::permissions(path, fs::perms::owner_all, ignored);
    for (fs::directory_iterator entry(path, ignored), end; !ignored && entry != end; entry.increment(ignored)) {
        std::error_code left;
        fs::remove_all(entry->path(), left);
    }
}

FileDescriptor openBeneath(int directory, const std::string& path, std::uint64_t flags) {
    open_how how{};
    how.flags = flags | O_CLOEXEC | O_PATH;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return FileDescriptor(static_cast<int>(::syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how)));
}

bool isSameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }
} // namespace

FetchedFiles::FetchedFiles(std::string temporary, std::string keep, Queue& tasks)
    : temporary_(std::move(temporary)), keep_(std::move(keep)), tasks_(tasks) {
    emptyDirectory(temporary_);
    emptyDirectory(keep_);
}

FetchedFiles::~FetchedFiles() { emptyDirectory(temporary_); }

std::variant<FileURL, std::string> FetchedFiles::take(const FileURL& file) {
    const auto refused = [&](const std::string& why) { return "refused " + absoluteString(file) + ": " + why; };
    const auto failed = [&] { return refused(std::generic_category().message(errno)); };
    if (!file.path.starts_with(temporary_ + "/")) return refused("it is outside the temporary directory");
    const fs::path inside = fs::path(file.path.substr(temporary_.size())).relative_path();
    const FileDescriptor top(::open(temporary_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const FileDescriptor folder = openBeneath(top.get(), "./" + inside.parent_path().string(), O_DIRECTORY);
    if (!folder) return failed();
    const std::string name = inside.filename().string();
    const FileDescriptor source = openBeneath(folder.get(), name, 0);
    struct stat seen {
    }, moved{};
    if (!source || ::fstat(source.get(), &seen) != 0) return failed();
    if (!S_ISREG(seen.st_mode)) return refused("it is no regular file");
    const FileURL taken{keep_ + "/" + LinuxFiles().globallyUniqueString()};
    if (::renameat(folder.get(), name.c_str(), AT_FDCWD, taken.path.c_str()) != 0) return failed();
    // The name may have got another file between the look and the move.
    if (::lstat(taken.path.c_str(), &moved) == 0 && isSameFile(seen, moved)) return taken;
    drop(taken);
    return refused("it was replaced meanwhile");
}

void FetchedFiles::drop(const FileURL& taken) {
    ::unlink(taken.path.c_str());
    const auto ended = lent_.with([&](auto& lent) { return lent.extract(taken.path); });
}

void FetchedFiles::lend(const FileURL& taken, std::shared_ptr<LineOutput> reader) {
    lent_.with([&](auto& lent) { lent[taken.path] = reader; });
    reader->onReaderGone([this, taken] { tasks_.async([this, taken] { drop(taken); }); });
}

} // namespace brindlemar
