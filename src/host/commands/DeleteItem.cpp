#include "host/ItemID.h"
#include "host/PartialFile.h"
#include "host/commands/Commands.h"
#include "host/commands/Warnings.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>

namespace brindlemar::host {

namespace {
bool removeFolder(const FileDescriptor& parent, const std::string& name) {
    if (::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) == 0) return true;
    if (errno != ENOTEMPTY && errno != EEXIST) return false;
    const FileDescriptor folder(::openat(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder) removeLeftovers(folder); // of which nobody can know
    return ::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) == 0;
}

bool removeAll(const FileDescriptor& parent, const std::string& name) {
    std::error_code error; // links are removed, not followed
    std::filesystem::remove_all("/proc/self/fd/" + std::to_string(parent.get()) + "/" + name, error);
    return !error;
}

bool remove(const Served& served, const ItemPath& item, bool recursive) {
    const FileDescriptor parent = served.tree.open(item.folder(), O_PATH | O_DIRECTORY);
    if (!parent) return false;
    const Tree::Status status = Tree::statusIn(parent, item.name);
    if (status.outcome != Tree::Outcome::found) return false;
    if (!S_ISDIR(status.info.st_mode)) return ::unlinkat(parent.get(), item.name.c_str(), 0) == 0;
    return recursive ? removeAll(parent, item.name) : removeFolder(parent, item.name);
}
} // namespace

void deleteItem(const Request& request) {
    Served& served = request.served;
    const std::optional<ItemPath> item = pathOfID(textMember(request.json, "identifier"));
    if (item && item->id != kTopID && remove(served, *item, request.json["recursive"].stringValue() == "true"))
        warnUnlessKept(served, served.attributes.forget(item->path), item->path);
    request.reply("{}");
}

} // namespace brindlemar::host
