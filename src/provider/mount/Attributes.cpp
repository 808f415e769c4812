#include "provider/mount/Attributes.h"

#include <unistd.h>

#include <algorithm>

namespace brindlemar {

namespace {
constexpr unsigned kWriteBits = 0222;
constexpr blksize_t kBlockSize = 4096;

timespec asTimespec(Timestamp time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {.tv_sec = static_cast<time_t>(seconds.time_since_epoch().count()),
            .tv_nsec = static_cast<long>((time - seconds).count())};
}
} // namespace

Timestamp timestampOf(const timespec& time) {
    constexpr auto last = std::chrono::floor<std::chrono::seconds>(Timestamp::max().time_since_epoch()).count() - 1;
    const auto second = std::clamp<std::int64_t>(time.tv_sec, -last, last); // some 292 years from 1970
    return Timestamp(std::chrono::seconds(second) + std::chrono::nanoseconds(time.tv_nsec));
}

unsigned allowedPermissions(const replica::Row& row) {
    return row.capabilities & Capability::writing ? 0777 : 0777 & ~kWriteBits;
}

unsigned permissions(const replica::Row& row) {
    return row.mode.value_or(row.folder ? 0700 : 0600) & allowedPermissions(row);
}

struct stat attributesOf(const replica::Row& row) {
    struct stat attributes {};
    attributes.st_ino = static_cast<ino_t>(row.inode);
    attributes.st_mode = (row.folder ? S_IFDIR : S_IFREG) | permissions(row);
    attributes.st_nlink = row.pending.deletion ? 0 : row.folder ? 2 : 1;
    static const uid_t user = ::geteuid();
    static const gid_t group = ::getegid();
    attributes.st_uid = user;
    attributes.st_gid = group;
    attributes.st_size = static_cast<off_t>(row.folder ? 0 : row.size);
    attributes.st_blksize = kBlockSize;
    // Of what is not local some: tar(1) takes a file without any for one hole.
    attributes.st_blocks = row.contents ? (attributes.st_size + 511) / 512 : attributes.st_size > 0;
    attributes.st_mtim = asTimespec(row.modified);
    attributes.st_ctim = asTimespec(row.changed == Timestamp() ? row.modified : row.changed);
    attributes.st_atim = asTimespec(row.used);
    return attributes;
}

} // namespace brindlemar
