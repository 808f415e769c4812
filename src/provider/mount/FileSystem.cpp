#include "provider/mount/FileSystem.h"

#include "provider/mount/Attributes.h"
#include "provider/mount/ItemAttributes.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <system_error>

namespace brindlemar {

using replica::Inode;
using replica::Row;

namespace {
/// Kept true by notices; this is for the ones that come between an answer and its arrival in the kernel.
constexpr double kKernelRemembers = 300; // seconds

void answerText(fuse_req_t request, std::size_t size, const std::string& text) {
    if (size == 0)
        fuse_reply_xattr(request, text.size());
    else if (size < text.size())
        fuse_reply_err(request, ERANGE);
    else
        fuse_reply_buf(request, text.data(), text.size());
}
} // namespace

FileSystem::FileSystem(const Places& places) : places_(places) {}

struct stat FileSystem::attributes(const Row& row) const {
    struct stat all = attributesOf(row);
    if (row.folder) return all;
    // The row may be of a moment before a save that ends just now: the kernel would keep its size for long.
    const auto file = places_.open.find(row.inode);
    const auto local = file ? file->local() : nullptr;
    struct stat now {};
    if (local && ::fstat(local->fd(), &now) == 0) {
        all.st_size = now.st_size;
        all.st_blocks = now.st_blocks;
        if (file->unsaved) {
            all.st_mtim = now.st_mtim;
            all.st_ctim = now.st_ctim;
        }
    }
    return all;
}

fuse_entry_param FileSystem::entry(const Row& row) const {
    fuse_entry_param answer{};
    answer.ino = static_cast<fuse_ino_t>(row.inode);
    answer.attr = attributes(row);
    answer.attr_timeout = answer.entry_timeout = kKernelRemembers;
    return answer;
}

void FileSystem::answerAttributes(fuse_req_t request, const Row& row) const {
    const struct stat all = attributes(row);
    fuse_reply_attr(request, &all, kKernelRemembers);
}

Row FileSystem::row(Inode inode) const {
    if (auto known = places_.common.replica.row(inode)) return *known;
    if (const auto file = places_.open.find(inode)) {
        Row gone = file->atOpening;
        gone.pending.deletion = true;
        return gone;
    }
    throw ErrorNumber{ENOENT};
}

void FileSystem::lookup(fuse_req_t request, Inode parent, const std::string& name) {
    if (name.size() > replica::kLongestName) throw ErrorNumber{ENAMETOOLONG};
    const auto folder = places_.common.replica.row(parent);
    if (!folder) throw ErrorNumber{ENOENT};
    const bool isKnown = Folders::isKnown(*folder);
    fuse_entry_param answer{};
    answer.entry_timeout = parent == replica::kRoot ? 0 : kKernelRemembers;
    if (const auto found = places_.common.replica.child(parent, name))
        answer = entry(*found);
    else if (!isKnown)
        return whenListed(request, parent, [this, parent, name](const auto& parked) {
            const auto arrived = places_.common.replica.child(parent, name);
            const auto now = places_.common.replica.row(parent);
            const bool isOver = parent == replica::kRoot || !now || Folders::isKnown(*now);
            parked->answer([&](fuse_req_t waiting) {
                if (arrived) {
                    const fuse_entry_param found = entry(*arrived);
                    fuse_reply_entry(waiting, &found);
                } else if (isOver) {
                    fuse_reply_err(waiting, ENOENT);
                } else {
                    lookup(waiting, parent, name);
                }
            });
        });
    fuse_reply_entry(request, &answer);
}

void FileSystem::getAttributes(fuse_req_t request, Inode inode) { answerAttributes(request, row(inode)); }

void FileSystem::setAttributes(fuse_req_t request, Inode inode, const struct stat& wanted, int which) {
    Row item = row(inode);
    if (((which & FUSE_SET_ATTR_UID) && wanted.st_uid != ::geteuid()) ||
        ((which & FUSE_SET_ATTR_GID) && wanted.st_gid != ::getegid()))
        throw ErrorNumber{EPERM};
    if (inode == replica::kRoot) throw ErrorNumber{EACCES};
    if (which & FUSE_SET_ATTR_SIZE) {
        if (!(item.capabilities & Capability::writing)) throw ErrorNumber{EACCES};
        const auto file = places_.open.get(item);
        const off_t size = wanted.st_size;
        if (size == 0) {
            replaceContents(*file);
        } else if (const auto local = changeableContents(file)) {
            try {
                setSize(*file, *local, size);
            } catch (const ErrorNumber&) {
                if (file->writers == 0) makeSafe(*file);
                throw;
            }
        } else {
            struct stat rest = wanted;
            return whenLocal(request, file, &FileSystem::changeableContents,
                             [=, this](fuse_req_t waiting, LocalFile&) { setAttributes(waiting, inode, rest, which); });
        }
        if (file->writers == 0) makeSafe(*file); // no close will come
        item = row(inode);
    }
    const Timestamp now = places_.common.clock.now();
    const bool isDated = (which & (FUSE_SET_ATTR_MTIME | FUSE_SET_ATTR_MTIME_NOW)) != 0;
    const auto edit = [&](Row& row) {
        if (which & FUSE_SET_ATTR_MODE) row.mode = wanted.st_mode & 0777 & allowedPermissions(row);
        if (which & (FUSE_SET_ATTR_ATIME | FUSE_SET_ATTR_ATIME_NOW))
            row.used = which & FUSE_SET_ATTR_ATIME_NOW ? now : timestampOf(wanted.st_atim);
        if (isDated) row.modified = which & FUSE_SET_ATTR_MTIME_NOW ? now : timestampOf(wanted.st_mtim);
        return true;
    };
    if (isDated) {
        if (!(item.capabilities & Capability::writing)) throw ErrorNumber{EACCES};
        const auto file = places_.open.find(inode);
        const auto local = file && file->unsaved ? file->local() : nullptr;
        Row dated = item;
        edit(dated);
        const struct stat dates = attributesOf(dated);
        const timespec times[2] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, dates.st_mtim};
        if (local) ::futimens(local->fd(), times); // what is saved at the close
    }
    const int others = FUSE_SET_ATTR_MODE | FUSE_SET_ATTR_ATIME | FUSE_SET_ATTR_ATIME_NOW | FUSE_SET_ATTR_MTIME |
                       FUSE_SET_ATTR_MTIME_NOW;
    if (which & others) {
        const ItemFields fields = isDated ? ItemField::contentModificationDate : 0;
        if (auto changed = places_.common.replica.change(inode, edit, fields, now, replica::Safe::fromCrash))
            item = *std::move(changed);
        else
            edit(item);
        if (isDated) places_.uploads.touched(inode);
    }
    answerAttributes(request, item);
}

