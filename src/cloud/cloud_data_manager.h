// CloudDataManager: the store's side of the cloud database. It keeps the
// record zones (the private zone and one zone per shared category) and the
// two database subscriptions, fetches the records of one type, decides by
// the modification counter whether an object is uploaded, and keeps the
// sync bookkeeping in the application group's settings: the "Not.Synced"
// queues (read and written whole), the account, fetch and upload statuses
// with their dates, and the subscription flags. Calls block; CloudSync runs
// them one after another on its own queue.
#pragma once

#include "objectstore/managed_object.h"
#include "platform/cloud/cloud_database.h"
#include "platform/preferences/preferences_suite.h"
#include "rules/cloud_enumerations.h"
#include "transfer/shared_records.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::cloud {

inline constexpr std::string_view kPrivateZoneName =
    "Lumenforge.QRX.Tasket.Private.Database.Record.Zone";
inline constexpr std::string_view kSharedZonePrefix =
    "Lumenforge.QRX.Tasket.Shared.Database.Record.Zone";
inline constexpr std::string_view kPrivateSubscriptionID =
    "Lumenforge.QRX.Tasket.Private.Database.Subscription";
inline constexpr std::string_view kSharedSubscriptionID =
    "Lumenforge.QRX.Tasket.Shared.Database.Subscription";
/// The share role of a user who joined a share that someone else owns.
inline constexpr std::int64_t kParticipantShareRole = 2;
/// The retry delay of a retryable error that names none.
inline constexpr double kDefaultRetryDelaySeconds = 3.0;

/// The record types the store mirrors, in the order a sync handles them
/// (containers before what they contain), each with its queue key.
struct SyncedEntity {
    std::string_view entity;
    std::string_view notSyncedKey;
};
[[nodiscard]] const std::vector<SyncedEntity>& syncedEntities();
/// The queue key of `entity`; empty for entities that are not mirrored.
[[nodiscard]] std::string_view notSyncedKey(std::string_view entity);

/// The retry delay of a failed cloud request: the error's retry-after, or
/// 3.0 s, for the retryable codes 7, 6, 23, 3 and 4; nullopt (never retried)
/// for any other code.
[[nodiscard]] std::optional<double> retryDelay(const platform::CloudError& error);

enum class SharingEdit { adding, editing };
/// The message telling the user that an object whose selected items belong
/// to another shared category cannot be added or edited; `name` is what
/// the caller calls the object, shown in lower case.
[[nodiscard]] std::string sharingRuleMessage(std::string_view name, SharingEdit edit);

/// The counter rule: whether an object whose counter is `local` (absent = 0)
/// is uploaded over `record` (a record without a counter: a new one). The
/// cloud wins a tie, and an object never raised above 0 is not uploaded.
[[nodiscard]] bool shouldUpload(std::optional<std::int64_t> local,
                                const platform::CloudRecord& record);
/// A settings failure as the cloud calls report it (never retried).
[[nodiscard]] platform::CloudError settingsFailure(const platform::Error& error);
/// The record's counter when it holds an integer.
[[nodiscard]] std::optional<std::int64_t> recordCounter(const platform::CloudRecord& record);

class CloudDataManager {
  public:
    CloudDataManager(std::shared_ptr<platform::CloudContainer> container,
                     std::shared_ptr<platform::PreferencesSuite> appGroupSuite);

    [[nodiscard]] platform::CloudContainer& container() { return *m_container; }
    [[nodiscard]] platform::PreferencesSuite& settings() { return *m_settings; }
    [[nodiscard]] platform::CloudDatabase& database(rules::TK_CloudDatabaseType type);

    // ---- Account --------------------------------------------------------------
    /// Asks the container for the account status and stores it with the time.
    [[nodiscard]] platform::CloudResult<rules::TK_CloudAccountStatus> checkAccountStatus();
    /// Whether the last stored account status says the cloud can be used.
    [[nodiscard]] bool isCloudUsable() const;
    /// The account's user (the owner of its zones), asked once.
    [[nodiscard]] platform::CloudResult<std::string> currentUser();

