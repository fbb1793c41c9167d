#include "objectstore/object_context.h"

#include "platform/fatal.h"
#include "platform/main_queue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <future>
#include <map>
#include <stdexcept>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

std::shared_ptr<ObjectContext> ObjectContext::make(std::shared_ptr<PersistentStore> store,
                                                   ConcurrencyType type) {
    return std::shared_ptr<ObjectContext>(new ObjectContext(std::move(store), type));
}

ObjectContext::ObjectContext(std::shared_ptr<PersistentStore> store, ConcurrencyType type)
    : m_store(std::move(store)), m_type(type) {
    if (type == ConcurrencyType::privateQueue)
        m_queue = std::make_unique<platform::SerialQueue>("object context");
}

ObjectContext::~ObjectContext() {
    m_autoMergeToken.reset();
    for (auto& [id, object] : m_registered)
        object->m_context = nullptr;
    // A context released by its own queued work destroys its queue from the
    // queue's thread; SerialQueue finishes that work on state of its own.
}

void ObjectContext::setAutomaticallyMergesChangesFromParent(bool on) {
    m_autoMerge = on;
    if (!on) {
        m_autoMergeToken.reset();
        return;
    }
    std::weak_ptr<ObjectContext> weak = weak_from_this();
    m_autoMergeToken = platform::NotificationCenter::defaultCenter().addObserver(
        kContextDidSaveNotification, nullptr,
        [weak, self = this](const ChangeSet& changes, const void* sender) {
            if (sender == self)
                return;
            auto context = weak.lock();
            if (!context || changes.store != context->m_store.get())
                return;
            context->perform([weak, changes] {
                if (auto c = weak.lock())
                    c->mergeChanges(changes);
            });
        });
}

// ---------------------------------------------------------------- queues

void ObjectContext::perform(std::function<void()> work) {
    auto self = shared_from_this();
    auto task = [self, work = std::move(work)] { work(); };
    if (m_type == ConcurrencyType::mainQueue)
        platform::MainQueue::shared().post(std::move(task));
    else
        m_queue->async(std::move(task));
}

void ObjectContext::performAndWait(const std::function<void()>& work) {
    if (m_type == ConcurrencyType::privateQueue) {
        m_queue->sync(work);
        return;
    }
    auto& main = platform::MainQueue::shared();
    if (main.isMainThread()) {
        work();
        return;
    }
    std::promise<void> done;
    auto future = done.get_future();
    main.post([&] {
        work();
        done.set_value();
    });
    future.get();
}

// ---------------------------------------------------------------- objects

ObjectPtr ObjectContext::makeObject(std::uint32_t entity, ObjectID id) {
    const auto& e = model().entity(entity);
    ObjectPtr object = e.makeObject ? e.makeObject() : std::make_shared<ManagedObject>();
    object->m_context = this;
    object->m_entity = &e;
    object->m_id = id;
    object->m_changed.assign(e.propertyCount(), false);
    m_registered.emplace(id, object);
    return object;
}

ObjectPtr ObjectContext::insertNewObject(std::string_view entityName) {
    const auto* e = model().entity(entityName);
    if (!e)
        throw std::invalid_argument(fmt::format("the model has no entity '{}'", entityName));
    return insertNewObject(e->index);
}

ObjectPtr ObjectContext::insertNewObject(std::uint32_t entity) {
    ObjectPtr object = makeObject(entity, ObjectID{entity, m_nextTemporaryKey--});
    const auto& e = object->entityDescription();
    auto& state = object->m_state;
    state.attributes.reserve(e.attributes.size());
    for (const auto& a : e.attributes)
        state.attributes.push_back(a.defaultValue);
    state.toOne.assign(e.relationships.size(), ObjectID{});
    state.toMany.assign(e.relationships.size(), ObjectIDSet{});
    object->m_loaded = true;
    object->m_inserted = true;
    markChanged(*object);
    return object;
}

ObjectPtr ObjectContext::objectWithID(ObjectID id) {
    if (auto it = m_registered.find(id); it != m_registered.end())
        return it->second;
    return makeObject(id.entity, id);
}

ObjectPtr ObjectContext::registeredObject(ObjectID id) const {
    auto it = m_registered.find(id);
    return it == m_registered.end() ? nullptr : it->second;
}

