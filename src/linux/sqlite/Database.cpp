#include "linux/sqlite/Database.h"

#include <utility>

namespace brindlemar::sqlite {

namespace {
/// For another connection's lock, in milliseconds. Also one that only reads can have the writer's for a moment: when it
/// looked just while a change was published, see walIndexReadHdr() of SQLite.
constexpr int kPatience = 10'000;
} // namespace

Database::Database(const std::string& path) {
    sqlite3* handle = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &handle,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    handle_.reset(handle);
    if (opened != SQLITE_OK) fail(opened);
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_busy_timeout(handle, kPatience);
}

void Database::fail(int code) const {
    const char* text = handle_ ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(code);
    const char* path = handle_ ? sqlite3_db_filename(handle_.get(), nullptr) : nullptr;
    throw Error(std::string(path ? path : "database") + ": " + text, code);
}

Statement Database::prepare(std::string_view text) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(handle_.get(), text.data(), static_cast<int>(text.size()),
                                          SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK) fail(result);
    return {*this, statement};
}

void Database::execute(const std::string& text) {
    if (const int result = sqlite3_exec(handle_.get(), text.c_str(), nullptr, nullptr, nullptr); result != SQLITE_OK)
        fail(result);
}

std::int64_t Database::integer(const std::string& query) {
    return prepare(query).first([](const Statement& row) { return row.integer(0); }).value_or(0);
}

bool Statement::step() {
    const int result = sqlite3_step(handle_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) database_->fail(result);
    return result == SQLITE_ROW;
}

std::string_view Statement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
    return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column))};
}

std::string_view Statement::blob(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(handle_.get(), column));
    return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column))};
}

std::optional<std::string> Statement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional<std::string>(text(column));
}

Transaction::~Transaction() {
    if (!open_) return;
    try {
        database_.execute("ROLLBACK");
    } catch (const Error&) { // the database has rolled back by itself
    }
}

void Transaction::commit() {
    database_.execute("COMMIT");
    open_ = false;
}

} // namespace brindlemar::sqlite