    // ---- Zones ----------------------------------------------------------------
    /// Makes sure the private zone exists (creating it when missing) and
    /// returns it; "Not.Synced.Zones" names it while its creation is owed.
    [[nodiscard]] platform::CloudResult<platform::CloudZoneID> setUpPrivateZone();
    /// Creates `zone` in the private database when it is missing, keeping
    /// its name in "Not.Synced.Zones" until the creation succeeded.
    [[nodiscard]] platform::CloudResult<> setUpZone(const platform::CloudZoneID& zone);
    /// The zone of `category`'s objects, with the database it lives in.
    /// Fails with notAuthenticated (9) when the cloud is not usable.
    struct Zone {
        platform::CloudZoneID id;
        rules::TK_CloudDatabaseType database = rules::TK_CloudDatabaseType::privateDatabase;
    };
    [[nodiscard]] platform::CloudResult<Zone> zone(const transfer::TK_SharedCategory& category);

    // ---- Subscriptions --------------------------------------------------------
    /// Makes sure the database's subscription (silent pushes) exists, then
    /// stores its "Did.Create" flag; a failure stores nothing.
    [[nodiscard]] platform::CloudResult<> setUpSubscription(rules::TK_CloudDatabaseType database);

    // ---- Records --------------------------------------------------------------
    /// Every record of `recordType` in `zone`. Fails with notAuthenticated
    /// when the cloud is not usable.
    [[nodiscard]] platform::CloudResult<std::vector<platform::CloudRecord>>
    fetchRecords(std::string_view recordType, const Zone& zone);
    /// What `object` is uploaded as over `record` (the cloud's copy, or a new
    /// record in the object's zone) under the counter rule: the record with
    /// every field of the object, or nullopt when the cloud's copy stands.
    [[nodiscard]] static std::optional<platform::CloudRecord>
    recordToUpload(const objectstore::ManagedObject& object, platform::CloudRecord record,
                   const Zone& zone);
    /// Uploads `object` over `record` (the cloud's copy, or a new record in
    /// the object's zone) under the counter rule. When the rule says no, the
    /// object's identifier leaves its queue and nothing is sent. Returns the
    /// record as stored, or nullopt when nothing was sent.
    [[nodiscard]] platform::CloudResult<std::optional<platform::CloudRecord>>
    upload(const objectstore::ManagedObject& object, platform::CloudRecord record,
           const Zone& zone);

    // ---- Queues and statuses --------------------------------------------------
    [[nodiscard]] std::vector<std::string> notSynced(std::string_view key) const;
    [[nodiscard]] platform::Result<> setNotSynced(std::string_view key,
                                                  const std::vector<std::string>& ids);
    /// Adds `ids` not yet queued, in one write.
    [[nodiscard]] platform::Result<> enqueue(std::string_view key,
                                             const std::vector<std::string>& ids);
    /// Removes `ids` from the queue, in one write.
    [[nodiscard]] platform::Result<> dequeue(std::string_view key,
                                             const std::vector<std::string>& ids);

    /// Stores the state of the last fetch or upload; a finished one (succeeded
    /// or failed) with the time.
    [[nodiscard]] platform::Result<> setFetchStatus(rules::TK_CloudSyncStatus status);
    [[nodiscard]] platform::Result<> setUploadStatus(rules::TK_CloudSyncStatus status);
    [[nodiscard]] rules::TK_CloudSyncStatus fetchStatus() const;
    [[nodiscard]] rules::TK_CloudSyncStatus uploadStatus() const;

  private:
    std::shared_ptr<platform::CloudContainer> m_container;
    std::shared_ptr<platform::PreferencesSuite> m_settings;
    std::optional<std::string> m_user;
};

} // namespace tasket::cloud
