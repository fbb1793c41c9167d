// A scratch pad of objects over one persistent store: an identity map of
// registered objects, the inserted/updated/deleted sets, save, rollback,
// refresh, and merging of changes another context saved. The view context
// runs on the main queue; every background context has its own serial
// queue. A context and its objects are used only on that queue
// (perform/performAndWait).
#pragma once

#include "objectstore/batched_results.h"
#include "objectstore/change.h"
#include "objectstore/fetch_request.h"
#include "objectstore/managed_object.h"
#include "objectstore/persistent_store.h"
#include "platform/notification_center.h"
#include "platform/serial_queue.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace tasket::objectstore {

/// Posted (sender = the context) after a save committed: what it wrote,
/// with the store, the history token (when tracked), context name and author.
inline constexpr platform::NotificationName<ChangeSet> kContextDidSaveNotification{
    "ObjectContextDidSave"};
/// Posted (sender = the context) when the context's objects changed: local
/// edits at processPendingChanges(), a save (permanent identities, rows
/// merged from the store), a rollback, and a merge (the merged change set
/// itself, with its store, token, context name and author).
inline constexpr platform::NotificationName<ChangeSet> kObjectsDidChangeNotification{
    "ObjectContextObjectsDidChange"};

enum class ConcurrencyType { mainQueue, privateQueue };

class ObjectContext : public std::enable_shared_from_this<ObjectContext> {
  public:
    [[nodiscard]] static std::shared_ptr<ObjectContext> make(std::shared_ptr<PersistentStore> store,
                                                             ConcurrencyType type);
    ~ObjectContext();
    ObjectContext(const ObjectContext&) = delete;
    ObjectContext& operator=(const ObjectContext&) = delete;

    // Configuration
    [[nodiscard]] const std::string& name() const { return m_name; }
    void setName(std::string name) { m_name = std::move(name); }
    [[nodiscard]] const std::string& transactionAuthor() const { return m_author; }
    void setTransactionAuthor(std::string author) { m_author = std::move(author); }
    [[nodiscard]] MergePolicy mergePolicy() const { return m_mergePolicy; }
    void setMergePolicy(MergePolicy policy) { m_mergePolicy = policy; }
    /// Contexts keep no undo history; this is always false.
    [[nodiscard]] bool hasUndoManager() const { return false; }
    [[nodiscard]] bool automaticallyMergesChangesFromParent() const { return m_autoMerge; }
    /// When on, did-save notifications of other contexts on the same store
    /// are merged into this one on its queue.
    void setAutomaticallyMergesChangesFromParent(bool on);
    /// Called by save() on the context's queue, after pending changes are
    /// processed and before anything is written, so the hook can still
    /// change the objects about to be saved; empty: none.
    using WillSave = std::function<void(ObjectContext&)>;
    void setWillSave(WillSave hook) { m_willSave = std::move(hook); }
    [[nodiscard]] bool shouldDeleteInaccessibleFaults() const { return m_deleteInaccessibleFaults; }
    /// When off, a fault whose row is gone is an error (fireFaults) or, when
    /// touched, a process stop (platform::fatal) instead of a deleted object.
    void setShouldDeleteInaccessibleFaults(bool on) { m_deleteInaccessibleFaults = on; }
    [[nodiscard]] ConcurrencyType concurrencyType() const { return m_type; }
    [[nodiscard]] PersistentStore& store() const { return *m_store; }
    [[nodiscard]] const Model& model() const { return m_store->model(); }

    // Queues
    /// Runs `work` on the context's queue, later.
    void perform(std::function<void()> work);
    /// Runs `work` on the context's queue and waits for it.
    void performAndWait(const std::function<void()>& work);

