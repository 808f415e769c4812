// The domain as a file system: FUSE's operations on the replica.
#pragma once

#include "provider/mount/Downloads.h"
#include "provider/mount/ErrorNumbers.h"
#include "provider/mount/ItemAttributes.h"
#include "provider/mount/OpenFiles.h"
#include "provider/mount/ParkedRequests.h"
#include "provider/mount/Uploads.h"

namespace brindlemar {

/// Each operation answers its request, at once or later; none waits for the host on the thread that it is called on. A
/// thrown error is answered by the caller, see operations().
class FileSystem {
public:
    /// All of them outlive the file system, which outlives the last task.
    struct Places {
        Folders::Places common;
        Folders& folders;
        Downloads& downloads;
        Uploads& uploads;
        Contents& contents;
        OpenFiles& open;
    };
    explicit FileSystem(const Places& places);

    /// The table for a session whose user data is a FileSystem.
    static const fuse_lowlevel_ops& operations();

    // Entries and attributes.
    void lookup(fuse_req_t request, replica::Inode parent, const std::string& name);
    void getAttributes(fuse_req_t request, replica::Inode inode);
    void setAttributes(fuse_req_t request, replica::Inode inode, const struct stat& wanted, int which);
    void statistics(fuse_req_t request) const;
    void getExtended(fuse_req_t request, replica::Inode inode, const std::string& name, std::size_t size);
    void listExtended(fuse_req_t request, replica::Inode inode, std::size_t size) const;

    // Folders.
    void openFolder(fuse_req_t request, replica::Inode inode, fuse_file_info& info);
    void readFolder(fuse_req_t request, replica::Inode inode, std::size_t size, off_t from, bool withAttributes);
    void syncFolder(fuse_req_t request);

    // Files.
    void open(fuse_req_t request, replica::Inode inode, fuse_file_info& info);
    void read(fuse_req_t request, std::size_t size, off_t from, const fuse_file_info& info);
    void write(fuse_req_t request, fuse_bufvec& data, off_t at, const fuse_file_info& info);
    void save(fuse_req_t request, const fuse_file_info& info);
    void release(fuse_req_t request, const fuse_file_info& info);
    void allocate(fuse_req_t request, int mode, off_t at, off_t length, const fuse_file_info& info);

    // Changes.
    void create(fuse_req_t request, replica::Inode parent, const std::string& name, mode_t mode, fuse_file_info* info);
    void makeFolder(fuse_req_t request, replica::Inode parent, const std::string& name, mode_t mode);
    void removeFile(fuse_req_t request, replica::Inode parent, const std::string& name);
    void removeFolder(fuse_req_t request, replica::Inode parent, const std::string& name);
    void rename(fuse_req_t request, replica::Inode parent, const std::string& name, replica::Inode newParent,
                const std::string& newName, unsigned flags);

    /// What was written is on the disk when it returns, with the news of it.
    void makeSafe(OpenFile& file) const;
    /// The same where no program hears of a failure: the log does.
    void makeSafeAtLast(OpenFile& file) const;

private:
    struct Handle;
    using OpenFilePointer = std::shared_ptr<OpenFile>;
    using Then = std::function<void(const std::shared_ptr<ParkedRequest>&)>;

    static void openHandle(fuse_file_info& info, OpenFilePointer file);
    static void dropHandle(const fuse_file_info& info);
    void giveUp(OpenFile& file) const;

    struct stat attributes(const replica::Row& row) const;
    fuse_entry_param entry(const replica::Row& row) const;
    void answerAttributes(fuse_req_t request, const replica::Row& row) const;

    /// The row, or of a file that was removed while it is open what it was; throws ENOENT.
    replica::Row row(replica::Inode inode) const;
    /// The entry of a folder that a program names; throws ENOENT.
    replica::Row namedEntry(replica::Inode parent, const std::string& name) const;
    /// The folder, if entries can be made and removed in it; throws EACCES and others.
    replica::Row changeableFolder(replica::Inode inode) const;
    replica::Row makeEntry(replica::Inode parent, const std::string& name, std::optional<std::string> contents,
                           mode_t mode);
    void keepContents(const replica::Row& item, const replica::Row& replaced) const;
    /// The connection's folder that the item is in.
    replica::Inode connectionOf(replica::Row row) const;

    /// Parks the request until the folder has been listed a piece further; then(request) has to look again.
    void whenListed(fuse_req_t request, replica::Inode folder, Then then);
    /// The file's contents, when they are local.
    std::shared_ptr<LocalFile> localContents(const OpenFilePointer& file) const;
    /// The same once the replica knows that they are about to change.
    std::shared_ptr<LocalFile> changeableContents(const OpenFilePointer& file) const;
    /// Parks the request until the contents are here: use(request, what `find` gives then).
    using Find = std::shared_ptr<LocalFile> (FileSystem::*)(const OpenFilePointer& file) const;
    using Use = std::function<void(fuse_req_t, LocalFile&)>;
    void whenLocal(fuse_req_t request, const OpenFilePointer& file, Find find, Use use, int tries = 3);
    void mark(OpenFile& file, const std::function<bool(const replica::Row&)>& fits) const;
    void replaceContents(OpenFile& file) const;
    void setSize(OpenFile& file, LocalFile& local, off_t size) const;

    const Places places_;
};

} // namespace brindlemar
