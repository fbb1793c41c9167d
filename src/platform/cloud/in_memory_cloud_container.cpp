#include "platform/cloud/in_memory_cloud_container.h"

#include "platform/clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace tasket::platform {

namespace {

std::string zoneText(const CloudZoneID& zone) {
    return fmt::format("{} of {}", zone.name, zone.owner);
}

CloudError errorFrom(const CloudFault& fault) {
    return CloudError{fault.code,
                      fmt::format("scripted failure: {}", cloudErrorName(fault.code)),
                      fault.retryAfterSeconds,
                      {}};
}

} // namespace

// --- Server -----------------------------------------------------------------

void InMemoryCloudServer::addAccount(const std::string& account, CloudAccountStatus status) {
    const std::lock_guard lock(m_mutex);
    m_accounts[account].status = status;
}

void InMemoryCloudServer::setAccountStatus(const std::string& account, CloudAccountStatus status) {
    addAccount(account, status);
}

void InMemoryCloudServer::addFault(CloudFault fault) {
    const std::lock_guard lock(m_mutex);
    m_faults.push_back(std::move(fault));
}

std::vector<CloudRequestLogEntry> InMemoryCloudServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_log;
}

std::vector<CloudRecord> InMemoryCloudServer::records(const CloudZoneID& zone) const {
    const std::lock_guard lock(m_mutex);
    std::vector<CloudRecord> out;
    if (const auto it = m_zones.find(zone); it != m_zones.end()) {
        for (const auto& [name, record] : it->second.records)
            out.push_back(record);
    }
    return out;
}

std::optional<CloudError> InMemoryCloudServer::begin(CloudRequestKind kind,
                                                     const std::string& account,
                                                     std::size_t* appliedBeforeFailure) {
    m_log.push_back({kind, account, Clock::shared().now(), std::nullopt});
    for (const auto& fault : m_faults) {
        if (fault.kind != kind || (!fault.account.empty() && fault.account != account))
            continue;
        const auto ordinal =
            std::count_if(m_log.begin(), m_log.end(), [&](const CloudRequestLogEntry& e) {
                return e.kind == kind && (fault.account.empty() || e.account == fault.account);
            });
        if (ordinal < fault.ordinal || ordinal >= fault.ordinal + fault.count)
            continue;
        m_log.back().failure = fault.code;
        if (appliedBeforeFailure != nullptr)
            *appliedBeforeFailure = fault.appliedBeforeFailure;
        return errorFrom(fault);
    }
    const auto* state = this->account(account);
    if (state == nullptr || state->status != CloudAccountStatus::available) {
        if (kind == CloudRequestKind::accountStatus)
            return std::nullopt;
        m_log.back().failure = CloudErrorCode::notAuthenticated;
        return CloudError{CloudErrorCode::notAuthenticated,
                          fmt::format("the account {} cannot use the cloud", account),
                          std::nullopt,
                          {}};
    }
    return std::nullopt;
}

InMemoryCloudServer::Account* InMemoryCloudServer::account(const std::string& name) {
    const auto it = m_accounts.find(name);
    return it == m_accounts.end() ? nullptr : &it->second;
}

bool InMemoryCloudServer::canSee(const std::string& account, const CloudZoneID& zone,
                                 bool shared) const {
    if (!shared)
        return zone.owner == account && m_zones.contains(zone);
    const auto it = m_zones.find(zone);
    return it != m_zones.end() && zone.owner != account &&
           it->second.participants.contains(account);
}

void InMemoryCloudServer::pushChange(const CloudZoneID& zone) {
    const auto notify = [&](const std::string& name, int database) {
        auto* state = account(name);
        if (state == nullptr)
            return;
        for (const auto& [id, subscription] : state->subscriptions[database])
            state->pushes.push_back({id});
    };
    notify(zone.owner, 0);
    if (const auto it = m_zones.find(zone); it != m_zones.end()) {
        for (const auto& [participant, permission] : it->second.participants)
            notify(participant, 1);
    }
    m_pushed.notify_all();
}

// --- Container --------------------------------------------------------------

InMemoryCloudContainer::InMemoryCloudContainer(std::shared_ptr<InMemoryCloudServer> server,
                                               std::string account)
    : m_server(std::move(server)), m_account(std::move(account)) {}

CloudResult<CloudAccountStatus> InMemoryCloudContainer::accountStatus() {
    const std::lock_guard lock(m_server->m_mutex);
    if (auto error = m_server->begin(CloudRequestKind::accountStatus, m_account))
        return std::unexpected(*error);
    const auto* state = m_server->account(m_account);
    return state == nullptr ? CloudAccountStatus::noAccount : state->status;
}

