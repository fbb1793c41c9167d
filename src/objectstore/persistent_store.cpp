#include "objectstore/persistent_store.h"

#include "objectstore/detail/remote_change_monitor.h"
#include "objectstore/detail/sql_functions.h"
#include "objectstore/detail/sqlite.h"
#include "platform/clock.h"
#include "platform/notification_center.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>

namespace tasket::objectstore {

using detail::Database;
using detail::sqlName;
using detail::Statement;
using detail::StatementScope;
using detail::Transaction;
using platform::Errc;
using platform::fail;

namespace {

std::string_view sqlType(AttributeType t) {
    switch (t) {
    case AttributeType::String:
    case AttributeType::UUID: return "TEXT";
    case AttributeType::Date:
    case AttributeType::Double: return "REAL";
    case AttributeType::Bool:
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64: return "INTEGER";
    case AttributeType::Binary: return "BLOB";
    }
    return "BLOB";
}

// A default as an SQL literal, so rows that predate a column read it.
std::string sqlLiteral(const Value& v) {
    return std::visit(
        [](const auto& x) -> std::string {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, std::monostate>)
                return "NULL";
            else if constexpr (std::is_same_v<T, bool>)
                return x ? "1" : "0";
            else if constexpr (std::is_same_v<T, std::int64_t>)
                return std::to_string(x);
            else if constexpr (std::is_same_v<T, double>)
                return fmt::format("{:.17g}", x);
            else if constexpr (std::is_same_v<T, Date>)
                return fmt::format("{:.17g}", x.secondsSinceReference);
            else if constexpr (std::is_same_v<T, std::string>) {
                std::string out = "'";
                for (char c : x) {
                    if (c == '\'')
                        out += '\'';
                    out += c;
                }
                return out + "'";
            } else if constexpr (std::is_same_v<T, Uuid>)
                return "'" + x.toString() + "'";
            else {
                std::string out = "X'";
                for (auto b : x)
                    out += fmt::format("{:02X}", b);
                return out + "'";
            }
        },
        v);
}

std::string columnDefinition(const AttributeDescription& a) {
    std::string def = fmt::format("{} {}", sqlName(a.name), sqlType(a.type));
    if (!isNil(a.defaultValue))
        def += " DEFAULT " + sqlLiteral(a.defaultValue);
    return def;
}

std::string foreignKeyDefinition(const RelationshipDescription& r) {
    return fmt::format(
        "{} INTEGER REFERENCES {}(pk) ON DELETE SET NULL DEFERRABLE INITIALLY DEFERRED",
        sqlName(r.name), sqlName(r.destination));
}

// Rows ordered by the keys, then by pk (the sorts' tie-break), then the
// carried columns; named after the keys.
std::string sortIndexDefinition(const EntityDescription& e, const SortIndexDescription& index) {
    std::string name = "_s_" + e.name;
    std::string columns;
    for (const auto& key : index.orderedBy) {
        name += "_" + key;
        columns += sqlName(key) + ", ";
    }
    columns += "pk";
    for (const auto& column : index.carried)
        columns += ", " + sqlName(column);
    return fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})", sqlName(name), sqlName(e.name),
                       columns);
}

// The engine's own tables: metadata, key counters and persistent history.
constexpr std::string_view kEngineTables = R"(
    CREATE TABLE IF NOT EXISTS _meta(key TEXT PRIMARY KEY, value);
    CREATE TABLE IF NOT EXISTS _keys(entity TEXT PRIMARY KEY, maxKey INTEGER NOT NULL);
    CREATE TABLE IF NOT EXISTS _history_transaction(
        token INTEGER PRIMARY KEY AUTOINCREMENT, timestamp REAL NOT NULL, contextName TEXT, author TEXT);
    CREATE TABLE IF NOT EXISTS _history_change(
        id INTEGER PRIMARY KEY,
        token INTEGER NOT NULL REFERENCES _history_transaction(token) ON DELETE CASCADE,
        entity TEXT NOT NULL, key INTEGER NOT NULL, type INTEGER NOT NULL, properties TEXT);
    CREATE INDEX IF NOT EXISTS _history_change_token ON _history_change(token);
    INSERT OR IGNORE INTO _meta(key, value) VALUES('identifier', NULL);
)";