Result<ObjectPtr> ObjectContext::existingObject(ObjectID id) {
    if (auto object = registeredObject(id); object && (!object->isFault() || id.isTemporary()))
        return object;
    auto row = m_store->loadRow(id);
    if (!row)
        return std::unexpected(row.error());
    if (!*row)
        return fail(Errc::notFound,
                    fmt::format("{} {} does not exist", model().entity(id.entity).name, id.key));
    ObjectPtr object = objectWithID(id);
    if (object->isFault())
        if (auto ok = applyRow(*object, std::move(**row)); !ok)
            return std::unexpected(ok.error());
    return object;
}

Result<void> ObjectContext::applyRow(ManagedObject& object, Row row,
                                     std::shared_ptr<const std::vector<bool>> unfetched) {
    const auto& e = object.entityDescription();
    auto& state = object.m_state;
    state.attributes = std::move(row.attributes);
    state.toOne.assign(e.relationships.size(), ObjectID{});
    state.toMany.assign(e.relationships.size(), std::nullopt);
    for (std::size_t i = 0; i < e.relationships.size(); ++i) {
        const auto& r = e.relationships[i];
        if (r.toMany)
            continue;
        if (e.storage[i] == RelationshipStorage::ForeignKey) {
            if (row.toOne[i])
                state.toOne[i] = ObjectID{r.destinationIndex, row.toOne[i]};
            continue;
        }
        auto keys = m_store->relatedKeys(object.m_id, e.attributes.size() + i);
        if (!keys)
            return std::unexpected(keys.error());
        if (!keys->empty())
            state.toOne[i] = ObjectID{r.destinationIndex, keys->front()};
    }
    object.m_version = row.version;
    object.m_loaded = true;
    object.m_unfetched = std::move(unfetched);
    return {};
}

void ObjectContext::complete(ManagedObject& object) {
    // Members read so far stay: they are as current as the partial row.
    auto toMany = std::move(object.m_state.toMany);
    object.m_loaded = false;
    load(object);
    if (!object.m_deleted)
        object.m_state.toMany = std::move(toMany);
}

void ObjectContext::load(ManagedObject& object) {
    if (object.m_id.isTemporary())
        return;
    if (auto ok = loadStored(object); !ok)
        platform::fatal(ok.error().message);
}

Result<void> ObjectContext::loadStored(ManagedObject& object) {
    auto row = m_store->loadRow(object.m_id);
    if (!row)
        return fail(row.error().code, fmt::format("{} {} cannot be read from the store: {}",
                                                  object.entityDescription().name, object.m_id.key,
                                                  row.error().message));
    if (*row)
        return applyRow(object, std::move(**row));
    return markVanished(object);
}

Result<void> ObjectContext::markVanished(ManagedObject& object) {
    if (!m_deleteInaccessibleFaults)
        return fail(Errc::notFound, fmt::format("{} {} is no longer in the store",
                                                object.entityDescription().name, object.m_id.key));
    // The row vanished: the object reads as deleted, with nil values.
    const auto& e = object.entityDescription();
    object.m_state.attributes.assign(e.attributes.size(), Value{});
    object.m_state.toOne.assign(e.relationships.size(), ObjectID{});
    object.m_state.toMany.assign(e.relationships.size(), ObjectIDSet{});
    object.m_loaded = true;
    object.m_unfetched.reset();
    object.m_deleted = true;
    return {};
}

Result<void> ObjectContext::fireFaults(const std::vector<ObjectPtr>& objects) {
    std::map<std::uint32_t, std::vector<std::int64_t>> keys;
    for (const auto& o : objects)
        if (o && o->isFault() && !o->m_id.isTemporary() && o->m_context == this)
            keys[o->m_id.entity].push_back(o->m_id.key);
    for (auto& [entity, list] : keys) {
        auto rows = m_store->loadRows(entity, list);
        if (!rows)
            return std::unexpected(rows.error());
        for (auto& row : *rows) {
            auto object = registeredObject(ObjectID{entity, row.key});
            if (object && object->isFault())
                if (auto ok = applyRow(*object, std::move(row)); !ok)
                    return ok;
        }
    }
    for (const auto& o : objects)
        if (o && o->isFault() && !o->m_id.isTemporary() && o->m_context == this)
            if (auto ok = markVanished(*o); !ok)
                return ok;
    return {};
}

