// CloudSync: one account's store kept in step with the cloud database. A
// pass queues what history says changed locally since its own token
// (History/<program>.token; deletions from their tombstones) into the
// "Not.Synced" lists, sets up the zones and subscriptions, fetches every
// record of every zone it can see, writes the records that win by the
// counter into the store (and deletes locally what vanished from the
// cloud), then uploads the queued objects and deletions in batches.
//
// A pass that fails with a retryable error remembers when it may be
// retried (the shared clock plus the error's delay); until then syncNow()
// asks nothing of the server. Programs call syncNow() at start-up and after
// their saves, and onPush() when a subscription's push arrives.
#pragma once

#include "cloud/cloud_data_manager.h"
#include "platform/cloud/cloud_database.h"
#include "platform/date.h"
#include "store/local_data_manager.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tasket::cloud {

/// The transaction author of the saves that write cloud records into the
/// store; history reads skip them, so what came from the cloud is not sent back.
inline constexpr std::string_view kCloudSyncAuthor = "Cloud.Sync";

struct SyncReport {
    std::size_t queued = 0;         // identifiers added to the queues from history
    std::size_t applied = 0;        // records written into the store
    std::size_t deletedLocally = 0; // objects removed because their records vanished
    std::size_t uploaded = 0;       // records saved
    std::size_t deletedInCloud = 0; // records deleted
    /// Set when the pass did not run because a retry is not yet due.
    std::optional<platform::Date> deferredUntil;
};

class CloudSync {
  public:
    struct Options {
        /// Names the history token file and the file of known records.
        std::string program = "cloud-sync";
        /// Records per modification request.
        std::size_t batchSize = 200;
    };

    CloudSync(std::shared_ptr<store::LocalDataManager> store,
              std::shared_ptr<CloudDataManager> cloud, std::filesystem::path groupContainer,
              Options options);
    CloudSync(std::shared_ptr<store::LocalDataManager> store,
              std::shared_ptr<CloudDataManager> cloud, std::filesystem::path groupContainer)
        : CloudSync(std::move(store), std::move(cloud), std::move(groupContainer), Options{}) {}

    /// One pass, blocking. A failed request ends the pass with its error;
    /// nothing queued is dropped, so the next pass goes on from there.
    [[nodiscard]] platform::CloudResult<SyncReport> syncNow();
    /// A push of one of the account's subscriptions: the same pass.
    [[nodiscard]] platform::CloudResult<SyncReport> onPush() { return syncNow(); }
    /// When a failed pass may be retried; nullopt when none is waiting.
    [[nodiscard]] std::optional<platform::Date> retryAt() const;

    [[nodiscard]] CloudDataManager& cloud() { return *m_cloud; }

  private:
    struct Pass;
    platform::CloudResult<SyncReport> run();

    std::shared_ptr<store::LocalDataManager> m_store;
    std::shared_ptr<CloudDataManager> m_cloud;
    std::filesystem::path m_tokenFile;
    std::filesystem::path m_knownFile;
    Options m_options;
    mutable std::mutex m_mutex; // one pass at a time
    std::optional<platform::Date> m_retryAt;
};

} // namespace tasket::cloud
