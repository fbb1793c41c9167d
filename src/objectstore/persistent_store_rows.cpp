// PersistentStore: reading rows and the save transaction (keys for new
// objects, rows with optimistic locking and merge policies, join rows).
#include "objectstore/detail/sqlite.h"
#include "objectstore/model/sql_identifier.h"
#include "objectstore/persistent_store.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <map>

namespace tasket::objectstore {

using detail::Database;
using detail::quoteIdentifier;
using detail::Statement;
using detail::StatementScope;
using detail::Transaction;
using platform::Errc;
using platform::fail;

namespace {

// `unfetched` marks the attributes the query's columns leave out.
Row readRow(const Statement& s, const EntityDescription& e,
            const std::vector<bool>* unfetched = nullptr) {
    Row row;
    row.key = s.columnInt(0);
    row.version = s.columnInt(1);
    int col = 2;
    row.attributes.reserve(e.attributes.size());
    for (std::size_t i = 0; i < e.attributes.size(); ++i)
        if (unfetched && (*unfetched)[i])
            row.attributes.emplace_back();
        else
            row.attributes.push_back(s.column(col++, static_cast<int>(e.attributes[i].type)));
    row.toOne.assign(e.relationships.size(), 0);
    for (std::size_t i = 0; i < e.relationships.size(); ++i)
        if (e.storage[i] == RelationshipStorage::ForeignKey) {
            row.toOne[i] = s.isNull(col) ? 0 : s.columnInt(col);
            ++col;
        }
    return row;
}

// Keys as a JSON array, bound to one parameter and read by json_each: one
// statement for any number of keys.
std::string keyList(std::span<const std::int64_t> keys) {
    std::string list = "[";
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (i)
            list += ',';
        list += std::to_string(keys[i]);
    }
    list += ']';
    return list;
}

} // namespace

