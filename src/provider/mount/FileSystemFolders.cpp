#include "provider/mount/FileSystem.h"

#include <cerrno>
#include <vector>

namespace brindlemar {

using replica::Inode;
using replica::Row;

namespace {
constexpr off_t kFirstEntry = 2; // behind "." and ".."

/// Entries as the kernel reads them, as many as there is room for.
class EntryBuffer {
public:
    EntryBuffer(fuse_req_t request, std::size_t size, bool withAttributes)
        : request_(request), bytes_(size), withAttributes_(withAttributes) {}
    /// False when there is no room.
    bool add(const char* name, const fuse_entry_param& entry, off_t next) {
        char* const at = bytes_.data() + used_;
        const std::size_t room = bytes_.size() - used_;
        const std::size_t size = withAttributes_ ? fuse_add_direntry_plus(request_, at, room, name, &entry, next)
                                                 : fuse_add_direntry(request_, at, room, name, &entry.attr, next);
        if (size > room) return false;
        used_ += size;
        return true;
    }
    bool isEmpty() const { return used_ == 0; }
    void answer() { fuse_reply_buf(request_, bytes_.data(), used_); }

private:
    const fuse_req_t request_;
    std::vector<char> bytes_;
    const bool withAttributes_;
    std::size_t used_ = 0;
};
} // namespace

void FileSystem::openFolder(fuse_req_t request, Inode inode, fuse_file_info& info) {
    const Row folder = row(inode);
    const bool isKnown = Folders::isKnown(folder);
    if (isKnown || inode == replica::kRoot) places_.folders.refresh(inode);
    info.cache_readdir = info.keep_cache = isKnown;
    fuse_reply_open(request, &info);
}

void FileSystem::readFolder(fuse_req_t request, Inode inode, std::size_t size, off_t from, bool withAttributes) {
    const Row folder = row(inode);
    const bool isKnown = Folders::isKnown(folder) || (inode == replica::kRoot && from > 0);
    EntryBuffer entries(request, size, withAttributes);
    fuse_entry_param dots{}; // without an inode: the kernel is not to count them
    dots.attr.st_mode = S_IFDIR;
    dots.attr.st_ino = static_cast<ino_t>(inode);
    bool hasRoom = from > 0 || entries.add(".", dots, 1);
    dots.attr.st_ino = static_cast<ino_t>(folder.parent ? folder.parent : inode);
    hasRoom = hasRoom && (from > 1 || entries.add("..", dots, kFirstEntry));
    if (hasRoom)
        places_.common.replica.children(inode, std::max<off_t>(from - kFirstEntry, 0), [&](const Row& item) {
            return entries.add(item.name.c_str(), entry(item), item.inode + kFirstEntry);
        });
    if (!entries.isEmpty() || isKnown) return entries.answer();
    whenListed(request, inode, [=, this](const auto& parked) {
        parked->answer([&](fuse_req_t waiting) { readFolder(waiting, inode, size, from, withAttributes); });
    });
}

void FileSystem::syncFolder(fuse_req_t request) {
    places_.common.replica.sync();
    fuse_reply_err(request, 0);
}

} // namespace brindlemar
