#include "cloud/cloud_data_manager.h"

#include "cloud/cloud_record_keys.h"
#include "platform/clock.h"
#include "platform/text.h"
#include "platform/text_catalogue.h"
#include "settings/settings_keys.h"
#include "store/modification_counter.h"

#include <fmt/format.h>

#include <algorithm>

namespace tasket::cloud {

using platform::CloudError;
using platform::CloudErrorCode;
using platform::CloudResult;
using rules::TK_CloudDatabaseType;
namespace keys = settings::keys;

namespace {

using platform::catalogueText;
// Start of the message shown when an object's selected items belong to
// another shared category; followed by the object's kind or title.
constexpr platform::Text kSharingRuleThis = catalogueText("This ");
// End of the message shown when a new object's selected items belong to
// another shared category (it follows the object's kind or title).
constexpr platform::Text kSharingRuleCannotAdd = catalogueText(
    " can't be added because its selected items are part of another shared category.");
// End of the message shown when an edited object's selected items belong to
// another shared category (it follows the object's kind or title).
constexpr platform::Text kSharingRuleCannotEdit = catalogueText(
    " can't be edited because its selected items are part of another shared category.");

std::unexpected<CloudError> notUsable() {
    return platform::cloudFail(CloudErrorCode::notAuthenticated,
                               "the cloud cannot be used at the moment");
}

std::string_view subscriptionID(TK_CloudDatabaseType database) {
    return database == TK_CloudDatabaseType::privateDatabase ? kPrivateSubscriptionID
                                                             : kSharedSubscriptionID;
}

} // namespace

const std::vector<SyncedEntity>& syncedEntities() {
    static const std::vector<SyncedEntity> entities{
        {"TK_Folder", keys::kNotSyncedFolders},
        {"TK_SmartCategory", keys::kNotSyncedSmartCategories},
        {"TK_Category", keys::kNotSyncedCategories},
        {"TK_Tag", keys::kNotSyncedTags},
        {"TK_Priority", keys::kNotSyncedPriorities},
        {"TK_Status", keys::kNotSyncedStatuses},
        {"TK_Attribute", keys::kNotSyncedAttributes},
        {"TK_AttributeValue", keys::kNotSyncedValues},
        {"TK_BoardSection", keys::kNotSyncedSections},
        {"TK_Task", keys::kNotSyncedTasks},
        {"TK_Subtask", keys::kNotSyncedSubtasks},
        {"TK_Attachment", keys::kNotSyncedAttachments},
    };
    return entities;
}

std::string_view notSyncedKey(std::string_view entity) {
    for (const auto& synced : syncedEntities())
        if (synced.entity == entity)
            return synced.notSyncedKey;
    return {};
}

std::optional<double> retryDelay(const CloudError& error) {
    for (const auto code : {CloudErrorCode::requestRateLimited, CloudErrorCode::serviceUnavailable,
                            CloudErrorCode::zoneBusy, CloudErrorCode::networkUnavailable,
                            CloudErrorCode::networkFailure})
        if (error.code == code)
            return error.retryAfterSeconds.value_or(kDefaultRetryDelaySeconds);
    return std::nullopt;
}

std::string sharingRuleMessage(std::string_view name, SharingEdit edit) {
    const auto tail = edit == SharingEdit::adding ? kSharingRuleCannotAdd : kSharingRuleCannotEdit;
    return fmt::format("{}{}{}", kSharingRuleThis.translated(), platform::lowercased(name),
                       tail.translated());
}

platform::CloudError settingsFailure(const platform::Error& error) {
    return {CloudErrorCode::internalError,
            "cannot write the sync settings: " + error.message,
            std::nullopt,
            {}};
}

std::optional<std::int64_t> recordCounter(const platform::CloudRecord& record) {
    const auto* field = record.field(store::kNumberOfModificationsKey);
    if (field == nullptr)
        return std::nullopt;
    if (const auto* value = std::get_if<std::int64_t>(field))
        return *value;
    return std::nullopt;
}

bool shouldUpload(std::optional<std::int64_t> local, const platform::CloudRecord& record) {
    const std::int64_t mine = local.value_or(0);
    const auto theirs = recordCounter(record);
    return theirs ? *theirs < mine : mine > 0;
}

// ---- CloudDataManager -----------------------------------------------------------

CloudDataManager::CloudDataManager(std::shared_ptr<platform::CloudContainer> container,
                                   std::shared_ptr<platform::PreferencesSuite> appGroupSuite)
    : m_container(std::move(container)), m_settings(std::move(appGroupSuite)) {}

platform::CloudDatabase& CloudDataManager::database(TK_CloudDatabaseType type) {
    return type == TK_CloudDatabaseType::privateDatabase ? m_container->privateDatabase()
                                                         : m_container->sharedDatabase();
}

CloudResult<rules::TK_CloudAccountStatus> CloudDataManager::checkAccountStatus() {
    auto status = m_container->accountStatus();
    if (!status)
        return std::unexpected(status.error());
    const auto stored = static_cast<rules::TK_CloudAccountStatus>(*status);
    auto written = m_settings->update([&](platform::PreferenceDictionary& values) {
        values[std::string(keys::kCloudAccountStatus)] = rules::toStored(stored);
        values[std::string(keys::kLastCloudAccountStatusCheckDate)] =
            platform::Clock::shared().now();
    });
    if (!written)
        return std::unexpected(settingsFailure(written.error()));
    return stored;
}

bool CloudDataManager::isCloudUsable() const {
    return m_settings->integerValue(keys::kCloudAccountStatus) ==
           rules::toStored(rules::TK_CloudAccountStatus::available);
}

CloudResult<std::string> CloudDataManager::currentUser() {
    if (!m_user) {
        auto user = m_container->currentUser();
        if (!user)
            return user;
        m_user = *user;
    }
    return *m_user;
}

CloudResult<platform::CloudZoneID> CloudDataManager::setUpPrivateZone() {
    auto user = currentUser();
    if (!user)
        return std::unexpected(user.error());
    const platform::CloudZoneID zone{std::string(kPrivateZoneName), *user};
    if (auto ready = setUpZone(zone); !ready)
        return std::unexpected(ready.error());
    return zone;
}

CloudResult<> CloudDataManager::setUpZone(const platform::CloudZoneID& zone) {
    auto& db = m_container->privateDatabase();
    auto zones = db.fetchAllZones();
    if (!zones)
        return std::unexpected(zones.error());
    if (std::ranges::find(*zones, zone) == zones->end()) {
        if (auto owed = enqueue(keys::kNotSyncedZones, {zone.name}); !owed)
            return std::unexpected(settingsFailure(owed.error()));
        if (auto saved = db.modifyZones({zone}, {}); !saved)
            return saved;
    }
    if (auto done = dequeue(keys::kNotSyncedZones, {zone.name}); !done)
        return std::unexpected(settingsFailure(done.error()));
    return {};
}

CloudResult<CloudDataManager::Zone>
CloudDataManager::zone(const transfer::TK_SharedCategory& category) {
    if (!isCloudUsable())
        return notUsable();
    if (!category.isShared.value_or(false)) {
        auto zone = setUpPrivateZone();
        if (!zone)
            return std::unexpected(zone.error());
        return Zone{*zone, TK_CloudDatabaseType::privateDatabase};
    }
    const std::string name = fmt::format("{}.{}", kSharedZonePrefix, category.id);
    if (category.shareRole == kParticipantShareRole) {
        auto zones = m_container->sharedDatabase().fetchAllZones();
        if (!zones)
            return std::unexpected(zones.error());
        const auto it = std::ranges::find(*zones, name, &platform::CloudZoneID::name);
        if (it == zones->end())
            return platform::cloudFail(CloudErrorCode::zoneNotFound,
                                       fmt::format("no zone {} is shared with this account", name));
        return Zone{*it, TK_CloudDatabaseType::sharedDatabase};
    }
    auto user = currentUser();
    if (!user)
        return std::unexpected(user.error());
    return Zone{{name, *user}, TK_CloudDatabaseType::privateDatabase};
}

CloudResult<> CloudDataManager::setUpSubscription(TK_CloudDatabaseType type) {
    auto& db = database(type);
    const std::string id(subscriptionID(type));
    auto subscriptions = db.fetchAllSubscriptions();
    if (!subscriptions)
        return std::unexpected(subscriptions.error());
    if (std::ranges::find(*subscriptions, id, &platform::CloudSubscription::id) ==
        subscriptions->end())
        if (auto saved = db.modifySubscriptions({{id, true}}, {}); !saved)
            return saved;
    const std::string_view flag = type == TK_CloudDatabaseType::privateDatabase
                                      ? keys::kDidCreatePrivateDatabaseSubscription.full()
                                      : keys::kDidCreateSharedDatabaseSubscription.full();
    if (auto stored = m_settings->setValue(flag, true); !stored)
        return std::unexpected(settingsFailure(stored.error()));
    return {};
}

CloudResult<std::vector<platform::CloudRecord>>
CloudDataManager::fetchRecords(std::string_view recordType, const Zone& zone) {
    if (!isCloudUsable())
        return notUsable();
    return database(zone.database).queryRecords({std::string(recordType), zone.id, 0});
}

std::optional<platform::CloudRecord>
CloudDataManager::recordToUpload(const objectstore::ManagedObject& object,
                                 platform::CloudRecord record, const Zone& zone) {
    if (!shouldUpload(store::modificationCounter(object), record))
        return std::nullopt;
    record.recordType = object.entityDescription().name;
    record.id = {identifierOf(object), zone.id};
    writeFields(object, zone.id.name != kPrivateZoneName, record);
    return record;
}

CloudResult<std::optional<platform::CloudRecord>>
CloudDataManager::upload(const objectstore::ManagedObject& object, platform::CloudRecord record,
                         const Zone& zone) {
    const auto upload = recordToUpload(object, std::move(record), zone);
    if (!upload) {
        if (auto done =
                dequeue(notSyncedKey(object.entityDescription().name), {identifierOf(object)});
            !done)
            return std::unexpected(settingsFailure(done.error()));
        return std::optional<platform::CloudRecord>{};
    }
    auto saved = database(zone.database).modifyRecords({*upload}, {});
    if (!saved)
        return std::unexpected(saved.error());
    return std::optional(saved->saved.at(0));
}

std::vector<std::string> CloudDataManager::notSynced(std::string_view key) const {
    return m_settings->stringListValue(key).value_or(std::vector<std::string>{});
}

platform::Result<> CloudDataManager::setNotSynced(std::string_view key,
                                                  const std::vector<std::string>& ids) {
    return m_settings->setValue(key, platform::PreferenceStringList(ids));
}

platform::Result<> CloudDataManager::enqueue(std::string_view key,
                                             const std::vector<std::string>& ids) {
    return m_settings->update([&](platform::PreferenceDictionary& values) {
        auto& entry = values[std::string(key)];
        auto list = entry.getIf<platform::PreferenceStringList>()
                        ? *entry.getIf<platform::PreferenceStringList>()
                        : platform::PreferenceStringList{};
        for (const auto& id : ids)
            if (!id.empty() && std::ranges::find(list, id) == list.end())
                list.push_back(id);
        entry = std::move(list);
    });
}

platform::Result<> CloudDataManager::dequeue(std::string_view key,
                                             const std::vector<std::string>& ids) {
    if (key.empty() || ids.empty())
        return {};
    return m_settings->update([&](platform::PreferenceDictionary& values) {
        const auto it = values.find(key);
        if (it == values.end() || !it->second.holds<platform::PreferenceStringList>())
            return;
        auto list = *it->second.getIf<platform::PreferenceStringList>();
        std::erase_if(list, [&](const std::string& queued) {
            return std::ranges::find(ids, queued) != ids.end();
        });
        it->second = std::move(list);
    });
}

platform::Result<> CloudDataManager::setFetchStatus(rules::TK_CloudSyncStatus status) {
    return m_settings->update([&](platform::PreferenceDictionary& values) {
        values[std::string(keys::kCloudFetchStatus)] = rules::toStored(status);
        if (status == rules::TK_CloudSyncStatus::succeeded ||
            status == rules::TK_CloudSyncStatus::failed)
            values[std::string(keys::kLastCloudFetchDate)] = platform::Clock::shared().now();
    });
}

platform::Result<> CloudDataManager::setUploadStatus(rules::TK_CloudSyncStatus status) {
    return m_settings->update([&](platform::PreferenceDictionary& values) {
        values[std::string(keys::kCloudUploadStatus)] = rules::toStored(status);
        if (status == rules::TK_CloudSyncStatus::succeeded ||
            status == rules::TK_CloudSyncStatus::failed)
            values[std::string(keys::kLastCloudUploadDate)] = platform::Clock::shared().now();
    });
}

rules::TK_CloudSyncStatus CloudDataManager::fetchStatus() const {
    return rules::fromStored<rules::TK_CloudSyncStatus>(
               m_settings->integerValue(keys::kCloudFetchStatus).value_or(0))
        .value_or(rules::TK_CloudSyncStatus::none);
}

rules::TK_CloudSyncStatus CloudDataManager::uploadStatus() const {
    return rules::fromStored<rules::TK_CloudSyncStatus>(
               m_settings->integerValue(keys::kCloudUploadStatus).value_or(0))
        .value_or(rules::TK_CloudSyncStatus::none);
}

} // namespace tasket::cloud
