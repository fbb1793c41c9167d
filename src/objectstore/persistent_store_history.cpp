// PersistentStore: persistent history, written inside each save and read,
// pruned and followed by token.
#include "objectstore/detail/sqlite.h"
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

} // namespace

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

} // namespace tasket::objectstore
