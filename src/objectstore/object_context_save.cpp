// ObjectContext's save: the request built from the pending changes, the
// store's transaction, and the objects brought in line with what it wrote.
#include "objectstore/object_context.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <unordered_map>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

Result<void> ObjectContext::save() {
    processPendingChanges();
    if (m_willSave && !m_changed.empty()) {
        m_willSave(*this);
        processPendingChanges();
    }
    std::vector<ObjectPtr> involved;
    auto request = makeSaveRequest(involved);
    if (!request)
        return std::unexpected(request.error());
    if (involved.empty())
        return {};
    SaveResult result;
    if (!request->changes.empty()) {
        auto saved = m_store->save(*request);
        if (!saved)
            return std::unexpected(saved.error());
        result = std::move(*saved);
    }
    didSave(involved, std::move(result));
    return {};
}

// What the store must write for each changed object; `involved` receives
// every object with pending changes, written or not.
Result<SaveRequest> ObjectContext::makeSaveRequest(std::vector<ObjectPtr>& involved) const {
    SaveRequest request{{}, m_mergePolicy, m_name, m_author};
    for (const auto& id : m_changed) {
        ObjectPtr o = registeredObject(id);
        if (!o)
            continue;
        involved.push_back(o);
        if (o->m_inserted && o->m_deleted)
            continue;
        if (o->m_deleted) {
            if (auto ok = checkDenyRules(*o); !ok)
                return std::unexpected(ok.error());
            request.changes.push_back(
                ObjectChange{ChangeKind::remove, o->m_id, o->m_version, {}, {}, {}, {}, {}});
            continue;
        }
        if (!o->m_inserted && !o->isUpdated())
            continue;
        auto change = describeWrite(*o);
        if (!change)
            return std::unexpected(change.error());
        request.changes.push_back(std::move(*change));
    }
    return request;
}

// A deleted object must not leave behind a Deny relationship that still
// holds live objects.
Result<void> ObjectContext::checkDenyRules(const ManagedObject& o) const {
    const auto& e = o.entityDescription();
    for (std::size_t ri = 0; ri < e.relationships.size(); ++ri) {
        const auto& r = e.relationships[ri];
        if (r.deleteRule != DeleteRule::Deny)
            continue;
        const std::size_t p = e.attributes.size() + ri;
        const std::vector<ObjectPtr> targets =
            r.toMany ? o.toMany(p) : std::vector<ObjectPtr>{o.toOne(p)};
        for (const auto& t : targets)
            if (t && !t->m_deleted)
                return fail(Errc::validation,
                            fmt::format("{} {} cannot be deleted while its {} is not empty", e.name,
                                        o.m_id.key, r.name));
    }
    return {};
}

// An inserted or updated object's row and join-table changes; fails when a
// required attribute is nil.
Result<ObjectChange> ObjectContext::describeWrite(const ManagedObject& o) const {
    const auto& e = o.entityDescription();
    for (std::size_t a = 0; a < e.attributes.size(); ++a)
        if (!e.attributes[a].optional && isNil(o.m_state.attributes[a]))
            return fail(Errc::validation,
                        fmt::format("{}.{} is required", e.name, e.attributes[a].name));
    ObjectChange change{o.m_inserted ? ChangeKind::insert : ChangeKind::update,
                        o.m_id,
                        o.m_version,
                        o.m_state.attributes,
                        o.m_state.toOne,
                        o.m_changed,
                        {},
                        o.m_inserted ? decltype(o.m_raised){} : o.m_raised};
    const ObjectIDSet empty;
    for (std::size_t ri = 0; ri < e.relationships.size(); ++ri) {
        if (e.storage[ri] != RelationshipStorage::JoinTable)
            continue;
        const auto& now = o.m_state.toMany[ri];
        if (!now || (!o.m_inserted && !o.m_changed[e.attributes.size() + ri]))
            continue;
        const auto& before =
            (o.m_snapshot && o.m_snapshot->toMany[ri]) ? *o.m_snapshot->toMany[ri] : empty;
        ObjectChange::JoinDelta delta{ri, {}, {}};
        for (const auto& member : now->ids())
            if (!before.contains(member))
                delta.added.push_back(member);
        for (const auto& member : before.ids())
            if (!now->contains(member))
                delta.removed.push_back(member);
        if (!delta.added.empty() || !delta.removed.empty())
            change.joins.push_back(std::move(delta));
    }
    return change;
}

