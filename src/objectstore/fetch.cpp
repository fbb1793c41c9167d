// Fetching for ObjectContext: a request is bound to its entity, compiled to
// one SELECT of ordered keys, and corrected for the context's unsaved
// changes by judging the changed objects in memory.
#include "objectstore/detail/key_path_dependencies.h"
#include "objectstore/detail/sqlite.h"
#include "objectstore/model/sql_identifier.h"
#include "objectstore/object_context.h"
#include "objectstore/predicate/evaluator.h"
#include "objectstore/predicate/sql_compiler.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::objectstore {

using platform::Errc;
using platform::fail;

struct ObjectContext::CompiledFetch {
    const FetchRequest* request = nullptr;
    const EntityDescription* entity = nullptr;
    std::optional<BoundPredicate> predicate;
    SqlPredicate sql;
    SqlOrder order;
    std::optional<ObjectComparator> comparator;
    // The attributes the request leaves out (none: whole rows), shared by
    // the objects it reads in part.
    std::shared_ptr<const std::vector<bool>> unfetched;

    /// The row columns the fetch reads.
    [[nodiscard]] std::string columns(const PersistentStore& store) const {
        return unfetched ? store.rowColumns(entity->index, *unfetched)
                         : store.rowColumns(entity->index);
    }
};

Result<ObjectContext::CompiledFetch> ObjectContext::compile(const FetchRequest& request) const {
    CompiledFetch f;
    f.request = &request;
    f.entity = model().entity(request.entityName);
    if (!f.entity)
        return fail(Errc::invalidArgument,
                    fmt::format("the model has no entity '{}'", request.entityName));
    if (request.predicate) {
        auto bound = BoundPredicate::bind(*request.predicate, model(), f.entity->index);
        if (!bound)
            return std::unexpected(bound.error());
        f.sql = compileToSql(*bound);
        f.predicate = std::move(*bound);
    } else {
        f.sql.where = "1";
    }
    auto order = compileSort(request.sortDescriptors, model(), f.entity->index);
    if (!order)
        return std::unexpected(order.error());
    f.order = std::move(*order);
    auto comparator = ObjectComparator::make(request.sortDescriptors, model(), f.entity->index);
    if (!comparator)
        return std::unexpected(comparator.error());
    f.comparator = std::move(*comparator);
    if (!request.propertiesToFetch.empty()) {
        std::vector<bool> unfetched(f.entity->attributes.size(), true);
        for (const auto& name : request.propertiesToFetch) {
            const auto index = f.entity->propertyIndex(name);
            if (!index || !f.entity->isAttribute(*index))
                return fail(Errc::invalidArgument,
                            fmt::format("{} has no attribute '{}'", f.entity->name, name));
            unfetched[*index] = false;
        }
        if (std::ranges::find(unfetched, true) != unfetched.end())
            f.unfetched = std::make_shared<const std::vector<bool>>(std::move(unfetched));
    }
    return f;
}

namespace {

// Whether the select of `r` takes a window (a limit or an offset).
bool windowed(const FetchRequest& r, bool window) {
    return window && (r.fetchLimit > 0 || r.fetchOffset > 0);
}

std::int64_t keyOf(const Row& row) {
    return row.key;
}
std::int64_t keyOf(const ObjectID& id) {
    return id.key;
}

// Drops the rows of `rows` whose key is that of the row before, or of
// `last` for the first; sets `last` to the last key.
template <class T> void dropRepeats(std::vector<T>& rows, std::int64_t& last) {
    std::erase_if(rows, [&](const T& row) {
        const std::int64_t k = keyOf(row);
        const bool repeat = k == last;
        last = k;
        return repeat;
    });
}

// The ordered SELECT of a compiled fetch, with `columns`, and the binder of
// its parameters. Where the predicate's joins can repeat a row, a window is
// taken over grouped rows; without one the repeats are left in, since the
// order ends with t0.pk, which puts them side by side, and the readers drop
// them (a GROUP BY would cost a sort of its own).
std::pair<std::string, std::function<void(detail::Statement&)>>
orderedSelect(const std::string& columns, const EntityDescription& entity,
              const SqlPredicate& where, const SqlOrder& order, const FetchRequest& r,
              bool window) {
    std::string sql = fmt::format(
        "SELECT {} FROM {} AS t0 {} {} WHERE {}{} ORDER BY {}", columns,
        detail::quoteIdentifier(entity.name), where.joins, order.joins, where.where,
        where.repeatsRows && windowed(r, window) ? " GROUP BY t0.pk" : "", order.orderBy);
    const bool limited = windowed(r, window);
    if (limited)
        sql += " LIMIT ? OFFSET ?";
    auto bind = [&where, &r, limited](detail::Statement& s) {
        int index = 1;
        for (const auto& v : where.bindings)
            s.bind(index++, v);
        if (limited) {
            s.bindInt(index++, r.fetchLimit > 0 ? static_cast<std::int64_t>(r.fetchLimit) : -1);
            s.bindInt(index++, static_cast<std::int64_t>(r.fetchOffset));
        }
    };
    return {std::move(sql), std::move(bind)};
}

} // namespace

