// The user's view of the domain: a mounted file system on a durable replica.
#pragma once

#include "provider/ChangeFeed.h"
#include "provider/mount/BringTree.h"
#include "provider/mount/FileSystem.h"
#include "provider/mount/Rescue.h"

namespace brindlemar {

/// Thread-safe.
class Mount {
public:
    /// All of them outlive the mount.
    struct Places {
        std::shared_ptr<NSFileProviderReplicatedExtension> extension;
        OpenFolders& folders;
        DomainManager& manager;
        FetchedFiles& fetched;
        Queue& tasks;
        Clock& clock;
        std::function<bool(const std::string& connection)> hostIsExpected; // see Folders
    };
    /// Keeps its state below `state`, on one file system with the temporary directory. Throws sqlite::Error or
    /// std::system_error when there can be no replica.
    Mount(const std::string& state, std::string path, const Places& places);
    /// No task runs any more.
    ~Mount();

    /// Shows the file system, host or no host. Why not is told by status().
    void show();
    /// Takes it away. What programs have written so far is safe then.
    void hide();
    /// Takes no more work. Tasks that run go on.
    void stop();

    // What the platform learns.
    void apply(const ChangeSet& changes);
    void domainChanged();
    ChangeFeed::TopLevel topLevel();

    // What people ask.
    struct Waiting {
        std::int64_t length = 0;
        std::int64_t failed = 0;          // of it
        std::vector<std::string> written; // of it; by programs, just now: see Uploads::isBusy()
        bool isAtWork = false;            // see Uploads
    };
    Waiting waiting();
    struct Status {
        std::string path, error; // empty when it is mounted
        Waiting waiting;
        struct Transfer {
            bool fetch = false;
            std::string path;
            std::int64_t completed = 0, total = 0;
        };
        std::vector<Transfer> transfers;
        std::vector<std::pair<std::string, NSError>> failures; // by path
    };
    Status status();
    std::int64_t retry() { return uploads_->retry(); }
    struct Freed {
        std::int64_t files = 0, bytes = 0;
        std::int64_t kept = 0; // files that are open, or that the host does not have
    };
    /// Frees what the host has of the item and all below it. `ended` is called once, on any thread.
    void evict(const std::string& path,
               std::function<void(const Freed& freed, const std::optional<NSError>& error)> ended);
    /// Makes the item and all below it local.
    void bring(const std::string& path, BringTree::Listener listener);

private:
    Freed free(const replica::Row& top);
    void recover();
    void putAside(const std::string& contents);
    void lookForLost();
    bool isRescuing();
    Folders::Places common();

    const std::string path_;
    const Places places_;
    Contents contents_;
    std::vector<std::string> said_; // of the replica's opening
    replica::Replica replica_;
    OpenFiles open_;
    KernelNotices notices_{open_};
    const std::shared_ptr<Folders> folders_;
    const std::shared_ptr<Downloads> downloads_;
    const std::shared_ptr<Uploads> uploads_;
    const std::shared_ptr<Rescue> rescue_;
    FileSystem files_;
    struct Session {
        std::unique_ptr<fuse::FuseSession> session;
        std::string error = "not mounted yet";
    };
    Guarded<Session> session_;
    struct Change {
        Timestamp since{};
        bool connected = false;
    };
    Guarded<Change> lastChange_; // of the domain, that was acted upon
};

} // namespace brindlemar
