// What the host tells, on its way into the replica's tables.
#pragma once

#include "provider/replica/Statements.h"

namespace brindlemar::replica {

/// An item that goes with all below it, step by step: the innermost first.
struct Replica::Going {
    struct Folder {
        Inode inode;
        std::optional<std::string> identifier;     // with another one it does not go
        Inode last = 0;                            // of those shown in it that are through
        std::optional<std::vector<Inode>> moved{}; // those shown elsewhere, once the others are through
    };
    std::vector<Folder> path; // to where the next step goes on; empty at the end
    bool isConnection = false;
};

/// Rows of which a transaction writes at most so many when there are more.
inline constexpr std::size_t kStep = 1000;

/// Within one transaction.
struct Replica::Merging {
    /// `began`: when the listing did.
    Merging(Replica& replica, Timestamp began) : began(began), replica(replica), statements(*replica.changes_) {}

    /// The item that the host knows by this. A row below a folder whose identifier is not known any more loses its own:
    /// it is another item's by now.
    std::optional<Row> known(std::string_view identifier);
    /// An item of a listing of the folder.
    void take(const Row& around, const NSFileProviderItem& item);
    /// The host does not have this row's item any more, nor what is below it.
    void forget(const Row& row);
    /// The same in steps: the first, and those that follow until the path is empty, each for `most` rows at most, which
    /// it counts down.
    Going begin(const Row& row, bool isConnection = false);
    void goOn(Going& going, std::size_t& most);
    /// Where the host has it, and by what name it is shown, unless a place was chosen here that it is to be told.
    void show(Row& row, Inode folder, std::string_view name);
    /// What differs from before, written and told to the file system.
    void update(const Row& before, Row& after, bool contents = false);

    Effects effects;

private:
    bool isPast(Inode folder, const NSFileProviderItem& item) const;
    void meet(Row row, const Row& around, const NSFileProviderItem& item);
    void insert(const Row& around, const NSFileProviderItem& item);
    std::optional<Row> expected(const Row& come);
    void giveName(Row& row, Inode folder, std::string_view name);
    void revive(Inode folder);
    void keepBoth(Row mine, const Row& around, const NSFileProviderItem& item);
    std::optional<Row> nextBelow(Going::Folder& folder);
    void leave(const Row& row, bool isConnection);

    const Timestamp began;
    std::optional<bool> hasNameless; // at the first look
    Replica& replica;
    Statements& statements;
};

} // namespace brindlemar::replica
