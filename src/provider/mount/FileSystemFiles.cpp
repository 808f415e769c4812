#include "provider/mount/FileSystem.h"

#include "provider/mount/Attributes.h"
#include "support/Logger.h"

#include <fcntl.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace brindlemar {

using replica::Inode;
using replica::Row;

namespace {
/// Contents up to this size are kept in the database too until the host has them: one fsync(2) makes both safe.
constexpr off_t kSmall = 32 * 1024;

[[noreturn]] void failWithErrno() { throw ErrorNumber{errno}; }

std::string wholeFile(const LocalFile& file, off_t size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t part = ::pread(file.fd(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (part < 0 && errno == EINTR) continue;
        if (part < 0) failWithErrno();
        if (part == 0) break; // cut meanwhile; a further save comes
        done += static_cast<std::size_t>(part);
    }
    bytes.resize(done);
    return bytes;
}

} // namespace

/// What a program has open.
struct FileSystem::Handle {
    OpenFilePointer file;
    bool writes = false;
    static Handle& of(const fuse_file_info& info) { return *reinterpret_cast<Handle*>(info.fh); }
};

void FileSystem::openHandle(fuse_file_info& info, OpenFilePointer file) {
    auto handle = std::make_unique<Handle>();
    handle->writes = (info.flags & O_ACCMODE) != O_RDONLY;
    if (handle->writes) ++file->writers;
    handle->file = std::move(file);
    info.fh = reinterpret_cast<std::uint64_t>(handle.release());
}

void FileSystem::dropHandle(const fuse_file_info& info) {
    const std::unique_ptr<Handle> handle(&Handle::of(info));
    if (handle->writes) --handle->file->writers;
}

std::shared_ptr<LocalFile> FileSystem::localContents(const OpenFilePointer& file) const {
    if (auto local = file->local()) return local;
    const auto now = places_.common.replica.row(file->inode());
    if (!now || !now->contents) return nullptr;
    std::lock_guard lock(file->saving); // two readers at once open one file
    if (auto local = file->local()) return local;
    auto local = places_.contents.open(*now->contents);
    if (local) file->setLocal(local);
    return local;
}

void FileSystem::whenLocal(fuse_req_t request, const OpenFilePointer& file, Find find, Use use, int tries) {
    const auto parked = ParkedRequest::park(request, places_.common.tasks);
    const Inode inode = file->inode();
    const auto token = std::make_shared<std::atomic<Downloads::Token>>(0);
    parked->onInterruption([this, inode, token] { places_.downloads.unwant(inode, *token); });
    *token = places_.downloads.want(inode, [=, this](const auto& error) {
        if (error) return parked->fail(errorNumber(*error));
        parked->answer([&](fuse_req_t waiting) {
            if (const auto local = (this->*find)(file)) return use(waiting, *local);
            if (tries == 0) throw ErrorNumber{EIO};
            whenLocal(waiting, file, find, use, tries - 1); // out of date already
        });
    });
    if (parked->isAnswered()) places_.downloads.unwant(inode, *token);
}

void FileSystem::open(fuse_req_t request, Inode inode, fuse_file_info& info) {
    const Row item = row(inode);
    const bool writes = (info.flags & O_ACCMODE) != O_RDONLY;
    if (writes && !(item.capabilities & Capability::writing)) throw ErrorNumber{EACCES};
    const auto file = places_.open.get(item);
    if (info.flags & O_TRUNC) {
        replaceContents(*file);
        if (!writes && file->writers == 0) makeSafe(*file); // no close will
    } else if (item.contents) {
        localContents(file); // they stay readable, whatever becomes of the item
    }
    info.keep_cache = 1;
    // The size may be known by its low 32 bits only: reads have to come here to find out. And a page that the kernel
    // waits for would hold up whoever looks at the file.
    info.direct_io = !item.contents && !file->local();
    openHandle(info, file);
    if (fuse_reply_open(request, &info) != 0) dropHandle(info); // interrupted
}

void FileSystem::read(fuse_req_t request, std::size_t size, off_t from, const fuse_file_info& info) {
    const OpenFilePointer file = Handle::of(info).file;
    const auto answer = [size, from](fuse_req_t reader, const LocalFile& local) {
        fuse_bufvec data = FUSE_BUFVEC_INIT(size);
        data.buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK | FUSE_BUF_FD_RETRY);
        data.buf[0].fd = local.fd();
        data.buf[0].pos = from;
        fuse_reply_data(reader, &data, FUSE_BUF_SPLICE_MOVE);
    };
    if (const auto local = localContents(file)) return answer(request, *local);
    whenLocal(request, file, &FileSystem::localContents, answer);
}