    // Objects
    /// A new object of the named entity; its context keeps it. An unknown
    /// name is a programmer error: std::invalid_argument.
    ObjectPtr insertNewObject(std::string_view entityName);
    ObjectPtr insertNewObject(std::uint32_t entity);
    /// The registered object for `id`, or a new fault for it.
    [[nodiscard]] ObjectPtr objectWithID(ObjectID id);
    /// The object for `id`, loaded; notFound if its row does not exist.
    [[nodiscard]] Result<ObjectPtr> existingObject(ObjectID id);
    /// The registered object, or nullptr.
    [[nodiscard]] ObjectPtr registeredObject(ObjectID id) const;
    /// Marks `object` deleted and applies its relationships' delete rules.
    void deleteObject(const ObjectPtr& object);
    /// Loads the rows of the given faults with one query per entity. A row
    /// that is gone makes its object read as deleted, or fails with notFound
    /// when inaccessible faults are kept.
    [[nodiscard]] Result<void> fireFaults(const std::vector<ObjectPtr>& objects);
    /// Loads the members of the named relationships of the given loaded
    /// objects and the rows of those members: one query per relationship
    /// and one per member entity, where touching them would ask once per
    /// object. Objects whose members are already loaded keep them. A name
    /// that is no relationship of an object's entity is a programmer error:
    /// std::out_of_range.
    [[nodiscard]] Result<void> prefetchRelationships(const std::vector<ObjectPtr>& objects,
                                                     const std::vector<std::string>& names);

    // Fetching
    /// The matching objects in order, their rows loaded (in batches of
    /// fetchBatchSize when set). Unsaved changes count unless the request
    /// says otherwise: deleted objects drop out, inserted and edited ones
    /// are judged by their in-memory values. Fails on a predicate or sort
    /// key that does not fit the entity.
    [[nodiscard]] Result<std::vector<ObjectPtr>> fetch(const FetchRequest& request);
    /// The identities of the matching objects, in order.
    [[nodiscard]] Result<std::vector<ObjectID>> fetchObjectIDs(const FetchRequest& request);
    /// The identities at once, the rows a batch at a time on access.
    [[nodiscard]] Result<BatchedResults> fetchBatched(const FetchRequest& request);
    /// The matching objects in order, fetchBatchSize at a time (all at once
    /// when 0), each batch loaded with its prefetched relationships and
    /// handed to `each`: a walk over a result too large to hold, in one
    /// query that reads whole rows as it goes. `each` may reset the context
    /// between batches; an error from it ends the walk and is returned.
    /// With unsaved changes that count, the batches come from fetchBatched().
    [[nodiscard]] Result<void>
    fetchEach(const FetchRequest& request,
              const std::function<Result<void>(const std::vector<ObjectPtr>&)>& each);
    /// How many objects match.
    [[nodiscard]] Result<std::size_t> count(const FetchRequest& request);

    // Changes
    [[nodiscard]] bool hasChanges() const;
    [[nodiscard]] std::vector<ObjectPtr> insertedObjects() const;
    [[nodiscard]] std::vector<ObjectPtr> updatedObjects() const;
    [[nodiscard]] std::vector<ObjectPtr> deletedObjects() const;
    /// Writes every change in one transaction. On failure nothing is written
    /// and the context keeps its changes.
    [[nodiscard]] Result<void> save();
    /// Drops every unsaved change.
    void rollback();
    /// Turns `object` back into a fault (mergeChanges false), or re-reads
    /// its row keeping its own changes (mergeChanges true).
    void refresh(const ObjectPtr& object, bool mergeChanges);
    /// Forgets every registered object.
    void reset();
    /// Brings another context's save (its did-save change set) or a history
    /// transaction's changes into this one.
    void mergeChanges(const ChangeSet& changes);
    /// Posts the objects-did-change notification for edits made since the
    /// last call. Runs by itself after edits, on the context's queue.
    void processPendingChanges();

  private:
    /// The registered objects among the changed ones that `which` accepts.
    std::vector<ObjectPtr>
    changedObjects(const std::function<bool(const ManagedObject&)>& which) const;
    friend class ManagedObject;
    ObjectContext(std::shared_ptr<PersistentStore> store, ConcurrencyType type);