Result<std::vector<ObjectID>> ObjectContext::storedIDs(const CompiledFetch& f, bool window) {
    auto [sql, bind] = orderedSelect("t0.pk", *f.entity, f.sql, f.order, *f.request, window);
    std::vector<ObjectID> ids;
    const std::uint32_t entity = f.entity->index;
    auto ok = m_store->query(sql, bind, [&](const detail::Statement& s) {
        ids.push_back(ObjectID{entity, s.columnInt(0)});
    });
    if (!ok)
        return std::unexpected(ok.error());
    if (f.sql.repeatsRows) {
        std::int64_t last = 0;
        dropRepeats(ids, last);
    }
    return ids;
}

Result<std::vector<ObjectID>> ObjectContext::fetchObjectIDs(const FetchRequest& request) {
    auto compiled = compile(request);
    if (!compiled)
        return std::unexpected(compiled.error());
    const CompiledFetch& f = *compiled;
    std::vector<ObjectPtr> changed;
    bool relatedChanged = false;
    if (request.includesPendingChanges) {
        const auto dependencies = detail::keyPathDependencies(f.predicate, request.sortDescriptors,
                                                              model(), f.entity->index);
        for (const auto& id : m_changed) {
            if (id.entity == f.entity->index) {
                if (auto o = registeredObject(id))
                    changed.push_back(o);
            } else if (dependencies.count(id.entity)) {
                relatedChanged = true;
            }
        }
    }
    if (relatedChanged)
        return judgedInMemory(f, changed);
    if (changed.empty())
        return storedIDs(f, true);

    auto stored = storedIDs(f, false);
    if (!stored)
        return stored;
    std::vector<ObjectID> ids = std::move(*stored);
    std::set<ObjectID> touched;
    for (const auto& o : changed)
        touched.insert(o->objectID());
    std::erase_if(ids, [&](const ObjectID& id) { return touched.count(id) > 0; });
    // Place each changed object that matches by its in-memory values; the
    // stored rows are already in order, so a binary search finds the spot.
    for (const auto& o : changed) {
        if (o->isDeleted())
            continue;
        if (f.predicate && !evaluate(*f.predicate, *o))
            continue;
        auto at = std::lower_bound(ids.begin(), ids.end(), o,
                                   [&](const ObjectID& id, const ObjectPtr& object) {
                                       return f.comparator->compare(*objectWithID(id), *object) < 0;
                                   });
        ids.insert(at, o->objectID());
    }
    const std::size_t from = std::min(request.fetchOffset, ids.size());
    ids.erase(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(from));
    if (request.fetchLimit > 0 && ids.size() > request.fetchLimit)
        ids.resize(request.fetchLimit);
    return ids;
}

// Unsaved changes to related objects (a list renamed in memory) can change
// which objects match, so every candidate is judged by its in-memory values.
Result<std::vector<ObjectID>> ObjectContext::judgedInMemory(const CompiledFetch& f,
                                                            const std::vector<ObjectPtr>& changed) {
    FetchRequest everything(f.request->entityName);
    everything.includesPendingChanges = false;
    auto all = compile(everything);
    if (!all)
        return std::unexpected(all.error());
    auto stored = storedIDs(*all, false);
    if (!stored)
        return stored;
    std::vector<ObjectPtr> candidates;
    candidates.reserve(stored->size() + changed.size());
    for (const auto& id : *stored)
        candidates.push_back(objectWithID(id));
    for (const auto& o : changed)
        if (o->isInserted())
            candidates.push_back(o);
    if (auto ok = fireFaults(candidates); !ok)
        return std::unexpected(ok.error());
    std::erase_if(candidates, [&](const ObjectPtr& o) {
        return o->isDeleted() || (f.predicate && !evaluate(*f.predicate, *o));
    });
    std::sort(candidates.begin(), candidates.end(), [&](const ObjectPtr& a, const ObjectPtr& b) {
        return f.comparator->compare(*a, *b) < 0;
    });
    std::vector<ObjectID> ids;
    const std::size_t from = std::min(f.request->fetchOffset, candidates.size());
    for (std::size_t i = from; i < candidates.size(); ++i) {
        if (f.request->fetchLimit > 0 && ids.size() == f.request->fetchLimit)
            break;
        ids.push_back(candidates[i]->objectID());
    }
    return ids;
}

