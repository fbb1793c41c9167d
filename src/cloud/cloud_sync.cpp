#include "cloud/cloud_sync.h"

#include "cloud/cloud_record_keys.h"
#include "cloud/history_readers.h"
#include "objectstore/history.h"
#include "platform/atomic_file.h"
#include "platform/clock.h"
#include "settings/settings_keys.h"
#include "store/modification_counter.h"
#include "transfer/store_mapping.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

namespace tasket::cloud {

using objectstore::ObjectPtr;
using platform::CloudError;
using platform::CloudErrorCode;
using platform::CloudRecord;
using platform::CloudResult;
using rules::TK_CloudDatabaseType;
using rules::TK_CloudSyncStatus;
namespace keys = settings::keys;

namespace {

constexpr std::string_view kSyncContextName = "Lumenforge.QRX.Tasket.Cloud.Sync.Context";

struct Located {
    CloudRecord record;
    CloudDataManager::Zone zone;
};
// entity -> record name -> its copies (one per zone it is found in)
using Index =
    std::map<std::string, std::map<std::string, std::vector<Located>, std::less<>>, std::less<>>;
// entity -> identifier -> object
using Objects = std::map<std::string, std::map<std::string, ObjectPtr, std::less<>>, std::less<>>;
using Known = std::set<std::pair<std::string, std::string>>;

CloudError storeFailure(const platform::Error& error) {
    return {CloudErrorCode::internalError, "the store failed: " + error.message, std::nullopt, {}};
}

std::string textOf(const objectstore::Value& value) {
    if (const auto* text = std::get_if<std::string>(&value))
        return *text;
    if (const auto* uuid = std::get_if<platform::Uuid>(&value))
        return uuid->toString();
    return {};
}

// The records this account saw in the cloud at the end of its last pass, one
// "entity<TAB>name" a line: an object among them whose record is gone was
// deleted elsewhere.
Known readKnown(const std::filesystem::path& file) {
    Known known;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line))
        if (const auto tab = line.find('\t'); tab != std::string::npos)
            known.emplace(line.substr(0, tab), line.substr(tab + 1));
    return known;
}

CloudResult<> writeKnown(const std::filesystem::path& file, const Known& known) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    std::string text;
    for (const auto& [entity, name] : known)
        text += fmt::format("{}\t{}\n", entity, name);
    if (auto replaced = platform::replaceFile(file, text); !replaced)
        return platform::cloudFail(CloudErrorCode::internalError, replaced.error().message);
    return {};
}

bool sameZone(const CloudDataManager::Zone& a, const CloudDataManager::Zone& b) {
    return a.id == b.id && a.database == b.database;
}

} // namespace

// The state of one pass, on the sync context's queue.
struct CloudSync::Pass {
    CloudSync& sync;
    CloudDataManager& cloud;
    std::shared_ptr<objectstore::ObjectContext> context;
    SyncReport report{};
    Index index{};
    Objects local{};
    std::map<std::string, std::set<std::string, std::less<>>, std::less<>> queued{};
    std::map<std::string, CloudDataManager::Zone, std::less<>> zonesOfCategories{};
    std::set<platform::CloudZoneID> readyZones{};
    platform::CloudZoneID privateZone{};

    CloudResult<> queueFromHistory();
    CloudResult<> setUp();
    CloudResult<> fetch();
    CloudResult<> loadLocal();
    CloudResult<> apply();
    CloudResult<> deleteVanished();
    CloudResult<> upload();
    CloudResult<> rememberKnown();

    CloudResult<CloudDataManager::Zone> zoneOf(const ObjectPtr& object);
    void applyAttributes(const ObjectPtr& object, const Located& source);
    void applyRelationships(const ObjectPtr& object, const CloudRecord& record);
    CloudResult<> save();
};

CloudSync::CloudSync(std::shared_ptr<store::LocalDataManager> store,
                     std::shared_ptr<CloudDataManager> cloud, std::filesystem::path groupContainer,
                     Options options)
    : m_store(std::move(store)), m_cloud(std::move(cloud)),
      m_tokenFile(tokenFilePath(groupContainer, options.program)),
      m_knownFile(groupContainer / "Cloud" / (options.program + ".records")),
      m_options(std::move(options)) {}

