#include "provider/replica/ReplicaFile.h"

#include <chrono>
#include <filesystem>
#include <iterator>
#include <optional>

namespace brindlemar::replica {

namespace {
namespace fs = std::filesystem;

/// Each makes the next version out of the one before; the first out of nothing.
constexpr const char* kMigrations[] = {R"(
CREATE TABLE items(
  inode INTEGER PRIMARY KEY,
  identifier TEXT,
  parent INTEGER NOT NULL,
  name TEXT NOT NULL,
  folder INTEGER NOT NULL,
  size INTEGER NOT NULL,
  modified INTEGER NOT NULL,
  used INTEGER NOT NULL,
  mode INTEGER,
  capabilities INTEGER NOT NULL,
  flags INTEGER NOT NULL,
  storageClass TEXT NOT NULL,
  decoration TEXT NOT NULL,
  hostModified INTEGER NOT NULL,
  hostSize INTEGER NOT NULL,
  sentModified INTEGER,
  sentSize INTEGER,
  hostParent INTEGER NOT NULL,
  hostName TEXT,
  contents TEXT,
  listed INTEGER,
  creation INTEGER NOT NULL,
  deletion INTEGER NOT NULL,
  fields INTEGER NOT NULL,
  place INTEGER,
  generation INTEGER NOT NULL,
  errorDomain TEXT,
  errorCode INTEGER,
  errorText TEXT);
CREATE UNIQUE INDEX identifiers ON items(identifier) WHERE identifier IS NOT NULL;
CREATE UNIQUE INDEX names ON items(parent, name) WHERE deletion = 0;
CREATE INDEX children ON items(parent, inode);
CREATE INDEX queue ON items(place) WHERE place IS NOT NULL AND errorDomain IS NULL;
CREATE INDEX failures ON items(place) WHERE errorDomain IS NOT NULL;
CREATE INDEX hostPlaces ON items(hostParent, hostName) WHERE hostParent>0 AND (place IS NOT NULL OR identifier IS NULL);
CREATE INDEX contents ON items(inode) WHERE contents IS NOT NULL;
CREATE TABLE kept(inode INTEGER PRIMARY KEY, bytes BLOB NOT NULL);
CREATE TABLE remembered(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE discarded(inode INTEGER NOT NULL, contents TEXT NOT NULL);
CREATE TRIGGER overwritten AFTER UPDATE OF contents ON items
  WHEN OLD.contents IS NOT NULL AND OLD.contents IS NOT NEW.contents
  BEGIN INSERT INTO discarded VALUES(OLD.inode, OLD.contents); DELETE FROM kept WHERE inode = OLD.inode; END;
CREATE TRIGGER erased AFTER DELETE ON items WHEN OLD.contents IS NOT NULL
  BEGIN INSERT INTO discarded VALUES(OLD.inode, OLD.contents); DELETE FROM kept WHERE inode = OLD.inode; END;
INSERT INTO remembered VALUES('rescuing', 'yes');
)",
                                       R"(
CREATE INDEX nameless ON items(hostParent) WHERE identifier IS NULL AND creation = 0 AND hostParent>0;
CREATE INDEX waiting ON items(parent) WHERE place IS NOT NULL AND errorDomain IS NULL;
)",
                                       R"(
ALTER TABLE items ADD COLUMN changed INTEGER NOT NULL DEFAULT 0;
)",
                                       R"(
ALTER TABLE items ADD COLUMN sentParent INTEGER NOT NULL DEFAULT 0;
ALTER TABLE items ADD COLUMN sentName TEXT NOT NULL DEFAULT '';
CREATE INDEX sentPlaces ON items(sentParent, sentName) WHERE sentParent>0;
)"};
static_assert(std::size(kMigrations) == kSchemaVersion);

constexpr const char* kMemory = "PRAGMA cache_size=-16000; PRAGMA temp_store=MEMORY"; // KiB

fs::path replicaFile(const std::string& directory) { return fs::path(directory) / "items.sqlite"; }

struct Newer {
    std::int64_t version;
};

sqlite::Database openAndMigrate(const std::string& path) {
    sqlite::Database database(path);
    database.execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=4000");
    database.execute(kMemory);
    const std::int64_t version = database.integer("PRAGMA user_version");
    if (version > kSchemaVersion) throw Newer{version};
    if (database.integer("SELECT count(*) FROM pragma_quick_check(1) WHERE quick_check <> 'ok'") != 0)
        throw sqlite::Error(path + ": fails its integrity check", SQLITE_CORRUPT);
    for (std::int64_t next = version; next < kSchemaVersion; ++next) {
        sqlite::Transaction transaction(database);
        database.execute(kMigrations[next]);
        database.execute("PRAGMA user_version=" + std::to_string(next + 1));
        transaction.commit();
    }
    return database;
}

/// The database and what belongs to it, under a name that is free.
std::string setAside(const fs::path& path) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::string suffix =
        ".aside-" + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(now).count());
    fs::path target = path.string() + suffix;
    for (int number = 2; fs::exists(target); ++number) target = path.string() + suffix + "-" + std::to_string(number);
    for (const char* companion : {"", "-wal", "-shm"})
        if (std::error_code none; fs::exists(path.string() + companion, none))
            fs::rename(path.string() + companion, target.string() + companion);
    return target;
}
} // namespace

sqlite::Database openReplicaFile(const std::string& directory, const std::function<void(const std::string&)>& say) {
    const fs::path path = replicaFile(directory);
    std::string why;
    try {
        return openAndMigrate(path);
    } catch (const sqlite::Error& error) {
        if (!error.isDamage()) throw;
        why = error.what();
    } catch (const Newer& newer) {
        why = path.string() + ": was written by a later version, with schema " + std::to_string(newer.version);
    }
    say(why + ". It is kept as " + setAside(path) + ", and a new one is made.");
    return openAndMigrate(path);
}

sqlite::Database openReplicaReader(const std::string& directory) {
    sqlite::Database database(replicaFile(directory));
    database.execute("PRAGMA query_only=ON");
    database.execute(kMemory);
    return database;
}

} // namespace brindlemar::replica
