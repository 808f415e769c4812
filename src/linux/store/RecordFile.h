// The disk side of a store: records found by their keys, in an SQLite file.
#pragma once

#include "platform/Timestamp.h"

#include <sqlite3.h>

#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brindlemar {

/// A file without journal or sync: what goes wrong costs the file, and nothing in it outlives the object. Thread-safe.
class RecordFile {
public:
    struct Error : std::runtime_error { // thrown by all but remove()
        using std::runtime_error::runtime_error;
    };
    struct Record {
        std::int64_t hash = 0; // of the key
        Timestamp expiry{};
        std::string key, value;
        bool hasValue = false; // else it only replaces what was there
    };
    static std::int64_t hash(std::string_view key) { return std::int64_t(std::hash<std::string_view>()(key)); }
    static void remove(const std::string& path);

    /// A new file in place of whatever lies there, of so many bytes at most; 0 is no limit.
    RecordFile(const std::string& path, std::uint64_t maximumSize);
    ~RecordFile() { remove(path_); }

    /// The last record of a key, or of two keys with one hash, replaces earlier ones. Fastest in the order of hashes.
    void put(std::span<const Record> records);
    /// The record, without its key.
    std::optional<Record> find(std::string_view key);
    void removeExpired(Timestamp now);

private:
    template <auto function>
    struct Call {
        void operator()(auto* pointer) const { function(pointer); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Call<sqlite3_finalize>>;
    using Use = std::unique_ptr<sqlite3_stmt, Call<sqlite3_reset>>; // of a statement, once
    Statement prepare(const std::string& text);
    int check(int result) const;

    const std::string path_;
    std::mutex mutex_;
    std::unique_ptr<sqlite3, Call<sqlite3_close>> database_;
    Statement begin_, commit_, putOne_, putMany_, find_, removeExpired_;
};

} // namespace brindlemar