// The statements that bring `e`'s table, its join tables and its indexes
// up to the model, given the table's `existing` columns (none: a new table).
std::vector<std::string> entityStatements(const EntityDescription& e,
                                          const std::vector<std::string>& existing) {
    std::vector<std::string> statements;
    if (existing.empty()) {
        std::string ddl = fmt::format(
            "CREATE TABLE {}(pk INTEGER PRIMARY KEY, _version INTEGER NOT NULL DEFAULT 1",
            sqlName(e.name));
        for (const auto& a : e.attributes)
            ddl += ", " + columnDefinition(a);
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey)
                ddl += ", " + foreignKeyDefinition(e.relationships[i]);
        statements.push_back(ddl + ")");
    } else {
        auto has = [&](const std::string& n) {
            return std::find(existing.begin(), existing.end(), n) != existing.end();
        };
        for (const auto& a : e.attributes)
            if (!has(a.name))
                statements.push_back(fmt::format("ALTER TABLE {} ADD COLUMN {}", sqlName(e.name),
                                                 columnDefinition(a)));
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey && !has(e.relationships[i].name))
                statements.push_back(fmt::format("ALTER TABLE {} ADD COLUMN {}", sqlName(e.name),
                                                 foreignKeyDefinition(e.relationships[i])));
    }
    for (std::size_t i = 0; i < e.relationships.size(); ++i) {
        const auto& r = e.relationships[i];
        if (e.storage[i] == RelationshipStorage::ForeignKey)
            statements.push_back(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})",
                                             sqlName(fmt::format("_i_{}_{}", e.name, r.name)),
                                             sqlName(e.name), sqlName(r.name)));
        if (e.storage[i] == RelationshipStorage::JoinTable) {
            statements.push_back(
                fmt::format("CREATE TABLE IF NOT EXISTS {0}(src INTEGER NOT NULL REFERENCES "
                            "{1}(pk) ON DELETE CASCADE DEFERRABLE INITIALLY DEFERRED, "
                            "dst INTEGER NOT NULL REFERENCES {2}(pk) ON DELETE CASCADE DEFERRABLE "
                            "INITIALLY DEFERRED, PRIMARY KEY(src, dst)) WITHOUT ROWID",
                            sqlName(e.joinTables[i]), sqlName(e.name), sqlName(r.destination)));
            statements.push_back(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}(dst, src)",
                                             sqlName(e.joinTables[i] + "_dst"),
                                             sqlName(e.joinTables[i])));
        }
    }
    for (const auto& a : e.attributes)
        if (a.indexed)
            statements.push_back(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})",
                                             sqlName(fmt::format("_i_{}_{}", e.name, a.name)),
                                             sqlName(e.name), sqlName(a.name)));
    for (const auto& index : e.sortIndexes)
        statements.push_back(sortIndexDefinition(e, index));
    return statements;
}

// A fingerprint of the schema the model makes, kept in _meta: an opened
// store carrying the program's fingerprint needs no schema work at all.
std::string schemaFingerprint(const Model& model) {
    std::uint64_t hash = 14695981039346656037ull; // FNV-1a
    auto add = [&](std::string_view text) {
        for (const unsigned char c : text) {
            hash ^= c;
            hash *= 1099511628211ull;
        }
        hash ^= 0xff;
        hash *= 1099511628211ull;
    };
    add(kEngineTables);
    for (const auto& e : model.entities())
        for (const auto& statement : entityStatements(e, {}))
            add(statement);
    return fmt::format("{}:{:016x}", model.version(), hash);
}

std::uint32_t readBigEndian(const unsigned char* p, int bytes) {
    std::uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | p[i];
    return v;
}

// Checks an existing file's header without writing anything, so a damaged
// or foreign file fails before SQLite could touch it.
Result<void> checkExistingFile(const std::filesystem::path& path) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    if (ec)
        return fail(Errc::ioError, fmt::format("cannot read {}: {}", path.string(), ec.message()));
    if (size == 0)
        return {};
    auto notADatabase = [&] {
        return fail(Errc::storeCorrupt, fmt::format("{}: {} (SQLite code {})", path.string(),
                                                    sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB));
    };
    auto malformed = [&] {
        return fail(Errc::storeCorrupt,
                    fmt::format("{}: {} (SQLite code {})", path.string(),
                                sqlite3_errstr(SQLITE_CORRUPT), SQLITE_CORRUPT));
    };
    std::array<unsigned char, 100> header{};
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return fail(Errc::permissionDenied, fmt::format("cannot read {}", path.string()));
    in.read(reinterpret_cast<char*>(header.data()), header.size());
    if (in.gcount() < 100 || std::string_view(reinterpret_cast<const char*>(header.data()), 16) !=
                                 std::string_view("SQLite format 3\0", 16))
        return notADatabase();
    std::uint32_t pageSize = readBigEndian(&header[16], 2);
    if (pageSize == 1)
        pageSize = 65536;
    if (pageSize < 512 || pageSize > 65536 || (pageSize & (pageSize - 1)) != 0)
        return notADatabase();
    // With a write-ahead log beside it the file alone is not the database:
    // committed pages may still be in the log, and SQLite's recovery finishes
    // a checkpoint that a killed process left half done.
    const auto wal = path.string() + "-wal";
    if (std::error_code walError;
        std::filesystem::exists(wal, walError) && std::filesystem::file_size(wal, walError) > 0)
        return {};
    if (size % pageSize != 0)
        return malformed();
    const std::uint32_t changeCounter = readBigEndian(&header[24], 4);
    const std::uint32_t pageCount = readBigEndian(&header[28], 4);
    const std::uint32_t validFor = readBigEndian(&header[92], 4);
    if (pageCount != 0 && validFor == changeCounter && size < std::uint64_t(pageCount) * pageSize)
        return malformed();
    return {};
}

