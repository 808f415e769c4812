#include "linux/store/RecordFile.h"

#include <unistd.h>

#include <algorithm>

namespace brindlemar {

namespace {

constexpr std::uint64_t kPageSize = 16384; // bytes; large, for most records come in order
constexpr std::size_t kMany = 50;          // records in one statement take half the time

std::int64_t ticks(Timestamp time) { return time.time_since_epoch().count(); }

} // namespace

RecordFile::RecordFile(const std::string& path, std::uint64_t maximumSize) : path_(path) {
    remove(path); // whoever still uses the old file keeps it to himself
    sqlite3* database = nullptr;
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int opened = sqlite3_open_v2(path.c_str(), &database, kFlags, nullptr);
    database_.reset(database);
    check(opened);
    const std::uint64_t mostPages =
        maximumSize > 0 ? std::max<std::uint64_t>(1, maximumSize / kPageSize) : UINT32_MAX - 1;
    const std::string setUp =
        "PRAGMA page_size=" + std::to_string(kPageSize) + "; PRAGMA max_page_count=" + std::to_string(mostPages) +
        "; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA locking_mode=EXCLUSIVE; PRAGMA cache_size=-4000;"
        "PRAGMA secure_delete=OFF; PRAGMA auto_vacuum=FULL;"
        "CREATE TABLE items(hash INTEGER PRIMARY KEY, expiry INTEGER, key BLOB, value BLOB)";
    check(sqlite3_exec(database, setUp.c_str(), nullptr, nullptr, nullptr));
    std::string put = "INSERT OR REPLACE INTO items VALUES(?,?,?,?)";
    putOne_ = prepare(put);
    for (std::size_t i = 1; i < kMany; ++i) put += ",(?,?,?,?)";
    putMany_ = prepare(put);
    begin_ = prepare("BEGIN");
    commit_ = prepare("COMMIT");
    find_ = prepare("SELECT expiry, key, value FROM items WHERE hash=?");
    removeExpired_ = prepare("DELETE FROM items WHERE hash BETWEEN ? AND ? AND expiry<=?");
}

void RecordFile::remove(const std::string& path) {
    for (const char* companion : {"", "-journal", "-wal", "-shm"}) ::unlink((path + companion).c_str());
}

int RecordFile::check(int result) const {
    if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return result;
    throw Error(path_ + ": " + (database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(result)));
}

RecordFile::Statement RecordFile::prepare(const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_.get(), text.c_str(), -1, &statement, nullptr));
    return Statement(statement);
}

void RecordFile::put(std::span<const Record> records) {
    std::lock_guard lock(mutex_);
    check(sqlite3_step(Use(begin_.get()).get()));
    while (!records.empty()) {
        const auto some = records.first(records.size() < kMany ? 1 : kMany);
        const Use use(some.size() == 1 ? putOne_.get() : putMany_.get());
        int column = 0;
        for (const Record& record : some) {
            sqlite3_bind_int64(use.get(), ++column, record.hash);
            sqlite3_bind_int64(use.get(), ++column, ticks(record.expiry));
            sqlite3_bind_blob64(use.get(), ++column, record.key.data(), record.key.size(), SQLITE_STATIC);
            const char* value = record.hasValue ? record.value.data() : nullptr;
            sqlite3_bind_blob64(use.get(), ++column, value, record.value.size(), SQLITE_STATIC);
        }
        check(sqlite3_step(use.get()));
        records = records.subspan(some.size());
    }
    check(sqlite3_step(Use(commit_.get()).get()));
}

std::optional<RecordFile::Record> RecordFile::find(std::string_view key) {
    std::lock_guard lock(mutex_);
    const Use use(find_.get());
    const auto bytes = [&use](int column) {
        const auto* start = static_cast<const char*>(sqlite3_column_blob(use.get(), column));
        return std::string_view(start, static_cast<std::size_t>(sqlite3_column_bytes(use.get(), column)));
    };
    sqlite3_bind_int64(use.get(), 1, hash(key));
    if (check(sqlite3_step(use.get())) != SQLITE_ROW || bytes(1) != key) return std::nullopt;
    const std::chrono::nanoseconds expiry(sqlite3_column_int64(use.get(), 0));
    const bool hasValue = sqlite3_column_type(use.get(), 2) != SQLITE_NULL;
    return Record{0, Timestamp(expiry), {}, std::string(bytes(2)), hasValue};
}

void RecordFile::removeExpired(Timestamp now) {
    constexpr std::int64_t parts = 256, width = INT64_MAX / (parts / 2) + 1; // a reader waits for one part
    for (std::int64_t part = -parts / 2; part < parts / 2; ++part) {
        std::lock_guard lock(mutex_);
        const Use use(removeExpired_.get());
        sqlite3_bind_int64(use.get(), 1, part * width);
        sqlite3_bind_int64(use.get(), 2, part * width + (width - 1));
        sqlite3_bind_int64(use.get(), 3, ticks(now));
        check(sqlite3_step(use.get()));
    }
}

} // namespace brindlemar
