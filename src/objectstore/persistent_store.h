// One store file on disk, described by a model: opening (with checks that
// leave a damaged file untouched), schema creation and additive migration,
// reading rows, the save transaction with optimistic locking and merge
// policies, persistent history, and remote-change notifications when
// another process commits. Contexts are the normal way in; the store is
// shared by all contexts of a container and is thread-safe.
#pragma once

#include "objectstore/change.h"
#include "objectstore/history.h"
#include "objectstore/model/model.h"
#include "platform/error.h"
#include "platform/notification_center.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace tasket::platform {
class FileWatch;
}

namespace tasket::objectstore {

namespace detail {
class Database;
class Statement;
} // namespace detail

struct RemoteChangeInfo {
    std::filesystem::path storePath;
    std::optional<HistoryToken> historyToken; // newest token after the change
};

/// Posted on the default notification centre, sender = the store, when
/// another process committed to the store file.
inline constexpr platform::NotificationName<RemoteChangeInfo> kStoreRemoteChangeNotification{
    "ObjectStoreRemoteChange"};

struct StoreOptions {
    bool historyTracking = false;
    bool remoteChangeNotifications = false;
};

enum class MergePolicy {
    error,                      // a conflict fails the save
    mergeByPropertyObjectTrump, // properties this context changed win; others take the stored
                                // values
    overwrite,                  // object trumps: every in-memory property is written
    rollback,                   // store trumps: this context's changes to the object are dropped
};

/// A stored row: attribute values and the keys of to-one relationships
/// stored on this table (0 = none; unused for other relationships).
struct Row {
    std::int64_t key = 0;
    std::int64_t version = 0;
    std::vector<Value> attributes;
    std::vector<std::int64_t> toOne;
};

/// One object's part of a save, as the context hands it to the store: what
/// to write, not only what changed.
struct ObjectChange {
    ChangeKind kind = ChangeKind::update; // insert, update or remove
    ObjectID id;
    std::int64_t version = 0;      // the version this context read
    std::vector<Value> attributes; // every current attribute value
    std::vector<ObjectID> toOne;   // per relationship: the current to-one target
    std::vector<bool> changed;     // per property
    struct JoinDelta {
        std::size_t relationship; // index into the entity's relationships (JoinTable storage)
        std::vector<ObjectID> added, removed;
    };
    std::vector<JoinDelta> joins;
    /// Attributes written as their stored value plus one, at most the
    /// maximum, instead of the value above (updates only).
    std::vector<std::pair<std::size_t, std::int64_t>> raised{};
};

struct SaveRequest {
    std::vector<ObjectChange> changes;
    MergePolicy policy = MergePolicy::error;
    std::string contextName;
    std::string author;
};

struct SaveResult {
    std::unordered_map<ObjectID, ObjectID, ObjectIDHash> permanentIDs; // temporary -> permanent
    std::unordered_map<ObjectID, std::int64_t, ObjectIDHash>
        versions; // written objects' new versions
    /// Conflicting objects and the stored row they were merged with (the
    /// row as it is after the save).
    std::vector<std::pair<ObjectID, Row>> merged;
    /// Objects the save wanted to update but another writer had deleted.
    std::vector<ObjectID> vanished;
    std::optional<HistoryToken> token;
    /// The values written for raised attributes of updated objects that were
    /// not merged (a merged row holds them).
    std::unordered_map<ObjectID, std::vector<std::pair<std::size_t, std::int64_t>>, ObjectIDHash>
        raised{};
    /// Deleted objects' preserved attribute values, for their tombstones.
    std::unordered_map<ObjectID, std::vector<std::pair<std::string, Value>>, ObjectIDHash>
        preserved{};
};

class PersistentStore {
  public:
    ~PersistentStore();
    PersistentStore(const PersistentStore&) = delete;
    PersistentStore& operator=(const PersistentStore&) = delete;

    /// Opens or creates the store at `path` for `model` (finalized). A file
    /// that is not a store, is truncated or damaged, or was written by a
    /// newer schema fails with the file left untouched.
    [[nodiscard]] static Result<std::shared_ptr<PersistentStore>>
    open(const std::filesystem::path& path, std::shared_ptr<const Model> model,
         StoreOptions options = {});

    [[nodiscard]] const Model& model() const { return *m_model; }
    [[nodiscard]] std::shared_ptr<const Model> sharedModel() const { return m_model; }
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    [[nodiscard]] const StoreOptions& options() const { return m_options; }
    /// A UUID kept in the file; names this store in object URIs.
    [[nodiscard]] const std::string& identifier() const { return m_identifier; }