Result<std::int64_t> pragmaInt(Database& db, const char* pragma) {
    auto stmt = db.prepareOnce(fmt::format("PRAGMA {}", pragma));
    if (!stmt)
        return std::unexpected(stmt.error());
    int rc = sqlite3_step(stmt->get());
    if (rc != SQLITE_ROW)
        return std::unexpected(
            db.error(fmt::format("{}: cannot read PRAGMA {}", db.path().string(), pragma), rc));
    return sqlite3_column_int64(stmt->get(), 0);
}

std::string joinNames(const std::vector<std::string>& names) {
    std::string out;
    for (const auto& n : names) {
        if (!out.empty())
            out += ',';
        out += n;
    }
    return out;
}

} // namespace

PersistentStore::~PersistentStore() {
    m_monitor.reset(); // stop watching before the connection goes
}

Result<std::shared_ptr<PersistentStore>> PersistentStore::open(const std::filesystem::path& path,
                                                               std::shared_ptr<const Model> model,
                                                               StoreOptions options) {
    if (!model || !model->isFinalized())
        return fail(Errc::invalidArgument, "the model must be finalized before a store opens");
    const auto folder =
        path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    std::error_code ec;
    if (!std::filesystem::is_directory(folder, ec))
        return fail(Errc::notFound, fmt::format("the folder {} does not exist", folder.string()));
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return fail(
            Errc::permissionDenied,
            fmt::format("the folder {} cannot be written (the store needs it for its journal)",
                        folder.string()));
    const bool exists = std::filesystem::exists(path, ec);
    if (exists) {
        if (!std::filesystem::is_regular_file(path, ec))
            return fail(Errc::invalidArgument,
                        fmt::format("{} is not a regular file", path.string()));
        if (auto ok = checkExistingFile(path); !ok)
            return std::unexpected(ok.error());
    }

    std::shared_ptr<PersistentStore> store(new PersistentStore());
    store->m_path = path;
    store->m_model = std::move(model);
    store->m_options = options;
    auto db = Database::open(path, true);
    if (!db)
        return std::unexpected(db.error());
    store->m_db = std::move(*db);
    if (auto ok = store->prepareSchema(!exists); !ok)
        return std::unexpected(ok.error());
    detail::registerSqlFunctions(store->m_db->handle());
    if (auto v = pragmaInt(*store->m_db, "data_version"); v)
        store->m_dataVersion = *v;
    if (options.remoteChangeNotifications) {
        auto monitor = detail::RemoteChangeMonitor::start(*store);
        if (!monitor)
            return std::unexpected(monitor.error());
        store->m_monitor = std::move(*monitor);
    }
    return store;
}

Result<void> PersistentStore::prepareSchema(bool creating) {
    Database& db = *m_db;
    // Read before anything writes: a file that is not a database or was
    // written by a newer program must stay exactly as it is.
    auto version = pragmaInt(db, "user_version");
    if (!version)
        return std::unexpected(version.error());
    if (*version > m_model->version())
        return fail(
            Errc::schemaTooNew,
            fmt::format("{} was written by a newer version of the program (schema {}, this program "
                        "knows {}); it was not changed",
                        m_path.string(), *version, m_model->version()));
    if (!creating) {
        // A database file whose contents are damaged fails here, still unwritten.
        if (auto tables = pragmaInt(db, "schema_version"); !tables)
            return std::unexpected(tables.error());
    }

    auto journal = db.prepareOnce("PRAGMA journal_mode=WAL");
    if (!journal)
        return std::unexpected(journal.error());
    if (int rc = sqlite3_step(journal->get()); rc != SQLITE_ROW)
        return std::unexpected(
            db.error(fmt::format("{}: cannot switch to write-ahead logging", m_path.string()), rc));
    journal->reset();
    if (auto ok = db.exec("PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;"); !ok)
        return ok;

    const std::string fingerprint = schemaFingerprint(*m_model);
    if (creating || !schemaIsCurrent(fingerprint)) {
        if (auto ok = updateSchema(*version, fingerprint); !ok)
            return ok;
    }
    prepareStatementTexts();
    return {};
}

