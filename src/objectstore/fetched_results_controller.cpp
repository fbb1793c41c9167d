#include "objectstore/fetched_results_controller.h"

#include "objectstore/detail/key_path_dependencies.h"
#include "objectstore/predicate/evaluator.h"

#include <algorithm>
#include <unordered_map>

namespace tasket::objectstore {

namespace {

// Membership in the few objects a change touched, asked once per member of
// a possibly long result: a handful are compared directly.
class SmallIDSet {
  public:
    explicit SmallIDSet(const std::set<ObjectID>& ids) : m_ids(ids.begin(), ids.end()) {}
    bool contains(const ObjectID& id) const {
        if (m_ids.size() <= 8)
            return std::find(m_ids.begin(), m_ids.end(), id) != m_ids.end();
        return std::binary_search(m_ids.begin(), m_ids.end(), id);
    }

  private:
    std::vector<ObjectID> m_ids; // sorted
};

// The smallest description of old -> current: the longest run of common
// elements kept in order stays, the other common ones move.
CollectionChange diff(const std::vector<ObjectID>& old, const std::vector<ObjectID>& current) {
    std::unordered_map<ObjectID, std::size_t, ObjectIDHash> oldIndex;
    for (std::size_t i = 0; i < old.size(); ++i)
        oldIndex.emplace(old[i], i);
    std::unordered_map<ObjectID, std::size_t, ObjectIDHash> newIndex;
    for (std::size_t i = 0; i < current.size(); ++i)
        newIndex.emplace(current[i], i);
    CollectionChange change;
    for (std::size_t i = 0; i < old.size(); ++i)
        if (!newIndex.count(old[i]))
            change.deleted.push_back(i);
    // Common elements in new order, with their old indexes; keep the longest
    // increasing run of old indexes (patience sorting), move the rest.
    std::vector<std::size_t> newPositions, oldPositions;
    for (std::size_t i = 0; i < current.size(); ++i) {
        auto it = oldIndex.find(current[i]);
        if (it == oldIndex.end())
            change.inserted.push_back(i);
        else {
            newPositions.push_back(i);
            oldPositions.push_back(it->second);
        }
    }
    std::vector<std::size_t> tails, tailIndex, previous(oldPositions.size(), SIZE_MAX);
    for (std::size_t k = 0; k < oldPositions.size(); ++k) {
        auto at = std::lower_bound(tails.begin(), tails.end(), oldPositions[k]) - tails.begin();
        if (static_cast<std::size_t>(at) == tails.size()) {
            tails.push_back(oldPositions[k]);
            tailIndex.push_back(k);
        } else {
            tails[static_cast<std::size_t>(at)] = oldPositions[k];
            tailIndex[static_cast<std::size_t>(at)] = k;
        }
        if (at > 0)
            previous[k] = tailIndex[static_cast<std::size_t>(at) - 1];
    }
    std::vector<bool> stays(oldPositions.size(), false);
    for (std::size_t k = tailIndex.empty() ? SIZE_MAX : tailIndex.back(); k != SIZE_MAX;
         k = previous[k])
        stays[k] = true;
    for (std::size_t k = 0; k < oldPositions.size(); ++k)
        if (!stays[k])
            change.moved.emplace_back(oldPositions[k], newPositions[k]);
    std::sort(change.moved.begin(), change.moved.end());
    return change;
}

} // namespace

FetchedResultsController::FetchedResultsController(std::shared_ptr<ObjectContext> context,
                                                   FetchRequest request)
    : m_context(std::move(context)), m_request(std::move(request)) {}

FetchedResultsController::~FetchedResultsController() = default;

Result<void> FetchedResultsController::performFetch() {
    const auto& model = m_context->model();
    const EntityDescription* entity = model.entity(m_request.entityName);
    if (!entity)
        return platform::fail(platform::Errc::invalidArgument,
                              "the model has no entity '" + m_request.entityName + "'");
    m_entity = entity->index;
    m_predicate.reset();
    if (m_request.predicate) {
        auto bound = BoundPredicate::bind(*m_request.predicate, model, m_entity);
        if (!bound)
            return std::unexpected(bound.error());
        m_predicate = std::move(*bound);
    }
    auto comparator = ObjectComparator::make(m_request.sortDescriptors, model, m_entity);
    if (!comparator)
        return std::unexpected(comparator.error());
    m_comparator = std::move(*comparator);
    m_dependencies = detail::keyPathReads(m_predicate, m_request.sortDescriptors, model, m_entity);
    auto ids = m_context->fetchObjectIDs(m_request);
    if (!ids)
        return std::unexpected(ids.error());
    m_ids = std::move(*ids);
    ++m_fetchCount;
    if (!m_token.isActive())
        m_token = platform::NotificationCenter::defaultCenter().addObserver(
            kObjectsDidChangeNotification, m_context.get(),
            [this](const ChangeSet& changes, const void*) { contextDidChange(changes); });
    return {};
}

ObjectPtr FetchedResultsController::object(std::size_t index) const {
    ObjectPtr o = m_context->objectWithID(m_ids.at(index));
    if (o->isFault()) {
        const std::size_t batch =
            m_request.fetchBatchSize > 0 ? m_request.fetchBatchSize : m_ids.size();
        const std::size_t from = index / batch * batch;
        std::vector<ObjectPtr> slice;
        for (std::size_t i = from; i < std::min(m_ids.size(), from + batch); ++i)
            slice.push_back(m_context->objectWithID(m_ids[i]));
        (void)m_context->fireFaults(slice);
    }
    return o;
}

std::vector<ObjectPtr> FetchedResultsController::objects() const {
    std::vector<ObjectPtr> out;
    out.reserve(m_ids.size());
    for (std::size_t i = 0; i < m_ids.size(); ++i)
        out.push_back(object(i));
    return out;
}

std::optional<std::size_t> FetchedResultsController::indexOf(ObjectID id) const {
    auto it = std::find(m_ids.begin(), m_ids.end(), id);
    if (it == m_ids.end())
        return std::nullopt;
    return static_cast<std::size_t>(it - m_ids.begin());
}

Result<void> FetchedResultsController::refetch() {
    const auto old = m_ids;
    auto ids = m_context->fetchObjectIDs(m_request);
    if (!ids)
        return std::unexpected(ids.error());
    m_ids = std::move(*ids);
    ++m_fetchCount;
    const CollectionChange change = diff(old, m_ids);
    if (!change.empty() && m_delegate)
        m_delegate(change);
    return {};
}

void FetchedResultsController::contextDidChange(const ChangeSet& info) {
    std::set<ObjectID> touched, renamed;
    // Identities that became permanent are placed again (ties are broken by
    // the key) and reported as moved, so subscribers see the new identity.
    for (const auto& [temp, perm] : info.permanentIDs) {
        if (temp.entity != m_entity)
            continue;
        if (auto it = std::find(m_ids.begin(), m_ids.end(), temp); it != m_ids.end()) {
            *it = perm;
            touched.insert(perm);
            renamed.insert(perm);
        }
    }
    // Another entity's object matters only when a property the key paths
    // read on it changed (or what changed is not known). Its insertion or
    // deletion reaches the result through the objects that point at it.
    bool dependencyChanged = false;
    std::set<ObjectID> insertedHere;
    for (const auto& id : info.inserted)
        if (id.entity == m_entity) {
            touched.insert(id);
            insertedHere.insert(id);
        }
    for (const auto& id : info.deleted)
        if (id.entity == m_entity)
            touched.insert(id);
    for (const auto& u : info.updated) {
        if (u.id.entity == m_entity) {
            touched.insert(u.id);
            continue;
        }
        auto reads = m_dependencies.find(u.id.entity);
        if (reads == m_dependencies.end())
            continue;
        if (u.changedProperties.empty())
            dependencyChanged = true;
        for (const auto& property : u.changedProperties)
            if (reads->second.count(property))
                dependencyChanged = true;
    }
    if (dependencyChanged) {
        (void)refetch();
        return;
    }
    if (touched.empty())
        return;

    // Where the touched objects were: one pass over the result, skipped when
    // they all are new to it (an insertion costs no scan of a long list).
    Positions oldIndex;
    const bool allNew = renamed.empty() && std::ranges::all_of(touched, [&](const ObjectID& id) {
                            return insertedHere.count(id) > 0;
                        });
    if (!allNew) {
        const SmallIDSet filter(touched);
        for (std::size_t i = 0; i < m_ids.size(); ++i)
            if (filter.contains(m_ids[i]))
                oldIndex.emplace(m_ids[i], i);
    }
    // The old order is kept only when it is needed to describe the change
    // or to fall back to a fetch.
    std::vector<ObjectID> old;
    if (!oldIndex.empty() || m_request.fetchLimit > 0)
        old = m_ids;
    if (!oldIndex.empty()) {
        std::vector<std::size_t> gone;
        for (const auto& [id, i] : oldIndex)
            gone.push_back(i);
        std::sort(gone.begin(), gone.end());
        std::size_t out = gone.front();
        for (std::size_t i = gone.front(), next = 0; i < m_ids.size(); ++i) {
            if (next < gone.size() && gone[next] == i) {
                ++next;
                continue;
            }
            m_ids[out++] = m_ids[i];
        }
        m_ids.resize(out);
    }

    const std::set<ObjectID> deleted(info.deleted.begin(), info.deleted.end());
    std::vector<ObjectPtr> placed;
    for (const auto& id : touched) {
        if (deleted.count(id))
            continue;
        ObjectPtr o = m_context->objectWithID(id);
        if (o->context() == nullptr || o->isDeleted())
            continue;
        if (m_predicate && !evaluate(*m_predicate, *o))
            continue;
        if (o->isDeleted()) // the row vanished while being read
            continue;
        const auto at = lowerBound(*o);
        // An insertion merged again (history read twice) is already there.
        if (allNew && at != m_ids.end() && *at == id)
            continue;
        m_ids.insert(at, id);
        placed.push_back(std::move(o));
    }
    if (m_request.fetchLimit > 0 && m_ids.size() > m_request.fetchLimit) {
        // A window cannot be kept up to date from the changed objects alone.
        m_ids = std::move(old);
        (void)refetch();
        return;
    }
    // Where the placed objects are now: the order is total, so binary search
    // finds each exactly.
    Positions newIndex;
    for (const auto& o : placed)
        newIndex.emplace(o->objectID(), static_cast<std::size_t>(lowerBound(*o) - m_ids.begin()));
    const CollectionChange change = describe(old, oldIndex, newIndex, renamed);
    if (!change.empty() && m_delegate)
        m_delegate(change);
}

std::vector<ObjectID>::iterator FetchedResultsController::lowerBound(const ManagedObject& object) {
    return std::lower_bound(
        m_ids.begin(), m_ids.end(), &object, [&](const ObjectID& member, const ManagedObject* o) {
            return m_comparator->compare(*m_context->objectWithID(member), *o) < 0;
        });
}

// The change from `old` to m_ids when only the objects at `oldIndex` (where
// they were) and `newIndex` (where they are) moved: they are deleted,
// inserted, updated in place, or moved; everything else kept its relative
// order.
CollectionChange FetchedResultsController::describe(const std::vector<ObjectID>& old,
                                                    const Positions& oldIndex,
                                                    const Positions& newIndex,
                                                    const std::set<ObjectID>& renamed) const {
    CollectionChange change;
    for (const auto& [id, i] : oldIndex)
        if (!newIndex.count(id))
            change.deleted.push_back(i);
    for (const auto& [id, i] : newIndex) {
        auto before = oldIndex.find(id);
        if (before == oldIndex.end())
            change.inserted.push_back(i);
        else if (before->second == i && !renamed.count(id))
            change.updated.push_back(i);
        else
            change.moved.emplace_back(before->second, i);
    }
    std::sort(change.deleted.begin(), change.deleted.end());
    std::sort(change.inserted.begin(), change.inserted.end());
    std::sort(change.updated.begin(), change.updated.end());
    std::sort(change.moved.begin(), change.moved.end());
    // An object that kept its index may still have changed places relative
    // to the others; if so, say it moved.
    if (!change.updated.empty() && applyChange(old, change, m_ids) != m_ids) {
        for (auto i : change.updated)
            change.moved.emplace_back(oldIndex.at(m_ids[i]), i);
        change.updated.clear();
        std::sort(change.moved.begin(), change.moved.end());
    }
    return change;
}

} // namespace tasket::objectstore
