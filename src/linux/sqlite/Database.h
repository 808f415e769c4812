// SQLite (https://sqlite.org/c3ref/intro.html) with values that clean up and errors that are thrown.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brindlemar::sqlite {

/// What the database says went wrong, with its extended result code.
struct Error : std::runtime_error {
    Error(const std::string& text, int code) : std::runtime_error(text), code(code) {}
    int code;
    /// The file is no database any more, as opposed to a full disk or a wrong statement.
    bool isDamage() const { return (code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB; }
    bool isFull() const { return (code & 0xFF) == SQLITE_FULL; }
};

/// Bytes that are no text.
struct Blob {
    std::string_view bytes;
};

class Statement;

/// One connection. For one thread at a time.
class Database {
public:
    /// Makes the file unless it is there. Throws Error.
    explicit Database(const std::string& path);

    /// Throw Error.
    Statement prepare(std::string_view text);
    void execute(const std::string& text);
    std::int64_t integer(const std::string& query);

    std::int64_t changedRows() const { return sqlite3_changes64(handle_.get()); }
    std::int64_t allChangedRows() const { return sqlite3_total_changes64(handle_.get()); } // since it was opened

private:
    friend class Statement;
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    [[noreturn]] void fail(int code) const;

    std::unique_ptr<sqlite3, Close> handle_;
};

/// Prepared once, used many times. The values stand for the question marks: integers, texts, empty optionals for NULL.
/// All throw Error. Nothing is held of the database between uses. The database outlives it.
class Statement {
public:
    /// For a statement that gives no rows.
    template <class... Values>
    void run(const Values&... values) {
        const Use use(*this, values...);
        step();
    }
    /// read(*this) for the first row; none without one.
    template <class Read, class... Values>
    auto first(Read&& read, const Values&... values) -> std::optional<decltype(read(*this))> {
        const Use use(*this, values...);
        if (!step()) return std::nullopt;
        return read(*this);
    }
    /// body(*this) for each row.
    template <class Body, class... Values>
    void each(Body&& body, const Values&... values) {
        const Use use(*this, values...);
        while (step()) body(*this);
    }
    /// The same until body(*this) gives false.
    template <class Body, class... Values>
    void some(Body&& body, const Values&... values) {
        const Use use(*this, values...);
        while (step() && body(*this)) {
        }
    }

    // Of the row at hand.
    bool isNull(int column) const { return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL; }
    std::int64_t integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
    std::string_view text(int column) const; // lives as long as the row
    std::optional<std::string> optionalText(int column) const;
    std::string_view blob(int column) const; // lives as long as the row

private:
    friend class Database;
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };
    struct Use {
        template <class... Values>
        explicit Use(Statement& statement, const Values&... values) : handle(statement.handle_.get()) {
            int place = 0;
            (statement.bind(++place, values), ...);
        }
        ~Use() { sqlite3_reset(handle); }
        sqlite3_stmt* const handle;
    };
    Statement(Database& database, sqlite3_stmt* handle) : database_(&database), handle_(handle) {}
    bool step();
    void bind(int place, std::int64_t value) { sqlite3_bind_int64(handle_.get(), place, value); }
    void bind(int place, std::string_view text) {
        sqlite3_bind_text64(handle_.get(), place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
    void bind(int place, Blob blob) {
        const char* const bytes = blob.bytes.empty() ? "" : blob.bytes.data(); // no bytes are not NULL
        sqlite3_bind_blob64(handle_.get(), place, bytes, blob.bytes.size(), SQLITE_STATIC);
    }
    template <class Value>
    void bind(int place, const std::optional<Value>& value) {
        if (value)
            bind(place, *value);
        else
            sqlite3_bind_null(handle_.get(), place);
    }

    Database* database_;
    std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

/// All or nothing: rolled back at its end unless it was committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    /// On the disk when it returns, as far as the database's settings promise. Throws Error.
    void commit();

private:
    Database& database_;
    bool open_ = true;
};

} // namespace brindlemar::sqlite
