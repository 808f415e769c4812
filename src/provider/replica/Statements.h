// The replica's statements, prepared once for each connection.
#pragma once

#include "provider/replica/Replica.h"

namespace brindlemar::replica {

struct Replica::Statements {
    explicit Statements(sqlite::Database& database);

    static Row read(const sqlite::Statement& at);      // all columns
    static Row readEntry(const sqlite::Statement& at); // those of `entries`
    static Inode readInode(const sqlite::Statement& at) { return at.integer(0); }

    std::optional<Row> get(Inode inode) { return byInode.first(read, inode); }
    /// What is shown by this name.
    std::optional<Row> shown(Inode parent, std::string_view name) { return byName.first(read, parent, name); }
    std::optional<Row> known(std::string_view identifier) { return byIdentifier.first(read, identifier); }
    template <class... Values>
    static std::vector<Row> all(sqlite::Statement& statement, const Values&... values) {
        std::vector<Row> rows;
        statement.each([&](const auto& at) { rows.push_back(read(at)); }, values...);
        return rows;
    }
    /// Writes the row as it is; one without an inode gets it. It is in the queue from its first change on.
    void put(Row& row);
    /// The first name after `wanted` that no other row in the folder is shown by.
    std::string freeNameFor(const Row& row, Inode parent, std::string_view wanted);
    /// The folders around it, from the nearest on. `onHost`: where the host has them.
    std::vector<Inode> above(Inode folder, bool onHost = false);
    /// True when the item is that folder, or one around it.
    bool isAround(Inode item, Inode folder, bool onHost = false);

    sqlite::Database& database;
    std::int64_t lastPlace;
    Inode lastInode; // none is given twice while the kernel may remember it
    sqlite::Statement byInode, byIdentifier, around, byName;
    sqlite::Statement entries;      // shown in a folder, behind an inode, so many
    sqlite::Statement below;        // the next in a folder, here and on the host
    sqlite::Statement anyBelow;     // one in a folder, here
    sqlite::Statement waitingBelow; // one in a folder that waits, here
    sqlite::Statement onHost;       // those in a folder on the host that wait or have no identifier
    sqlite::Statement lost;         // one without an identifier, by its place on the host
    sqlite::Statement ready;        // of a stretch of the queue what can be told, or could but for another one's name
    sqlite::Statement placeOf;      // an item's in the queue
    sqlite::Statement stretch;      // the place in the queue that is so many behind another
    sqlite::Statement inTheWay;     // what waits and has a place on the host, but for one item
    sqlite::Statement failed;       // some of the first
    sqlite::Statement forgive;      // all that failed, or for one reason
    sqlite::Statement anyNameless;  // one that the host has to tell the identifier of
    sqlite::Statement namelessIn;   // those in a folder
    sqlite::Statement nameless;     // folders to list again, for identifiers
    sqlite::Statement estrange;     // those in a folder, when it has another identifier
    sqlite::Statement estrangeMoved;
    sqlite::Statement isNameless; // the item is one that the host has to tell the identifier of
    sqlite::Statement note;       // what the host has
    sqlite::Statement record;     // what is being sent
    sqlite::Statement recordPlace;
    sqlite::Statement clearPlace; // of what was sent there before
    sqlite::Statement allSentTo;  // those that may be in a folder
    sqlite::Statement anyFolderSent, sentToAny;
    sqlite::Statement sentTo; // those that may be at that place
    sqlite::Statement stamp;  // a folder, when an entry came or went
    sqlite::Statement disown;
    sqlite::Statement isIndexedSo; // the row has these values in what an index is about
    sqlite::Statement insertOrUpdate, update, erase;
    sqlite::Statement keep, unkeep;
};

/// What the item says, into the row; not its place. Local contents keep their size and date.
void takeProperties(Row& row, const NSFileProviderItem& item);

} // namespace brindlemar::replica