void FileSystem::write(fuse_req_t request, fuse_bufvec& data, off_t at, const fuse_file_info& info) {
    const Handle& handle = Handle::of(info);
    const OpenFilePointer file = handle.file;
    const bool appends = (info.flags & O_APPEND) && !info.writepage; // pages of a mapping have their place
    const auto put = [file, at, appends](fuse_req_t writer, LocalFile& local, fuse_bufvec& source) {
        struct stat now {};
        if (appends && ::fstat(local.fd(), &now) != 0) failWithErrno();
        fuse_bufvec target = FUSE_BUFVEC_INIT(fuse_buf_size(&source));
        target.buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK | FUSE_BUF_FD_RETRY);
        target.buf[0].fd = local.fd();
        target.buf[0].pos = appends ? now.st_size : at;
        const ssize_t written = fuse_buf_copy(&target, &source, FUSE_BUF_SPLICE_NONBLOCK);
        file->setChanged();
        if (written < 0) throw ErrorNumber{static_cast<int>(-written)};
        fuse_reply_write(writer, static_cast<std::size_t>(written));
    };
    if (const auto local = changeableContents(file)) return put(request, *local, data);
    // The data lives as long as this call only.
    auto copy = std::make_shared<std::string>(fuse_buf_size(&data), '\0');
    fuse_bufvec target = FUSE_BUFVEC_INIT(copy->size());
    target.buf[0].mem = copy->data();
    if (const ssize_t copied = fuse_buf_copy(&target, &data, FUSE_BUF_SPLICE_NONBLOCK); copied < 0)
        throw ErrorNumber{static_cast<int>(-copied)};
    whenLocal(request, file, &FileSystem::changeableContents, [copy, put](fuse_req_t writer, LocalFile& local) {
        fuse_bufvec source = FUSE_BUFVEC_INIT(copy->size());
        source.buf[0].mem = copy->data();
        put(writer, local, source);
    });
}

/// The contents, once the replica knows that they are about to change: from here on the host's are not to be taken for
/// them, nor is what is being sent to count as all.
std::shared_ptr<LocalFile> FileSystem::changeableContents(const OpenFilePointer& file) const {
    auto local = localContents(file);
    if (!local || file->marked) return local;
    std::lock_guard lock(file->saving);
    local = file->local();
    if (!local || file->marked) return local;
    bool isOutOfDate = false; // since a moment
    mark(*file, [&](const Row& item) { return !(isOutOfDate = !file->unsaved && item.contents != local->name); });
    if (!isOutOfDate) {
        file->setChanged(); // also when the change fails: the next save takes the mark back
        return local;
    }
    file->setLocal(nullptr);
    return nullptr;
}

/// Unless the item as it is now does not fit.
void FileSystem::mark(OpenFile& file, const std::function<bool(const Row&)>& fits) const {
    // After a power cut what is marked is sent: it is not to be half of what was fetched.
    const auto now = places_.common.replica.row(file.inode());
    const bool isMarkedAlready = now && (now->pending.creation || now->pending.fields & ItemField::contents);
    const auto old = now && now->contents && !isMarkedAlready ? places_.contents.open(*now->contents) : nullptr;
    if (old && ::fdatasync(old->fd()) != 0) failWithErrno();
    bool isMarked = true;
    const auto look = [&](const Row& item) { return isMarked = fits(item); };
    places_.common.replica.change(file.inode(), look, ItemField::contents, places_.common.clock.now(),
                                  replica::Safe::fromCrash);
    file.marked = isMarked;
}

