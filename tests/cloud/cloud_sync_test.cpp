// Cloud bookkeeping and sync over the in-memory cloud database: the retry
// and counter rules, zone lookup, subscriptions, two accounts sharing a
// list, and a fault script that fails requests in every retryable way.
#include "cloud/cloud_sync.h"
#include "platform/clock.h"
#include "platform/cloud/in_memory_cloud_container.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace tasket::cloud;
using namespace tasket::platform;
using tasket::objectstore::ObjectPtr;
using tasket::rules::TK_CloudDatabaseType;
namespace keys = tasket::settings::keys;

namespace {

// One account's device: its store, settings, container and sync.
struct Device {
    Device(std::shared_ptr<InMemoryCloudServer> server, const std::string& account) {
        server->addAccount(account);
        data->setWatchesOtherProcesses(false);
        cloud = std::make_shared<CloudDataManager>(
            std::make_shared<InMemoryCloudContainer>(server, account), settings);
        sync = std::make_unique<CloudSync>(data, cloud, dir.path());
    }
    ObjectPtr add(const char* entity, const char* idKey, const std::string& id) {
        auto object = data->viewContext()->insertNewObject(entity);
        object->setValue(idKey, id);
        object->setValue("title", id);
        return object;
    }
    ObjectPtr find(const char* entity, const char* idKey, const std::string& id) {
        auto objects = data->viewContext()->fetch(tasket::objectstore::FetchRequest(entity));
        EXPECT_TRUE(objects) << objects.error().message;
        for (const auto& object : objects.value_or(std::vector<ObjectPtr>{}))
            if (object->value(idKey) == tasket::objectstore::Value{id})
                return object;
        return nullptr;
    }
    void save() { ASSERT_TRUE(data->viewContext()->save()); }
    void syncOK() {
        auto result = sync->syncNow();
        ASSERT_TRUE(result) << result.error().message;
        data->viewContext()->reset();
    }

    tasket::testing::TempDir dir;
    std::shared_ptr<tasket::store::LocalDataManager> data =
        tasket::store::LocalDataManager::make(dir.path());
    std::shared_ptr<InMemoryPreferencesSuite> settings =
        std::make_shared<InMemoryPreferencesSuite>("group");
    std::shared_ptr<CloudDataManager> cloud;
    std::unique_ptr<CloudSync> sync;
};

class CloudSyncTest : public ::testing::Test {
  protected:
    void SetUp() override { Clock::setShared(&clock); }
    void TearDown() override { Clock::setShared(nullptr); }
    std::size_t taskRecords(const std::string& owner = "alice") {
        return std::ranges::count(server->records({std::string(kPrivateZoneName), owner}),
                                  std::string("TK_Task"), &CloudRecord::recordType);
    }
    std::size_t requestsOf(CloudRequestKind kind) {
        return std::ranges::count(server->requests(), kind, &CloudRequestLogEntry::kind);
    }

    ManualClock clock{Date{700'000'000}};
    std::shared_ptr<InMemoryCloudServer> server = std::make_shared<InMemoryCloudServer>();
};

CloudError error(CloudErrorCode code, std::optional<double> retryAfter = std::nullopt) {
    return {code, "", retryAfter, {}};
}

} // namespace