// Whether the store was last brought up to this very schema (its fingerprint
// is in _meta) and has its identifier; reads only.
bool PersistentStore::schemaIsCurrent(const std::string& fingerprint) {
    auto stmt =
        m_db->prepareOnce("SELECT key, value FROM _meta WHERE key IN ('identifier', 'schema')");
    if (!stmt)
        return false; // no _meta yet
    std::string identifier, stored;
    while (sqlite3_step(stmt->get()) == SQLITE_ROW) {
        if (sqlite3_column_type(stmt->get(), 1) != SQLITE_TEXT)
            continue;
        const std::string_view key =
            reinterpret_cast<const char*>(sqlite3_column_text(stmt->get(), 0));
        (key == "identifier" ? identifier : stored) =
            reinterpret_cast<const char*>(sqlite3_column_text(stmt->get(), 1));
    }
    if (stored != fingerprint || identifier.empty())
        return false;
    m_identifier = std::move(identifier);
    return true;
}

// Creates what is missing (tables, columns, indexes), in one transaction,
// and records the schema's fingerprint.
Result<void> PersistentStore::updateSchema(std::int64_t version, const std::string& fingerprint) {
    Database& db = *m_db;
    auto tx = Transaction::begin(db);
    if (!tx)
        return std::unexpected(tx.error());
    if (auto ok = db.exec(kEngineTables); !ok)
        return ok;

    // Existing columns per table, for additive migration.
    auto columnsOf = [&](const std::string& table) -> Result<std::vector<std::string>> {
        auto stmt = db.prepareOnce(fmt::format("PRAGMA table_info({})", sqlName(table)));
        if (!stmt)
            return std::unexpected(stmt.error());
        std::vector<std::string> names;
        while (sqlite3_step(stmt->get()) == SQLITE_ROW)
            names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt->get(), 1)));
        return names;
    };

    std::vector<std::string> statements;
    for (const auto& e : m_model->entities()) {
        auto existing = columnsOf(e.name);
        if (!existing)
            return std::unexpected(existing.error());
        auto more = entityStatements(e, *existing);
        statements.insert(statements.end(), more.begin(), more.end());
    }
    for (const auto& s : statements)
        if (auto ok = db.exec(s); !ok)
            return fail(ok.error().code, fmt::format("{}: cannot update the schema ({}): {}",
                                                     m_path.string(), s, ok.error().message));
    if (version != m_model->version())
        if (auto ok = db.exec(fmt::format("PRAGMA user_version={}", m_model->version())); !ok)
            return ok;

    {
        auto stmt = db.prepareOnce("SELECT value FROM _meta WHERE key='identifier'");
        if (!stmt)
            return std::unexpected(stmt.error());
        if (sqlite3_step(stmt->get()) == SQLITE_ROW &&
            sqlite3_column_type(stmt->get(), 0) == SQLITE_TEXT)
            m_identifier = reinterpret_cast<const char*>(sqlite3_column_text(stmt->get(), 0));
    }
    if (m_identifier.empty()) {
        m_identifier = Uuid::generate().toString();
        if (auto ok = db.exec(
                fmt::format("UPDATE _meta SET value='{}' WHERE key='identifier'", m_identifier));
            !ok)
            return ok;
    }
    if (auto ok = db.exec(fmt::format(
            "INSERT OR REPLACE INTO _meta(key, value) VALUES('schema', '{}')", fingerprint));
        !ok)
        return ok;
    return tx->commit();
}

// The column lists and INSERT texts of every entity.
void PersistentStore::prepareStatementTexts() {
    for (const auto& e : m_model->entities()) {
        std::string cols = "pk, _version";
        for (const auto& a : e.attributes)
            cols += ", " + sqlName(a.name);
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey)
                cols += ", " + sqlName(e.relationships[i].name);
        m_selectColumns.push_back(cols);
        std::string qualified = "t0.pk, t0._version";
        for (const auto& a : e.attributes)
            qualified += ", t0." + sqlName(a.name);
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey)
                qualified += ", t0." + sqlName(e.relationships[i].name);
        m_qualifiedColumns.push_back(std::move(qualified));
        std::string params = "?, 1";
        const auto foreignKeys =
            std::count(e.storage.begin(), e.storage.end(), RelationshipStorage::ForeignKey);
        for (std::size_t i = 0; i < e.attributes.size() + static_cast<std::size_t>(foreignKeys);
             ++i)
            params += ", ?";
        m_insertSql.push_back(
            fmt::format("INSERT INTO {}({}) VALUES({})", sqlName(e.name), cols, params));
    }
}

// ---------------------------------------------------------------- reading

namespace {

Row readRow(const Statement& s, const EntityDescription& e) {
    Row row;
    row.key = s.columnInt(0);
    row.version = s.columnInt(1);
    int col = 2;
    row.attributes.reserve(e.attributes.size());
    for (const auto& a : e.attributes)
        row.attributes.push_back(s.column(col++, static_cast<int>(a.type)));
    row.toOne.assign(e.relationships.size(), 0);
    for (std::size_t i = 0; i < e.relationships.size(); ++i)
        if (e.storage[i] == RelationshipStorage::ForeignKey) {
            row.toOne[i] = s.isNull(col) ? 0 : s.columnInt(col);
            ++col;
        }
    return row;
}

} // namespace