void FileSystem::replaceContents(OpenFile& file) const {
    std::lock_guard lock(file.saving);
    const auto local = file.local();
    const auto item = places_.common.replica.row(file.inode());
    const bool isRemoved = !item || item->pending.deletion;
    const bool isBegun = local && (isRemoved || (file.unsaved && item->contents != local->name)); // anew already
    const auto fresh = isBegun ? nullptr : places_.contents.create(); // the old ones stay until the new ones are safe
    try {
        mark(file, [](const Row&) { return true; });
    } catch (...) {
        if (fresh) places_.contents.remove(fresh->name);
        throw;
    }
    file.setChanged();
    if (fresh)
        file.setLocal(fresh);
    else if (::ftruncate(local->fd(), 0) != 0)
        failWithErrno();
}

void FileSystem::setSize(OpenFile& file, LocalFile& local, off_t size) const {
    if (::ftruncate(local.fd(), size) != 0) failWithErrno();
    file.setChanged();
}

void FileSystem::makeSafe(OpenFile& file) const {
    std::lock_guard lock(file.saving);
    if (!file.changed.exchange(false)) return;
    file.marked = false; // what is written from now on is news again
    try {
        const auto local = file.local();
        const auto item = places_.common.replica.row(file.inode());
        struct stat now {};
        if (!local) return;
        if (!item || item->pending.deletion) return places_.contents.remove(local->name);
        if (::fstat(local->fd(), &now) != 0) failWithErrno();
        Contents::mark(local->fd(),
                       {places_.common.replica.path(item->inode).value_or(""), item->identifier.value_or("")});
        std::optional<std::string> bytes;
        if (now.st_size <= kSmall)
            bytes = wholeFile(*local, now.st_size);
        else if (::fdatasync(local->fd()) != 0)
            failWithErrno();
        const auto edit = [&](Row& row) {
            row.contents = local->name;
            row.size = static_cast<std::uint64_t>(now.st_size);
            row.modified = timestampOf(now.st_mtim);
            return true;
        };
        places_.common.replica.change(file.inode(), edit, ItemField::contents | ItemField::contentModificationDate,
                                      places_.common.clock.now(), replica::Safe::fromPowerLoss, bytes);
        if (!file.changed) file.unsaved = false;
    } catch (...) {
        file.changed = true; // not safe yet; the next save tries again
        throw;
    }
    places_.uploads.touched(file.inode());
}

void FileSystem::makeSafeAtLast(OpenFile& file) const {
    try {
        makeSafe(file);
    } catch (const std::exception& error) { // the file keeps its mark; what was safe stays so
        LogScope(Logger::shared(), "makeSafeAtLast(_:)").error(error.what());
    } catch (const ErrorNumber& error) {
        LogScope(Logger::shared(), "makeSafeAtLast(_:)").error(std::generic_category().message(error.number));
    }
}

/// What could not be made safe by its last close takes no room any more when it was to be all of the contents.
void FileSystem::giveUp(OpenFile& file) const {
    std::lock_guard lock(file.saving);
    const auto local = file.local();
    const auto item = places_.common.replica.row(file.inode());
    if (!local || file.writers > 0 || (item && item->contents == local->name)) return;
    file.setLocal(nullptr);
    file.changed = file.unsaved = false;
    places_.contents.remove(local->name);
    if (item) // the kernel has it in its memory
        places_.common.notices.tell(
            {{.parent = item->parent, .name = item->name, .inode = item->inode, .contents = true}});
}

void FileSystem::save(fuse_req_t request, const fuse_file_info& info) {
    makeSafe(*Handle::of(info).file); // whoever has written
    fuse_reply_err(request, 0);
}

void FileSystem::release(fuse_req_t request, const fuse_file_info& info) {
    const std::unique_ptr<Handle> handle(&Handle::of(info));
    const bool isLast = handle->writes && handle->file->writers.fetch_sub(1) == 1;
    if (isLast) {
        makeSafeAtLast(*handle->file); // written through a mapping after the last flush
        if (handle->file->changed) giveUp(*handle->file);
        places_.uploads.look();
    }
    fuse_reply_err(request, 0);
}

void FileSystem::allocate(fuse_req_t request, int mode, off_t at, off_t length, const fuse_file_info& info) {
    const Handle& handle = Handle::of(info);
    const auto local = changeableContents(handle.file);
    if (!local) throw ErrorNumber{EOPNOTSUPP}; // programs write instead
    if (::fallocate(local->fd(), mode, at, length) != 0) failWithErrno();
    handle.file->setChanged();
    fuse_reply_err(request, 0);
}

} // namespace brindlemar