// Gives newly inserted objects their permanent identities: in the identity
// map, in every reference the involved objects hold, and in the member
// caches of unchanged owners. Returns the renames (temporary -> permanent).
std::vector<std::pair<ObjectID, ObjectID>>
ObjectContext::adoptPermanentIDs(const std::vector<ObjectPtr>& involved, const SaveResult& result) {
    std::vector<std::pair<ObjectID, ObjectID>> renamed;
    if (result.permanentIDs.empty())
        return renamed;
    renamed.reserve(result.permanentIDs.size());
    for (const auto& [temp, perm] : result.permanentIDs) {
        auto node = m_registered.extract(temp);
        if (node.empty())
            continue;
        node.key() = perm;
        node.mapped()->m_id = perm;
        m_registered.insert(std::move(node));
        renamed.emplace_back(temp, perm);
    }
    auto permanent = [&](ObjectID id) {
        auto it = result.permanentIDs.find(id);
        return it == result.permanentIDs.end() ? id : it->second;
    };
    for (const auto& o : involved) {
        for (auto& t : o->m_state.toOne)
            t = permanent(t);
        for (auto& list : o->m_state.toMany) {
            if (!list)
                continue;
            std::vector<ObjectID> ids = list->ids();
            bool changed = false;
            for (auto& t : ids)
                if (t.isTemporary()) {
                    t = permanent(t);
                    changed = true;
                }
            if (changed)
                list = ObjectIDSet(std::move(ids));
        }
    }
    for (const auto& [temp, perm] : result.permanentIDs) {
        auto o = registeredObject(perm);
        if (!o)
            continue;
        const auto& e = o->entityDescription();
        for (std::size_t ri = 0; ri < e.relationships.size(); ++ri) {
            const auto& r = e.relationships[ri];
            if (r.toMany || !o->m_state.toOne[ri].isValid())
                continue;
            auto owner = registeredObject(o->m_state.toOne[ri]);
            const std::size_t iri =
                r.inversePropertyIndex - model().entity(r.destinationIndex).attributes.size();
            if (owner && owner->m_state.toMany.size() > iri && owner->m_state.toMany[iri] &&
                owner->m_state.toMany[iri]->erase(temp))
                owner->m_state.toMany[iri]->insert(perm);
        }
    }
    return renamed;
}

// The save committed: bring the objects in line with the store and tell
// observers what was saved and how the objects changed.
void ObjectContext::didSave(const std::vector<ObjectPtr>& involved, SaveResult result) {
    ChangeSet changed;
    changed.permanentIDs = adoptPermanentIDs(involved, result);
    std::unordered_map<ObjectID, ObjectID, ObjectIDHash> original; // permanent -> temporary
    original.reserve(changed.permanentIDs.size());
    for (const auto& [temp, perm] : changed.permanentIDs)
        original.emplace(perm, temp);
    std::unordered_map<ObjectID, Row, ObjectIDHash> merged;
    for (auto& [id, row] : result.merged)
        merged.emplace(id, std::move(row));
    const std::set<ObjectID> vanished(result.vanished.begin(), result.vanished.end());

    ChangeSet saved;
    saved.store = m_store.get();
    saved.token = result.token;
    saved.contextName = m_name;
    saved.author = m_author;
    for (const auto& o : involved) {
        const auto it = original.find(o->m_id);
        const ObjectID asRequested = it == original.end() ? o->m_id : it->second;
        if (o->m_deleted || vanished.count(asRequested)) {
            const bool neverStored = o->m_inserted && o->m_deleted;
            if (!neverStored)
                saved.deleted.push_back(o->m_id);
            o->m_deleted = true;
            forget(o->m_id);
            continue;
        }
        if (o->m_inserted) {
            saved.inserted.push_back(o->m_id);
        } else if (o->isUpdated()) {
            UpdatedObject u{o->m_id, {}};
            for (auto p : o->changedProperties())
                u.changedProperties.push_back(o->entityDescription().propertyName(p));
            saved.updated.push_back(std::move(u));
        }
        if (auto raised = result.raised.find(asRequested); raised != result.raised.end())
            for (const auto& [attribute, value] : raised->second)
                o->m_state.attributes[attribute] = value;
        if (auto row = merged.find(asRequested); row != merged.end()) {
            auto toMany = std::move(o->m_state.toMany);
            if (applyRow(*o, std::move(row->second)))
                o->m_state.toMany = std::move(toMany);
            else
                o->m_loaded = false; // the save stands; the object reads its row again
            changed.updated.push_back({o->m_id, {}});
        }
        if (auto v = result.versions.find(asRequested); v != result.versions.end())
            o->m_version = v->second;
        o->m_inserted = false;
        o->m_snapshot.reset();
        std::fill(o->m_changed.begin(), o->m_changed.end(), false);
        o->m_raised.clear();
    }
    m_changed.clear();
    m_unprocessed = {};
    m_unprocessedUpdated.clear();

    auto& center = platform::NotificationCenter::defaultCenter();
    if (!changed.empty())
        center.post(kObjectsDidChangeNotification, this, changed);
    center.post(kContextDidSaveNotification, this, saved);
}

} // namespace tasket::objectstore
