// Everything that is known of the domain's items, on the disk.
#pragma once

#include "provider/replica/Ballast.h"
#include "provider/replica/Past.h"
#include "provider/replica/ReplicaFile.h"
#include "provider/replica/Row.h"
#include "support/TurnMutex.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <unordered_map>
#include <vector>

namespace brindlemar::replica {

/// What the file system has to hear after a change: which entries are not as they were.
struct Effect {
    Inode parent = 0;
    std::string name;   // of the entry
    Inode inode = 0;    // of the item, whose attributes, and contents when `contents` is set, are new
    bool entry = false; // the entry came, went or leads elsewhere
    bool contents = false;
};
using Effects = std::vector<Effect>;

/// One request for the host, taken from the queue.
struct Job {
    Row item;                // with what is to be told in `pending`, a part of all that waits
    Row parent;              // the folder it is in
    Row formerParent;        // the folder that the host has it in; for a creation the same as `parent`
    std::int64_t number = 0; // no other job has it
};

/// When a local change has to be safe.
enum class Safe {
    fromCrash,    // of the process, when the call returns
    fromPowerLoss // too
};

/// What tells the item's contents from others.
HostVersion hostVersion(const NSFileProviderItem& item);

/// Thread-safe: looks and changes do not wait for each other. Throws sqlite::Error when the disk does not take a
/// change: nothing has changed then.
class Replica {
public:
    /// The directory exists. See openReplicaFile() about `say`.
    Replica(const std::string& directory, const std::function<void(const std::string&)>& say);
    ~Replica();

    std::optional<Row> row(Inode inode);
    std::optional<Row> child(Inode parent, std::string_view name);
    std::optional<Row> find(std::string_view identifier);
    /// The entries of a folder in the order of their inodes, from the one behind `after`; body(row) gives false to
    /// stop. Of the rows only the identifier, the place, and what attributesOf() needs is there. The body runs without
    /// a lock and may call the replica.
    void children(Inode parent, Inode after, const std::function<bool(const Row&)>& body);
    /// "Work/photos/a.txt"; empty for the root, none for what is not there.
    std::optional<std::string> path(Inode inode);

    // What the host tells.

    // A listing is of an identifier; nothing happens once the folder has another.

    /// The items of a listing of this folder, or some of them. What is as it was is not written, nor what was so before
    /// a change of ours that the listing cannot know yet.
    Effects merge(Inode folder, std::string_view identifier, std::span<const std::shared_ptr<NSFileProviderItem>> items,
                  Timestamp began);
    /// The folder was listed to its end, by a host that is there: what is still without an identifier in it is not on
    /// the host any more, unless the extension may have answered from before the folder had this identifier.
    Effects setListed(Inode folder, std::string_view identifier, Timestamp began, Timestamp now);
    /// Items that are gone, with all below them, the innermost first: while many go, some are still shown. What has
    /// changes of its own that wait is kept: it is made anew.
    Effects remove(std::span<const ItemIdentifier> identifiers, Timestamp now);
    /// The contents of an item, fetched. False, and nothing changes, when the item has other contents by now or is
    /// gone. `size` in bytes; `version`: what the host had when it gave them, if it said.
    bool setContents(Inode inode, std::string_view identifier, const std::string& contents, std::uint64_t size,
                     const std::optional<HostVersion>& version = std::nullopt);
    /// Forgets contents that the host has. False when it has not, or there are none.
    bool dropContents(Inode inode);

    // What programs do. A folder in which an entry comes or goes has the date `now`. What cannot be, as things are by
    // now, is thrown as a std::system_error with its std::errc, and nothing has changed.

    /// `contents`: the name of the file for them; none for a folder.
    Row create(Inode parent, std::string_view name, std::optional<std::string> contents, std::optional<unsigned> mode,
               Timestamp now);
    /// New contents, or new properties: edit(row) changes size, dates, mode and contents of the row as it is now, or
    /// gives false; `fields` tells what of it concerns the host. `bytes`: the whole contents, which the database keeps
    /// until the host has them; without them contents that are to be safe from power loss are so already. The row
    /// afterwards; none, and nothing happens, when edit() gave false or the item was removed meanwhile.
    std::optional<Row> change(Inode inode, const std::function<bool(Row&)>& edit, ItemFields fields, Timestamp now,
                              Safe safe, std::optional<std::string_view> bytes = std::nullopt);
    /// Gives the item another place; what is there goes, if it `replaces`. When that is a file, and the item is one
    /// with contents, its identity with the host passes to the item: the host hears of new contents only.
    void move(Inode inode, Inode parent, std::string_view name, Timestamp now, bool replaces = true);
    /// Two items change places.
    void exchange(Inode one, Inode other, Timestamp now);
    void remove(Inode inode, Timestamp now);
    /// All that was changed so far is safe from power loss when it returns.
    void sync();

    // The queue.

