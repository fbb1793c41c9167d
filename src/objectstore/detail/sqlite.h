// RAII over the SQLite C API for the engine's own use: a connection, cached
// prepared statements and a transaction that rolls back unless committed.
// Internal to the engine; nothing outside objectstore/ includes it.
#pragma once

#include "objectstore/model/value.h"
#include "platform/error.h"

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tasket::objectstore::detail {

using platform::Error;
using platform::Result;

class Statement {
  public:
    Statement() = default;
    explicit Statement(sqlite3_stmt* stmt) : m_stmt(stmt) {}

    /// Binds `v` to parameter `index` (1-based), in the store's encoding.
    void bind(int index, const Value& v);
    void bindInt(int index, std::int64_t v) { sqlite3_bind_int64(m_stmt, index, v); }
    void bindNull(int index) { sqlite3_bind_null(m_stmt, index); }
    void bindText(int index, std::string_view s) {
        sqlite3_bind_text(m_stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
    }

    /// SQLITE_ROW, SQLITE_DONE or an error code.
    [[nodiscard]] int step() { return sqlite3_step(m_stmt); }
    void reset() {
        sqlite3_reset(m_stmt);
        sqlite3_clear_bindings(m_stmt);
    }

    [[nodiscard]] bool isNull(int col) const {
        return sqlite3_column_type(m_stmt, col) == SQLITE_NULL;
    }
    [[nodiscard]] std::int64_t columnInt(int col) const {
        return sqlite3_column_int64(m_stmt, col);
    }
    [[nodiscard]] double columnDouble(int col) const { return sqlite3_column_double(m_stmt, col); }
    [[nodiscard]] std::string columnText(int col) const;
    /// Reads column `col` as a value of attribute type `type`.
    [[nodiscard]] Value column(int col, int attributeType) const;

    [[nodiscard]] sqlite3_stmt* get() const { return m_stmt; }

  private:
    sqlite3_stmt* m_stmt = nullptr;
};

/// Resets a cached statement when the scope ends, so its read lock drops.
class StatementScope {
  public:
    explicit StatementScope(Statement& s) : m_s(s) {}
    ~StatementScope() { m_s.reset(); }
    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;
    Statement* operator->() { return &m_s; }
    Statement& operator*() { return m_s; }

  private:
    Statement& m_s;
};

class Database;

/// A statement held for as long as a walk over its rows takes (see
/// Database::borrow()); given back to the database when the handle goes.
class BorrowedStatement {
  public:
    BorrowedStatement(Database& db, std::string sql, sqlite3_stmt* stmt)
        : m_db(&db), m_sql(std::move(sql)), m_stmt(stmt) {}
    BorrowedStatement(BorrowedStatement&& other) noexcept
        : m_db(other.m_db), m_sql(std::move(other.m_sql)),
          m_stmt(std::exchange(other.m_stmt, nullptr)) {}
    BorrowedStatement& operator=(BorrowedStatement&&) = delete;
    ~BorrowedStatement();
    [[nodiscard]] sqlite3_stmt* get() const { return m_stmt; }

  private:
    Database* m_db;
    std::string m_sql;
    sqlite3_stmt* m_stmt;
};

class Database {
  public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Opens (creating if `create`) the file at `path`.
    [[nodiscard]] static Result<std::unique_ptr<Database>> open(const std::filesystem::path& path,
                                                                bool create);

    /// Runs statements without results.
    [[nodiscard]] Result<void> exec(std::string_view sql);
    /// A cached prepared statement for `sql`; it stays owned by the database.
    [[nodiscard]] Result<Statement*> prepare(const std::string& sql);
    /// A one-off statement, finalized by the returned handle.
    [[nodiscard]] Result<std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>>
    prepareOnce(std::string_view sql);
    /// A statement for `sql` that no other caller uses until the handle
    /// goes, for a walk that lets others in between its steps: one given
    /// back earlier for the same text when there is one, else a new one.
    [[nodiscard]] Result<BorrowedStatement> borrow(std::string_view sql);

    [[nodiscard]] Error error(std::string_view what) const;
    [[nodiscard]] Error error(std::string_view what, int code) const;
    [[nodiscard]] std::int64_t changes() const { return sqlite3_changes64(m_db); }
    [[nodiscard]] std::int64_t lastInsertRowid() const { return sqlite3_last_insert_rowid(m_db); }
    [[nodiscard]] sqlite3* handle() const { return m_db; }
    /// Closing will not move the write-ahead log into the file: a store that
    /// failed to open is left exactly as it was found.
    void leaveFileAsIs();
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

  private:
    sqlite3* m_db = nullptr;
    std::filesystem::path m_path;
    std::unordered_map<std::string, std::unique_ptr<Statement>> m_cache;
    [[nodiscard]] Result<sqlite3_stmt*> compile(std::string_view sql, unsigned flags);
    // Statements given back by BorrowedStatement, at most one per text.
    friend class BorrowedStatement;
    void giveBack(std::string sql, sqlite3_stmt* stmt);
    std::unordered_map<std::string, sqlite3_stmt*> m_idle;
};

/// BEGIN IMMEDIATE on construction (retrying while another process holds
/// the lock), ROLLBACK in the destructor unless commit() succeeded.
class Transaction {
  public:
    [[nodiscard]] static Result<Transaction> begin(Database& db);
    Transaction(Transaction&& other) noexcept : m_db(std::exchange(other.m_db, nullptr)) {}
    Transaction& operator=(Transaction&&) = delete;
    ~Transaction();
    [[nodiscard]] Result<void> commit();

  private:
    explicit Transaction(Database& db) : m_db(&db) {}
    Database* m_db;
};

/// The integer a `PRAGMA <pragma>` reads.
[[nodiscard]] Result<std::int64_t> pragmaInt(Database& db, std::string_view pragma);

} // namespace tasket::objectstore::detail
