// PersistentStore: persistent history, written inside each save and read,
// pruned and followed by token.
#include "objectstore/detail/sqlite.h"
#include "objectstore/model/sql_identifier.h"
#include "objectstore/persistent_store.h"
#include "platform/clock.h"

#include <fmt/format.h>

namespace tasket::objectstore {

using detail::Database;
using detail::Statement;
using detail::StatementScope;
using detail::Transaction;

namespace {

// The changed properties' names, comma-separated, as a change row keeps them.
std::string changedNames(const EntityDescription& e, const std::vector<bool>& changed) {
    std::string out;
    for (std::size_t p = 0; p < changed.size(); ++p) {
        if (!changed[p])
            continue;
        if (!out.empty())
            out += ',';
        out += e.propertyName(p);
    }
    return out;
}

// The preserved values of a deleted object, one row each, under its change.
Result<void> recordTombstone(Database& db, std::int64_t change,
                             const decltype(SaveResult::preserved)& preserved, ObjectID id) {
    const auto it = preserved.find(id);
    if (it == preserved.end())
        return {};
    auto stmt = db.prepare("INSERT INTO _history_tombstone(change, name, value) VALUES(?,?,?)");
    if (!stmt)
        return std::unexpected(stmt.error());
    for (const auto& [name, value] : it->second) {
        StatementScope s(**stmt);
        s->bindInt(1, change);
        s->bindText(2, name);
        s->bind(3, value);
        if (s->step() != SQLITE_DONE)
            return std::unexpected(db.error("cannot record a tombstone"));
    }
    return {};
}

} // namespace

// Reads the deleted row's preserved attributes before the row goes, inside
// the save's transaction.
Result<void> PersistentStore::preserveForTombstone(ObjectID id, std::int64_t key,
                                                   SaveResult& result) {
    const auto& e = m_model->entity(id.entity);
    std::string columns;
    std::vector<std::size_t> attributes;
    for (const auto& name : e.preservedOnDeletion) {
        const auto index = e.propertyIndex(name); // an attribute, checked by finalize()
        columns += (columns.empty() ? "" : ", ") + detail::quoteIdentifier(name);
        attributes.push_back(index.value_or(0));
    }
    auto stmt = m_db->prepare(
        fmt::format("SELECT {} FROM {} WHERE pk=?", columns, detail::quoteIdentifier(e.name)));
    if (!stmt)
        return std::unexpected(stmt.error());
    StatementScope s(**stmt);
    s->bindInt(1, key);
    if (s->step() != SQLITE_ROW)
        return {}; // already gone: nothing to keep
    auto& values = result.preserved[id];
    for (std::size_t i = 0; i < attributes.size(); ++i)
        values.emplace_back(
            e.preservedOnDeletion[i],
            s->column(static_cast<int>(i), static_cast<int>(e.attributes[attributes[i]].type)));
    return {};
}

// One transaction row and a change row per written object, inside the
// save's own SQLite transaction.
Result<void> PersistentStore::recordHistory(const SaveRequest& request,
                                            const std::vector<const ObjectChange*>& written,
                                            SaveResult& result) {
    Database& db = *m_db;
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
        s->bindInt(4, static_cast<int>(c->kind));
        if (c->kind == ChangeKind::update)
            s->bindText(5, changedNames(e, c->changed));
        if (s->step() != SQLITE_DONE)
            return std::unexpected(db.error("cannot record history"));
        if (auto ok = recordTombstone(db, db.lastInsertRowid(), result.preserved, c->id); !ok)
            return ok;
    }
    return {};
}

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
            if (out.empty() || out.back().changes.token != t) {
                HistoryTransaction tx;
                tx.changes.store = this;
                tx.changes.token = t;
                tx.changes.contextName = s.columnText(2);
                tx.changes.author = s.columnText(3);
                tx.timestamp = Date{s.columnDouble(1)};
                out.push_back(std::move(tx));
            }
            if (s.isNull(4))
                return;
            const EntityDescription* e = m_model->entity(s.columnText(4));
            if (!e)
                return; // an entity this program does not know
            const ObjectID id{e->index, s.columnInt(5)};
            auto& changes = out.back().changes;
            switch (static_cast<ChangeKind>(s.columnInt(6))) {
            case ChangeKind::insert: changes.inserted.push_back(id); return;
            case ChangeKind::remove: changes.deleted.push_back(id); return;
            case ChangeKind::update: break;
            case ChangeKind::move: return; // never recorded
            }
            UpdatedObject updated{id, {}};
            const std::string props = s.columnText(7);
            std::size_t start = 0;
            while (start < props.size()) {
                auto comma = props.find(',', start);
                if (comma == std::string::npos)
                    comma = props.size();
                updated.changedProperties.push_back(props.substr(start, comma - start));
                start = comma + 1;
            }
            changes.updated.push_back(std::move(updated));
        });
    if (!ok)
        return std::unexpected(ok.error());
    if (auto kept = readTombstones(token, out); !kept)
        return std::unexpected(kept.error());
    return out;
}

// Adds the tombstones of the deletions in `out` (transactions after `token`,
// in token order).
Result<void> PersistentStore::readTombstones(std::optional<HistoryToken> token,
                                             std::vector<HistoryTransaction>& out) {
    auto next = out.begin();
    return query(
        "SELECT c.token, c.entity, c.key, t.name, t.value FROM _history_tombstone t "
        "JOIN _history_change c ON c.id = t.change WHERE c.token > ? ORDER BY c.token, c.id, "
        "t.rowid",
        [&](Statement& s) { s.bindInt(1, token ? token->value : 0); },
        [&](const Statement& s) {
            const HistoryToken t{s.columnInt(0)};
            while (next != out.end() && next->changes.token != t)
                ++next;
            const EntityDescription* e = m_model->entity(s.columnText(1));
            if (next == out.end() || !e)
                return;
            const auto property = e->propertyIndex(s.columnText(3));
            if (!property || !e->isAttribute(*property))
                return;
            const ObjectID id{e->index, s.columnInt(2)};
            auto& tombstones = next->tombstones;
            if (tombstones.empty() || tombstones.back().id != id)
                tombstones.push_back({id, {}});
            tombstones.back().values.emplace_back(
                s.columnText(3), s.column(4, static_cast<int>(e->attributes[*property].type)));
        });
}

Result<void> PersistentStore::deleteHistory(HistoryToken through) {
    std::lock_guard lock(m_mutex);
    auto tx = Transaction::begin(*m_db);
    if (!tx)
        return std::unexpected(tx.error());
    for (const char* sql : {"DELETE FROM _history_tombstone WHERE change IN "
                            "(SELECT id FROM _history_change WHERE token <= ?)",
                            "DELETE FROM _history_change WHERE token <= ?",
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

} // namespace tasket::objectstore