std::optional<platform::Date> CloudSync::retryAt() const {
    const std::lock_guard lock(m_mutex);
    return m_retryAt;
}

CloudResult<SyncReport> CloudSync::syncNow() {
    const std::lock_guard lock(m_mutex);
    if (m_retryAt && platform::Clock::shared().now() < *m_retryAt) {
        SyncReport deferred;
        deferred.deferredUntil = m_retryAt;
        return deferred;
    }
    auto result = run();
    m_retryAt.reset();
    if (!result)
        if (const auto delay = retryDelay(result.error()))
            m_retryAt = platform::Clock::shared().now().addingSeconds(*delay);
    return result;
}

CloudResult<SyncReport> CloudSync::run() {
    auto context = m_store->newBackgroundContext();
    context->setName(std::string(kSyncContextName));
    context->setTransactionAuthor(std::string(kCloudSyncAuthor));
    context->setMergePolicy(objectstore::MergePolicy::mergeByPropertyObjectTrump);
    context->setWillSave({}); // what comes from the cloud keeps its counter
    Pass pass{*this, *m_cloud, context};
    CloudResult<> outcome;
    context->performAndWait([&] {
        auto status = m_cloud->checkAccountStatus();
        if (!status) {
            outcome = std::unexpected(status.error());
            return;
        }
        if (*status != rules::TK_CloudAccountStatus::available) {
            outcome = platform::cloudFail(CloudErrorCode::notAuthenticated,
                                          "the cloud account cannot be used");
            return;
        }
        for (auto step :
             {&Pass::queueFromHistory, &Pass::setUp, &Pass::fetch, &Pass::loadLocal, &Pass::apply,
              &Pass::deleteVanished, &Pass::upload, &Pass::rememberKnown}) {
            outcome = (pass.*step)();
            if (!outcome)
                return;
        }
    });
    if (!outcome)
        return std::unexpected(outcome.error());
    return pass.report;
}

// Local saves since the token go to the queues: changed objects by their
// identifier, deleted ones by their tombstone's. The token moves only once
// the queues hold them.
CloudResult<> CloudSync::Pass::queueFromHistory() {
    auto history = context->store().historyAfter(readReaderToken(sync.m_tokenFile));
    if (!history)
        return std::unexpected(storeFailure(history.error()));
    std::map<std::string_view, std::vector<std::string>> ids;
    for (const auto& transaction : *history) {
        if (transaction.changes.author == kCloudSyncAuthor)
            continue;
        auto changed = transaction.changes.inserted;
        for (const auto& updated : transaction.changes.updated)
            changed.push_back(updated.id);
        for (const auto& id : changed) {
            auto object = context->existingObject(id);
            if (!object || (*object)->isDeleted())
                continue; // deleted since: its tombstone follows
            const auto key = notSyncedKey((*object)->entityDescription().name);
            if (!key.empty())
                ids[key].push_back(identifierOf(**object));
        }
        for (const auto& tombstone : transaction.tombstones) {
            const auto& entity = context->model().entity(tombstone.id.entity);
            const auto key = notSyncedKey(entity.name);
            const auto* keys = entityKeys(entity.name);
            if (key.empty() || keys == nullptr)
                continue;
            if (const auto* id = tombstone.value(entity.attributes[keys->identifier].name))
                ids[key].push_back(textOf(*id));
        }
    }
    for (const auto& [key, list] : ids) {
        if (auto queuedOK = cloud.enqueue(key, list); !queuedOK)
            return std::unexpected(settingsFailure(queuedOK.error()));
        report.queued += list.size();
    }
    std::error_code ec;
    std::filesystem::create_directories(sync.m_tokenFile.parent_path(), ec);
    if (!history->empty())
        if (auto written =
                objectstore::writeTokenFile(sync.m_tokenFile, *history->back().changes.token);
            !written)
            return std::unexpected(storeFailure(written.error()));
    return {};
}

// The private zone and, unless an earlier pass made them, the subscriptions.
CloudResult<> CloudSync::Pass::setUp() {
    auto zone = cloud.setUpPrivateZone();
    if (!zone)
        return std::unexpected(zone.error());
    privateZone = *zone;
    readyZones.insert(privateZone);
    for (const auto& [database, flag] :
         {std::pair{TK_CloudDatabaseType::privateDatabase,
                    keys::kDidCreatePrivateDatabaseSubscription.full()},
          std::pair{TK_CloudDatabaseType::sharedDatabase,
                    keys::kDidCreateSharedDatabaseSubscription.full()}}) {
        if (cloud.settings().boolValue(flag).value_or(false))
            continue;
        if (auto made = cloud.setUpSubscription(database); !made)
            return made;
    }
    return {};
}