    // Reading
    /// The row of `id`, or nullopt when it does not exist.
    [[nodiscard]] Result<std::optional<Row>> loadRow(ObjectID id);
    /// The rows of `keys` of one entity, in no particular order; missing
    /// keys are left out.
    [[nodiscard]] Result<std::vector<Row>> loadRows(std::uint32_t entity,
                                                    std::span<const std::int64_t> keys);
    /// Keys of the objects a relationship of `id` points at.
    [[nodiscard]] Result<std::vector<std::int64_t>> relatedKeys(ObjectID id, std::size_t property);
    /// relatedKeys() of many objects of `entity` in one query: (owner,
    /// target) pairs ordered by owner, then target.
    [[nodiscard]] Result<std::vector<std::pair<std::int64_t, std::int64_t>>>
    relatedKeysOf(std::uint32_t entity, std::span<const std::int64_t> keys, std::size_t property);
    /// Runs a read-only statement of the engine's own making. `bind` binds
    /// its parameters, `row` is called for each row. Internal to the engine.
    [[nodiscard]] Result<void> query(const std::string& sql,
                                     const std::function<void(detail::Statement&)>& bind,
                                     const std::function<void(const detail::Statement&)>& row);

    /// The row columns of `entity` qualified by `alias` ("t0.pk, t0._version,
    /// t0.\"title\", ..."), to select whole rows in the engine's own queries.
    [[nodiscard]] const std::string& rowColumns(std::uint32_t entity) const {
        return texts(entity).qualifiedColumns;
    }
    /// The same without the attributes `unfetched` marks: a partial row.
    [[nodiscard]] std::string rowColumns(std::uint32_t entity,
                                         const std::vector<bool>& unfetched) const;
    /// Runs a query of the engine's own making whose columns are
    /// rowColumns(entity), and returns its rows in order.
    /// `unfetched` (when given) marks the attributes the columns leave out;
    /// they read as nil in the rows.
    [[nodiscard]] Result<std::vector<Row>>
    queryRows(const std::string& sql, std::uint32_t entity,
              const std::function<void(detail::Statement&)>& bind,
              const std::vector<bool>* unfetched = nullptr);
    /// queryRows() a batch at a time, for results too large to hold: the
    /// query has its own statement and the store is free between batches,
    /// so `each` may read from it. Rows are read as the query goes (a save
    /// between batches may show in later ones). An error from `each` ends
    /// the query and is returned.
    [[nodiscard]] Result<void>
    queryRowBatches(const std::string& sql, std::uint32_t entity,
                    const std::function<void(detail::Statement&)>& bind, std::size_t batch,
                    const std::function<Result<void>(std::vector<Row>&)>& each,
                    const std::vector<bool>* unfetched = nullptr);

    // Writing
    [[nodiscard]] Result<SaveResult> save(const SaveRequest& request);

    // History
    [[nodiscard]] Result<std::vector<HistoryTransaction>>
    historyAfter(std::optional<HistoryToken> token);
    /// Deletes every transaction whose token is at or before `token`.
    [[nodiscard]] Result<void> deleteHistory(HistoryToken through);
    [[nodiscard]] Result<std::optional<HistoryToken>> currentHistoryToken();

  private:
    PersistentStore() = default;
    // Schema and migration (persistent_store_schema.cpp)
    [[nodiscard]] Result<void> prepareSchema(bool creating);
    [[nodiscard]] bool schemaIsCurrent(const std::string& fingerprint);
    [[nodiscard]] Result<void> updateSchema(std::int64_t version, const std::string& fingerprint);
    // The statement texts of one entity, made the first time it is read or
    // written: a program touches few of the model's entities.
    struct EntityTexts {
        std::once_flag once;
        std::string selectColumns;    // "pk, _version, cols..."
        std::string insertSql;        // INSERT of a whole row
        std::string qualifiedColumns; // the select columns with the alias t0
    };
    [[nodiscard]] const EntityTexts& texts(std::uint32_t entity) const;
    // Rows (persistent_store_rows.cpp); the *Locked ones expect m_mutex held
    [[nodiscard]] Result<void> allocateKeys(const SaveRequest& request, SaveResult& result);
    void announceCommit() const;
    [[nodiscard]] Result<void> writeRow(const ObjectChange& change, MergePolicy policy,
                                        SaveResult& result, bool& skipped);
    [[nodiscard]] Result<std::optional<Row>> loadRowLocked(ObjectID id);
    [[nodiscard]] Result<std::vector<std::int64_t>> relatedKeysLocked(ObjectID id,
                                                                      std::size_t property);
    // History (persistent_store_history.cpp)
    [[nodiscard]] Result<void> readTombstones(std::optional<HistoryToken> token,
                                              std::vector<HistoryTransaction>& out);
    [[nodiscard]] Result<void> preserveForTombstone(ObjectID id, std::int64_t key,
                                                    SaveResult& result);
    [[nodiscard]] Result<void> recordHistory(const SaveRequest& request,
                                             const std::vector<const ObjectChange*>& written,
                                             SaveResult& result);
    void checkRemoteChange();

    std::filesystem::path m_path;
    std::shared_ptr<const Model> m_model;
    StoreOptions m_options;
    std::string m_identifier;
    std::mutex m_mutex; // guards m_db and m_dataVersion
    std::unique_ptr<detail::Database> m_db;
    std::int64_t m_dataVersion = 0;
    std::unique_ptr<EntityTexts[]> m_texts; // per entity
    // Once a burst of writes to the store file or its journal has gone
    // quiet, asks whether another connection committed (data_version).
    std::unique_ptr<platform::FileWatch> m_monitor;
};

} // namespace tasket::objectstore