    [[nodiscard]] ObjectPtr makeObject(std::uint32_t entity, ObjectID id);
    // Fires a fault. Accessors have no error path, so a failure here (the
    // store cannot be read, or the row is gone while inaccessible faults are
    // kept) stops the process through platform::fatal; fireFaults() and
    // existingObject() are the ways to meet those failures as errors.
    void load(ManagedObject& object);
    [[nodiscard]] Result<void> loadStored(ManagedObject& object);
    [[nodiscard]] Result<void> markVanished(ManagedObject& object);
    /// Fills the object from a stored row; `unfetched` marks the attributes
    /// a partial row left out.
    [[nodiscard]] Result<void>
    applyRow(ManagedObject& object, Row row,
             std::shared_ptr<const std::vector<bool>> unfetched = nullptr);
    /// Reads the attributes a partial object lacks (the whole row).
    void complete(ManagedObject& object);
    /// The objects of stored rows of `entity`, in order, into the empty
    /// `objects`, with the members of their `prefetched` relationships; a
    /// row fills its object only if that is a fault (or, a whole row, only
    /// partly loaded). `unfetched`: as for applyRow().
    [[nodiscard]] Result<void>
    adoptRows(std::uint32_t entity, std::vector<Row>& rows,
              const std::vector<std::string>& prefetched, std::vector<ObjectPtr>& objects,
              const std::shared_ptr<const std::vector<bool>>& unfetched = nullptr);
    void markChanged(ManagedObject& object);
    void schedulePendingChanges();
    void applyDeleteRules(ManagedObject& object, std::vector<ObjectPtr>& cascade);
    void invalidateInverseCaches(const std::vector<ObjectID>& changed);
    // Applies this context's unsaved membership changes to a member set just
    // read from the store.
    void overlayPendingMembers(ManagedObject& owner, std::size_t relationship);
    void forget(ObjectID id);
    // Saving (object_context_save.cpp): the request from the pending
    // changes, then the objects brought in line with what the store wrote.
    [[nodiscard]] Result<SaveRequest> makeSaveRequest(std::vector<ObjectPtr>& involved) const;
    [[nodiscard]] Result<void> checkDenyRules(const ManagedObject& object) const;
    [[nodiscard]] Result<ObjectChange> describeWrite(const ManagedObject& object) const;
    void didSave(const std::vector<ObjectPtr>& involved, SaveResult result);
    [[nodiscard]] std::vector<std::pair<ObjectID, ObjectID>>
    adoptPermanentIDs(const std::vector<ObjectPtr>& involved, const SaveResult& result);
    struct CompiledFetch;
    [[nodiscard]] Result<CompiledFetch> compile(const FetchRequest& request) const;
    [[nodiscard]] Result<std::vector<ObjectID>> storedIDs(const CompiledFetch& fetch, bool window);
    [[nodiscard]] Result<std::vector<ObjectID>>
    judgedInMemory(const CompiledFetch& fetch, const std::vector<ObjectPtr>& changed);

    std::shared_ptr<PersistentStore> m_store;
    ConcurrencyType m_type;
    std::unique_ptr<platform::SerialQueue> m_queue; // private-queue contexts only
    std::string m_name;
    std::string m_author;
    MergePolicy m_mergePolicy = MergePolicy::error;
    bool m_autoMerge = false;
    bool m_deleteInaccessibleFaults = true;
    WillSave m_willSave;
    std::int64_t m_nextTemporaryKey = -1;

    std::unordered_map<ObjectID, ObjectPtr, ObjectIDHash> m_registered;
    std::set<ObjectID> m_changed; // objects with pending changes (inserted, updated or deleted)
    // Edits not yet announced by processPendingChanges().
    ChangeSet m_unprocessed;
    std::set<ObjectID> m_unprocessedUpdated;
    bool m_processScheduled = false;
    platform::ObserverToken m_autoMergeToken;
};

} // namespace tasket::objectstore
