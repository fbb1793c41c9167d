// sqlite_insert_one: the floor under saving one shared link. It opens a
// TK_Data.sqlite with the settings the engine uses (write-ahead log,
// synchronous=FULL, foreign keys on) and writes what a save of one new task
// writes: a key from _keys, one TK_Task row (new identifier, link, creation
// instant, list found by its title) and the history transaction with its one
// change, all in one transaction. No model, no contexts.
//
//   sqlite_insert_one STORE_FILE LIST_TITLE URL
#include <sqlite3.h>
#include <sys/random.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

constexpr double kReferenceDateUnix = 978307200.0; // 2001-01-01, the store's epoch
// The name the intake's saves carry in the store's history.
const std::string kViewContextName = "Lumenforge.QRX.Tasket.View.Context";

class Database {
  public:
    explicit Database(const char* file) {
        if (sqlite3_open_v2(file, &m_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
            throw std::runtime_error(std::string("cannot open ") + file + ": " +
                                     sqlite3_errmsg(m_db));
        sqlite3_busy_timeout(m_db, 5000);
    }
    ~Database() { sqlite3_close(m_db); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void exec(const char* sql) {
        char* message = nullptr;
        if (sqlite3_exec(m_db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
            std::string text = std::string(sql) + ": " + (message ? message : "unknown error");
            sqlite3_free(message);
            throw std::runtime_error(text);
        }
    }
    sqlite3* get() const { return m_db; }

  private:
    sqlite3* m_db = nullptr;
};

class Statement {
  public:
    Statement(Database& db, const char* sql) : m_db(db.get()) {
        if (sqlite3_prepare_v2(m_db, sql, -1, &m_stmt, nullptr) != SQLITE_OK)
            throw std::runtime_error(std::string(sql) + ": " + sqlite3_errmsg(m_db));
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& text(int at, const std::string& v) {
        sqlite3_bind_text(m_stmt, at, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& real(int at, double v) {
        sqlite3_bind_double(m_stmt, at, v);
        return *this;
    }
    Statement& integer(int at, std::int64_t v) {
        sqlite3_bind_int64(m_stmt, at, v);
        return *this;
    }
    /// Steps once; true when a row came back.
    bool step() {
        const int rc = sqlite3_step(m_stmt);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(m_db));
        return rc == SQLITE_ROW;
    }
    std::int64_t column(int at) const { return sqlite3_column_int64(m_stmt, at); }

  private:
    sqlite3* m_db;
    sqlite3_stmt* m_stmt = nullptr;
};

// A random (version 4) UUID in the upper-case text form the store keeps.
std::string newIdentifier() {
    std::array<unsigned char, 16> b{};
    if (getrandom(b.data(), b.size(), 0) != static_cast<ssize_t>(b.size()))
        throw std::runtime_error("getrandom failed");
    b[6] = static_cast<unsigned char>((b[6] & 0x0f) | 0x40);
    b[8] = static_cast<unsigned char>((b[8] & 0x3f) | 0x80);
    std::string out;
    static constexpr char kHex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < b.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            out += '-';
        out += kHex[b[i] >> 4];
        out += kHex[b[i] & 0x0f];
    }
    return out;
}

double nowSinceReference() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - kReferenceDateUnix;
}

void insertOne(const char* file, const std::string& listTitle, const std::string& url) {
    Database db(file);
    Statement(db, "PRAGMA journal_mode=WAL").step();
    db.exec("PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;");
    db.exec("BEGIN IMMEDIATE");

    std::int64_t category = 0;
    {
        Statement list(db, "SELECT pk FROM TK_Category WHERE title=?1 ORDER BY pk LIMIT 1");
        if (!list.text(1, listTitle).step())
            throw std::runtime_error("there is no list \"" + listTitle + "\"");
        category = list.column(0);
    }

    // Keys are never reused: the highest handed out is kept in _keys.
    std::int64_t key = 0;
    {
        Statement highest(db, "SELECT max(coalesce((SELECT maxKey FROM _keys WHERE "
                              "entity='TK_Task'), 0), coalesce((SELECT max(pk) FROM TK_Task), 0))");
        highest.step();
        key = highest.column(0) + 1;
    }
    Statement(db, "INSERT INTO _keys(entity, maxKey) VALUES('TK_Task', ?1) "
                  "ON CONFLICT(entity) DO UPDATE SET maxKey=excluded.maxKey")
        .integer(1, key)
        .step();

    // The row the intake writes for a shared link: no title of its own, the
    // link, and the all-day defaults of a new task.
    const double now = nowSinceReference();
    Statement(db, "INSERT INTO TK_Task(pk, taskID, url, whenCreated, category, isAllDay, "
                  "isStartDateAllDay) VALUES(?1, ?2, ?3, ?4, ?5, 1, 1)")
        .integer(1, key)
        .text(2, newIdentifier())
        .text(3, url)
        .real(4, now)
        .integer(5, category)
        .step();

    Statement(db, "INSERT INTO _history_transaction(timestamp, contextName, author) "
                  "VALUES(?1, ?2, NULL)")
        .real(1, now)
        .text(2, kViewContextName)
        .step();
    Statement(db, "INSERT INTO _history_change(token, entity, key, type, properties) "
                  "VALUES(?1, 'TK_Task', ?2, 0, NULL)")
        .integer(1, sqlite3_last_insert_rowid(db.get()))
        .integer(2, key)
        .step();

    db.exec("COMMIT");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: sqlite_insert_one STORE_FILE LIST_TITLE URL\n");
        return 64;
    }
    try {
        insertOne(argv[1], argv[2], argv[3]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sqlite_insert_one: %s\n", error.what());
        return 1;
    }
    return 0;
}
