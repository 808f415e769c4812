#include "provider/mount/FileSystem.h"

#include <fcntl.h>

#include <cerrno>

namespace brindlemar {

namespace {
replica::Inode item(fuse_ino_t inode) { return static_cast<replica::Inode>(inode); }

template <class Body>
void run(fuse_req_t request, Body&& body) {
    answerOrFail(request, [&] { body(*static_cast<FileSystem*>(fuse_req_userdata(request))); });
}

void init(void*, fuse_conn_info* connection) {
    connection->want &= ~unsigned{FUSE_CAP_WRITEBACK_CACHE}; // sizes and dates are ours
    connection->want |= connection->capable & (FUSE_CAP_ATOMIC_O_TRUNC | FUSE_CAP_READDIRPLUS | FUSE_CAP_SPLICE_WRITE |
                                               FUSE_CAP_SPLICE_MOVE | FUSE_CAP_PARALLEL_DIROPS | FUSE_CAP_ASYNC_DIO);
    connection->want &= ~unsigned{FUSE_CAP_READDIRPLUS_AUTO | FUSE_CAP_AUTO_INVAL_DATA};
    connection->want |= connection->capable & FUSE_CAP_EXPLICIT_INVAL_DATA;
    // Reads ahead that wait for the host count as in the background; others are not to wait for them.
    connection->max_background = connection->congestion_threshold = 10'000;
}

fuse_lowlevel_ops makeOperations() {
    fuse_lowlevel_ops all{};
    all.init = init;
    all.lookup = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
        run(request, [&](FileSystem& files) { files.lookup(request, item(parent), name); });
    };
    // Inodes are rows of the replica: nothing is kept for those that the kernel knows.
    all.forget = [](fuse_req_t request, fuse_ino_t, std::uint64_t) { fuse_reply_none(request); };
    all.forget_multi = [](fuse_req_t request, std::size_t, fuse_forget_data*) { fuse_reply_none(request); };
    all.getattr = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
        run(request, [&](FileSystem& files) { files.getAttributes(request, item(inode)); });
    };
    all.setattr = [](fuse_req_t request, fuse_ino_t inode, struct stat* wanted, int which, fuse_file_info*) {
        run(request, [&](FileSystem& files) { files.setAttributes(request, item(inode), *wanted, which); });
    };
    all.statfs = [](fuse_req_t request, fuse_ino_t) {
        run(request, [&](FileSystem& files) { files.statistics(request); });
    };
    all.getxattr = [](fuse_req_t request, fuse_ino_t inode, const char* name, std::size_t size) {
        run(request, [&](FileSystem& files) { files.getExtended(request, item(inode), name, size); });
    };
    all.listxattr = [](fuse_req_t request, fuse_ino_t inode, std::size_t size) {
        run(request, [&](FileSystem& files) { files.listExtended(request, item(inode), size); });
    };

    all.opendir = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.openFolder(request, item(inode), *info); });
    };
    all.readdir = [](fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t from, fuse_file_info*) {
        run(request, [&](FileSystem& files) { files.readFolder(request, item(inode), size, from, false); });
    };
    all.readdirplus = [](fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t from, fuse_file_info*) {
        run(request, [&](FileSystem& files) { files.readFolder(request, item(inode), size, from, true); });
    };
    all.releasedir = [](fuse_req_t request, fuse_ino_t, fuse_file_info*) { fuse_reply_err(request, 0); };
    all.fsyncdir = [](fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
        run(request, [&](FileSystem& files) { files.syncFolder(request); });
    };

    all.open = [](fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.open(request, item(inode), *info); });
    };
    all.read = [](fuse_req_t request, fuse_ino_t, std::size_t size, off_t from, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.read(request, size, from, *info); });
    };
    all.write_buf = [](fuse_req_t request, fuse_ino_t, fuse_bufvec* data, off_t at, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.write(request, *data, at, *info); });
    };
    all.flush = [](fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.save(request, *info); });
    };
    all.fsync = [](fuse_req_t request, fuse_ino_t, int, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.save(request, *info); });
    };
    all.release = [](fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.release(request, *info); });
    };
    all.fallocate = [](fuse_req_t request, fuse_ino_t, int mode, off_t at, off_t length, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.allocate(request, mode, at, length, *info); });
    };

    all.create = [](fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, fuse_file_info* info) {
        run(request, [&](FileSystem& files) { files.create(request, item(parent), name, mode, info); });
    };
    all.mknod = [](fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t) {
        run(request, [&](FileSystem& files) {
            if (!S_ISREG(mode)) throw ErrorNumber{EPERM}; // see mknod(2)
            files.create(request, item(parent), name, mode, nullptr);
        });
    };
    all.mkdir = [](fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode) {
        run(request, [&](FileSystem& files) { files.makeFolder(request, item(parent), name, mode); });
    };
    all.unlink = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
        run(request, [&](FileSystem& files) { files.removeFile(request, item(parent), name); });
    };
    all.rmdir = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
        run(request, [&](FileSystem& files) { files.removeFolder(request, item(parent), name); });
    };
    all.rename = [](fuse_req_t request, fuse_ino_t parent, const char* name, fuse_ino_t newParent, const char* newName,
                    unsigned flags) {
        run(request,
            [&](FileSystem& files) { files.rename(request, item(parent), name, item(newParent), newName, flags); });
    };
    // Hosts have no links; see symlink(2) and link(2) for the error.
    all.symlink = [](fuse_req_t request, const char*, fuse_ino_t, const char*) { fuse_reply_err(request, EPERM); };
    all.link = [](fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*) { fuse_reply_err(request, EPERM); };
    return all;
}
} // namespace

const fuse_lowlevel_ops& FileSystem::operations() {
    static const fuse_lowlevel_ops all = makeOperations();
    return all;
}

} // namespace brindlemar