void FileSystem::statistics(fuse_req_t request) const {
    struct statvfs all {};
    if (::statvfs(places_.contents.directory().c_str(), &all) != 0) throw ErrorNumber{errno};
    all.f_namemax = replica::kLongestName;
    fuse_reply_statfs(request, &all);
}

void FileSystem::getExtended(fuse_req_t request, Inode inode, const std::string& name, std::size_t size) {
    // ls(1) asks each file for its label and access list, unless it hears that there are none of the kind.
    if (!name.starts_with("user.")) throw ErrorNumber{EOPNOTSUPP};
    if (!isItemAttribute(name)) throw ErrorNumber{ENODATA};
    const Row item = row(inode);
    const auto transfer = places_.downloads.transfer(inode);
    const auto domain = inode == replica::kRoot ? places_.common.manager.state() : DomainManager::State();
    const auto value = itemAttribute(name, {item, transfer, domain});
    if (!value) throw ErrorNumber{ENODATA};
    answerText(request, size, *value);
}

/// They are asked for by name: programs that copy what is listed would carry them to where they are not true.
void FileSystem::listExtended(fuse_req_t request, Inode inode, std::size_t size) const {
    row(inode);
    answerText(request, size, "");
}

void FileSystem::whenListed(fuse_req_t request, Inode folder, Then then) {
    const auto parked = ParkedRequest::park(request, places_.common.tasks);
    parked->onInterruption([] {});
    places_.folders.list(folder, [parked, then = std::move(then)](bool, const std::optional<NSError>& error) {
        if (error) return parked->fail(errorNumber(*error));
        then(parked);
    });
}

} // namespace brindlemar
