#include "provider/mount/FileSystem.h"

#include "provider/mount/Attributes.h"
#include "support/Utf8.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace brindlemar {

using replica::Inode;
using replica::Row;

namespace {
void checkName(const std::string& name) {
    if (name.size() > replica::kLongestName) throw ErrorNumber{ENAMETOOLONG};
    if (!isValidUtf8(name)) throw ErrorNumber{EILSEQ}; // requests are JSON
}
} // namespace

Row FileSystem::namedEntry(Inode parent, const std::string& name) const {
    auto found = places_.common.replica.child(parent, name);
    if (!found) throw ErrorNumber{ENOENT};
    return *found;
}

Row FileSystem::changeableFolder(Inode inode) const {
    Row folder = row(inode);
    if (inode == replica::kRoot || !(folder.capabilities & Capability::writing)) throw ErrorNumber{EACCES};
    return folder;
}

Inode FileSystem::connectionOf(Row item) const {
    while (item.parent != replica::kRoot && item.inode != replica::kRoot) item = row(item.parent);
    return item.inode;
}

Row FileSystem::makeEntry(Inode parent, const std::string& name, std::optional<std::string> contents, mode_t mode) {
    changeableFolder(parent);
    checkName(name);
    return places_.common.replica.create(parent, name, std::move(contents), mode & 0777, places_.common.clock.now());
}

void FileSystem::create(fuse_req_t request, Inode parent, const std::string& name, mode_t mode, fuse_file_info* info) {
    const auto local = places_.contents.create();
    Row made;
    try {
        made = makeEntry(parent, name, local->name, mode);
    } catch (const std::system_error& error) {
        places_.contents.remove(local->name);
        // A listing has brought it since the kernel looked, which looks again then and opens it.
        if (info && !(info->flags & O_EXCL) && error.code() == std::errc::file_exists) throw ErrorNumber{ESTALE};
        throw;
    } catch (...) {
        places_.contents.remove(local->name);
        throw;
    }
    const auto file = places_.open.get(made);
    file->setLocal(local);
    file->setChanged(); // an empty file is one, too
    const fuse_entry_param answer = entry(made);
    if (!info) {
        makeSafe(*file);
        fuse_reply_entry(request, &answer);
        return;
    }
    info->keep_cache = 1;
    openHandle(*info, file);
    file->marked = true; // all of it is new to the host
    if (fuse_reply_create(request, &answer, info) != 0) dropHandle(*info);
}

void FileSystem::makeFolder(fuse_req_t request, Inode parent, const std::string& name, mode_t mode) {
    const Row made = makeEntry(parent, name, std::nullopt, mode);
    places_.uploads.touched(made.inode);
    const fuse_entry_param answer = entry(made);
    fuse_reply_entry(request, &answer);
}

void FileSystem::removeFile(fuse_req_t request, Inode parent, const std::string& name) {
    changeableFolder(parent);
    const Row item = namedEntry(parent, name);
    if (item.folder) throw ErrorNumber{EISDIR};
    if (!(item.capabilities & Capability::deleting)) throw ErrorNumber{EPERM};
    places_.common.replica.remove(item.inode, places_.common.clock.now());
    places_.uploads.touched(item.inode);
    fuse_reply_err(request, 0);
}

void FileSystem::removeFolder(fuse_req_t request, Inode parent, const std::string& name) {
    changeableFolder(parent);
    const Row item = namedEntry(parent, name);
    if (!item.folder) throw ErrorNumber{ENOTDIR};
    if (!(item.capabilities & Capability::deleting)) throw ErrorNumber{EPERM};
    if (!Folders::isKnown(item)) // it may be full
        return whenListed(request, item.inode, [this, parent, name](const auto& parked) {
            parked->answer([&](fuse_req_t waiting) { removeFolder(waiting, parent, name); });
        });
    places_.common.replica.remove(item.inode, places_.common.clock.now());
    places_.uploads.touched(item.inode);
    fuse_reply_err(request, 0);
}

void FileSystem::rename(fuse_req_t request, Inode parent, const std::string& name, Inode newParent,
                        const std::string& newName, unsigned flags) {
    const bool exchanges = flags == RENAME_EXCHANGE;
    if (!exchanges && (flags & ~unsigned{RENAME_NOREPLACE})) throw ErrorNumber{EINVAL};
    changeableFolder(parent);
    const Row target = changeableFolder(newParent);
    checkName(newName);
    const Row item = namedEntry(parent, name);
    if (!(item.capabilities & Capability::renaming)) throw ErrorNumber{EACCES};
    if (connectionOf(item) != connectionOf(target)) throw ErrorNumber{EXDEV}; // programs copy then
    const Timestamp now = places_.common.clock.now();
    if (exchanges) {
        const Row other = namedEntry(newParent, newName);
        if (!(other.capabilities & Capability::renaming)) throw ErrorNumber{EACCES};
        places_.common.replica.exchange(item.inode, other.inode, now);
        places_.uploads.touched(other.inode);
        places_.uploads.touched(item.inode);
        fuse_reply_err(request, 0);
        return;
    }
    const bool replaces = (flags & RENAME_NOREPLACE) == 0;
    const auto victim = replaces ? places_.common.replica.child(newParent, newName) : std::nullopt;
    if (victim && victim->inode != item.inode) {
        if (!(victim->capabilities & Capability::deleting)) throw ErrorNumber{EPERM};
        if (victim->folder && item.folder && !Folders::isKnown(*victim))
            return whenListed(request, victim->inode, [=, this](const auto& parked) {
                parked->answer([&](fuse_req_t waiting) { rename(waiting, parent, name, newParent, newName, flags); });
            });
        if (!item.folder) keepContents(item, *victim);
    }
    places_.common.replica.move(item.inode, newParent, newName, now, replaces);
    places_.uploads.touched(item.inode);
    fuse_reply_err(request, 0);
}

/// What was fetched becomes a change that the host is to be told: as safe as what was written.
void FileSystem::keepContents(const Row& item, const Row& replaced) const {
    const auto local = item.contents && !item.pending.any() ? places_.contents.open(*item.contents) : nullptr;
    if (!local) return;
    Contents::mark(local->fd(),
                   {places_.common.replica.path(replaced.inode).value_or(""), replaced.identifier.value_or("")});
    if (::fdatasync(local->fd()) != 0) throw ErrorNumber{errno};
}

} // namespace brindlemar