    /// The first item that can be told now, which counts as under way until it has succeeded or failed: its folder is
    /// known to the host, no other item that waits has its place on the host, it has not failed, and `isHeld` is false
    /// for it. A change of place is told before a change of contents, each by itself. Those in `first` are looked at
    /// before all others.
    std::optional<Job> next(const std::function<bool(const Job&)>& isHeld, std::span<const Inode> first = {});
    std::int64_t waiting();
    /// The job goes to the host now, which had `seen`, if somebody has looked.
    void sending(const Job& job, const std::optional<HostVersion>& seen);
    /// The host has carried out the job; `result` is the item as it has it now, if there is one, of the same kind. What
    /// is below a folder that has another identifier by now is known again after the folder's next listing. As long as
    /// the disk does not take it, the job is under way; so with failed(). Both do nothing for a job that is not.
    Effects succeeded(const Job& job, const NSFileProviderItem* result, Timestamp now);
    /// True when the host's item is neither what was known of it nor what was sent: somebody else has changed it.
    bool isConflict(const Job& job, const NSFileProviderItem& item, Timestamp now);
    /// With no error the job is to be taken again. True when it was to make what was removed meanwhile: only a listing
    /// of its folder tells whether the host has it.
    bool failed(const Job& job, const std::optional<NSError>& error);
    /// A job that was put back cannot be taken for now. Nothing happens when it was taken again, or the item changed.
    void refuse(const Job& job, const NSError& error);
    /// The items that failed, some of the first.
    std::vector<Row> failures(std::size_t most);
    std::int64_t failureCount();
    /// Failed ones may be told again; those that failed for `only`, if it is given. How many there are.
    std::int64_t retry(const std::optional<NSError>& only = std::nullopt);
    /// Folders that the host knows, with items in them that it has to tell the identifiers of, or that may be in them
    /// by requests without an answer.
    std::vector<Inode> foldersToIdentify();
    /// True when there are such requests, also ones under way.
    bool hasSentTo(Inode folder);
    /// The folder was listed since the last of those that are not under way: what was not found was not carried out.
    void forgetSentTo(Inode folder);
    /// True when there have come more of these since the last call.
    bool hasMoreToIdentify() { return isEstranged_.exchange(false); }
    /// The outermost of the folders around the item, where the host has it, that it has to tell the identifier of:
    /// until then those of all below may be of another place.
    std::optional<Row> outermostNameless(Inode inode);
    /// True when there is an item in the folder, on the host, that it has to tell the identifier of.
    bool hasNameless(Inode folder);
    /// True when a folder around the item is to have another place on the host: its identifier changes with that.
    bool isMoving(Inode inode);

    // Contents.

    /// The names of contents that no item has any more, since the last call; they can be removed: that is safe from
    /// power loss.
    std::vector<std::string> takeDiscarded();
    /// Every contents file that an item has: body(inode, name, isPending).
    void eachContents(const std::function<void(Inode, const std::string&, bool)>& body);
    /// What change() was given as `bytes` and the host does not have yet.
    void eachKept(const std::function<void(const std::string& contents, std::string_view bytes)>& body);
    /// A text that stays: "boot", for instance.
    std::optional<std::string> remembered(std::string_view key);
    void remember(std::string_view key, std::string_view value);

private:
    struct Statements;
    struct Merging;
    struct Going;
    /// A job that the host has. The item that its answer is for may have been given to another row meanwhile.
    struct Sent {
        std::int64_t number = 0; // of the job
        Inode owner = 0;
        ItemFields changed = 0; // since
        Inode parent = 0;       // where the host has the item when it succeeds
        std::string name{};
        std::vector<Inode> above{}; // the folders around it
    };
    void write(const std::function<void()>& body, Safe safe = Safe::fromCrash);
    // What makes room, or has to be written also on a full disk: the body may run twice.
    void writeToFree(const std::function<void()>& body, Safe safe = Safe::fromCrash);
    void commit(const std::function<void()>& body, Safe safe = Safe::fromCrash); // under writing_
    void note(Row& row, LocalChange change, ItemFields fields, Timestamp now);
    bool mayBeThere(const Row& row);
    void lookFor(Row& row, const Sent* way);
    bool wasMoved(Row row);
    void relocate(Row& row, Inode parent, std::string_view name, Timestamp now);
    void stamp(Inode folder, Timestamp now);
    void requireFolder(Inode folder);
    void requireOutside(const Row& item, Inode folder);
    void requireEmpty(Inode folder);
    void estrange(Inode folder, Timestamp now); // it has another identifier
    void pass(const Row& from, Row& to, Inode parent, std::string_view name, Timestamp now);
    void bury(const Row& row);
    using Writer = void (Replica::*)(const std::function<void()>& body, Safe safe);
    Effects inSteps(
        Timestamp began, Writer writer, const std::function<bool(Merging&)>& step,
        const std::function<void()>& taken = [] {});
    Effects forgetAll(std::size_t count, Timestamp now,
                      const std::function<std::optional<Going>(Merging&, std::size_t index)>& begin);
    Sent* sent(Inode owner);
    void settle(const Job& job, const std::function<void(const Sent&)>& body);
    std::vector<Inode> allAbove(const Job& job);
    std::optional<Job> job(Inode inode);
    std::optional<Job> untangle(const std::vector<Inode>& jammed);
    bool isInTheWay(const Job& job);
    bool isExpected(Inode parent, std::string_view name) const;
    Job send(Job job);
    bool isStale(Inode folder);
    bool isBelowLost(Inode folder);
    std::optional<Row> folderOf(Inode folder, std::string_view identifier);

    TurnMutex writing_;  // long work lets others in between
    std::mutex reading_; // never both
    sqlite::Database writer_, reader_;
    std::unique_ptr<Statements> changes_, looks_;
    // Under writing_:
    Ballast ballast_;
    Safe safe_ = Safe::fromPowerLoss;          // the writer's setting
    bool isSynced_ = false;                    // all that was committed is safe from power loss
    std::unordered_map<Inode, Sent> underWay_; // by the inode in the job
    std::int64_t lastJob_ = 0;
    std::int64_t lap_ = 0; // where the queue was last taken from
    Past past_;
    std::unordered_map<Inode, Timestamp> estranged_; // folders, in this run
    Effects untold_;                                 // of what was written before the disk took no more
    std::atomic<bool> isEstranged_{false};
};

} // namespace brindlemar::replica
