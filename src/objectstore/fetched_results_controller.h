// A live, ordered result over a context: it performs a fetch, then follows
// the context's changes (local edits, saves, merges) and tells its delegate
// how the order changed. A change to a few objects costs work in proportion
// to them: each is judged by the predicate in memory and placed by binary
// search; the fetch runs again only when a property of another entity that
// the predicate or sort reads through a relationship has changed.
#pragma once

#include "objectstore/change.h"
#include "objectstore/object_context.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>

namespace tasket::objectstore {

class FetchedResultsController {
  public:
    using Delegate = std::function<void(const CollectionChange&)>;

    /// The request needs an entity; sort descriptors order the result (the
    /// primary key breaks ties).
    FetchedResultsController(std::shared_ptr<ObjectContext> context, FetchRequest request);
    ~FetchedResultsController();
    FetchedResultsController(const FetchedResultsController&) = delete;
    FetchedResultsController& operator=(const FetchedResultsController&) = delete;

    /// Runs the fetch and starts following changes. Fails on a bad request.
    [[nodiscard]] Result<void> performFetch();

    /// Called after the result changed, with how it changed.
    void setDelegate(Delegate delegate) { m_delegate = std::move(delegate); }

    [[nodiscard]] const FetchRequest& fetchRequest() const { return m_request; }
    [[nodiscard]] const std::vector<ObjectID>& objectIDs() const { return m_ids; }
    [[nodiscard]] std::size_t size() const { return m_ids.size(); }
    /// The object at `index`; its batch of rows loads on first touch.
    [[nodiscard]] ObjectPtr object(std::size_t index) const;
    [[nodiscard]] std::vector<ObjectPtr> objects() const;
    /// Where `id` is in the result, if it is.
    [[nodiscard]] std::optional<std::size_t> indexOf(ObjectID id) const;

    /// How many times the whole fetch ran (the first one included).
    [[nodiscard]] std::size_t fetchCount() const { return m_fetchCount; }

  private:
    void contextDidChange(const ChangeSet& info);
    [[nodiscard]] Result<void> refetch();
    using Positions = std::unordered_map<ObjectID, std::size_t, ObjectIDHash>;
    /// Where `object` belongs in the result.
    [[nodiscard]] std::vector<ObjectID>::iterator lowerBound(const ManagedObject& object);
    [[nodiscard]] CollectionChange describe(const std::vector<ObjectID>& old,
                                            const Positions& oldIndex, const Positions& newIndex,
                                            const std::set<ObjectID>& renamed) const;

    std::shared_ptr<ObjectContext> m_context;
    FetchRequest m_request;
    std::uint32_t m_entity = 0;
    std::optional<BoundPredicate> m_predicate;
    std::optional<ObjectComparator> m_comparator;
    std::map<std::uint32_t, std::set<std::string>>
        m_dependencies; // other entities' properties the key paths read
    std::vector<ObjectID> m_ids;
    Delegate m_delegate;
    platform::ObserverToken m_token;
    std::size_t m_fetchCount = 0;
};

} // namespace tasket::objectstore