CloudResult<> CloudSync::Pass::fetch() {
    if (auto status = cloud.setFetchStatus(TK_CloudSyncStatus::inProgress); !status)
        return std::unexpected(settingsFailure(status.error()));
    auto fetched = [&]() -> CloudResult<> {
        for (const auto database :
             {TK_CloudDatabaseType::privateDatabase, TK_CloudDatabaseType::sharedDatabase}) {
            auto zones = cloud.database(database).fetchAllZones();
            if (!zones)
                return std::unexpected(zones.error());
            for (const auto& id : *zones) {
                const CloudDataManager::Zone zone{id, database};
                if (database == TK_CloudDatabaseType::privateDatabase)
                    readyZones.insert(id);
                for (const auto& synced : syncedEntities()) {
                    auto records = cloud.fetchRecords(synced.entity, zone);
                    if (!records)
                        return std::unexpected(records.error());
                    for (auto& record : *records) {
                        auto& copies = index[std::string(synced.entity)][record.id.name];
                        copies.push_back({std::move(record), zone});
                    }
                }
            }
        }
        return {};
    }();
    auto status =
        cloud.setFetchStatus(fetched ? TK_CloudSyncStatus::succeeded : TK_CloudSyncStatus::failed);
    if (!fetched)
        return fetched;
    if (!status)
        return std::unexpected(settingsFailure(status.error()));
    return {};
}

CloudResult<> CloudSync::Pass::loadLocal() {
    for (const auto& synced : syncedEntities()) {
        auto objects = context->fetch(objectstore::FetchRequest(std::string(synced.entity)));
        if (!objects)
            return std::unexpected(storeFailure(objects.error()));
        auto& byName = local[std::string(synced.entity)];
        for (auto& object : *objects)
            if (auto name = identifierOf(*object); !name.empty())
                byName.emplace(std::move(name), std::move(object));
        for (auto& id : cloud.notSynced(synced.notSyncedKey))
            queued[std::string(synced.entity)].insert(std::move(id));
    }
    return {};
}

// Records that win by the counter replace the local values; records of
// objects this store does not have become new objects, unless the object
// was deleted here and its deletion waits in the queue.
CloudResult<> CloudSync::Pass::apply() {
    std::vector<std::pair<ObjectPtr, const Located*>> written;
    for (const auto& synced : syncedEntities()) {
        const std::string entity(synced.entity);
        for (const auto& [name, copies] : index[entity]) {
            const auto& best = *std::ranges::max_element(copies, {}, [](const Located& copy) {
                return recordCounter(copy.record).value_or(0);
            });
            auto& objects = local[entity];
            auto it = objects.find(name);
            if (it == objects.end()) {
                if (queued[entity].contains(name))
                    continue;
                it = objects.emplace(name, context->insertNewObject(entity)).first;
            } else {
                const auto theirs = recordCounter(best.record);
                if (!theirs || *theirs <= store::modificationCounter(*it->second).value_or(0))
                    continue;
            }
            applyAttributes(it->second, best);
            written.emplace_back(it->second, &best);
        }
    }
    for (const auto& [object, source] : written)
        applyRelationships(object, source->record);
    report.applied = written.size();
    return save();
}

void CloudSync::Pass::applyAttributes(const ObjectPtr& object, const Located& source) {
    const auto& entity = object->entityDescription();
    for (const auto& key : entityKeys(entity.name)->keys) {
        if (key.kind != CloudKeyKind::attribute)
            continue;
        const auto* field = source.record.field(key.key);
        if (field == nullptr)
            continue;
        const auto value = storeValue(entity, key.property, *field);
        if (value && (!objectstore::isNil(*value) || entity.attributes[key.property].optional))
            object->setValue(key.property, *value);
    }
    if (source.zone.database == TK_CloudDatabaseType::sharedDatabase)
        if (const auto role = entity.propertyIndex("shareRole"))
            object->setValue(*role, kParticipantShareRole);
}