CloudResult<std::string> InMemoryCloudContainer::currentUser() {
    const std::lock_guard lock(m_server->m_mutex);
    if (auto error = m_server->begin(CloudRequestKind::currentUser, m_account))
        return std::unexpected(*error);
    return m_account;
}

CloudResult<> InMemoryCloudContainer::saveShare(const CloudShare& share) {
    const std::lock_guard lock(m_server->m_mutex);
    if (auto error = m_server->begin(CloudRequestKind::saveShare, m_account))
        return std::unexpected(*error);
    if (!m_server->canSee(m_account, share.zone, false))
        return cloudFail(CloudErrorCode::zoneNotFound,
                         fmt::format("no zone {}", zoneText(share.zone)));
    if (share.participant == m_account || m_server->account(share.participant) == nullptr)
        return cloudFail(CloudErrorCode::invalidArguments,
                         fmt::format("{} cannot join a share of {}", share.participant, m_account));
    m_server->m_zones[share.zone].participants[share.participant] = share.permission;
    return {};
}

CloudResult<> InMemoryCloudContainer::removeShare(const CloudShare& share) {
    const std::lock_guard lock(m_server->m_mutex);
    if (auto error = m_server->begin(CloudRequestKind::removeShare, m_account))
        return std::unexpected(*error);
    if (!m_server->canSee(m_account, share.zone, false))
        return cloudFail(CloudErrorCode::zoneNotFound,
                         fmt::format("no zone {}", zoneText(share.zone)));
    m_server->m_zones[share.zone].participants.erase(share.participant);
    return {};
}

CloudResult<std::vector<CloudShare>> InMemoryCloudContainer::fetchShares() {
    const std::lock_guard lock(m_server->m_mutex);
    if (auto error = m_server->begin(CloudRequestKind::fetchShares, m_account))
        return std::unexpected(*error);
    std::vector<CloudShare> out;
    for (const auto& [zone, state] : m_server->m_zones) {
        if (zone.owner != m_account)
            continue;
        for (const auto& [participant, permission] : state.participants)
            out.push_back({zone, participant, permission});
    }
    return out;
}

CloudResult<std::vector<CloudPush>> InMemoryCloudContainer::waitForPushes(double timeoutSeconds) {
    std::unique_lock lock(m_server->m_mutex);
    const auto heard = [&] {
        const auto* state = m_server->account(m_account);
        return state != nullptr && !state->pushes.empty();
    };
    m_server->m_pushed.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), heard);
    auto* state = m_server->account(m_account);
    if (state == nullptr)
        return std::vector<CloudPush>{};
    return std::exchange(state->pushes, {});
}

// --- Databases --------------------------------------------------------------

CloudResult<std::vector<CloudZoneID>> InMemoryCloudContainer::Database::fetchAllZones() {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    if (auto error = server.begin(CloudRequestKind::fetchZones, m_owner.m_account))
        return std::unexpected(*error);
    std::vector<CloudZoneID> out;
    for (const auto& [zone, state] : server.m_zones) {
        if (server.canSee(m_owner.m_account, zone, m_isShared))
            out.push_back(zone);
    }
    return out;
}

CloudResult<>
InMemoryCloudContainer::Database::modifyZones(const std::vector<CloudZoneID>& save,
                                              const std::vector<CloudZoneID>& remove) {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    if (auto error = server.begin(CloudRequestKind::modifyZones, m_owner.m_account))
        return std::unexpected(*error);
    const auto& me = m_owner.m_account;
    if (m_isShared && !save.empty())
        return cloudFail(CloudErrorCode::permissionFailure,
                         "zones cannot be created in the shared database");
    for (const auto& zone : save) {
        if (zone.owner != me || zone.name.empty())
            return cloudFail(CloudErrorCode::permissionFailure,
                             fmt::format("{} cannot create the zone {}", me, zoneText(zone)));
    }
    for (const auto& zone : save)
        server.m_zones.try_emplace(zone);
    for (const auto& zone : remove) {
        const auto it = server.m_zones.find(zone);
        if (it == server.m_zones.end())
            continue;
        if (m_isShared) {
            it->second.participants.erase(me); // leaving a share
        } else if (zone.owner == me) {
            server.pushChange(zone);
            server.m_zones.erase(it);
        }
    }
    return {};
}

CloudResult<std::vector<CloudSubscription>>
InMemoryCloudContainer::Database::fetchAllSubscriptions() {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    if (auto error = server.begin(CloudRequestKind::fetchSubscriptions, m_owner.m_account))
        return std::unexpected(*error);
    std::vector<CloudSubscription> out;
    for (const auto& [id, subscription] :
         server.account(m_owner.m_account)->subscriptions[m_isShared ? 1 : 0])
        out.push_back(subscription);
    return out;
}

