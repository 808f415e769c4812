#include "host/ItemID.h"
#include "host/PartialFile.h"
#include "host/commands/CommandTable.h"
#include "host/commands/CopyProgress.h"
#include "host/commands/ItemText.h"
#include "linux/files/LinuxFiles.h"

#include <fcntl.h>

#include <cerrno>

namespace brindlemar::host {

namespace {
/// A regular file of the connection that may be read.
struct Source {
    ItemPath item;
    FileDescriptor file;
    struct stat info {};
};

std::optional<Source> openSource(const Served& served, const std::string& identifier) {
    std::optional<ItemPath> item = pathOfID(identifier);
    if (!item || isArchived(*served.attributes.all(), item->path, served.clock.now())) return std::nullopt;
    const Tree::Status status = served.tree.status(item->path); // to open a special file may do more than to look at it
    if (status.outcome != Tree::Outcome::found || !S_ISREG(status.info.st_mode)) return std::nullopt;
    Source source{*item, served.tree.open(item->path, O_RDONLY | O_NONBLOCK)};
    if (!source.file || ::fstat(source.file.get(), &source.info) != 0 || !S_ISREG(source.info.st_mode))
        return std::nullopt;
    return source;
}

FileDescriptor openReceiver(Served& served, const std::string& path) {
    if (!path.starts_with('/') || path.find('\0') != path.npos) return {};
    FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool first = folder && served.receivingFolders.with([&](auto& known) { return known.insert(path).second; });
    if (first) removeLeftovers(folder);
    return folder;
}

/// 0 or an errno(3).
int copyTo(const FileDescriptor& folder, const std::string& name, const Source& source, CopyProgress& progress) {
    std::optional<PartialFile> copy = PartialFile::make(folder, 0600);
    if (!copy) return errno;
    if (const int error = copyContents(source.file.get(), copy->descriptor(), progress.step())) return error;
    const timespec times[2] = {source.info.st_atim, source.info.st_mtim};
    if (::futimens(copy->descriptor(), times) != 0) return errno;
    return progress.end() ? copy->keepAs(name, PartialFile::Present::refused) : ECANCELED;
}
} // namespace

void fetchItem(const Request& request) {
    const std::optional<Source> source = openSource(request.served, textMember(request.json, "identifier"));
    const FileDescriptor folder = openReceiver(request.served, textMember(request.json, "toFolder"));
    const std::string name = LinuxFiles().globallyUniqueString();
    CopyProgress progress(request.served.ticks, request.reply);
    const bool copied = source && folder && copyTo(folder, name, *source, progress) == 0;
    progress.end();
    if (!copied) {
        request.reply(request.row.failure);
        return;
    }
    std::string item = itemText(request.served, source->item, source->info);
    item.insert(item.size() - 1, ",\"path\":\"/" + name + "\"");
    if (!request.reply(R"({"status":"success","item":)" + item + "}")) ::unlinkat(folder.get(), name.c_str(), 0);
}

} // namespace brindlemar::host