Result<std::optional<Row>> PersistentStore::loadRowLocked(ObjectID id) {
    const auto& e = m_model->entity(id.entity);
    auto stmt = m_db->prepare(
        fmt::format("SELECT {} FROM {} WHERE pk=?", m_selectColumns[id.entity], sqlName(e.name)));
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    s->bindInt(1, id.key);
    int rc = s->step();
    if (rc == SQLITE_DONE)
        return std::optional<Row>();
    if (rc != SQLITE_ROW)
        return std::unexpected(m_db->error(fmt::format("cannot read {} {}", e.name, id.key), rc));
    return std::optional<Row>(readRow(*s, e));
}

Result<std::optional<Row>> PersistentStore::loadRow(ObjectID id) {
    std::lock_guard lock(m_mutex);
    return loadRowLocked(id);
}

Result<std::vector<Row>> PersistentStore::loadRows(std::uint32_t entity,
                                                   std::span<const std::int64_t> keys) {
    std::vector<Row> rows;
    if (keys.empty())
        return rows;
    const auto& e = m_model->entity(entity);
    std::string list = "[";
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (i)
            list += ',';
        list += std::to_string(keys[i]);
    }
    list += ']';
    std::lock_guard lock(m_mutex);
    auto stmt =
        m_db->prepare(fmt::format("SELECT {} FROM {} WHERE pk IN (SELECT value FROM json_each(?))",
                                  m_selectColumns[entity], sqlName(e.name)));
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    s->bindText(1, list);
    rows.reserve(keys.size());
    int rc;
    while ((rc = s->step()) == SQLITE_ROW)
        rows.push_back(readRow(*s, e));
    if (rc != SQLITE_DONE)
        return std::unexpected(m_db->error(fmt::format("cannot read {} rows", e.name), rc));
    return rows;
}

Result<std::vector<std::int64_t>> PersistentStore::relatedKeysLocked(ObjectID id,
                                                                     std::size_t property) {
    const auto& e = m_model->entity(id.entity);
    const std::size_t ri = property - e.attributes.size();
    const auto& r = e.relationships[ri];
    const auto& dest = m_model->entity(r.destinationIndex);
    std::string sql;
    switch (e.storage[ri]) {
    case RelationshipStorage::ForeignKey:
        sql = fmt::format("SELECT {} FROM {} WHERE pk=? AND {} IS NOT NULL", sqlName(r.name),
                          sqlName(e.name), sqlName(r.name));
        break;
    case RelationshipStorage::InverseColumn:
        sql = fmt::format("SELECT pk FROM {} WHERE {}=?", sqlName(dest.name), sqlName(r.inverse));
        break;
    case RelationshipStorage::JoinTable:
        sql = fmt::format("SELECT dst FROM {} WHERE src=?", sqlName(e.joinTables[ri]));
        break;
    case RelationshipStorage::JoinTableInverse:
        sql = fmt::format("SELECT src FROM {} WHERE dst=?", sqlName(e.joinTables[ri]));
        break;
    }
    auto stmt = m_db->prepare(sql);
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    s->bindInt(1, id.key);
    std::vector<std::int64_t> keys;
    int rc;
    while ((rc = s->step()) == SQLITE_ROW)
        keys.push_back(s->columnInt(0));
    if (rc != SQLITE_DONE)
        return std::unexpected(m_db->error(fmt::format("cannot read {}.{}", e.name, r.name), rc));
    return keys;
}

Result<std::vector<std::int64_t>> PersistentStore::relatedKeys(ObjectID id, std::size_t property) {
    std::lock_guard lock(m_mutex);
    return relatedKeysLocked(id, property);
}

Result<std::vector<Row>> PersistentStore::queryRows(const std::string& sql, std::uint32_t entity,
                                                    const std::function<void(Statement&)>& bind) {
    std::vector<Row> rows;
    const auto& e = m_model->entity(entity);
    auto ok = query(sql, bind, [&](const Statement& s) { rows.push_back(readRow(s, e)); });
    if (!ok)
        return std::unexpected(ok.error());
    return rows;
}

Result<void> PersistentStore::query(const std::string& sql,
                                    const std::function<void(Statement&)>& bind,
                                    const std::function<void(const Statement&)>& row) {
    std::lock_guard lock(m_mutex);
    auto stmt = m_db->prepare(sql);
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    if (bind)
        bind(*s);
    int rc;
    while ((rc = s->step()) == SQLITE_ROW)
        row(*s);
    if (rc != SQLITE_DONE)
        return std::unexpected(m_db->error("query failed", rc));
    return {};
}

