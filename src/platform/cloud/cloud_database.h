// The port to the cloud database that mirrors the store between accounts: a
// container per account with a private database (the zones the account owns)
// and a shared database (the zones other accounts share with it). Zones hold
// records; a record carries a change tag that every save compares and sets,
// so a writer that lost a race learns it instead of overwriting. Database
// subscriptions ask for silent pushes when anything in the database changes.
//
// Calls block until the server answers; callers run them on a serial queue.
// Adapters: InMemoryCloudServer/InMemoryCloudContainer (tests, with a fault
// script) and the PostgreSQL adapter.
#pragma once

#include "platform/date.h"

#include <cstdint>
#include <expected>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tasket::platform {

// --- Errors -----------------------------------------------------------------

/// The cloud service's error codes (their numbers are part of the contract:
/// the retry rule and stored statuses use them).
enum class CloudErrorCode : int {
    internalError = 1,
    partialFailure = 2,
    networkUnavailable = 3, // the server cannot be reached at all
    networkFailure = 4,     // the connection broke during the request
    badContainer = 5,
    serviceUnavailable = 6,
    requestRateLimited = 7,
    missingEntitlement = 8,
    notAuthenticated = 9,
    permissionFailure = 10,
    unknownItem = 11, // a record the request names does not exist
    invalidArguments = 12,
    serverRecordChanged = 14, // a save lost its compare-and-set on the change tag
    serverRejectedRequest = 15,
    operationCancelled = 20,
    zoneBusy = 23,
    badDatabase = 24,
    quotaExceeded = 25,
    zoneNotFound = 26,
    limitExceeded = 27,
    alreadyShared = 30,
};

struct CloudError {
    CloudErrorCode code = CloudErrorCode::internalError;
    std::string message;
    /// Seconds the server asks the caller to wait before trying again.
    std::optional<double> retryAfterSeconds;
    /// For serverRecordChanged and unknownItem: the record that failed.
    std::string recordName;
};

template <class T = void> using CloudResult = std::expected<T, CloudError>;

[[nodiscard]] inline std::unexpected<CloudError>
cloudFail(CloudErrorCode code, std::string message,
          std::optional<double> retryAfterSeconds = std::nullopt) {
    return std::unexpected(CloudError{code, std::move(message), retryAfterSeconds, {}});
}

// --- Identifiers ------------------------------------------------------------

/// A record zone: its name and the account that owns it.
struct CloudZoneID {
    std::string name;
    std::string owner;
    friend auto operator<=>(const CloudZoneID&, const CloudZoneID&) = default;
};

struct CloudRecordID {
    std::string name;
    CloudZoneID zone;
    friend auto operator<=>(const CloudRecordID&, const CloudRecordID&) = default;
};

// --- Values and records -----------------------------------------------------

using CloudData = std::vector<std::uint8_t>;
/// A reference to another record of the same zone, by record name.
struct CloudReference {
    std::string recordName;
    friend bool operator==(const CloudReference&, const CloudReference&) = default;
};
/// A list of record names (a to-many relationship).
using CloudNameList = std::vector<std::string>;

/// One field value; monostate is an explicit null.
using CloudValue = std::variant<std::monostate, bool, std::int64_t, double, std::string, Date,
                                CloudData, CloudReference, CloudNameList>;
using CloudFields = std::map<std::string, CloudValue, std::less<>>;

struct CloudRecord {
    std::string recordType; // the entity name ("TK_Task")
    CloudRecordID id;
    /// Set by the server on every save; empty on a record never saved. A save
    /// succeeds only when it equals the server's current tag (empty = create).
    std::string changeTag;
    CloudFields fields;
    /// The record above this one in a shared hierarchy (same zone).
    std::optional<CloudReference> parent;
    /// When the server last saved the record (set by the server).
    Date modified;

    [[nodiscard]] const CloudValue* field(std::string_view key) const {
        const auto it = fields.find(key);
        return it == fields.end() ? nullptr : &it->second;
    }
    friend bool operator==(const CloudRecord&, const CloudRecord&) = default;
};

/// Records of one type within one zone; every key, an always-true predicate.
struct CloudQuery {
    std::string recordType;
    CloudZoneID zone;
    std::size_t limit = 0; // 0: no limit
};