// Relationships by identifier. A to-many drops only members the cloud knows
// of: a member not uploaded yet stays.
void CloudSync::Pass::applyRelationships(const ObjectPtr& object, const CloudRecord& record) {
    const auto& entity = object->entityDescription();
    for (const auto& key : entityKeys(entity.name)->keys) {
        if (key.kind == CloudKeyKind::attribute)
            continue;
        const auto* field = record.field(key.key);
        if (field == nullptr)
            continue;
        const auto& destination = entity.relationship(key.property).destination;
        auto& targets = local[destination];
        const auto find = [&](const std::string& name) -> ObjectPtr {
            const auto it = targets.find(name);
            return it == targets.end() || it->second->isDeleted() ? nullptr : it->second;
        };
        if (key.kind == CloudKeyKind::toOne) {
            if (std::holds_alternative<std::monostate>(*field)) {
                object->setToOne(key.property, nullptr);
            } else if (const auto* reference = std::get_if<platform::CloudReference>(field)) {
                if (auto target = find(reference->recordName))
                    object->setToOne(key.property, target);
            }
            continue;
        }
        const auto* names = std::get_if<platform::CloudNameList>(field);
        if (names == nullptr)
            continue;
        const auto& cloudKnown = index[destination];
        for (const auto& member : object->toMany(key.property)) {
            const auto name = identifierOf(*member);
            if (cloudKnown.contains(name) && std::ranges::find(*names, name) == names->end())
                object->removeFromMany(key.property, member);
        }
        for (const auto& name : *names)
            if (auto target = find(name))
                object->addToMany(key.property, target);
    }
}

// An object this account saw in the cloud before, whose record is gone and
// which waits for no upload, was deleted elsewhere.
CloudResult<> CloudSync::Pass::deleteVanished() {
    const Known known = readKnown(sync.m_knownFile);
    for (const auto& synced : syncedEntities()) {
        const std::string entity(synced.entity);
        for (const auto& [name, object] : local[entity]) {
            if (object->isDeleted() || index[entity].contains(name) ||
                queued[entity].contains(name) || !known.contains({entity, name}))
                continue;
            context->deleteObject(object);
            ++report.deletedLocally;
        }
    }
    return save();
}

CloudResult<CloudDataManager::Zone> CloudSync::Pass::zoneOf(const ObjectPtr& object) {
    ObjectPtr current = object;
    for (int depth = 0; current && current->entityDescription().name != "TK_Category"; ++depth) {
        const auto* keys = entityKeys(current->entityDescription().name);
        ObjectPtr next;
        for (const auto parent : keys->parents)
            if ((next = current->toOne(parent)))
                break;
        if (!next && keys->sharedCategoryIdentifier) {
            const auto id = textOf(current->value(*keys->sharedCategoryIdentifier));
            const auto& categories = local["TK_Category"];
            if (const auto it = categories.find(id); it != categories.end())
                next = it->second;
        }
        current = depth < 4 ? next : nullptr;
    }
    if (!current)
        return CloudDataManager::Zone{privateZone, TK_CloudDatabaseType::privateDatabase};
    const auto category = transfer::recordFrom<transfer::TK_SharedCategory>(*current);
    if (const auto it = zonesOfCategories.find(category.id); it != zonesOfCategories.end())
        return it->second;
    auto zone = cloud.zone(category);
    if (!zone)
        return zone;
    if (zone->database == TK_CloudDatabaseType::privateDatabase && !readyZones.contains(zone->id)) {
        if (auto made = cloud.setUpZone(zone->id); !made)
            return std::unexpected(made.error());
        readyZones.insert(zone->id);
    }
    zonesOfCategories.emplace(category.id, *zone);
    return zone;
}