TEST(CloudRules, RetryDelays) {
    struct Case {
        CloudError error;
        std::optional<double> delay;
    };
    const Case cases[] = {
        {error(CloudErrorCode::requestRateLimited, 10.0), 10.0},
        {error(CloudErrorCode::zoneBusy), 3.0},
        {error(CloudErrorCode::serviceUnavailable), 3.0},
        {error(CloudErrorCode::networkUnavailable, 0.5), 0.5},
        {error(CloudErrorCode::networkFailure), 3.0},
        {error(CloudErrorCode::notAuthenticated, 10.0), std::nullopt},
        {error(CloudErrorCode::serverRecordChanged), std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(retryDelay(c.error), c.delay) << cloudErrorName(c.error.code);
}

TEST(CloudRules, CounterDecidesTheUpload) {
    struct Case {
        std::optional<std::int64_t> local, cloud;
        bool uploads;
    };
    const Case cases[] = {{5, 5, false},
                          {5, 4, true},
                          {0, std::nullopt, false},
                          {std::nullopt, std::nullopt, false},
                          {1, std::nullopt, true},
                          {3, 7, false}};
    for (const auto& c : cases) {
        CloudRecord record;
        if (c.cloud)
            record.fields["numberOfModifications"] = *c.cloud;
        EXPECT_EQ(shouldUpload(c.local, record), c.uploads)
            << c.local.value_or(-1) << " vs " << c.cloud.value_or(-1);
    }
    EXPECT_EQ(
        sharingRuleMessage("Task", SharingEdit::adding),
        "This task can't be added because its selected items are part of another shared category.");
    EXPECT_EQ(sharingRuleMessage("ÄRGER", SharingEdit::editing),
              "This ärger can't be edited because its selected items are part of another shared "
              "category.");
}

// A tie uploads nothing and leaves the queue; a higher counter uploads.
TEST_F(CloudSyncTest, UploadOfOneObjectFollowsTheCounter) {
    Device a(server, "alice");
    ASSERT_TRUE(a.cloud->checkAccountStatus());
    const auto zone = a.cloud->setUpPrivateZone();
    ASSERT_TRUE(zone);
    auto task = a.add("TK_Task", "taskID", "T1");
    task->setValue("numberOfModifications", std::int64_t{5});
    ASSERT_TRUE(a.cloud->setNotSynced(keys::kNotSyncedTasks, {"T0", "T1"}));
    CloudRecord cloudCopy{
        "TK_Task", {"T1", *zone}, {}, {{"numberOfModifications", std::int64_t{5}}}, {}, {}};

    const auto before = requestsOf(CloudRequestKind::modifyRecords);
    auto tie = a.cloud->upload(*task, cloudCopy, {*zone, TK_CloudDatabaseType::privateDatabase});
    ASSERT_TRUE(tie);
    EXPECT_FALSE(tie->has_value());
    EXPECT_EQ(a.cloud->notSynced(keys::kNotSyncedTasks), std::vector<std::string>{"T0"});
    EXPECT_EQ(requestsOf(CloudRequestKind::modifyRecords), before);

    cloudCopy.fields["numberOfModifications"] = std::int64_t{4};
    auto newer = a.cloud->upload(*task, cloudCopy, {*zone, TK_CloudDatabaseType::privateDatabase});
    ASSERT_TRUE(newer && newer->has_value());
    EXPECT_EQ(*(*newer)->field("title"), CloudValue{std::string("T1")});
    EXPECT_EQ(*(*newer)->field("taskAttachmentsFilter"), CloudValue{std::int64_t{0}});
}

// Private unless isShared is true; a participant's zone is looked up among
// the shared ones; nothing without a usable cloud.
TEST_F(CloudSyncTest, ZoneOfACategory) {
    Device a(server, "alice");
    Device b(server, "bob");
    const std::string sharedName = std::string(kSharedZonePrefix) + ".C1";
    ASSERT_TRUE(a.cloud->checkAccountStatus());
    ASSERT_TRUE(a.cloud->container().privateDatabase().modifyZones({{sharedName, "alice"}}, {}));
    ASSERT_TRUE(a.cloud->container().saveShare(
        {{sharedName, "alice"}, "bob", CloudSharePermission::readWrite}));

    struct Case {
        std::optional<bool> isShared;
        std::optional<std::int64_t> shareRole;
        CloudZoneID zone;
        TK_CloudDatabaseType database;
    };
    const Case cases[] = {
        {std::nullopt,
         2,
         {std::string(kPrivateZoneName), "bob"},
         TK_CloudDatabaseType::privateDatabase},
        {false, 2, {std::string(kPrivateZoneName), "bob"}, TK_CloudDatabaseType::privateDatabase},
        {true, std::nullopt, {sharedName, "bob"}, TK_CloudDatabaseType::privateDatabase},
        {true, 1, {sharedName, "bob"}, TK_CloudDatabaseType::privateDatabase},
        {true, 2, {sharedName, "alice"}, TK_CloudDatabaseType::sharedDatabase},
    };
    tasket::transfer::TK_SharedCategory category;
    category.id = "C1";
    EXPECT_EQ(b.cloud->zone(category).error().code, CloudErrorCode::notAuthenticated);
    ASSERT_TRUE(b.cloud->checkAccountStatus());
    for (const auto& c : cases) {
        category.isShared = c.isShared;
        category.shareRole = c.shareRole;
        const auto zone = b.cloud->zone(category);
        ASSERT_TRUE(zone) << zone.error().message;
        EXPECT_EQ(zone->id, c.zone);
        EXPECT_EQ(zone->database, c.database);
    }
}

// A subscription's flag is stored when it was made, and not when it failed.
TEST_F(CloudSyncTest, SubscriptionFlags) {
    Device a(server, "alice");
    server->addFault({CloudRequestKind::modifySubscriptions, 1, 1, CloudErrorCode::zoneBusy,
                      std::nullopt, 0, ""});
    EXPECT_FALSE(a.cloud->setUpSubscription(TK_CloudDatabaseType::privateDatabase));
    EXPECT_EQ(a.settings->boolValue(keys::kDidCreatePrivateDatabaseSubscription), std::nullopt);
    ASSERT_TRUE(a.cloud->setUpSubscription(TK_CloudDatabaseType::privateDatabase));
    ASSERT_TRUE(a.cloud->setUpSubscription(TK_CloudDatabaseType::sharedDatabase));
    EXPECT_EQ(a.settings->boolValue(keys::kDidCreatePrivateDatabaseSubscription), true);
    EXPECT_EQ(a.settings->boolValue(keys::kDidCreateSharedDatabaseSubscription), true);
    EXPECT_EQ(requestsOf(CloudRequestKind::modifySubscriptions), 3U);
}

// A's tasks under a shared list reach B; the higher counter wins a
// conflict; a deletion on one side reaches the other.
TEST_F(CloudSyncTest, TwoAccountsShareAList) {
    Device a(server, "alice");
    Device b(server, "bob");
    auto list = a.add("TK_Category", "categoryID", "C1");
    list->setValue("isShared", true);
    list->setValue("shareRole", std::int64_t{1});
    for (const char* id : {"T1", "T2", "T3"}) {
        auto task = a.add("TK_Task", "taskID", id);
        task->setValue("isShared", true);
        task->setToOne(task->propertyIndex("category"), list);
    }
    a.add("TK_Task", "taskID", "private");
    a.save();
    a.syncOK();
    const CloudZoneID shared{std::string(kSharedZonePrefix) + ".C1", "alice"};
    ASSERT_TRUE(a.cloud->container().saveShare({shared, "bob", CloudSharePermission::readWrite}));
    b.syncOK();
    auto t1 = b.find("TK_Task", "taskID", "T1");
    ASSERT_NE(t1, nullptr);
    EXPECT_EQ(b.find("TK_Task", "taskID", "private"), nullptr);
    EXPECT_EQ(t1->toOne(t1->propertyIndex("category")), b.find("TK_Category", "categoryID", "C1"));
    EXPECT_EQ(t1->value("shareRole"), tasket::objectstore::Value{std::int64_t{2}});

    // B edits once, A twice: A's copy has the higher counter and wins.
    t1->setValue("title", std::string("from bob"));
    b.save();
    b.syncOK();
    for (const char* title : {"from alice", "from alice again"}) {
        a.find("TK_Task", "taskID", "T1")->setValue("title", std::string(title));
        a.save();
    }
    a.data->viewContext()->deleteObject(a.find("TK_Task", "taskID", "T2"));
    a.save();
    a.syncOK();
    b.syncOK();
    for (auto* device : {&a, &b}) {
        EXPECT_EQ(device->find("TK_Task", "taskID", "T1")->value("title"),
                  tasket::objectstore::Value{std::string("from alice again")});
        EXPECT_EQ(device->find("TK_Task", "taskID", "T2"), nullptr);
        EXPECT_NE(device->find("TK_Task", "taskID", "T3"), nullptr);
    }
    // B's deletion reaches A.
    b.data->viewContext()->deleteObject(b.find("TK_Task", "taskID", "T3"));
    b.save();
    b.syncOK();
    a.syncOK();
    EXPECT_EQ(a.find("TK_Task", "taskID", "T3"), nullptr);
    EXPECT_TRUE(a.cloud->notSynced(keys::kNotSyncedTasks).empty());
}

// Every retryable failure, with and without a retry-after, a connection lost
// mid-batch and a storm of rate limits: no retry before its delay, nothing
// dropped; other failures are surfaced and not retried.
TEST_F(CloudSyncTest, FaultScript) {
    struct Case {
        const char* name;
        CloudFault fault;
        std::optional<double> delay; // nullopt: not retried
    };
    const auto fault = [](CloudRequestKind kind, CloudErrorCode code,
                          std::optional<double> after = std::nullopt, int count = 1,
                          std::size_t applied = 0) {
        return CloudFault{kind, 1, count, code, after, applied, ""};
    };
    const Case cases[] = {
        {"rate limited",
         fault(CloudRequestKind::modifyRecords, CloudErrorCode::requestRateLimited, 10.0), 10.0},
        {"rate limited bare",
         fault(CloudRequestKind::modifyRecords, CloudErrorCode::requestRateLimited), 3.0},
        {"unavailable",
         fault(CloudRequestKind::queryRecords, CloudErrorCode::serviceUnavailable, 7.0), 7.0},
        {"unavailable bare",
         fault(CloudRequestKind::fetchZones, CloudErrorCode::serviceUnavailable), 3.0},
        {"zone busy", fault(CloudRequestKind::modifyRecords, CloudErrorCode::zoneBusy, 1.5), 1.5},
        {"zone busy bare", fault(CloudRequestKind::modifyZones, CloudErrorCode::zoneBusy), 3.0},
        {"no network",
         fault(CloudRequestKind::accountStatus, CloudErrorCode::networkUnavailable, 4.0), 4.0},
        {"no network bare",
         fault(CloudRequestKind::modifyRecords, CloudErrorCode::networkUnavailable), 3.0},
        {"lost mid-batch",
         fault(CloudRequestKind::modifyRecords, CloudErrorCode::networkFailure, {}, 1, 3), 3.0},
        {"lost bare", fault(CloudRequestKind::queryRecords, CloudErrorCode::networkFailure, 2.0),
         2.0},
        {"storm", fault(CloudRequestKind::queryRecords, CloudErrorCode::requestRateLimited, 5.0, 4),
         5.0},
        {"refused", fault(CloudRequestKind::modifyRecords, CloudErrorCode::serverRejectedRequest),
         std::nullopt},
        {"signed out", fault(CloudRequestKind::queryRecords, CloudErrorCode::notAuthenticated, 9.0),
         std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server = std::make_shared<InMemoryCloudServer>();
        Device a(server, "alice");
        for (int i = 0; i < 10; ++i)
            a.add("TK_Task", "taskID", "T" + std::to_string(i));
        a.save();
        server->addFault(c.fault);
        auto result = a.sync->syncNow();
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().code, c.fault.code);
        if (!c.delay) {
            EXPECT_EQ(a.sync->retryAt(), std::nullopt);
            continue;
        }
        for (int failures = 1; !result; ++failures) {
            ASSERT_LE(failures, c.fault.count);
            const Date failedAt = clock.now();
            ASSERT_EQ(a.sync->retryAt(), failedAt.addingSeconds(*c.delay));
            clock.advance(*c.delay - 0.25);
            const auto requests = server->requests().size();
            const auto early = a.sync->syncNow();
            ASSERT_TRUE(early && early->deferredUntil);
            EXPECT_EQ(server->requests().size(), requests); // nothing asked before the delay
            clock.advance(0.25);
            result = a.sync->syncNow();
        }
        EXPECT_EQ(taskRecords(), 10U);
        EXPECT_TRUE(a.cloud->notSynced(keys::kNotSyncedTasks).empty());
        EXPECT_EQ(a.cloud->uploadStatus(), tasket::rules::TK_CloudSyncStatus::succeeded);
    }
}