Result<std::optional<Row>> PersistentStore::loadRowLocked(ObjectID id) {
    const auto& e = m_model->entity(id.entity);
    auto stmt = m_db->prepare(fmt::format("SELECT {} FROM {} WHERE pk=?",
                                          texts(id.entity).selectColumns, quoteIdentifier(e.name)));
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
    const std::string list = keyList(keys);
    std::lock_guard lock(m_mutex);
    auto stmt =
        m_db->prepare(fmt::format("SELECT {} FROM {} WHERE pk IN (SELECT value FROM json_each(?))",
                                  texts(entity).selectColumns, quoteIdentifier(e.name)));
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
        sql =
            fmt::format("SELECT {} FROM {} WHERE pk=? AND {} IS NOT NULL", quoteIdentifier(r.name),
                        quoteIdentifier(e.name), quoteIdentifier(r.name));
        break;
    case RelationshipStorage::InverseColumn:
        sql = fmt::format("SELECT pk FROM {} WHERE {}=?", quoteIdentifier(dest.name),
                          quoteIdentifier(r.inverse));
        break;
    case RelationshipStorage::JoinTable:
        sql = fmt::format("SELECT dst FROM {} WHERE src=?", quoteIdentifier(e.joinTables[ri]));
        break;
    case RelationshipStorage::JoinTableInverse:
        sql = fmt::format("SELECT src FROM {} WHERE dst=?", quoteIdentifier(e.joinTables[ri]));
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

Result<std::vector<std::pair<std::int64_t, std::int64_t>>>
PersistentStore::relatedKeysOf(std::uint32_t entity, std::span<const std::int64_t> keys,
                               std::size_t property) {
    std::vector<std::pair<std::int64_t, std::int64_t>> pairs;
    if (keys.empty())
        return pairs;
    const auto& e = m_model->entity(entity);
    const std::size_t ri = property - e.attributes.size();
    const auto& r = e.relationships[ri];
    const auto& dest = m_model->entity(r.destinationIndex);
    // The (owner, target) columns and where they live, per storage.
    std::string owner, target, from;
    switch (e.storage[ri]) {
    case RelationshipStorage::ForeignKey:
        owner = "pk", target = quoteIdentifier(r.name), from = quoteIdentifier(e.name);
        break;
    case RelationshipStorage::InverseColumn:
        owner = quoteIdentifier(r.inverse), target = "pk", from = quoteIdentifier(dest.name);
        break;
    case RelationshipStorage::JoinTable:
        owner = "src", target = "dst", from = quoteIdentifier(e.joinTables[ri]);
        break;
    case RelationshipStorage::JoinTableInverse:
        owner = "dst", target = "src", from = quoteIdentifier(e.joinTables[ri]);
        break;
    }
    // The keys in order drive lookups in the owner column's index, which
    // yields each owner's targets in order: no temporary table for an IN
    // list and no sort. CROSS JOIN keeps the keys as the outer loop.
    std::vector<std::int64_t> sorted(keys.begin(), keys.end());
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    const std::string list = keyList(sorted);
    std::lock_guard lock(m_mutex);
    auto stmt = m_db->prepare(fmt::format(
        "SELECT t.{0}, t.{1} FROM json_each(?) AS k CROSS JOIN {2} AS t WHERE t.{0} = k.value "
        "AND t.{1} IS NOT NULL",
        owner, target, from));
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    s->bindText(1, list);
    int rc;
    while ((rc = s->step()) == SQLITE_ROW)
        pairs.emplace_back(s->columnInt(0), s->columnInt(1));
    if (rc != SQLITE_DONE)
        return std::unexpected(m_db->error(fmt::format("cannot read {}.{}", e.name, r.name), rc));
    return pairs;
}

std::string PersistentStore::rowColumns(std::uint32_t entity,
                                        const std::vector<bool>& unfetched) const {
    const auto& e = m_model->entity(entity);
    std::string columns = "t0.pk, t0._version";
    for (std::size_t i = 0; i < e.attributes.size(); ++i)
        if (!unfetched[i])
            columns += ", t0." + quoteIdentifier(e.attributes[i].name);
    for (std::size_t i = 0; i < e.relationships.size(); ++i)
        if (e.storage[i] == RelationshipStorage::ForeignKey)
            columns += ", t0." + quoteIdentifier(e.relationships[i].name);
    return columns;
}

Result<std::vector<Row>> PersistentStore::queryRows(const std::string& sql, std::uint32_t entity,
                                                    const std::function<void(Statement&)>& bind,
                                                    const std::vector<bool>* unfetched) {
    std::vector<Row> rows;
    const auto& e = m_model->entity(entity);
    auto ok =
        query(sql, bind, [&](const Statement& s) { rows.push_back(readRow(s, e, unfetched)); });
    if (!ok)
        return std::unexpected(ok.error());
    return rows;
}

Result<void>
PersistentStore::queryRowBatches(const std::string& sql, std::uint32_t entity,
                                 const std::function<void(Statement&)>& bind, std::size_t batch,
                                 const std::function<Result<void>(std::vector<Row>&)>& each,
                                 const std::vector<bool>* unfetched) {
    const auto& e = m_model->entity(entity);
    std::unique_lock lock(m_mutex);
    // Borrowed, not a cached statement: another caller of the same text
    // must not reset this one while `each` runs.
    auto owned = m_db->borrow(sql);
    if (!owned)
        return std::unexpected(owned.error());
    Statement s(owned->get());
    if (bind)
        bind(s);
    std::vector<Row> rows;
    for (;;) {
        rows.clear();
        int rc = SQLITE_ROW;
        while (rows.size() < batch && (rc = s.step()) == SQLITE_ROW)
            rows.push_back(readRow(s, e, unfetched));
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            return std::unexpected(m_db->error("query failed", rc));
        if (!rows.empty()) {
            lock.unlock();
            auto ok = each(rows);
            lock.lock(); // the statement is finalized under the lock
            if (!ok)
                return ok;
        }
        if (rc == SQLITE_DONE)
            return {};
    }
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

    if (auto ok = allocateKeys(request, result); !ok)
        return std::unexpected(ok.error());

    std::vector<const ObjectChange*> written;
    written.reserve(request.changes.size());
    for (const auto& c : request.changes) {
        bool skipped = false;
        if (auto ok = writeRow(c, request.policy, result, skipped); !ok)
            return std::unexpected(ok.error());
        if (!skipped)
            written.push_back(&c);
    }

    if (m_options.historyTracking && !written.empty())
        if (auto ok = recordHistory(request, written, result); !ok)
            return std::unexpected(ok.error());

    if (auto ok = tx->commit(); !ok)
        return std::unexpected(ok.error());
    announceCommit();
    return result;
}

// The last write to the journal can come before the commit is visible to
// other connections (SQLite publishes it in the shared-memory index
// afterwards), so another process's monitor, woken by that write, may read
// an unchanged data_version and then hear nothing more. Closing the journal
// once more after the commit wakes it again when the commit can be seen.
// (The journal holds no locks, so this descriptor's close releases none.)
void PersistentStore::announceCommit() const {
    const auto journal = m_path.string() + "-wal";
    if (const int fd = ::open(journal.c_str(), O_WRONLY | O_CLOEXEC); fd >= 0)
        ::close(fd);
}

// Permanent keys for inserted objects, never reused: _keys remembers the
// highest key handed out per entity.
Result<void> PersistentStore::allocateKeys(const SaveRequest& request, SaveResult& result) {
    Database& db = *m_db;
    std::map<std::uint32_t, std::int64_t> insertsPerEntity;
    for (const auto& c : request.changes)
        if (c.kind == ChangeKind::insert)
            ++insertsPerEntity[c.id.entity];
    for (auto [entity, count] : insertsPerEntity) {
        const auto& name = m_model->entity(entity).name;
        auto stmt = db.prepare(fmt::format("SELECT max(coalesce((SELECT maxKey FROM _keys WHERE "
                                           "entity=?1), 0), coalesce((SELECT max(pk) FROM {}), 0))",
                                           quoteIdentifier(name)));
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
            if (c.kind == ChangeKind::insert && c.id.entity == entity)
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
    return {};
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

    if (c.kind == ChangeKind::remove) {
        if (m_options.historyTracking && !e.preservedOnDeletion.empty())
            if (auto ok = preserveForTombstone(c.id, key, result); !ok)
                return ok;
        auto stmt = db.prepare(fmt::format("DELETE FROM {} WHERE pk=?", quoteIdentifier(e.name)));
        if (!stmt)
            return std::unexpected(stmt.error());
        StatementScope s(**stmt);
        s->bindInt(1, key);
        if (s->step() != SQLITE_DONE)
            return std::unexpected(db.error(fmt::format("cannot delete {} {}", e.name, key)));
        return {};
    }

    if (c.kind == ChangeKind::insert) {
        auto stmt = db.prepare(texts(c.id.entity).insertSql);
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
        // A raised attribute is computed from the stored value; `raised`
        // receives what was written for it.
        std::vector<std::pair<std::size_t, std::int64_t>> raised;
        auto raisedMaximum = [&](std::size_t p) -> std::optional<std::int64_t> {
            for (const auto& [attribute, maximum] : c.raised)
                if (attribute == p)
                    return maximum;
            return std::nullopt;
        };
        auto runUpdate = [&](const std::vector<bool>& which, std::optional<std::int64_t> expected,
                             std::int64_t newVersion) -> Result<bool> {
            std::string set;
            std::string returning;
            std::vector<std::size_t> raisedHere;
            for (std::size_t p = 0; p < e.propertyCount(); ++p) {
                if (!which[p])
                    continue;
                if (!e.isAttribute(p) &&
                    e.storage[p - e.attributes.size()] != RelationshipStorage::ForeignKey)
                    continue;
                const auto column = quoteIdentifier(e.propertyName(p));
                if (const auto maximum = raisedMaximum(p)) {
                    set += fmt::format("{0}=min(coalesce({0}, 0)+1, {1}), ", column, *maximum);
                    returning += (returning.empty() ? " RETURNING " : ", ") + column;
                    raisedHere.push_back(p);
                } else {
                    set += column + "=?, ";
                }
            }
            set += expected ? "_version=_version+1" : "_version=" + std::to_string(newVersion);
            auto stmt =
                db.prepare(fmt::format("UPDATE {} SET {} WHERE pk=?{}{}", quoteIdentifier(e.name),
                                       set, expected ? " AND _version=?" : "", returning));
            if (!stmt)
                return std::unexpected(stmt.error());
            StatementScope s(**stmt);
            int index = 1;
            for (std::size_t p = 0; p < e.propertyCount(); ++p) {
                if (!which[p] || raisedMaximum(p))
                    continue;
                if (e.isAttribute(p))
                    s->bind(index++, c.attributes[p]);
                else if (e.storage[p - e.attributes.size()] == RelationshipStorage::ForeignKey)
                    bindToOne(*s, index++, p - e.attributes.size());
            }
            s->bindInt(index++, key);
            if (expected)
                s->bindInt(index++, *expected);
            const int rc = s->step();
            if (rc == SQLITE_ROW && !raisedHere.empty()) {
                raised.clear();
                for (std::size_t i = 0; i < raisedHere.size(); ++i)
                    raised.emplace_back(raisedHere[i], s->columnInt(static_cast<int>(i)));
                return true;
            }
            if (rc != SQLITE_DONE)
                return std::unexpected(db.error(fmt::format("cannot update {} {}", e.name, key)));
            return raisedHere.empty() && db.changes() > 0;
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
            if (!raised.empty())
                result.raised[c.id] = std::move(raised);
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
            for (const auto& [attribute, value] : raised)
                row.attributes[attribute] = value;
            row.version = newVersion;
            result.versions[c.id] = newVersion;
            result.merged.emplace_back(c.id, std::move(row));
        }
    }

    // Many-to-many rows, written by the side that owns the join table.
    for (const auto& delta : c.joins) {
        const auto& table = quoteIdentifier(e.joinTables[delta.relationship]);
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

} // namespace tasket::objectstore