// ---------------------------------------------------------------- writing

Result<SaveResult> PersistentStore::save(const SaveRequest& request) {
    SaveResult result;
    std::lock_guard lock(m_mutex);
    Database& db = *m_db;
    auto tx = Transaction::begin(db);
    if (!tx)
        return std::unexpected(tx.error());

    // Permanent keys for inserted objects, never reused: _keys remembers the
    // highest key handed out per entity.
    std::map<std::uint32_t, std::int64_t> insertsPerEntity;
    for (const auto& c : request.changes)
        if (c.kind == ObjectChange::Kind::insert)
            ++insertsPerEntity[c.id.entity];
    for (auto [entity, count] : insertsPerEntity) {
        const auto& name = m_model->entity(entity).name;
        auto stmt = db.prepare(fmt::format("SELECT max(coalesce((SELECT maxKey FROM _keys WHERE "
                                           "entity=?1), 0), coalesce((SELECT max(pk) FROM {}), 0))",
                                           sqlName(name)));
        if (!stmt)
            return std::unexpected(stmt.error());
        std::int64_t next = 0;
        {
            StatementScope s(**stmt);
            s->bindText(1, name);
            if (s->step() != SQLITE_ROW)
                return std::unexpected(db.error("cannot allocate keys"));
            next = s->columnInt(0);
        }
        for (const auto& c : request.changes)
            if (c.kind == ObjectChange::Kind::insert && c.id.entity == entity)
                result.permanentIDs[c.id] = ObjectID{entity, ++next};
        auto update = db.prepare("INSERT INTO _keys(entity, maxKey) VALUES(?1, ?2) "
                                 "ON CONFLICT(entity) DO UPDATE SET maxKey=excluded.maxKey");
        if (!update)
            return std::unexpected(update.error());
        StatementScope u(**update);
        u->bindText(1, name);
        u->bindInt(2, next);
        if (u->step() != SQLITE_DONE)
            return std::unexpected(db.error("cannot allocate keys"));
    }

    std::vector<const ObjectChange*> written;
    written.reserve(request.changes.size());
    for (const auto& c : request.changes) {
        bool skipped = false;
        if (auto ok = writeRow(c, request.policy, result, skipped); !ok)
            return std::unexpected(ok.error());
        if (!skipped)
            written.push_back(&c);
    }

    if (m_options.historyTracking && !written.empty()) {
        auto t = db.prepare(
            "INSERT INTO _history_transaction(timestamp, contextName, author) VALUES(?,?,?)");
        if (!t)
            return std::unexpected(t.error());
        {
            StatementScope s(**t);
            s->bind(1, platform::Clock::shared().now().secondsSinceReference);
            s->bindText(2, request.contextName);
            s->bindText(3, request.author);
            if (s->step() != SQLITE_DONE)
                return std::unexpected(db.error("cannot record history"));
        }
        const HistoryToken token{db.lastInsertRowid()};
        result.token = token;
        auto ch = db.prepare(
            "INSERT INTO _history_change(token, entity, key, type, properties) VALUES(?,?,?,?,?)");
        if (!ch)
            return std::unexpected(ch.error());
        for (const ObjectChange* c : written) {
            const auto& e = m_model->entity(c->id.entity);
            const ObjectID id = c->id.isTemporary() ? result.permanentIDs.at(c->id) : c->id;
            StatementScope s(**ch);
            s->bindInt(1, token.value);
            s->bindText(2, e.name);
            s->bindInt(3, id.key);
            const ChangeType type = c->kind == ObjectChange::Kind::insert   ? ChangeType::insert
                                    : c->kind == ObjectChange::Kind::remove ? ChangeType::remove
                                                                            : ChangeType::update;
            s->bindInt(4, static_cast<int>(type));
            if (type == ChangeType::update) {
                std::vector<std::string> names;
                for (std::size_t p = 0; p < c->changed.size(); ++p)
                    if (c->changed[p])
                        names.push_back(e.propertyName(p));
                s->bindText(5, joinNames(names));
            }
            if (s->step() != SQLITE_DONE)
                return std::unexpected(db.error("cannot record history"));
        }
    }

    if (auto ok = tx->commit(); !ok)
        return std::unexpected(ok.error());
    return result;
}