CloudResult<>
InMemoryCloudContainer::Database::modifySubscriptions(const std::vector<CloudSubscription>& save,
                                                      const std::vector<std::string>& removeIDs) {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    if (auto error = server.begin(CloudRequestKind::modifySubscriptions, m_owner.m_account))
        return std::unexpected(*error);
    auto& subscriptions = server.account(m_owner.m_account)->subscriptions[m_isShared ? 1 : 0];
    for (const auto& subscription : save) {
        if (subscription.id.empty())
            return cloudFail(CloudErrorCode::invalidArguments, "a subscription needs an id");
    }
    for (const auto& subscription : save)
        subscriptions[subscription.id] = subscription;
    for (const auto& id : removeIDs)
        subscriptions.erase(id);
    return {};
}

CloudResult<std::vector<CloudRecord>>
InMemoryCloudContainer::Database::queryRecords(const CloudQuery& query) {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    if (auto error = server.begin(CloudRequestKind::queryRecords, m_owner.m_account))
        return std::unexpected(*error);
    if (!server.canSee(m_owner.m_account, query.zone, m_isShared))
        return cloudFail(CloudErrorCode::zoneNotFound,
                         fmt::format("no zone {}", zoneText(query.zone)));
    std::vector<CloudRecord> out;
    for (const auto& [name, record] : server.m_zones.at(query.zone).records) {
        if (record.recordType != query.recordType)
            continue;
        out.push_back(record);
        if (query.limit != 0 && out.size() == query.limit)
            break;
    }
    return out;
}

CloudResult<CloudModifyRecordsResult>
InMemoryCloudContainer::Database::modifyRecords(const std::vector<CloudRecord>& save,
                                                const std::vector<CloudRecordID>& remove) {
    auto& server = *m_owner.m_server;
    const std::lock_guard lock(server.m_mutex);
    std::size_t applied = 0;
    auto fault = server.begin(CloudRequestKind::modifyRecords, m_owner.m_account, &applied);
    if (fault && applied == 0)
        return std::unexpected(*fault);
    // A lost connection applies only the first `applied` operations.
    const std::size_t total = save.size() + remove.size();
    const std::size_t limit = fault ? std::min(applied, total) : total;
    const std::size_t saveCount = std::min(limit, save.size());
    const std::size_t removeCount = limit - saveCount;

    const auto writable = [&](const CloudZoneID& zone) -> CloudResult<> {
        if (!server.canSee(m_owner.m_account, zone, m_isShared))
            return cloudFail(CloudErrorCode::zoneNotFound,
                             fmt::format("no zone {}", zoneText(zone)));
        if (m_isShared && server.m_zones.at(zone).participants.at(m_owner.m_account) !=
                              CloudSharePermission::readWrite)
            return cloudFail(
                CloudErrorCode::permissionFailure,
                fmt::format("{} may only read the zone {}", m_owner.m_account, zoneText(zone)));
        return {};
    };
    // Check everything first: all or nothing.
    for (std::size_t i = 0; i < saveCount; ++i) {
        const auto& record = save[i];
        if (auto ok = writable(record.id.zone); !ok)
            return std::unexpected(ok.error());
        const auto& records = server.m_zones.at(record.id.zone).records;
        const auto it = records.find(record.id.name);
        const std::string current = it == records.end() ? std::string() : it->second.changeTag;
        if (it == records.end() && !record.changeTag.empty()) {
            CloudError error{CloudErrorCode::unknownItem,
                             fmt::format("the record {} no longer exists", record.id.name),
                             std::nullopt, record.id.name};
            return std::unexpected(std::move(error));
        }
        if (record.changeTag != current) {
            CloudError error{CloudErrorCode::serverRecordChanged,
                             fmt::format("the record {} changed on the server", record.id.name),
                             std::nullopt, record.id.name};
            return std::unexpected(std::move(error));
        }
    }
    for (std::size_t i = 0; i < removeCount; ++i) {
        if (auto ok = writable(remove[i].zone); !ok)
            return std::unexpected(ok.error());
    }

    CloudModifyRecordsResult result;
    std::set<CloudZoneID> touched;
    const Date now = Clock::shared().now();
    for (std::size_t i = 0; i < saveCount; ++i) {
        CloudRecord stored = save[i];
        stored.changeTag = fmt::format("{}", server.m_nextTag++);
        stored.modified = now;
        server.m_zones.at(stored.id.zone).records[stored.id.name] = stored;
        touched.insert(stored.id.zone);
        result.saved.push_back(std::move(stored));
    }
    for (std::size_t i = 0; i < removeCount; ++i) {
        if (server.m_zones.at(remove[i].zone).records.erase(remove[i].name) != 0)
            touched.insert(remove[i].zone);
        result.deleted.push_back(remove[i]);
    }
    for (const auto& zone : touched)
        server.pushChange(zone);
    if (fault)
        return std::unexpected(*fault);
    return result;
}

} // namespace tasket::platform
