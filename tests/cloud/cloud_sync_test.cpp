// Cloud bookkeeping and sync over the in-memory cloud database: the counter
// rule, zone lookup, subscriptions, and a fault script that fails requests
// in every retryable way (and some that are not), which is where the retry
// delays are checked.
#include "platform/clock.h"
#include "platform/cloud/in_memory_cloud_container.h"
#include "settings/settings_keys.h"
#include "support/cloud_device.h"

#include <gtest/gtest.h>

using namespace tasket::cloud;
using namespace tasket::platform;
using tasket::rules::TK_CloudDatabaseType;
using tasket::testing::CloudDevice;
namespace keys = tasket::settings::keys;

namespace {

// One account's device on the test's in-memory cloud.
CloudDevice device(const std::shared_ptr<InMemoryCloudServer>& server, const std::string& account) {
    server->addAccount(account);
    return CloudDevice(std::make_shared<InMemoryCloudContainer>(server, account));
}

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

} // namespace

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
    CloudDevice a = device(server, "alice");
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

// A context that read the task before a pass stored a higher counter from
// the cloud still raises the stored one: its edit goes up, not lost.
TEST_F(CloudSyncTest, AStaleContextsEditOutranksTheSyncedCounter) {
    CloudDevice a = device(server, "alice");
    CloudDevice b = device(server, "alice"); // the same account's second device
    auto stale = a.add("TK_Task", "taskID", "T1");
    a.save();
    ASSERT_TRUE(a.sync->syncNow());
    b.syncOK();
    for (const char* title : {"b1", "b2", "b3"}) {
        b.all("TK_Task", "taskID").at("T1")->setValue("title", std::string(title));
        b.save();
    }
    b.syncOK();
    ASSERT_TRUE(a.sync->syncNow()); // stores counter 4; `stale` still holds 1
    stale->setValue("title", std::string("from a"));
    a.save();
    auto fresh = a.data->newBackgroundContext();
    fresh->performAndWait([&] {
        EXPECT_EQ((*fresh->existingObject(stale->objectID()))->value("numberOfModifications"),
                  tasket::objectstore::Value{std::int64_t{5}});
    });
    a.syncOK();
    b.syncOK();
    EXPECT_EQ(b.all("TK_Task", "taskID").at("T1")->value("title"),
              tasket::objectstore::Value{std::string("from a")});
}

// Private unless isShared is true; a participant's zone is looked up among
// the shared ones; nothing without a usable cloud.
TEST_F(CloudSyncTest, ZoneOfACategory) {
    CloudDevice a = device(server, "alice");
    CloudDevice b = device(server, "bob");
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
    CloudDevice a = device(server, "alice");
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
        CloudDevice a = device(server, "alice");
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
