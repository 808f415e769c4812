#include "host/ItemID.h"
#include "host/PartialFile.h"
#include "host/commands/CommandTable.h"
#include "host/commands/ItemText.h"
#include "host/commands/Warnings.h"

#include <fcntl.h>

#include <cerrno>

namespace brindlemar::host {

namespace {
/// Never onto another item; a folder below itself is refused by the system. 0 or an errno(3).
int move(Served& served, const ItemPath& from, const ItemPath& to) {
    if (from.path == to.path) return 0;
    const FileDescriptor source = served.tree.open(from.folder(), O_PATH | O_DIRECTORY);
    const FileDescriptor target = source ? served.tree.open(to.folder(), O_PATH | O_DIRECTORY) : FileDescriptor();
    if (!target) return errno;
    const int error = renameToFree(source.get(), from.name, target.get(), to.name);
    if (error == 0) warnUnlessKept(served, served.attributes.move(from.path, to.path), to.path);
    return error;
}

/// A date as the host tells it already stays as exact as it is.
void setTime(const Served& served, const ItemPath& item, const struct stat& before, const JSON& mtime) {
    const auto seconds = mtime.number();
    if (seconds && seconds->int64Value() == toldSeconds(before.st_mtim)) return;
    const FileDescriptor folder = served.tree.open(item.folder(), O_PATH | O_DIRECTORY);
    if (!seconds || !folder) return;
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds->int64Value(), 0}};
    ::utimensat(folder.get(), item.name.c_str(), times, AT_SYMLINK_NOFOLLOW); // else the reply tells the old time
}

std::string update(const Request& request) {
    Served& served = request.served;
    constexpr std::string_view noSuchItem = "{}";
    const std::string failure(request.row.failure);
    const std::optional<ItemPath> from = pathOfID(textMember(request.json, "identifier"));
    const Tree::Status before = from ? served.tree.status(from->path) : Tree::Status{Tree::Outcome::missing};
    if (before.outcome == Tree::Outcome::missing) return std::string(noSuchItem);
    const auto to = newItem(textMember(request.json, "parentID"), textMember(request.json, "name"));
    if (before.outcome == Tree::Outcome::failed || from->id == kTopID || !to) return failure;
    if (move(served, *from, *to) != 0) return failure;
    setTime(served, *to, before.info, request.json["mtime"]);
    const Tree::Status after = served.tree.status(to->path);
    return after.outcome == Tree::Outcome::found ? newItemText(served, *to, after.info) : failure;
}
} // namespace

void updateItem(const Request& request) { request.reply(update(request)); }

} // namespace brindlemar::host