// Queued objects go up in batches under the counter rule; queued
// identifiers without an object are deletions. An identifier leaves its
// queue only once its batch was stored (or the rule sends nothing).
CloudResult<> CloudSync::Pass::upload() {
    if (auto status = cloud.setUploadStatus(TK_CloudSyncStatus::inProgress); !status)
        return std::unexpected(settingsFailure(status.error()));
    auto uploaded = [&]() -> CloudResult<> {
        for (const auto& synced : syncedEntities()) {
            const std::string entity(synced.entity);
            std::map<std::pair<platform::CloudZoneID, TK_CloudDatabaseType>,
                     std::vector<CloudRecord>>
                saves;
            std::map<TK_CloudDatabaseType, std::vector<platform::CloudRecordID>> deletes;
            std::vector<std::string> settled; // nothing to send
            for (const auto& name : cloud.notSynced(synced.notSyncedKey)) {
                const auto& copies = index[entity][name];
                const auto it = local[entity].find(name);
                if (it == local[entity].end() || it->second->isDeleted()) {
                    for (const auto& copy : copies)
                        deletes[copy.zone.database].push_back(copy.record.id);
                    if (copies.empty())
                        settled.push_back(name);
                    continue;
                }
                auto zone = zoneOf(it->second);
                if (!zone)
                    return std::unexpected(zone.error());
                CloudRecord record;
                for (const auto& copy : copies) {
                    if (sameZone(copy.zone, *zone))
                        record = copy.record;
                    else // left behind in the zone the object moved out of
                        deletes[copy.zone.database].push_back(copy.record.id);
                }
                auto upload =
                    CloudDataManager::recordToUpload(*it->second, std::move(record), *zone);
                if (!upload) {
                    settled.push_back(name);
                    continue;
                }
                saves[{zone->id, zone->database}].push_back(std::move(*upload));
            }
            if (auto done = cloud.dequeue(synced.notSyncedKey, settled); !done)
                return std::unexpected(settingsFailure(done.error()));
            for (const auto& [zone, records] : saves) {
                for (std::size_t at = 0; at < records.size(); at += sync.m_options.batchSize) {
                    const auto end = std::min(records.size(), at + sync.m_options.batchSize);
                    const std::vector<CloudRecord> batch(
                        records.begin() + static_cast<std::ptrdiff_t>(at),
                        records.begin() + static_cast<std::ptrdiff_t>(end));
                    auto stored = cloud.database(zone.second).modifyRecords(batch, {});
                    if (!stored)
                        return std::unexpected(stored.error());
                    std::vector<std::string> names;
                    for (auto& record : stored->saved) {
                        names.push_back(record.id.name);
                        index[entity][record.id.name] = {
                            {std::move(record), {zone.first, zone.second}}};
                    }
                    if (auto done = cloud.dequeue(synced.notSyncedKey, names); !done)
                        return std::unexpected(settingsFailure(done.error()));
                    report.uploaded += names.size();
                }
            }
            for (const auto& [database, ids] : deletes) {
                for (std::size_t at = 0; at < ids.size(); at += sync.m_options.batchSize) {
                    const auto end = std::min(ids.size(), at + sync.m_options.batchSize);
                    const std::vector<platform::CloudRecordID> batch(
                        ids.begin() + static_cast<std::ptrdiff_t>(at),
                        ids.begin() + static_cast<std::ptrdiff_t>(end));
                    auto removed = cloud.database(database).modifyRecords({}, batch);
                    if (!removed)
                        return std::unexpected(removed.error());
                    std::vector<std::string> names;
                    for (const auto& id : removed->deleted) {
                        auto& copies = index[entity][id.name];
                        std::erase_if(copies,
                                      [&](const Located& copy) { return copy.record.id == id; });
                        if (copies.empty() && !local[entity].contains(id.name))
                            names.push_back(id.name);
                    }
                    if (auto done = cloud.dequeue(synced.notSyncedKey, names); !done)
                        return std::unexpected(settingsFailure(done.error()));
                    report.deletedInCloud += removed->deleted.size();
                }
            }
        }
        return {};
    }();
    auto status = cloud.setUploadStatus(uploaded ? TK_CloudSyncStatus::succeeded
                                                 : TK_CloudSyncStatus::failed);
    if (!uploaded)
        return uploaded;
    if (!status)
        return std::unexpected(settingsFailure(status.error()));
    return {};
}

CloudResult<> CloudSync::Pass::rememberKnown() {
    Known known;
    for (const auto& [entity, records] : index)
        for (const auto& [name, copies] : records)
            if (!copies.empty())
                known.emplace(entity, name);
    return writeKnown(sync.m_knownFile, known);
}

CloudResult<> CloudSync::Pass::save() {
    if (!context->hasChanges())
        return {};
    if (auto saved = context->save(); !saved)
        return std::unexpected(storeFailure(saved.error()));
    return {};
}

} // namespace tasket::cloud