Result<void> ObjectContext::prefetchRelationships(const std::vector<ObjectPtr>& objects,
                                                  const std::vector<std::string>& names) {
    if (names.empty())
        return {};
    std::map<std::uint32_t, std::vector<ManagedObject*>> owners; // by entity
    for (const auto& o : objects)
        if (o && !o->isFault() && !o->m_id.isTemporary() && o->m_context == this)
            owners[o->m_id.entity].push_back(o.get());
    std::set<ObjectID> seen;
    std::vector<ObjectPtr> members;
    auto member = [&](ObjectID id) {
        if (id.key != 0 && seen.insert(id).second)
            members.push_back(objectWithID(id));
    };
    for (const auto& [entity, list] : owners) {
        const auto& e = model().entity(entity);
        for (const auto& name : names) {
            const std::size_t property = list.front()->propertyIndex(name);
            if (property < e.attributes.size())
                throw std::out_of_range(fmt::format("{}.{} is not a relationship", e.name, name));
            const std::size_t ri = property - e.attributes.size();
            const auto& r = e.relationships[ri];
            if (!r.toMany) { // the target's key came with the row
                for (const auto* o : list)
                    member(o->m_state.toOne[ri]);
                continue;
            }
            std::vector<std::int64_t> keys;
            for (const auto* o : list)
                if (!o->m_state.toMany[ri])
                    keys.push_back(o->m_id.key);
            auto pairs = m_store->relatedKeysOf(entity, keys, property);
            if (!pairs)
                return std::unexpected(pairs.error());
            std::unordered_map<std::int64_t, std::vector<ObjectID>> found;
            for (const auto& [owner, target] : *pairs)
                found[owner].push_back(ObjectID{r.destinationIndex, target});
            for (auto* o : list) {
                if (!o->m_state.toMany[ri]) {
                    auto it = found.find(o->m_id.key);
                    o->m_state.toMany[ri] =
                        ObjectIDSet(it == found.end() ? std::vector<ObjectID>{} : it->second);
                    if (e.storage[ri] == RelationshipStorage::InverseColumn)
                        overlayPendingMembers(*o, ri);
                }
                for (const auto& id : o->m_state.toMany[ri]->ids())
                    member(id);
            }
        }
    }
    return fireFaults(members);
}

void ObjectContext::forget(ObjectID id) {
    auto it = m_registered.find(id);
    if (it == m_registered.end())
        return;
    it->second->m_context = nullptr;
    m_registered.erase(it);
    m_changed.erase(id);
}

// ---------------------------------------------------------------- deleting

void ObjectContext::applyDeleteRules(ManagedObject& object, std::vector<ObjectPtr>& cascade) {
    const auto& e = object.entityDescription();
    for (std::size_t ri = 0; ri < e.relationships.size(); ++ri) {
        const auto& r = e.relationships[ri];
        const std::size_t property = e.attributes.size() + ri;
        if (r.deleteRule == DeleteRule::Deny || r.deleteRule == DeleteRule::NoAction)
            continue;
        std::vector<ObjectPtr> targets;
        if (r.toMany)
            targets = object.toMany(property);
        else if (auto t = object.toOne(property))
            targets.push_back(t);
        for (const auto& t : targets) {
            if (r.toMany)
                object.removeFromMany(property, t);
            else
                object.setToOne(property, nullptr);
            if (r.deleteRule == DeleteRule::Cascade && !t->m_deleted)
                cascade.push_back(t);
        }
    }
}

void ObjectContext::deleteObject(const ObjectPtr& object) {
    if (!object || object->m_context != this || object->m_deleted)
        return;
    std::vector<ObjectPtr> pending{object};
    while (!pending.empty()) {
        ObjectPtr o = pending.back();
        pending.pop_back();
        if (o->m_deleted)
            continue;
        o->fireWhole();
        if (!o->m_inserted && !o->m_snapshot)
            o->m_snapshot = o->m_state;
        o->m_deleted = true; // before the rules, so cycles stop here
        std::vector<ObjectPtr> cascade;
        applyDeleteRules(*o, cascade);
        markChanged(*o);
        pending.insert(pending.end(), cascade.begin(), cascade.end());
    }
}

// ---------------------------------------------------------------- changes

void ObjectContext::markChanged(ManagedObject& object) {
    m_changed.insert(object.m_id);
    if (object.m_deleted)
        m_unprocessed.deleted.push_back(object.m_id);
    else if (object.m_inserted && !m_unprocessedUpdated.count(object.m_id)) {
        m_unprocessed.inserted.push_back(object.m_id);
        m_unprocessedUpdated.insert(object.m_id);
    } else
        m_unprocessedUpdated.insert(object.m_id);
    schedulePendingChanges();
}

