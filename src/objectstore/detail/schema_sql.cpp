#include "objectstore/detail/schema_sql.h"

#include "objectstore/detail/sqlite.h"
#include "objectstore/model/sql_identifier.h"

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <fstream>

namespace tasket::objectstore::detail {

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
    std::string def = fmt::format("{} {}", quoteIdentifier(a.name), sqlType(a.type));
    if (!isNil(a.defaultValue))
        def += " DEFAULT " + sqlLiteral(a.defaultValue);
    return def;
}

std::string foreignKeyDefinition(const RelationshipDescription& r) {
    return fmt::format(
        "{} INTEGER REFERENCES {}(pk) ON DELETE SET NULL DEFERRABLE INITIALLY DEFERRED",
        quoteIdentifier(r.name), quoteIdentifier(r.destination));
}

// Rows ordered by the keys, then by pk (the sorts' tie-break), then the
// carried columns; named after the keys.
std::string sortIndexDefinition(const EntityDescription& e, const SortIndexDescription& index) {
    std::string name = "_s_" + e.name;
    std::string columns;
    for (const auto& key : index.orderedBy) {
        name += "_" + key;
        columns += quoteIdentifier(key) + ", ";
    }
    columns += "pk";
    for (const auto& column : index.carried)
        columns += ", " + quoteIdentifier(column);
    return fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})", quoteIdentifier(name),
                       quoteIdentifier(e.name), columns);
}

} // namespace

const std::string_view kEngineTables = R"(
    CREATE TABLE IF NOT EXISTS _meta(key TEXT PRIMARY KEY, value);
    CREATE TABLE IF NOT EXISTS _keys(entity TEXT PRIMARY KEY, maxKey INTEGER NOT NULL);
    CREATE TABLE IF NOT EXISTS _history_transaction(
        token INTEGER PRIMARY KEY AUTOINCREMENT, timestamp REAL NOT NULL, contextName TEXT, author TEXT);
    CREATE TABLE IF NOT EXISTS _history_change(
        id INTEGER PRIMARY KEY,
        token INTEGER NOT NULL REFERENCES _history_transaction(token) ON DELETE CASCADE,
        entity TEXT NOT NULL, key INTEGER NOT NULL, type INTEGER NOT NULL, properties TEXT);
    CREATE INDEX IF NOT EXISTS _history_change_token ON _history_change(token);
    CREATE TABLE IF NOT EXISTS _history_tombstone(
        change INTEGER NOT NULL REFERENCES _history_change(id) ON DELETE CASCADE,
        name TEXT NOT NULL, value);
    CREATE INDEX IF NOT EXISTS _history_tombstone_change ON _history_tombstone(change);
    INSERT OR IGNORE INTO _meta(key, value) VALUES('identifier', NULL);
)";

std::vector<std::string> entityStatements(const EntityDescription& e,
                                          const std::vector<std::string>& existing) {
    std::vector<std::string> statements;
    if (existing.empty()) {
        std::string ddl = fmt::format(
            "CREATE TABLE {}(pk INTEGER PRIMARY KEY, _version INTEGER NOT NULL DEFAULT 1",
            quoteIdentifier(e.name));
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
                statements.push_back(fmt::format("ALTER TABLE {} ADD COLUMN {}",
                                                 quoteIdentifier(e.name), columnDefinition(a)));
        for (std::size_t i = 0; i < e.relationships.size(); ++i)
            if (e.storage[i] == RelationshipStorage::ForeignKey && !has(e.relationships[i].name))
                statements.push_back(fmt::format("ALTER TABLE {} ADD COLUMN {}",
                                                 quoteIdentifier(e.name),
                                                 foreignKeyDefinition(e.relationships[i])));
    }
    for (std::size_t i = 0; i < e.relationships.size(); ++i) {
        const auto& r = e.relationships[i];
        if (e.storage[i] == RelationshipStorage::ForeignKey)
            statements.push_back(
                fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})",
                            quoteIdentifier(fmt::format("_i_{}_{}", e.name, r.name)),
                            quoteIdentifier(e.name), quoteIdentifier(r.name)));
        if (e.storage[i] == RelationshipStorage::JoinTable) {
            statements.push_back(
                fmt::format("CREATE TABLE IF NOT EXISTS {0}(src INTEGER NOT NULL REFERENCES "
                            "{1}(pk) ON DELETE CASCADE DEFERRABLE INITIALLY DEFERRED, "
                            "dst INTEGER NOT NULL REFERENCES {2}(pk) ON DELETE CASCADE DEFERRABLE "
                            "INITIALLY DEFERRED, PRIMARY KEY(src, dst)) WITHOUT ROWID",
                            quoteIdentifier(e.joinTables[i]), quoteIdentifier(e.name),
                            quoteIdentifier(r.destination)));
            statements.push_back(fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}(dst, src)",
                                             quoteIdentifier(e.joinTables[i] + "_dst"),
                                             quoteIdentifier(e.joinTables[i])));
        }
    }
    for (const auto& a : e.attributes)
        if (a.indexed)
            statements.push_back(
                fmt::format("CREATE INDEX IF NOT EXISTS {} ON {}({})",
                            quoteIdentifier(fmt::format("_i_{}_{}", e.name, a.name)),
                            quoteIdentifier(e.name), quoteIdentifier(a.name)));
    for (const auto& index : e.sortIndexes)
        statements.push_back(sortIndexDefinition(e, index));
    return statements;
}

std::string schemaFingerprint(const Model& model) {
    // Eight bytes at a time (a multiply and a shift per word), each text
    // closed by its length: the DDL is some 50 kB, read at every open.
    std::uint64_t hash = 0x9e3779b97f4a7c15ull;
    auto mix = [&](std::uint64_t word) {
        hash = (hash ^ word) * 0xff51afd7ed558ccdull;
        hash ^= hash >> 32;
    };
    auto add = [&](std::string_view text) {
        std::size_t at = 0;
        for (; at + 8 <= text.size(); at += 8) {
            std::uint64_t word;
            std::memcpy(&word, text.data() + at, 8);
            mix(word);
        }
        std::uint64_t tail = 0;
        std::memcpy(&tail, text.data() + at, text.size() - at);
        mix(tail);
        mix(text.size());
    };
    add(kEngineTables);
    for (const auto& e : model.entities())
        for (const auto& statement : entityStatements(e, {}))
            add(statement);
    return fmt::format("{}:{:016x}", model.version(), hash);
}

namespace {

std::uint32_t readBigEndian(const unsigned char* p, int bytes) {
    std::uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | p[i];
    return v;
}

} // namespace

platform::Result<void> checkExistingFile(const std::filesystem::path& path) {
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

std::optional<std::string> identifierInFileAlone(const std::filesystem::path& path) {
    // immutable=1 reads the file as it stands: no log, no locks, no writes.
    std::string uri = "file:";
    for (const char c : path.string()) {
        if (c == '%' || c == '?' || c == '#')
            uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        else
            uri += c;
    }
    uri += "?immutable=1";
    sqlite3* db = nullptr;
    std::optional<std::string> identifier;
    if (sqlite3_open_v2(uri.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) ==
        SQLITE_OK) {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT value FROM _meta WHERE key = 'identifier'", -1, &stmt,
                               nullptr) == SQLITE_OK &&
            sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_type(stmt, 0) == SQLITE_TEXT)
            identifier = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
        sqlite3_finalize(stmt);
    }
    sqlite3_close_v2(db);
    return identifier;
}

} // namespace tasket::objectstore::detail