Result<void> ObjectContext::adoptRows(std::uint32_t entity, std::vector<Row>& rows,
                                      const std::vector<std::string>& prefetched,
                                      std::vector<ObjectPtr>& objects,
                                      const std::shared_ptr<const std::vector<bool>>& unfetched) {
    objects.reserve(rows.size());
    for (auto& row : rows) {
        ObjectPtr o = objectWithID(ObjectID{entity, row.key});
        // A partial object has no changes (changing one completes it
        // first): a row read since may replace it.
        if (o->isFault() || (o->isPartial() && !unfetched))
            if (auto ok = applyRow(*o, std::move(row), unfetched); !ok)
                return ok;
        objects.push_back(std::move(o));
    }
    return prefetchRelationships(objects, prefetched);
}

Result<std::vector<ObjectPtr>> ObjectContext::fetch(const FetchRequest& request) {
    if (request.fetchBatchSize == 0 && !(request.includesPendingChanges && !m_changed.empty())) {
        // Nothing unsaved can change the answer: read whole rows in the
        // ordered query itself, one statement instead of keys then rows.
        auto compiled = compile(request);
        if (!compiled)
            return std::unexpected(compiled.error());
        const CompiledFetch& f = *compiled;
        auto [sql, bind] =
            orderedSelect(f.columns(*m_store), *f.entity, f.sql, f.order, request, true);
        auto rows = m_store->queryRows(sql, f.entity->index, bind, f.unfetched.get());
        if (!rows)
            return std::unexpected(rows.error());
        if (f.sql.repeatsRows) {
            std::int64_t last = 0;
            dropRepeats(*rows, last);
        }
        std::vector<ObjectPtr> objects;
        if (auto ok = adoptRows(f.entity->index, *rows, request.prefetchedRelationships, objects,
                                f.unfetched);
            !ok)
            return std::unexpected(ok.error());
        return objects;
    }
    auto ids = fetchObjectIDs(request);
    if (!ids)
        return std::unexpected(ids.error());
    std::vector<ObjectPtr> objects;
    objects.reserve(ids->size());
    for (const auto& id : *ids)
        objects.push_back(objectWithID(id));
    const std::size_t batch = request.fetchBatchSize > 0 ? request.fetchBatchSize
                                                         : std::max<std::size_t>(objects.size(), 1);
    for (std::size_t i = 0; i < objects.size(); i += batch) {
        std::vector<ObjectPtr> slice(
            objects.begin() + static_cast<std::ptrdiff_t>(i),
            objects.begin() + static_cast<std::ptrdiff_t>(std::min(objects.size(), i + batch)));
        if (auto ok = fireFaults(slice); !ok)
            return std::unexpected(ok.error());
        if (auto ok = prefetchRelationships(slice, request.prefetchedRelationships); !ok)
            return std::unexpected(ok.error());
    }
    return objects;
}

Result<BatchedResults> ObjectContext::fetchBatched(const FetchRequest& request) {
    auto ids = fetchObjectIDs(request);
    if (!ids)
        return std::unexpected(ids.error());
    const std::size_t batch =
        request.fetchBatchSize > 0 ? request.fetchBatchSize : std::max<std::size_t>(ids->size(), 1);
    return BatchedResults(shared_from_this(), std::move(*ids), batch,
                          request.prefetchedRelationships);
}

