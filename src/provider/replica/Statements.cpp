#include "provider/replica/Statements.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace brindlemar::replica {

namespace {
constexpr const char* kColumns =
    "inode,parent,identifier,name,folder,size,modified,used,changed,mode,capabilities,flags,storageClass,decoration,"
    "hostModified,hostSize,sentModified,sentSize,sentParent,sentName,hostParent,hostName,contents,listed,"
    "creation,deletion,fields,generation,errorDomain,errorCode,errorText";

// Something else that waits has the place on the host where this one is to be.
constexpr const char* kNameIsTaken =
    "EXISTS(SELECT 1 FROM items other INDEXED BY hostPlaces WHERE other.place IS NOT NULL AND "
    "other.hostParent>0 AND other.hostParent=item.parent AND other.hostName=item.name AND other.inode<>item.inode)";

// The host knows the item, or is to make it, and its folder.
constexpr const char* kIsKnown =
    "(item.identifier IS NOT NULL OR item.creation) AND item.parent<>1 AND folder.identifier IS NOT NULL AND NOT "
    "folder.deletion";

// A folder goes after all that was in it.
constexpr const char* kCanGo =
    "item.identifier IS NOT NULL AND item.parent<>1 AND NOT EXISTS(SELECT 1 FROM items other INDEXED BY hostPlaces "
    "WHERE other.place IS NOT NULL AND other.hostParent>0 AND other.hostParent=item.inode AND (other.identifier IS NOT "
    "NULL OR NOT other.deletion))";

std::string selected(const std::string& from) { return std::string("SELECT ") + kColumns + " FROM items " + from; }

struct Writing {
    std::string insertOrUpdate;
    std::string update; // leaves alone what large indexes are about: fewer pages are written
};

/// With the same values: those of the columns, and a place in the queue for when it waits and has none.
Writing writing() {
    const std::set<std::string> stable = {"identifier", "parent",   "name",     "hostParent",
                                          "hostName",   "contents", "deletion", "errorDomain"};
    std::string values, all, some, column;
    std::istringstream columns(std::string(kColumns) + ",");
    int number = 0;
    while (std::getline(columns, column, ',')) {
        const std::string value = "?" + std::to_string(++number);
        values += value + ",";
        if (number == 1) continue; // the inode
        all += column + "=" + value + ",";
        if (!stable.contains(column)) some += column + "=" + value + ",";
    }
    const std::string place = "?" + std::to_string(++number);
    const std::string settled =
        "place=CASE WHEN " + place + " IS NULL THEN NULL ELSE coalesce(place," + place + ") END";
    return {std::string("INSERT INTO items(") + kColumns + ",place) VALUES(" + values + place +
                ") ON CONFLICT(inode) DO UPDATE SET " + all + settled,
            "UPDATE items SET " + some.substr(0, some.size() - 1) + " WHERE inode=?1"};
}

std::int64_t ticks(Timestamp time) { return time.time_since_epoch().count(); }
Timestamp timestamp(std::int64_t ticks) { return Timestamp(std::chrono::nanoseconds(ticks)); }
} // namespace