void ObjectContext::schedulePendingChanges() {
    if (m_processScheduled)
        return;
    m_processScheduled = true;
    std::weak_ptr<ObjectContext> weak = weak_from_this();
    if (weak.expired())
        return;
    perform([weak] {
        if (auto c = weak.lock())
            c->processPendingChanges();
    });
}

void ObjectContext::processPendingChanges() {
    m_processScheduled = false;
    if (m_unprocessed.inserted.empty() && m_unprocessed.deleted.empty() &&
        m_unprocessedUpdated.empty())
        return;
    ChangeSet info = std::move(m_unprocessed);
    m_unprocessed = {};
    std::set<ObjectID> inserted(info.inserted.begin(), info.inserted.end());
    std::set<ObjectID> deleted(info.deleted.begin(), info.deleted.end());
    for (const auto& id : m_unprocessedUpdated) {
        if (inserted.count(id) || deleted.count(id))
            continue;
        auto object = registeredObject(id);
        if (!object)
            continue;
        UpdatedObject u{id, {}};
        for (auto p : object->changedProperties())
            u.changedProperties.push_back(object->entityDescription().propertyName(p));
        info.updated.push_back(std::move(u));
    }
    m_unprocessedUpdated.clear();
    // An object inserted and deleted before anyone heard of it was never there.
    std::erase_if(info.inserted, [&](const ObjectID& id) { return deleted.count(id) > 0; });
    std::erase_if(info.deleted,
                  [&](const ObjectID& id) { return id.isTemporary() && inserted.count(id); });
    platform::NotificationCenter::defaultCenter().post(kObjectsDidChangeNotification, this, info);
}

bool ObjectContext::hasChanges() const {
    for (const auto& id : m_changed)
        if (auto o = registeredObject(id); o && o->hasChanges())
            return true;
    return false;
}

std::vector<ObjectPtr>
ObjectContext::changedObjects(const std::function<bool(const ManagedObject&)>& which) const {
    std::vector<ObjectPtr> out;
    for (const auto& id : m_changed)
        if (auto o = registeredObject(id); o && which(*o))
            out.push_back(o);
    return out;
}

std::vector<ObjectPtr> ObjectContext::insertedObjects() const {
    return changedObjects([](const ManagedObject& o) { return o.m_inserted && !o.m_deleted; });
}

std::vector<ObjectPtr> ObjectContext::updatedObjects() const {
    return changedObjects([](const ManagedObject& o) { return o.isUpdated(); });
}

std::vector<ObjectPtr> ObjectContext::deletedObjects() const {
    return changedObjects([](const ManagedObject& o) { return o.m_deleted && !o.m_inserted; });
}

void ObjectContext::rollback() {
    ChangeSet info;
    for (const auto& id : std::set<ObjectID>(m_changed)) {
        ObjectPtr o = registeredObject(id);
        if (!o)
            continue;
        if (o->m_inserted) {
            info.deleted.push_back(id);
            o->m_deleted = true;
            forget(id);
            continue;
        }
        if (o->m_snapshot) {
            o->m_state = std::move(*o->m_snapshot);
            o->m_snapshot.reset();
        }
        o->m_deleted = false;
        std::fill(o->m_changed.begin(), o->m_changed.end(), false);
        o->m_raised.clear();
        info.updated.push_back({id, {}});
    }
    m_changed.clear();
    m_unprocessed = {};
    m_unprocessedUpdated.clear();
    std::vector<ObjectID> touched;
    for (const auto& u : info.updated)
        touched.push_back(u.id);
    touched.insert(touched.end(), info.deleted.begin(), info.deleted.end());
    invalidateInverseCaches(touched);
    if (!info.updated.empty() || !info.deleted.empty())
        platform::NotificationCenter::defaultCenter().post(kObjectsDidChangeNotification, this,
                                                           info);
}