struct CloudModifyRecordsResult {
    std::vector<CloudRecord> saved; // as stored, with their new change tags
    std::vector<CloudRecordID> deleted;
};

// --- Subscriptions and shares -----------------------------------------------

/// A database subscription: a push whenever a record of the database changes.
struct CloudSubscription {
    std::string id;
    bool silent = true; // content-available only, no alert
    friend bool operator==(const CloudSubscription&, const CloudSubscription&) = default;
};

enum class CloudSharePermission { readOnly, readWrite };

/// A zone of the owner's private database shared with another account, which
/// then sees it in its shared database.
struct CloudShare {
    CloudZoneID zone;
    std::string participant;
    CloudSharePermission permission = CloudSharePermission::readWrite;
    friend bool operator==(const CloudShare&, const CloudShare&) = default;
};

/// A push heard by the account: which of its subscriptions fired.
struct CloudPush {
    std::string subscriptionID;
};

/// Whether the account can use the cloud, in the service's own order.
enum class CloudAccountStatus {
    couldNotDetermine,
    available,
    restricted,
    noAccount,
    temporarilyUnavailable
};

// --- Databases and the container --------------------------------------------

class CloudDatabase {
  public:
    virtual ~CloudDatabase() = default;

    /// Every zone of the database (owned ones in the private database; zones
    /// shared with the account in the shared database).
    [[nodiscard]] virtual CloudResult<std::vector<CloudZoneID>> fetchAllZones() = 0;
    /// Creates the zones that do not exist yet (private database only; the
    /// owner must be the account) and deletes the others with their records
    /// and shares. Deleting a missing zone succeeds.
    [[nodiscard]] virtual CloudResult<> modifyZones(const std::vector<CloudZoneID>& save,
                                                    const std::vector<CloudZoneID>& remove) = 0;

    [[nodiscard]] virtual CloudResult<std::vector<CloudSubscription>> fetchAllSubscriptions() = 0;
    /// Saves (replacing by id) and deletes subscriptions of this database.
    [[nodiscard]] virtual CloudResult<>
    modifySubscriptions(const std::vector<CloudSubscription>& save,
                        const std::vector<std::string>& removeIDs) = 0;

    /// The records of one type in one zone (zoneNotFound when the zone does
    /// not exist or is not visible to the account), ordered by record name.
    [[nodiscard]] virtual CloudResult<std::vector<CloudRecord>>
    queryRecords(const CloudQuery& query) = 0;
    /// Saves and deletes records, in that order, all or nothing. Each saved
    /// record compares its change tag (serverRecordChanged when it differs,
    /// unknownItem when a tagged record no longer exists); deleting a missing
    /// record succeeds. A broken connection may leave part of it applied.
    [[nodiscard]] virtual CloudResult<CloudModifyRecordsResult>
    modifyRecords(const std::vector<CloudRecord>& save,
                  const std::vector<CloudRecordID>& remove) = 0;
};

class CloudContainer {
  public:
    virtual ~CloudContainer() = default;

    [[nodiscard]] virtual CloudResult<CloudAccountStatus> accountStatus() = 0;
    /// The account's name, the owner of its own zones.
    [[nodiscard]] virtual CloudResult<std::string> currentUser() = 0;
    [[nodiscard]] virtual CloudDatabase& privateDatabase() = 0;
    [[nodiscard]] virtual CloudDatabase& sharedDatabase() = 0;

    /// Shares a zone the account owns with another account (replacing an
    /// earlier share with the same participant); removing ends the share.
    [[nodiscard]] virtual CloudResult<> saveShare(const CloudShare& share) = 0;
    [[nodiscard]] virtual CloudResult<> removeShare(const CloudShare& share) = 0;
    /// The shares of the zones the account owns.
    [[nodiscard]] virtual CloudResult<std::vector<CloudShare>> fetchShares() = 0;

    /// Waits up to `timeoutSeconds` for pushes of the account's subscriptions
    /// and returns those heard (empty on time-out).
    [[nodiscard]] virtual CloudResult<std::vector<CloudPush>>
    waitForPushes(double timeoutSeconds) = 0;
};

/// A word naming the code ("zoneBusy") for messages and logs.
[[nodiscard]] std::string_view cloudErrorName(CloudErrorCode code);

} // namespace tasket::platform