Result<void>
ObjectContext::fetchEach(const FetchRequest& request,
                         const std::function<Result<void>(const std::vector<ObjectPtr>&)>& each) {
    const std::size_t batch = request.fetchBatchSize > 0 ? request.fetchBatchSize : SIZE_MAX;
    if (request.includesPendingChanges && !m_changed.empty()) {
        auto results = fetchBatched(request);
        if (!results)
            return std::unexpected(results.error());
        std::vector<ObjectPtr> slice;
        for (std::size_t i = 0; i < results->size(); ++i) {
            slice.push_back(results->at(i));
            if (slice.size() == batch || i + 1 == results->size()) {
                if (auto ok = each(slice); !ok)
                    return ok;
                slice.clear();
            }
        }
        return {};
    }
    auto compiled = compile(request);
    if (!compiled)
        return std::unexpected(compiled.error());
    const CompiledFetch& f = *compiled;
    auto [sql, bind] = orderedSelect(f.columns(*m_store), *f.entity, f.sql, f.order, request, true);
    std::vector<ObjectPtr> objects;
    std::int64_t last = 0;
    return m_store->queryRowBatches(
        sql, f.entity->index, bind, batch,
        [&](std::vector<Row>& rows) -> Result<void> {
            if (f.sql.repeatsRows) { // a repeat may open the next batch
                dropRepeats(rows, last);
                if (rows.empty())
                    return {};
            }
            objects.clear();
            if (auto ok = adoptRows(f.entity->index, rows, request.prefetchedRelationships, objects,
                                    f.unfetched);
                !ok)
                return ok;
            auto ok = each(objects);
            objects.clear();
            return ok;
        },
        f.unfetched.get());
}

Result<std::size_t> ObjectContext::count(const FetchRequest& request) {
    const bool pending = request.includesPendingChanges && !m_changed.empty();
    if (pending) {
        auto ids = fetchObjectIDs(request);
        if (!ids)
            return std::unexpected(ids.error());
        return ids->size();
    }
    auto compiled = compile(request);
    if (!compiled)
        return std::unexpected(compiled.error());
    const CompiledFetch& f = *compiled;
    std::size_t total = 0;
    auto ok = m_store->query(
        fmt::format("SELECT count({}) FROM {} AS t0 {} WHERE {}",
                    f.sql.repeatsRows ? "DISTINCT t0.pk" : "*",
                    detail::quoteIdentifier(f.entity->name), f.sql.joins, f.sql.where),
        [&](detail::Statement& s) {
            int index = 1;
            for (const auto& v : f.sql.bindings)
                s.bind(index++, v);
        },
        [&](const detail::Statement& s) { total = static_cast<std::size_t>(s.columnInt(0)); });
    if (!ok)
        return std::unexpected(ok.error());
    total = total > request.fetchOffset ? total - request.fetchOffset : 0;
    if (request.fetchLimit > 0)
        total = std::min(total, request.fetchLimit);
    return total;
}

// ---------------------------------------------------------------- batches

BatchedResults::BatchedResults(std::shared_ptr<ObjectContext> context, std::vector<ObjectID> ids,
                               std::size_t batchSize, std::vector<std::string> prefetched)
    : m_context(std::move(context)), m_ids(std::move(ids)),
      m_batchSize(std::max<std::size_t>(batchSize, 1)), m_prefetched(std::move(prefetched)),
      m_loaded((m_ids.size() + m_batchSize - 1) / m_batchSize, false) {}

ObjectPtr BatchedResults::at(std::size_t index) const {
    const std::size_t batch = index / m_batchSize;
    // A batch loaded before the context was reset or refreshed is faults
    // again: it is read again as a whole, not one fault at a time.
    if (!m_loaded.at(batch) || m_context->objectWithID(m_ids.at(index))->isFault()) {
        // A walk in order (the batch before is loaded) reads ahead, twice
        // as many batches each time up to kMostBatchesAhead: walking a
        // thousand lists then takes 7 queries instead of 50.
        m_ahead = batch > 0 && m_loaded[batch - 1] ? std::min(m_ahead * 2, kMostBatchesAhead) : 1;
        std::size_t last = batch;
        while (last + 1 < m_loaded.size() && last + 1 < batch + m_ahead && !m_loaded[last + 1])
            ++last;
        std::vector<ObjectPtr> slice;
        const std::size_t end = std::min(m_ids.size(), (last + 1) * m_batchSize);
        for (std::size_t i = batch * m_batchSize; i < end; ++i)
            slice.push_back(m_context->objectWithID(m_ids[i]));
        // On failure the batches stay faults (or their members unloaded);
        // touching one meets the error on the fault's own path.
        const bool loaded = m_context->fireFaults(slice).has_value() &&
                            m_context->prefetchRelationships(slice, m_prefetched).has_value();
        std::fill(m_loaded.begin() + static_cast<std::ptrdiff_t>(batch),
                  m_loaded.begin() + static_cast<std::ptrdiff_t>(last + 1), loaded);
    }
    return m_context->objectWithID(m_ids.at(index));
}

std::size_t BatchedResults::loadedBatches() const {
    return static_cast<std::size_t>(std::count(m_loaded.begin(), m_loaded.end(), true));
}

} // namespace tasket::objectstore
