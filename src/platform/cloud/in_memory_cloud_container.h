// The cloud database held in memory: one InMemoryCloudServer holds every
// account's zones, records, subscriptions and shares; each
// InMemoryCloudContainer is one account's view of it. It keeps the whole
// contract of the port (change tags, visibility through shares, pushes), and
// a fault script makes any request fail: by kind and ordinal, with or without
// a retry-after, or after applying part of a records modification (a
// connection lost mid-batch). Every request is logged with the time of the
// shared clock, so tests can check when retries came.
#pragma once

#include "platform/cloud/cloud_database.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tasket::platform {

enum class CloudRequestKind {
    accountStatus,
    currentUser,
    fetchZones,
    modifyZones,
    fetchSubscriptions,
    modifySubscriptions,
    queryRecords,
    modifyRecords,
    saveShare,
    removeShare,
    fetchShares,
};

/// One scripted failure: requests `ordinal` to `ordinal + count - 1` of
/// `kind` (counted from 1, over the accounts the fault names) fail with
/// `code`.
struct CloudFault {
    CloudRequestKind kind = CloudRequestKind::modifyRecords;
    int ordinal = 1;
    int count = 1;
    CloudErrorCode code = CloudErrorCode::networkFailure;
    std::optional<double> retryAfterSeconds;
    /// modifyRecords only: this many saves and deletes (saves first) are
    /// applied before the error, as when the connection drops mid-batch.
    std::size_t appliedBeforeFailure = 0;
    std::string account; // empty: requests of every account count
};

struct CloudRequestLogEntry {
    CloudRequestKind kind;
    std::string account;
    Date at; // the shared clock's time
    std::optional<CloudErrorCode> failure;
};

class InMemoryCloudServer {
  public:
    void addAccount(const std::string& account,
                    CloudAccountStatus status = CloudAccountStatus::available);
    void setAccountStatus(const std::string& account, CloudAccountStatus status);
    void addFault(CloudFault fault);

    /// Every request so far, in order.
    [[nodiscard]] std::vector<CloudRequestLogEntry> requests() const;
    /// The records of a zone as stored (empty when the zone does not exist).
    [[nodiscard]] std::vector<CloudRecord> records(const CloudZoneID& zone) const;

  private:
    friend class InMemoryCloudContainer;

    struct Zone {
        std::map<std::string, CloudRecord, std::less<>> records;
        std::map<std::string, CloudSharePermission, std::less<>> participants;
    };
    struct Account {
        CloudAccountStatus status = CloudAccountStatus::available;
        std::map<std::string, CloudSubscription, std::less<>> subscriptions[2]; // private, shared
        std::vector<CloudPush> pushes;
    };

    // Logs the request and fails it when the script says so (caller holds m_mutex).
    std::optional<CloudError> begin(CloudRequestKind kind, const std::string& account,
                                    std::size_t* appliedBeforeFailure = nullptr);
    Account* account(const std::string& name);
    bool canSee(const std::string& account, const CloudZoneID& zone, bool shared) const;
    void pushChange(const CloudZoneID& zone);

    mutable std::mutex m_mutex;
    std::condition_variable m_pushed;
    std::map<std::string, Account, std::less<>> m_accounts;
    std::map<CloudZoneID, Zone> m_zones;
    std::vector<CloudFault> m_faults;
    std::vector<CloudRequestLogEntry> m_log;
    std::uint64_t m_nextTag = 1;
};

class InMemoryCloudContainer final : public CloudContainer {
  public:
    InMemoryCloudContainer(std::shared_ptr<InMemoryCloudServer> server, std::string account);

    [[nodiscard]] CloudResult<CloudAccountStatus> accountStatus() override;
    [[nodiscard]] CloudResult<std::string> currentUser() override;
    [[nodiscard]] CloudDatabase& privateDatabase() override { return m_private; }
    [[nodiscard]] CloudDatabase& sharedDatabase() override { return m_shared; }
    [[nodiscard]] CloudResult<> saveShare(const CloudShare& share) override;
    [[nodiscard]] CloudResult<> removeShare(const CloudShare& share) override;
    [[nodiscard]] CloudResult<std::vector<CloudShare>> fetchShares() override;
    [[nodiscard]] CloudResult<std::vector<CloudPush>> waitForPushes(double timeoutSeconds) override;

  private:
    class Database final : public CloudDatabase {
      public:
        Database(InMemoryCloudContainer& owner, bool shared) : m_owner(owner), m_isShared(shared) {}
        [[nodiscard]] CloudResult<std::vector<CloudZoneID>> fetchAllZones() override;
        [[nodiscard]] CloudResult<> modifyZones(const std::vector<CloudZoneID>& save,
                                                const std::vector<CloudZoneID>& remove) override;
        [[nodiscard]] CloudResult<std::vector<CloudSubscription>> fetchAllSubscriptions() override;
        [[nodiscard]] CloudResult<>
        modifySubscriptions(const std::vector<CloudSubscription>& save,
                            const std::vector<std::string>& removeIDs) override;
        [[nodiscard]] CloudResult<std::vector<CloudRecord>>
        queryRecords(const CloudQuery& query) override;
        [[nodiscard]] CloudResult<CloudModifyRecordsResult>
        modifyRecords(const std::vector<CloudRecord>& save,
                      const std::vector<CloudRecordID>& remove) override;

      private:
        InMemoryCloudContainer& m_owner;
        bool m_isShared;
    };

    std::shared_ptr<InMemoryCloudServer> m_server;
    std::string m_account;
    Database m_private{*this, false};
    Database m_shared{*this, true};
};

} // namespace tasket::platform