Replica::Statements::Statements(sqlite::Database& database)
    : database(database),
      lastPlace(
          std::max(database.integer(
                       "SELECT max(place) FROM items INDEXED BY queue WHERE place IS NOT NULL AND errorDomain IS NULL"),
                   database.integer("SELECT max(place) FROM items INDEXED BY failures WHERE errorDomain IS NOT NULL"))),
      lastInode(std::max(kRoot, database.integer("SELECT max(inode) FROM items"))),
      byInode(database.prepare(selected("WHERE inode=?"))),
      byIdentifier(database.prepare(selected("WHERE identifier=?"))),
      around(database.prepare("SELECT parent, hostParent FROM items WHERE inode=?")),
      byName(database.prepare(selected("WHERE parent=? AND name=? AND deletion=0"))),
      entries(database.prepare(
          "SELECT inode,identifier,name,folder,size,modified,used,changed,mode,capabilities,contents FROM "
          "items WHERE parent=? AND inode>? AND deletion=0 ORDER BY inode LIMIT ?")),
      below(database.prepare(selected("INDEXED BY children WHERE parent=?1 AND inode>?2 AND hostParent IN (0, ?1) "
                                      "ORDER BY inode LIMIT 1"))),
      anyBelow(database.prepare(
          "SELECT inode FROM items INDEXED BY children WHERE parent=?1 AND (?2 OR NOT deletion) LIMIT 1")),
      waitingBelow(database.prepare("SELECT inode FROM items INDEXED BY waiting WHERE parent=? AND place IS NOT NULL "
                                    "AND errorDomain IS NULL LIMIT 1")),
      onHost(database.prepare(selected("INDEXED BY hostPlaces WHERE (place IS NOT NULL OR identifier IS NULL) AND "
                                       "hostParent>0 AND hostParent=? AND creation=0"))),
      lost(database.prepare(selected(
          "INDEXED BY hostPlaces WHERE (place IS NOT NULL OR identifier IS NULL) AND hostParent>0 AND hostParent=? AND "
          "hostName=? AND identifier IS NULL AND creation=0"))),
      ready(database.prepare(
          std::string("SELECT item.inode, item.place, NOT item.deletion AND ") + kNameIsTaken +
          " FROM items item INDEXED BY queue LEFT JOIN items folder ON folder.inode=item.parent WHERE item.place>? AND "
          "item.place<=? AND item.errorDomain IS NULL AND CASE WHEN item.deletion THEN " +
          kCanGo + " ELSE " + kIsKnown + " END ORDER BY item.place")),
      placeOf(database.prepare("SELECT place FROM items WHERE inode=? AND place IS NOT NULL AND errorDomain IS NULL")),
      stretch(
          database.prepare("SELECT place FROM items INDEXED BY queue WHERE place>? AND errorDomain IS NULL ORDER BY "
                           "place LIMIT 1 OFFSET ?")),
      inTheWay(database.prepare(selected("INDEXED BY hostPlaces WHERE place IS NOT NULL AND hostParent>0 AND "
                                         "hostParent=? AND hostName=? AND inode<>? LIMIT 1"))),
      failed(database.prepare(selected("WHERE errorDomain IS NOT NULL ORDER BY place LIMIT ?"))),
      forgive(
          database.prepare("UPDATE items SET errorDomain=NULL, errorCode=NULL, errorText=NULL WHERE errorDomain IS NOT "
                           "NULL AND (?1 IS NULL OR (errorDomain=?1 AND errorCode=?2))")),
      anyNameless(
          database.prepare("SELECT inode FROM items INDEXED BY nameless WHERE identifier IS NULL AND creation=0 "
                           "AND hostParent>0 LIMIT 1")),
      namelessIn(database.prepare("SELECT inode FROM items INDEXED BY nameless WHERE identifier IS NULL AND creation=0 "
                                  "AND hostParent>0 AND hostParent=?")),
      nameless(
          database.prepare("SELECT DISTINCT item.hostParent FROM items item INDEXED BY nameless JOIN items folder ON "
                           "folder.inode=item.hostParent WHERE item.hostParent>0 AND item.identifier IS NULL AND "
                           "item.creation=0 AND folder.identifier IS NOT NULL")),
      estrange(database.prepare("UPDATE items SET identifier=NULL WHERE parent=?1 AND hostParent=?1 AND creation=0")),
      estrangeMoved(database.prepare("UPDATE items INDEXED BY hostPlaces SET identifier=NULL WHERE place IS NOT NULL "
                                     "AND hostParent>0 AND hostParent=? AND creation=0")),
      isNameless(database.prepare("SELECT inode FROM items WHERE inode=? AND identifier IS NULL AND creation=0")),
      note(database.prepare("UPDATE items SET hostModified=?2, hostSize=?3 WHERE inode=?1")),
      record(database.prepare("UPDATE items SET sentModified=?2, sentSize=?3 WHERE inode=?1")),
      recordPlace(database.prepare("UPDATE items SET sentParent=?2, sentName=?3 WHERE inode=?1")),
      clearPlace(database.prepare("UPDATE items INDEXED BY sentPlaces SET sentParent=0 WHERE sentParent>0 AND "
                                  "sentParent=? AND sentName=?")),
      allSentTo(database.prepare("SELECT inode FROM items INDEXED BY sentPlaces WHERE sentParent>0 AND sentParent=?")),
      anyFolderSent(
          database.prepare("SELECT inode FROM items INDEXED BY sentPlaces WHERE sentParent>0 AND folder LIMIT 1")),
      sentToAny(database.prepare("SELECT item.inode, item.sentParent FROM items item INDEXED BY sentPlaces JOIN items "
                                 "folder ON folder.inode=item.sentParent WHERE item.sentParent>0 AND folder.identifier "
                                 "IS NOT NULL AND NOT folder.deletion")),
      sentTo(database.prepare(selected("INDEXED BY sentPlaces WHERE sentParent>0 AND sentParent=? AND sentName=?"))),
      stamp(database.prepare("UPDATE items SET modified=?2, changed=?2 WHERE inode=?1 AND inode<>1 AND modified<?2")),
      disown(database.prepare("UPDATE items SET identifier=NULL WHERE inode=?")),
      isIndexedSo(
          database.prepare("SELECT inode FROM items WHERE inode=? AND identifier IS ? AND parent=? AND name=? AND "
                           "hostParent=? AND hostName IS ? AND contents IS ? AND deletion=? AND errorDomain IS ? "
                           "AND (place IS NOT NULL)=?")),
      insertOrUpdate(database.prepare(writing().insertOrUpdate)), update(database.prepare(writing().update)),
      erase(database.prepare("DELETE FROM items WHERE inode=?")),
      keep(database.prepare("INSERT OR REPLACE INTO kept VALUES(?,?)")),
      unkeep(database.prepare("DELETE FROM kept WHERE inode=?")) {}

