#include "objectstore/detail/sqlite.h"

#include "objectstore/model/model.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace tasket::objectstore::detail {

using platform::Errc;

void Statement::bind(int index, const Value& v) {
    std::visit(
        [&](const auto& x) {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, std::monostate>)
                sqlite3_bind_null(m_stmt, index);
            else if constexpr (std::is_same_v<T, bool>)
                sqlite3_bind_int64(m_stmt, index, x ? 1 : 0);
            else if constexpr (std::is_same_v<T, std::int64_t>)
                sqlite3_bind_int64(m_stmt, index, x);
            else if constexpr (std::is_same_v<T, double>)
                sqlite3_bind_double(m_stmt, index, x);
            else if constexpr (std::is_same_v<T, std::string>)
                sqlite3_bind_text(m_stmt, index, x.data(), static_cast<int>(x.size()),
                                  SQLITE_TRANSIENT);
            else if constexpr (std::is_same_v<T, Date>)
                sqlite3_bind_double(m_stmt, index, x.secondsSinceReference);
            else if constexpr (std::is_same_v<T, Uuid>)
                bindText(index, x.toString());
            else if constexpr (std::is_same_v<T, Bytes>) {
                // An empty vector may have no storage, and a null pointer
                // binds NULL: an empty blob is not nil.
                static const std::uint8_t kNoBytes = 0;
                sqlite3_bind_blob64(m_stmt, index, x.empty() ? &kNoBytes : x.data(), x.size(),
                                    SQLITE_TRANSIENT);
            }
        },
        v);
}

std::string Statement::columnText(int col) const {
    const auto* p = sqlite3_column_text(m_stmt, col);
    return p ? std::string(reinterpret_cast<const char*>(p),
                           static_cast<std::size_t>(sqlite3_column_bytes(m_stmt, col)))
             : std::string();
}

Value Statement::column(int col, int attributeType) const {
    if (isNull(col))
        return {};
    switch (static_cast<AttributeType>(attributeType)) {
    case AttributeType::String: return columnText(col);
    case AttributeType::Date: return Date{columnDouble(col)};
    case AttributeType::Bool: return columnInt(col) != 0;
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64: return columnInt(col);
    case AttributeType::Double: return columnDouble(col);
    case AttributeType::Binary: {
        const auto* p = static_cast<const std::uint8_t*>(sqlite3_column_blob(m_stmt, col));
        return Bytes(p, p + sqlite3_column_bytes(m_stmt, col));
    }
    case AttributeType::UUID: {
        auto u = Uuid::parse(columnText(col));
        return u ? Value(*u) : Value();
    }
    }
    return {};
}

Database::~Database() {
    for (auto& [sql, stmt] : m_cache)
        sqlite3_finalize(stmt->get());
    for (auto& [sql, stmt] : m_idle)
        sqlite3_finalize(stmt);
    if (m_db)
        sqlite3_close_v2(m_db);
}

void Database::leaveFileAsIs() {
    if (m_db)
        sqlite3_db_config(m_db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

Result<std::unique_ptr<Database>> Database::open(const std::filesystem::path& path, bool create) {
    auto db = std::make_unique<Database>();
    db->m_path = path;
    // The store is the user's alone: made 0600 whatever the umask (SQLite
    // gives its log and shared-memory files the store's mode), and never
    // opened through a symbolic link someone could plant in its folder.
    if (create) {
        const int fd =
            ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0)
            ::close(fd);
    }
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW |
                (create ? SQLITE_OPEN_CREATE : 0);
    int rc = sqlite3_open_v2(path.c_str(), &db->m_db, flags, nullptr);
    if (rc != SQLITE_OK) {
        auto err = db->error(fmt::format("cannot open {}", path.string()), rc);
        return std::unexpected(err);
    }
    sqlite3_extended_result_codes(db->m_db, 1);
    sqlite3_busy_timeout(db->m_db, 30000);
    return db;
}

Error Database::error(std::string_view what) const {
    return error(what, m_db ? sqlite3_extended_errcode(m_db) : SQLITE_ERROR);
}

namespace {

// What an SQLite result code means to the caller.
Errc errcFor(int code) {
    const int primary = code & 0xff;
    if (primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT)
        return Errc::storeCorrupt;
    if (primary == SQLITE_CANTOPEN || primary == SQLITE_PERM || primary == SQLITE_READONLY)
        return Errc::permissionDenied;
    if (primary == SQLITE_FULL || primary == SQLITE_IOERR)
        return Errc::ioError;
    return Errc::storeError;
}

} // namespace

Error Database::error(std::string_view what, int code) const {
    const Errc errc = errcFor(code);
    const char* message = m_db ? sqlite3_errmsg(m_db) : sqlite3_errstr(code);
    return Error{errc, fmt::format("{}: {} (SQLite code {})", what, message, code)};
}

Result<void> Database::exec(std::string_view sql) {
    std::string text(sql);
    char* message = nullptr;
    int rc = sqlite3_exec(m_db, text.c_str(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        std::string m = message ? message : sqlite3_errstr(rc);
        sqlite3_free(message);
        return platform::fail(errcFor(rc), fmt::format("{} (SQLite code {})", m, rc));
    }
    return {};
}

Result<sqlite3_stmt*> Database::compile(std::string_view sql, unsigned flags) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v3(m_db, sql.data(), static_cast<int>(sql.size()), flags, &stmt, nullptr) !=
        SQLITE_OK)
        return std::unexpected(error(fmt::format("cannot prepare '{}'", sql)));
    return stmt;
}