Result<void> PersistentStore::writeRow(const ObjectChange& c, MergePolicy policy,
                                       SaveResult& result, bool& skipped) {
    Database& db = *m_db;
    const auto& e = m_model->entity(c.id.entity);
    auto keyOf = [&](ObjectID id) -> std::int64_t {
        if (!id.isValid())
            return 0;
        if (id.isTemporary()) {
            auto it = result.permanentIDs.find(id);
            return it == result.permanentIDs.end() ? 0 : it->second.key;
        }
        return id.key;
    };
    const std::int64_t key = keyOf(c.id);
    auto bindToOne = [&](Statement& s, int index, std::size_t ri) {
        const std::int64_t target = keyOf(c.toOne[ri]);
        if (target)
            s.bindInt(index, target);
        else
            s.bindNull(index);
    };

    if (c.kind == ObjectChange::Kind::remove) {
        auto stmt = db.prepare(fmt::format("DELETE FROM {} WHERE pk=?", sqlName(e.name)));
        if (!stmt)
            return std::unexpected(stmt.error());
        StatementScope s(**stmt);
        s->bindInt(1, key);
        if (s->step() != SQLITE_DONE)
            return std::unexpected(db.error(fmt::format("cannot delete {} {}", e.name, key)));
        return {};
    }

    if (c.kind == ObjectChange::Kind::insert) {
        auto stmt = db.prepare(m_insertSql[c.id.entity]);
        if (!stmt)
            return std::unexpected(stmt.error());
        StatementScope s(**stmt);
        int index = 1;
        s->bindInt(index++, key);
        for (const auto& v : c.attributes)
            s->bind(index++, v);
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey)
                bindToOne(*s, index++, i);
        if (s->step() != SQLITE_DONE)
            return std::unexpected(db.error(fmt::format("cannot insert {}", e.name)));
        result.versions[c.id] = 1;
    } else {
        // Update: only the changed columns, guarded by the version we read.
        auto runUpdate = [&](const std::vector<bool>& which, std::optional<std::int64_t> expected,
                             std::int64_t newVersion) -> Result<bool> {
            std::string set;
            for (std::size_t p = 0; p < e.propertyCount(); ++p) {
                if (!which[p])
                    continue;
                if (!e.isAttribute(p) &&
                    e.storage[p - e.attributes.size()] != RelationshipStorage::ForeignKey)
                    continue;
                set += sqlName(e.propertyName(p)) + "=?, ";
            }
            set += expected ? "_version=_version+1" : "_version=" + std::to_string(newVersion);
            auto stmt = db.prepare(fmt::format("UPDATE {} SET {} WHERE pk=?{}", sqlName(e.name),
                                               set, expected ? " AND _version=?" : ""));
            if (!stmt)
                return std::unexpected(stmt.error());
            StatementScope s(**stmt);
            int index = 1;
            for (std::size_t p = 0; p < e.propertyCount(); ++p) {
                if (!which[p])
                    continue;
                if (e.isAttribute(p))
                    s->bind(index++, c.attributes[p]);
                else if (e.storage[p - e.attributes.size()] == RelationshipStorage::ForeignKey)
                    bindToOne(*s, index++, p - e.attributes.size());
            }
            s->bindInt(index++, key);
            if (expected)
                s->bindInt(index++, *expected);
            if (s->step() != SQLITE_DONE)
                return std::unexpected(db.error(fmt::format("cannot update {} {}", e.name, key)));
            return db.changes() > 0;
        };
        bool storedColumnChanged = false;
        for (std::size_t p = 0; p < e.propertyCount(); ++p)
            if (c.changed[p] && (e.isAttribute(p) || e.storage[p - e.attributes.size()] ==
                                                         RelationshipStorage::ForeignKey))
                storedColumnChanged = true;
        // Only member sets changed (the other side holds the column, or a
        // join table does): no row to write, no version to bump.
        auto updated =
            storedColumnChanged ? runUpdate(c.changed, c.version, 0) : Result<bool>(true);
        if (!updated)
            return std::unexpected(updated.error());
        if (*updated) {
            result.versions[c.id] = storedColumnChanged ? c.version + 1 : c.version;
        } else {
            // Someone else wrote the row since this context read it.
            auto stored = loadRowLocked(c.id);
            if (!stored)
                return std::unexpected(stored.error());
            if (policy == MergePolicy::error)
                return fail(
                    Errc::conflict,
                    *stored ? fmt::format(
                                  "{} {} was changed by another writer (stored version {}, read "
                                  "version {})",
                                  e.name, key, (*stored)->version, c.version)
                            : fmt::format("{} {} was deleted by another writer", e.name, key));
            if (!*stored) {
                result.vanished.push_back(c.id);
                skipped = true;
                return {};
            }
            Row row = std::move(**stored);
            if (policy == MergePolicy::rollback) {
                result.merged.emplace_back(c.id, std::move(row));
                skipped = true;
                return {};
            }
            const std::int64_t newVersion = row.version + 1;
            const std::vector<bool> all(e.propertyCount(), true);
            const auto& which = policy == MergePolicy::overwrite ? all : c.changed;
            if (auto ok = runUpdate(which, std::nullopt, newVersion); !ok)
                return std::unexpected(ok.error());
            for (std::size_t p = 0; p < e.propertyCount(); ++p) {
                if (!which[p])
                    continue;
                if (e.isAttribute(p))
                    row.attributes[p] = c.attributes[p];
                else
                    row.toOne[p - e.attributes.size()] = keyOf(c.toOne[p - e.attributes.size()]);
            }
            row.version = newVersion;
            result.versions[c.id] = newVersion;
            result.merged.emplace_back(c.id, std::move(row));
        }
    }

    // Many-to-many rows, written by the side that owns the join table.
    for (const auto& delta : c.joins) {
        const auto& table = sqlName(e.joinTables[delta.relationship]);
        auto add =
            db.prepare(fmt::format("INSERT OR IGNORE INTO {}(src, dst) VALUES(?, ?)", table));
        auto remove = db.prepare(fmt::format("DELETE FROM {} WHERE src=? AND dst=?", table));
        if (!add || !remove)
            return std::unexpected(!add ? add.error() : remove.error());
        for (const auto& [list, stmt] :
             {std::pair{&delta.added, *add}, std::pair{&delta.removed, *remove}}) {
            for (const auto& target : *list) {
                const std::int64_t other = keyOf(target);
                if (!other)
                    continue;
                StatementScope st(*stmt);
                st->bindInt(1, key);
                st->bindInt(2, other);
                if (st->step() != SQLITE_DONE)
                    return std::unexpected(
                        db.error(fmt::format("cannot write {}", e.joinTables[delta.relationship])));
            }
        }
    }
    return {};
}