Row Replica::Statements::read(const sqlite::Statement& at) {
    int column = 0;
    const auto integer = [&] { return at.integer(column++); };
    const auto text = [&] { return std::string(at.text(column++)); };
    const auto optionalInteger = [&] {
        const bool none = at.isNull(column);
        const std::int64_t value = integer();
        return none ? std::nullopt : std::optional(value);
    };
    Row row;
    row.inode = integer();
    row.parent = integer();
    row.identifier = at.optionalText(column++);
    row.name = text();
    row.folder = integer() != 0;
    row.size = static_cast<std::uint64_t>(integer());
    row.modified = timestamp(integer());
    row.used = timestamp(integer());
    row.changed = timestamp(integer());
    if (const auto mode = optionalInteger()) row.mode = static_cast<unsigned>(*mode);
    row.capabilities = static_cast<unsigned>(integer());
    row.flags = static_cast<unsigned>(integer());
    row.storageClass = text();
    row.decoration = text();
    row.host.modified = integer();
    row.host.size = static_cast<std::uint32_t>(integer());
    const auto sentModified = optionalInteger();
    const std::int64_t sentSize = integer();
    if (sentModified) row.sent = HostVersion{*sentModified, static_cast<std::uint32_t>(sentSize)};
    row.sentParent = integer();
    row.sentName = text();
    row.hostParent = integer();
    row.hostName = text();
    row.contents = at.optionalText(column++);
    if (const auto listed = optionalInteger()) row.listed = timestamp(*listed);
    row.pending.creation = integer() != 0;
    row.pending.deletion = integer() != 0;
    row.pending.fields = static_cast<ItemFields>(integer());
    row.generation = integer();
    if (const auto domain = at.optionalText(column))
        row.error = NSError{*domain, static_cast<int>(at.integer(column + 1)), std::string(at.text(column + 2))};
    return row;
}

Row Replica::Statements::readEntry(const sqlite::Statement& at) {
    Row row;
    row.inode = at.integer(0);
    row.identifier = at.optionalText(1);
    row.name = at.text(2);
    row.folder = at.integer(3) != 0;
    row.size = static_cast<std::uint64_t>(at.integer(4));
    row.modified = timestamp(at.integer(5));
    row.used = timestamp(at.integer(6));
    row.changed = timestamp(at.integer(7));
    if (!at.isNull(8)) row.mode = static_cast<unsigned>(at.integer(8));
    row.capabilities = static_cast<unsigned>(at.integer(9));
    row.contents = at.optionalText(10);
    return row;
}