Result<Statement*> Database::prepare(const std::string& sql) {
    auto it = m_cache.find(sql);
    if (it == m_cache.end()) {
        auto stmt = compile(sql, SQLITE_PREPARE_PERSISTENT);
        if (!stmt)
            return std::unexpected(stmt.error());
        it = m_cache.emplace(sql, std::make_unique<Statement>(*stmt)).first;
    }
    return it->second.get();
}

Result<std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>>
Database::prepareOnce(std::string_view sql) {
    auto stmt = compile(sql, 0);
    if (!stmt)
        return std::unexpected(stmt.error());
    return std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>(*stmt, sqlite3_finalize);
}

Result<BorrowedStatement> Database::borrow(std::string_view sql) {
    std::string text(sql);
    if (auto it = m_idle.find(text); it != m_idle.end()) {
        sqlite3_stmt* stmt = it->second;
        m_idle.erase(it);
        return BorrowedStatement(*this, std::move(text), stmt);
    }
    auto stmt = compile(text, SQLITE_PREPARE_PERSISTENT);
    if (!stmt)
        return std::unexpected(stmt.error());
    return BorrowedStatement(*this, std::move(text), *stmt);
}

void Database::giveBack(std::string sql, sqlite3_stmt* stmt) {
    // A few texts at most in practice; the bound keeps a program that makes
    // ever new ones from holding every statement it ever walked.
    constexpr std::size_t kMostIdle = 32;
    sqlite3_reset(stmt);
    sqlite3_clear_bindings(stmt);
    if (m_idle.size() < kMostIdle && m_idle.emplace(std::move(sql), stmt).second)
        return;
    sqlite3_finalize(stmt);
}

BorrowedStatement::~BorrowedStatement() {
    if (m_stmt)
        m_db->giveBack(std::move(m_sql), m_stmt);
}

Result<Transaction> Transaction::begin(Database& db) {
    // busy_timeout already waits; this loop covers the cases where SQLite
    // returns BUSY at once (a WAL snapshot that must be re-read, recovery).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        int rc = sqlite3_exec(db.handle(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
        if (rc == SQLITE_OK)
            return Transaction(db);
        if ((rc & 0xff) != SQLITE_BUSY || std::chrono::steady_clock::now() > deadline)
            return std::unexpected(db.error("cannot begin a write transaction", rc));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

Transaction::~Transaction() {
    if (m_db)
        sqlite3_exec(m_db->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

Result<void> Transaction::commit() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (;;) {
        int rc = sqlite3_exec(m_db->handle(), "COMMIT", nullptr, nullptr, nullptr);
        if (rc == SQLITE_OK) {
            m_db = nullptr;
            return {};
        }
        if ((rc & 0xff) != SQLITE_BUSY || std::chrono::steady_clock::now() > deadline)
            return std::unexpected(m_db->error("cannot commit", rc));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

Result<std::int64_t> pragmaInt(Database& db, std::string_view pragma) {
    auto stmt = db.prepareOnce(fmt::format("PRAGMA {}", pragma));
    if (!stmt)
        return std::unexpected(stmt.error());
    int rc = sqlite3_step(stmt->get());
    if (rc != SQLITE_ROW)
        return std::unexpected(
            db.error(fmt::format("{}: cannot read PRAGMA {}", db.path().string(), pragma), rc));
    return sqlite3_column_int64(stmt->get(), 0);
}

} // namespace tasket::objectstore::detail
