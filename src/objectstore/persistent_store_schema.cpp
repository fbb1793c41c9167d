// PersistentStore: opening checks, the schema and its additive migration.
#include "objectstore/detail/schema_sql.h"
#include "objectstore/detail/sqlite.h"
#include "objectstore/model/sql_identifier.h"
#include "objectstore/persistent_store.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::objectstore {

using detail::Database;
using detail::entityStatements;
using detail::kEngineTables;
using detail::pragmaInt;
using detail::quoteIdentifier;
using detail::schemaFingerprint;
using detail::Transaction;
using platform::Errc;
using platform::fail;

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
        // Tables without the engine's own are another program's database,
        // or a write-ahead log left by another database was read into this
        // one: making a schema beside them would hide the user's data.
        auto foreign = db.prepareOnce(
            "SELECT EXISTS (SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE "
            "'sqlite_%') AND NOT EXISTS (SELECT 1 FROM sqlite_schema WHERE name = '_meta')");
        if (!foreign)
            return std::unexpected(foreign.error());
        if (int rc = sqlite3_step(foreign->get()); rc != SQLITE_ROW)
            return std::unexpected(
                db.error(fmt::format("{}: cannot read the schema", m_path.string()), rc));
        if (sqlite3_column_int(foreign->get(), 0) != 0)
            return fail(Errc::storeCorrupt,
                        fmt::format("{} holds tables that are not a store's (another program's "
                                    "database, or a write-ahead log from another database beside "
                                    "it); it was not changed",
                                    m_path.string()));
        // A log left beside a file restored from elsewhere, or copied from
        // another store, would be read into it: the store's identifier then
        // differs from the one the file records. (The identifier is written
        // once, so a read racing another process's checkpoint sees it whole
        // or not as an identifier at all.)
        std::error_code ec;
        const auto log = std::filesystem::path(m_path.string() + "-wal");
        const auto alone = std::filesystem::file_size(log, ec) > 0 && !ec
                               ? detail::identifierInFileAlone(m_path)
                               : std::nullopt;
        if (alone && Uuid::parse(*alone)) {
            auto stmt = db.prepareOnce("SELECT value FROM _meta WHERE key = 'identifier'");
            if (!stmt)
                return std::unexpected(stmt.error());
            const bool same =
                sqlite3_step(stmt->get()) == SQLITE_ROW &&
                sqlite3_column_type(stmt->get(), 0) == SQLITE_TEXT &&
                *alone == reinterpret_cast<const char*>(sqlite3_column_text(stmt->get(), 0));
            if (!same)
                return fail(Errc::storeCorrupt,
                            fmt::format("{}: the write-ahead log beside it belongs to another "
                                        "store; it was not changed",
                                        m_path.string()));
        }
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
    m_texts = std::make_unique<EntityTexts[]>(m_model->entities().size());
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
        auto stmt = db.prepareOnce(fmt::format("PRAGMA table_info({})", quoteIdentifier(table)));
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

// The column list and INSERT text of `entity`, made on first use.
const PersistentStore::EntityTexts& PersistentStore::texts(std::uint32_t entity) const {
    EntityTexts& made = m_texts[entity];
    std::call_once(made.once, [&] {
        const auto& e = m_model->entity(entity);
        std::string cols = "pk, _version";
        std::size_t count = e.attributes.size(); // the columns after those two
        for (const auto& a : e.attributes)
            cols += ", " + quoteIdentifier(a.name);
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey) {
                cols += ", " + quoteIdentifier(e.relationships[i].name);
                ++count;
            }
        std::string params = "?, 1";
        for (std::size_t i = 0; i < count; ++i)
            params += ", ?";
        made.insertSql =
            fmt::format("INSERT INTO {}({}) VALUES({})", quoteIdentifier(e.name), cols, params);
        made.selectColumns = std::move(cols);
        made.qualifiedColumns = rowColumns(entity, std::vector<bool>(e.attributes.size()));
    });
    return made;
}

} // namespace tasket::objectstore
