#include "host/ItemID.h"
#include "host/PartialFile.h"
#include "host/commands/CommandTable.h"
#include "host/commands/CopyProgress.h"
#include "host/commands/ItemText.h"
#include "host/commands/Warnings.h"

#include <fcntl.h>

#include <cerrno>
#include <charconv>

namespace brindlemar::host {

namespace {
/// Where the upload goes.
struct Target {
    ItemPath item;
    FileDescriptor folder;
    Tree::Status before; // of what has the name already
};

std::optional<Target> openTarget(const Served& served, const JSON& request) {
    std::optional<ItemPath> item = newItem(textMember(request, "parentID"), textMember(request, "name"));
    if (!item) return std::nullopt;
    FileDescriptor folder = served.tree.open(item->folder(), O_RDONLY | O_DIRECTORY);
    if (!folder) return std::nullopt;
    const Tree::Status before = Tree::statusIn(folder, item->name);
    return Target{std::move(*item), std::move(folder), before};
}

/// The staged file or folder; none unless its path is absolute.
FileDescriptor openStaged(const std::string& path) {
    if (!path.starts_with('/') || path.find('\0') != path.npos) return {};
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

/// Sets the time of change when the request has one.
int setTime(int file, const JSON& request) {
    const std::string text = request["mtime"].stringValue();
    std::int64_t seconds = 0;
    std::from_chars(text.data(), text.data() + text.size(), seconds);
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, 0}};
    return seconds == 0 || ::futimens(file, times) == 0 ? 0 : errno;
}

/// Flushed before it gets its name, and the name after it, so that no power cut leaves less than one of the two files.
int putFile(const FileDescriptor& staged, const Target& target, const JSON& request, CopyProgress& progress) {
    const bool replaces = target.before.outcome == Tree::Outcome::found;
    if (replaces && S_ISDIR(target.before.info.st_mode)) return EISDIR;
    std::optional<PartialFile> copy = PartialFile::make(target.folder, replaces ? 0600 : 0666);
    if (!copy) return errno;
    if (const int error = copyContents(staged.get(), copy->descriptor(), progress.step())) return error;
    if (replaces && ::fchmod(copy->descriptor(), target.before.info.st_mode & 0777) != 0) return errno;
    if (const int error = setTime(copy->descriptor(), request)) return error;
    if (::fsync(copy->descriptor()) != 0) return errno;
    if (!progress.end()) return ECANCELED;
    // What came to be there meanwhile is not ours to replace.
    using enum PartialFile::Present;
    if (const int error = copy->keepAs(target.item.name, replaces ? replaced : refused)) return error;
    return ::fsync(target.folder.get()) == 0 ? 0 : errno;
}

int putFolder(const Target& target, const JSON& request) {
    if (target.before.outcome == Tree::Outcome::found) return S_ISDIR(target.before.info.st_mode) ? 0 : EEXIST;
    const std::string& name = target.item.name;
    if (::mkdirat(target.folder.get(), name.c_str(), 0777) != 0) return errno;
    const FileDescriptor made(::openat(target.folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    if (!made) return errno;
    if (const int error = setTime(made.get(), request)) return error;
    return ::fsync(target.folder.get()) == 0 ? 0 : errno;
}

std::optional<std::string> upload(const Request& request) {
    const FileDescriptor staged = openStaged(textMember(request.json, "path"));
    struct stat info {};
    if (!staged || ::fstat(staged.get(), &info) != 0) return std::nullopt;
    const std::optional<Target> target = openTarget(request.served, request.json);
    if (!target || !(S_ISREG(info.st_mode) || S_ISDIR(info.st_mode))) return std::nullopt;
    CopyProgress progress(request.served.ticks, request.reply);
    const int error =
        S_ISDIR(info.st_mode) ? putFolder(*target, request.json) : putFile(staged, *target, request.json, progress);
    const Tree::Status status = Tree::statusIn(target->folder, target->item.name);
    if (error != 0 || status.outcome != Tree::Outcome::found) return std::nullopt;
    if (!S_ISDIR(info.st_mode)) // what was known of a replaced file does not hold for the new one
        warnUnlessKept(request.served, request.served.attributes.forget(target->item.path), target->item.path);
    return newItemText(request.served, target->item, status.info);
}
} // namespace

void uploadItem(const Request& request) { request.reply(upload(request).value_or(std::string(request.row.failure))); }

} // namespace brindlemar::host