void ObjectContext::refresh(const ObjectPtr& object, bool mergeChanges) {
    if (!object || object->m_context != this || object->m_inserted)
        return;
    if (!mergeChanges || !object->hasChanges()) {
        m_changed.erase(object->m_id);
        object->m_snapshot.reset();
        object->m_deleted = false;
        std::fill(object->m_changed.begin(), object->m_changed.end(), false);
        object->m_raised.clear();
        object->m_loaded = false;
        object->m_unfetched.reset();
        object->m_state = {};
        return;
    }
    auto row = m_store->loadRow(object->m_id);
    if (!row || !*row)
        return; // deletion arrives through mergeChanges
    const auto& e = object->entityDescription();
    // The stored values become the base for rollback.
    std::optional<std::vector<Value>> stored;
    if (object->m_snapshot)
        stored = (**row).attributes;
    ManagedObject::State mine = std::move(object->m_state);
    const auto changed = object->m_changed;
    if (!applyRow(*object, std::move(**row))) {
        object->m_state = std::move(mine); // unreadable: keep what the context had
        return;
    }
    for (std::size_t p = 0; p < e.propertyCount(); ++p) {
        if (!changed[p])
            continue;
        if (e.isAttribute(p))
            object->m_state.attributes[p] = std::move(mine.attributes[p]);
        else {
            const std::size_t ri = p - e.attributes.size();
            object->m_state.toOne[ri] = mine.toOne[ri];
            object->m_state.toMany[ri] = std::move(mine.toMany[ri]);
        }
    }
    if (stored) {
        ManagedObject::State base = object->m_state;
        base.attributes = std::move(*stored);
        object->m_snapshot = std::move(base);
    }
}

void ObjectContext::reset() {
    for (auto& [id, object] : m_registered)
        object->m_context = nullptr;
    m_registered.clear();
    m_changed.clear();
    m_unprocessed = {};
    m_unprocessedUpdated.clear();
}

void ObjectContext::overlayPendingMembers(ManagedObject& owner, std::size_t ri) {
    const auto& r = owner.entityDescription().relationships[ri];
    const std::uint32_t memberEntity = r.destinationIndex;
    const std::size_t memberProperty = r.inversePropertyIndex;
    const std::size_t mri = memberProperty - model().entity(memberEntity).attributes.size();
    auto& members = *owner.m_state.toMany[ri];
    for (const auto& id : m_changed) {
        if (id.entity != memberEntity)
            continue;
        auto member = registeredObject(id);
        if (!member || member->isFault())
            continue;
        const ObjectID before = member->m_inserted   ? ObjectID{}
                                : member->m_snapshot ? member->m_snapshot->toOne[mri]
                                                     : member->m_state.toOne[mri];
        const ObjectID now = member->m_deleted ? ObjectID{} : member->m_state.toOne[mri];
        if (before == owner.m_id && now != owner.m_id)
            members.erase(id);
        if (now == owner.m_id)
            members.insert(id);
    }
}

void ObjectContext::invalidateInverseCaches(const std::vector<ObjectID>& changed) {
    std::set<std::pair<std::uint32_t, std::size_t>> targets; // (entity, relationship index)
    for (const auto& id : changed) {
        const auto& e = model().entity(id.entity);
        for (const auto& r : e.relationships) {
            const auto& dest = model().entity(r.destinationIndex);
            targets.emplace(dest.index, r.inversePropertyIndex - dest.attributes.size());
        }
    }
    if (targets.empty())
        return;
    for (auto& [id, object] : m_registered) {
        if (object->isFault() || object->hasChanges())
            continue;
        for (const auto& [entity, ri] : targets) {
            if (id.entity != entity)
                continue;
            if (object->m_entity->relationships[ri].toMany)
                object->m_state.toMany[ri].reset();
            else
                object->m_loaded = false; // a passive one-to-one: reload it whole
        }
    }
}

void ObjectContext::mergeChanges(const ChangeSet& changes) {
    std::vector<ObjectID> all;
    all.reserve(changes.deleted.size() + changes.updated.size() + changes.inserted.size());
    for (const auto& id : changes.deleted) {
        all.push_back(id);
        if (auto o = registeredObject(id)) {
            o->m_deleted = true;
            forget(id);
        }
    }
    for (const auto& u : changes.updated) {
        all.push_back(u.id);
        if (auto o = registeredObject(u.id); o && !o->isFault())
            refresh(o, true);
    }
    for (const auto& id : changes.inserted) {
        all.push_back(id);
        if (auto o = registeredObject(id); o && !o->isFault() && !o->hasChanges())
            refresh(o, false);
    }
    invalidateInverseCaches(all);
    // Observers hear the merged change set itself, provenance included;
    // another context's identity renames mean nothing here.
    auto& center = platform::NotificationCenter::defaultCenter();
    if (changes.permanentIDs.empty()) {
        center.post(kObjectsDidChangeNotification, this, changes);
    } else {
        ChangeSet withoutRenames = changes;
        withoutRenames.permanentIDs.clear();
        center.post(kObjectsDidChangeNotification, this, withoutRenames);
    }
}

} // namespace tasket::objectstore