void Replica::Statements::put(Row& row) {
    const auto integer = [](auto value) { return static_cast<std::int64_t>(value); };
    const auto given = [](const auto& value, const auto& read) {
        return value ? std::optional(read(*value)) : std::nullopt;
    };
    using Text = std::optional<std::string_view>;
    const Text hostName = row.hostName.empty() ? Text() : Text(row.hostName);
    const Text errorDomain = row.error ? Text(row.error->domain) : Text();
    const bool waits = row.pending.any();
    const auto write = [&](sqlite::Statement& statement, std::optional<std::int64_t> place) {
        statement.run(row.inode, row.parent, row.identifier, std::string_view(row.name), integer(row.folder),
                      integer(row.size), ticks(row.modified), ticks(row.used), ticks(row.changed),
                      given(row.mode, integer), integer(row.capabilities), integer(row.flags),
                      std::string_view(row.storageClass), std::string_view(row.decoration), row.host.modified,
                      integer(row.host.size), given(row.sent, [](const HostVersion& sent) { return sent.modified; }),
                      given(row.sent, [&](const HostVersion& sent) { return integer(sent.size); }), row.sentParent,
                      std::string_view(row.sentName), row.hostParent, hostName, row.contents,
                      given(row.listed, [](Timestamp time) { return ticks(time); }), integer(row.pending.creation),
                      integer(row.pending.deletion), integer(row.pending.fields), row.generation, errorDomain,
                      given(row.error, [&](const NSError& error) { return integer(error.code); }),
                      row.error ? Text(row.error->description) : Text(), place);
    };
    if (row.inode == 0)
        row.inode = ++lastInode;
    else if (isIndexedSo.first(readInode, row.inode, row.identifier, row.parent, std::string_view(row.name),
                               row.hostParent, hostName, row.contents, integer(row.pending.deletion), errorDomain,
                               integer(waits)))
        return write(update, std::nullopt);
    write(insertOrUpdate, waits ? std::optional(++lastPlace) : std::nullopt);
}

std::string Replica::Statements::freeNameFor(const Row& row, Inode parent, std::string_view wanted) {
    return freeName(wanted, [&](const std::string& name) {
        const auto there = byName.first(readInode, parent, std::string_view(name));
        return there && *there != row.inode;
    });
}

std::vector<Inode> Replica::Statements::above(Inode folder, bool onHost) {
    std::vector<Inode> found;
    const auto outer = [&](const auto& at) { return at.integer(onHost && at.integer(1) != 0 ? 1 : 0); };
    for (Inode at = folder; at != 0 && std::ranges::count(found, at) == 0; at = around.first(outer, at).value_or(0))
        found.push_back(at);
    return found;
}

bool Replica::Statements::isAround(Inode item, Inode folder, bool onHost) {
    return std::ranges::count(above(folder, onHost), item) > 0;
}

HostVersion hostVersion(const NSFileProviderItem& item) {
    return {item.contentModificationDate() ? wholeSecondsSince1970(*item.contentModificationDate()) : 0,
            static_cast<std::uint32_t>(item.documentSize().value_or(0))};
}

void takeProperties(Row& row, const NSFileProviderItem& item) {
    const HostVersion version = hostVersion(item);
    // The host's dates may be whole seconds where those here are not; and a folder's that it does not renew is older
    // than what came and went in it here.
    const bool isSameSecond = wholeSecondsSince1970(row.modified) == version.modified;
    const bool isSameDate = row.folder ? isSameSecond || (row.inode && row.host == version)
                                       : isSameSecond && (row.host == version || row.contents);
    row.identifier = std::string(item.itemIdentifier());
    row.folder = item.contentType() == UTType::directory;
    const bool isSameSize = row.inode && row.host == version && static_cast<std::uint32_t>(row.size) == version.size;
    if (!(row.pending.fields & ItemField::contents) && !row.contents && !isSameSize) // items have its low 32 bits
        row.size = item.documentSize().value_or(0);
    if (!isSameDate && !(row.pending.fields & ItemField::contentModificationDate))
        row.modified = item.contentModificationDate().value_or(Timestamp());
    row.used = std::max(row.used, item.lastUsedDate().value_or(row.inode ? row.used : row.modified));
    row.capabilities = item.capabilities();
    if (!(row.pending.fields & ItemField::fileSystemFlags)) row.flags = item.fileSystemFlags();
    row.host = version;
    const auto badges = item.decorations();
    row.decoration = badges && !badges->empty() ? badges->front() : std::string();
    const UserInfo info = item.userInfo();
    const auto storage = info.find("storageClass");
    const auto* text = storage == info.end() ? nullptr : std::get_if<std::string>(&storage->second);
    row.storageClass = text ? *text : std::string();
}

} // namespace brindlemar::replica
