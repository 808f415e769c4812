#include "provider/replica/Replica.h"

#include "provider/replica/Statements.h"

#include <algorithm>

namespace brindlemar::replica {

namespace {
constexpr std::size_t kBatch = 512; // rows that are read at once; what is done with them runs without the lock
}

Replica::Replica(const std::string& directory, const std::function<void(const std::string&)>& say)
    : writer_(openReplicaFile(directory, say)), reader_(openReplicaReader(directory)),
      changes_(std::make_unique<Statements>(writer_)), looks_(std::make_unique<Statements>(reader_)),
      ballast_(directory + "/ballast") {
    writeToFree([&] {
        // Of what waits, by the indexes: the table may be long.
        const std::string waits = "inode IN (SELECT inode FROM items INDEXED BY queue WHERE place IS NOT NULL AND "
                                  "errorDomain IS NULL UNION ALL SELECT inode FROM items INDEXED BY failures WHERE "
                                  "errorDomain IS NOT NULL)";
        // Removed while it was created, and then the service ended: a listing tells whether it is there, if its folder
        // is.
        writer_.execute("DELETE FROM items WHERE creation AND deletion AND hostParent NOT IN (SELECT inode FROM items) "
                        "AND " +
                        waits);
        writer_.execute("UPDATE items SET creation=0 WHERE creation AND deletion AND " + waits);
        // Contents that were begun anew and never saved.
        writer_.execute("DELETE FROM items WHERE contents IS NULL AND NOT folder AND creation AND NOT deletion AND " +
                        waits);
        writer_
            .prepare("UPDATE items SET fields=fields & ~?1, place=CASE WHEN fields & ~?1 THEN place END WHERE contents "
                     "IS NULL AND NOT folder AND NOT creation AND NOT deletion AND " +
                     waits)
            .run(static_cast<std::int64_t>(ItemField::contents));
        if (changes_->get(kRoot)) return;
        Row root;
        root.inode = kRoot;
        root.identifier = std::string(NSFileProviderRootContainerItemIdentifier);
        root.folder = true;
        root.capabilities = Capability::reading;
        changes_->put(root);
    });
}

Replica::~Replica() = default;

void Replica::write(const std::function<void()>& body, Safe safe) {
    std::lock_guard lock(writing_);
    commit(body, safe);
}

void Replica::writeToFree(const std::function<void()>& body, Safe safe) {
    std::lock_guard lock(writing_);
    try {
        commit(body, safe);
    } catch (const sqlite::Error& error) {
        if (!error.isFull() || !ballast_.release()) throw;
        commit(body, safe);
    }
}

void Replica::commit(const std::function<void()>& body, Safe safe) {
    if (safe != safe_) // not to be set within a transaction
        writer_.execute(safe == Safe::fromPowerLoss ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    safe_ = safe;
    const std::int64_t before = writer_.allChangedRows();
    auto underWay = underWay_;
    try {
        sqlite::Transaction transaction(writer_);
        body();
        transaction.commit();
    } catch (...) {
        underWay_ = std::move(underWay);
        throw;
    }
    if (writer_.allChangedRows() != before) isSynced_ = safe == Safe::fromPowerLoss; // nothing is not synced
}

void Replica::sync() {
    {
        std::lock_guard lock(writing_);
        if (isSynced_) return;
    }
    remember("synced", ""); // the log reaches the disk up to here
}

std::optional<Row> Replica::row(Inode inode) {
    std::lock_guard lock(reading_);
    return looks_->get(inode);
}

std::optional<Row> Replica::child(Inode parent, std::string_view name) {
    std::lock_guard lock(reading_);
    return looks_->shown(parent, name);
}

std::optional<Row> Replica::find(std::string_view identifier) {
    std::lock_guard lock(reading_);
    return looks_->known(identifier);
}

void Replica::children(Inode parent, Inode after, const std::function<bool(const Row&)>& body) {
    std::vector<Row> rows;
    do {
        rows.clear();
        {
            std::lock_guard lock(reading_);
            looks_->entries.each(
                [&](const auto& at) {
                    rows.push_back(Statements::readEntry(at));
                    rows.back().parent = parent;
                },
                parent, after, static_cast<std::int64_t>(kBatch));
        }
        for (const Row& row : rows) {
            if (!body(row)) return;
            after = row.inode;
        }
    } while (rows.size() == kBatch);
}

std::optional<std::string> Replica::path(Inode inode) {
    std::lock_guard lock(reading_);
    std::string path;
    for (Inode at = inode; at != kRoot;) {
        const auto row = looks_->get(at);
        if (!row || row->pending.deletion) return std::nullopt;
        path.insert(0, path.empty() ? row->name : row->name + "/");
        at = row->parent;
    }
    return path;
}

bool Replica::setContents(Inode inode, std::string_view identifier, const std::string& contents, std::uint64_t size,
                          const std::optional<HostVersion>& version) {
    bool isTaken = false;
    write([&] {
        auto row = changes_->get(inode);
        if (!row || row->identifier != identifier || row->pending.deletion || row->contents) return;
        row->contents = contents;
        row->size = size;
        if (version) row->host = *version; // a listing may have told another one meanwhile, and will again
        changes_->put(*row);
        isTaken = true;
    });
    return isTaken;
}

bool Replica::dropContents(Inode inode) {
    bool isDropped = false;
    writeToFree([&] {
        auto row = changes_->get(inode);
        if (!row || !row->contents || row->pending.creation || row->pending.fields & ItemField::contents) return;
        row->contents.reset();
        changes_->put(*row);
        isDropped = true;
    });
    return isDropped;
}

std::vector<std::string> Replica::takeDiscarded() {
    {
        std::lock_guard lock(writing_);
        ballast_.restore();
    }
    {
        std::lock_guard lock(reading_);
        if (!reader_.integer("SELECT EXISTS(SELECT 1 FROM discarded)")) return {};
    }
    std::vector<std::string> names;
    const auto collect = [&] {
        names.clear();
        writer_
            .prepare("SELECT DISTINCT contents FROM discarded WHERE NOT EXISTS(SELECT 1 FROM items WHERE "
                     "items.inode=discarded.inode AND items.contents=discarded.contents)")
            .each([&](const auto& at) { names.emplace_back(at.text(0)); });
        writer_.execute("DELETE FROM discarded");
    };
    writeToFree(collect, Safe::fromPowerLoss);
    return names;
}

void Replica::eachContents(const std::function<void(Inode, const std::string&, bool)>& body) {
    struct Entry {
        Inode inode;
        std::string name;
        bool isPending;
    };
    std::vector<Entry> entries;
    Inode after = 0;
    do {
        entries.clear();
        {
            std::lock_guard lock(reading_);
            reader_
                .prepare("SELECT inode, contents, creation OR fields & ? FROM items INDEXED BY contents WHERE "
                         "contents IS NOT NULL AND inode > ? ORDER BY inode LIMIT ?")
                .each(
                    [&](const auto& at) {
                        entries.push_back({at.integer(0), std::string(at.text(1)), at.integer(2) != 0});
                    },
                    static_cast<std::int64_t>(ItemField::contents), after, static_cast<std::int64_t>(kBatch));
        }
        for (const Entry& entry : entries) body(entry.inode, entry.name, entry.isPending);
        if (!entries.empty()) after = entries.back().inode;
    } while (entries.size() == kBatch);
}

void Replica::eachKept(const std::function<void(const std::string&, std::string_view)>& body) {
    struct Kept {
        Inode inode;
        std::string contents, bytes;
    };
    for (Inode after = 0;;) {
        std::optional<Kept> kept;
        {
            std::lock_guard lock(reading_);
            kept = reader_
                       .prepare("SELECT inode, contents, bytes FROM kept JOIN items USING(inode) WHERE inode > ? AND "
                                "contents IS NOT NULL ORDER BY inode LIMIT 1")
                       .first(
                           [](const auto& at) {
                               return Kept{at.integer(0), std::string(at.text(1)), std::string(at.blob(2))};
                           },
                           after);
        }
        if (!kept) return;
        body(kept->contents, kept->bytes);
        after = kept->inode;
    }
}

std::optional<std::string> Replica::remembered(std::string_view key) {
    std::lock_guard lock(reading_);
    return reader_.prepare("SELECT value FROM remembered WHERE key=?")
        .first([](const auto& at) { return std::string(at.text(0)); }, key);
}

void Replica::remember(std::string_view key, std::string_view value) {
    writeToFree([&] { writer_.prepare("INSERT OR REPLACE INTO remembered VALUES(?,?)").run(key, value); },
                Safe::fromPowerLoss);
}

} // namespace brindlemar::replica
