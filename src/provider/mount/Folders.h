// Lists folders into the replica.
#pragma once

#include "platform/Clock.h"
#include "platform/Extension.h"
#include "platform/Queue.h"
#include "provider/DomainRegistry.h"
#include "provider/OpenFolders.h"
#include "provider/mount/KernelNotices.h"
#include "provider/replica/Replica.h"

#include <unordered_map>

namespace brindlemar {

/// Each folder is listed once at a time, for all who wait. Thread-safe; nothing waits for the host but the tasks.
class Folders : public std::enable_shared_from_this<Folders> {
public:
    /// All of them outlive the last task.
    struct Places {
        replica::Replica& replica;
        KernelNotices& notices;
        std::shared_ptr<NSFileProviderReplicatedExtension> extension;
        OpenFolders& folders;
        DomainManager& manager;
        Queue& tasks;
        Clock& clock;
        /// False when a request to this connection's host would be for nothing. Does not wait for the host.
        std::function<bool(const std::string& connection)> hostIsExpected;
    };
    explicit Folders(const Places& places) : places_(places) {}

    /// Called once, when more of the listing has arrived (`more`), or it has ended, on a thread that may be kept.
    using Handler = std::function<void(bool more, const std::optional<NSError>& error)>;
    /// Lists the folder, or joins in its listing.
    void list(replica::Inode folder, Handler handler);
    /// Looks for changes in a folder that was shown before, at most every ten seconds.
    void refresh(replica::Inode folder);
    /// When the folder was last listed to its end, by the host that is there, and not out of caches from before it was.
    std::optional<Timestamp> answered(replica::Inode folder) const;
    /// In the last ten seconds.
    bool isFresh(replica::Inode folder) const;
    /// A host went away just now. What was asked for then the extension takes for empty, and its caches give that once
    /// more for ten seconds.
    void hostIsAway();
    bool isHostLostLately() const;
    /// The host has just made the folder: there is nothing else in it.
    void setNew(replica::Inode folder);
    /// Learns from the host by what identifier it knows the item; `known` is called once, on any thread.
    void identify(const replica::Row& item, std::function<void(const std::optional<NSError>& error)> known);
    /// The item at a path of names, "Work/photos"; where a name is not known, its folder is listed. `found` is called
    /// once, on any thread, with the item or with why there is none.
    using Found = std::function<void(const std::optional<replica::Row>& item, const std::optional<NSError>& error)>;
    void find(const std::string& path, const Found& found) { walk(replica::kRoot, path, false, found); }
    /// Lists what has to be listed before all that waits for the host can be told.
    void identifyAll();
    /// Called after each listing: what waits here may have become other requests. To be set before the first.
    void onListed(std::function<void()> handler) { listed_ = std::move(handler); }
    /// True when all that is in the folder is in the replica.
    static bool isKnown(const replica::Row& folder) { return folder.listed.has_value(); }

private:
    friend class FolderListing;
    void walk(replica::Inode at, const std::string& path, bool isListed, const Found& found);
    void start(replica::Inode folder);
    void open(replica::Inode folder);
    void enumerate(replica::Inode folder, const replica::Row& row);
    Timestamp askableFrom(replica::Inode folder, const ItemIdentifier& identifier, Timestamp now);
    bool isStill(replica::Inode folder, const ItemIdentifier& identifier) const;
    void advanced(replica::Inode folder);
    void answer(const std::vector<Handler>& waiting, bool more, const std::optional<NSError>& error) const;
    void completed(replica::Inode folder, const ItemIdentifier& identifier, Timestamp began);
    void ended(replica::Inode folder, std::optional<NSError> error);
    void unanswered(replica::Inode folder);
    bool mayBeEmpty(replica::Inode folder) const;

    const Places places_;
    std::function<void()> listed_;
    struct Listing {
        std::vector<Handler> waiting;
    };
    Guarded<std::unordered_map<replica::Inode, Listing>> listings_;
    struct Check {
        Timestamp began{}, completed{};
        Timestamp unanswered{}; // the last one that was
    };
    Guarded<std::unordered_map<replica::Inode, Check>> checked_; // the last listing of each in this run
    struct Asked {
        replica::Inode folder = 0;
        Timestamp at{};
    };
    Guarded<std::unordered_map<ItemIdentifier, Asked>> asked_; // lately, and which folder had the identifier
    Guarded<Timestamp> hostLost_{};
};

} // namespace brindlemar