// ---------------------------------------------------------------- history

Result<std::vector<HistoryTransaction>>
PersistentStore::historyAfter(std::optional<HistoryToken> token) {
    std::vector<HistoryTransaction> out;
    auto ok = query(
        "SELECT t.token, t.timestamp, t.contextName, t.author, c.entity, c.key, c.type, "
        "c.properties "
        "FROM _history_transaction t LEFT JOIN _history_change c ON c.token = t.token "
        "WHERE t.token > ? ORDER BY t.token, c.id",
        [&](Statement& s) { s.bindInt(1, token ? token->value : 0); },
        [&](const Statement& s) {
            const HistoryToken t{s.columnInt(0)};
            if (out.empty() || out.back().token != t) {
                HistoryTransaction tx;
                tx.token = t;
                tx.timestamp = Date{s.columnDouble(1)};
                tx.contextName = s.columnText(2);
                tx.author = s.columnText(3);
                out.push_back(std::move(tx));
            }
            if (s.isNull(4))
                return;
            const EntityDescription* e = m_model->entity(s.columnText(4));
            if (!e)
                return; // an entity this program does not know
            HistoryChange change;
            change.object = ObjectID{e->index, s.columnInt(5)};
            change.type = static_cast<ChangeType>(s.columnInt(6));
            const std::string props = s.columnText(7);
            std::size_t start = 0;
            while (start < props.size()) {
                auto comma = props.find(',', start);
                if (comma == std::string::npos)
                    comma = props.size();
                change.changedProperties.push_back(props.substr(start, comma - start));
                start = comma + 1;
            }
            out.back().changes.push_back(std::move(change));
        });
    if (!ok)
        return std::unexpected(ok.error());
    return out;
}

Result<void> PersistentStore::deleteHistory(HistoryToken through) {
    std::lock_guard lock(m_mutex);
    auto tx = Transaction::begin(*m_db);
    if (!tx)
        return std::unexpected(tx.error());
    for (const char* sql : {"DELETE FROM _history_change WHERE token <= ?",
                            "DELETE FROM _history_transaction WHERE token <= ?"}) {
        auto stmt = m_db->prepare(sql);
        if (!stmt)
            return std::unexpected(stmt.error());
        StatementScope s(**stmt);
        s->bindInt(1, through.value);
        if (s->step() != SQLITE_DONE)
            return std::unexpected(m_db->error("cannot delete history"));
    }
    return tx->commit();
}

Result<std::optional<HistoryToken>> PersistentStore::currentHistoryToken() {
    std::optional<HistoryToken> token;
    auto ok = query("SELECT seq FROM sqlite_sequence WHERE name='_history_transaction'", nullptr,
                    [&](const Statement& s) { token = HistoryToken{s.columnInt(0)}; });
    if (!ok)
        return std::unexpected(ok.error());
    return token;
}

// ---------------------------------------------------------------- remote changes

void PersistentStore::checkRemoteChange() {
    std::optional<HistoryToken> token;
    {
        std::lock_guard lock(m_mutex);
        auto v = pragmaInt(*m_db, "data_version");
        if (!v || *v == m_dataVersion)
            return;
        m_dataVersion = *v;
    }
    if (auto t = currentHistoryToken(); t)
        token = *t;
    platform::NotificationCenter::defaultCenter().post(kStoreRemoteChangeNotification, this,
                                                       RemoteChangeInfo{m_path, token});
}

} // namespace tasket::objectstore
