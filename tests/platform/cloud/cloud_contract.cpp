#include "cloud_contract.h"

using namespace tasket::platform;
using tasket::testing::CloudContract;

namespace {

CloudRecord record(const CloudZoneID& zone, std::string name, std::string tag = {}) {
    return {.recordType = "TK_Task",
            .id = {std::move(name), zone},
            .changeTag = std::move(tag),
            .fields = {},
            .parent = {},
            .modified = {}};
}

CloudZoneID makeZone(CloudContainer& container, const std::string& name) {
    const CloudZoneID zone{name, container.currentUser().value()};
    EXPECT_TRUE(container.privateDatabase().modifyZones({zone}, {}).has_value());
    return zone;
}

std::optional<CloudErrorCode> failure(const auto& result) {
    return result ? std::nullopt : std::optional(result.error().code);
}

} // namespace

// Every save compares the change tag it carries with the server's.
TEST_P(CloudContract, SavesCompareAndSetTheChangeTag) {
    auto a = open("alice");
    auto& db = a->privateDatabase();
    const auto zone = makeZone(*a, "Zone");
    const auto first = db.modifyRecords({record(zone, "T1")}, {});
    ASSERT_TRUE(first.has_value());
    const std::string tag = first->saved.at(0).changeTag;
    ASSERT_FALSE(tag.empty());

    EXPECT_EQ(failure(db.modifyRecords({record(zone, "T1")}, {})),
              CloudErrorCode::serverRecordChanged);
    const auto second = db.modifyRecords({record(zone, "T1", tag)}, {});
    ASSERT_TRUE(second.has_value());
    EXPECT_NE(second->saved.at(0).changeTag, tag);
    const auto lost = db.modifyRecords({record(zone, "T1", tag)}, {});
    ASSERT_FALSE(lost.has_value());
    EXPECT_EQ(lost.error().code, CloudErrorCode::serverRecordChanged);
    EXPECT_EQ(lost.error().recordName, "T1");

    // All or nothing: a batch with one stale record stores none of it.
    EXPECT_FALSE(db.modifyRecords({record(zone, "T2"), record(zone, "T1", tag)}, {}).has_value());
    EXPECT_EQ(db.queryRecords({"TK_Task", zone, 0})->size(), 1U);

    ASSERT_TRUE(db.modifyRecords({}, {{"T1", zone}, {"missing", zone}}).has_value());
    EXPECT_EQ(failure(db.modifyRecords({record(zone, "T1", second->saved.at(0).changeTag)}, {})),
              CloudErrorCode::unknownItem);
    EXPECT_EQ(failure(db.modifyRecords({record({"Nowhere", zone.owner}, "T1")}, {})),
              CloudErrorCode::zoneNotFound);
}

// Each kind of value comes back as it was saved.
TEST_P(CloudContract, KeepsEveryKindOfValue) {
    auto a = open("alice");
    const auto zone = makeZone(*a, "Zone");
    auto saved = record(zone, "T1");
    saved.fields = {{"null", std::monostate{}},
                    {"flag", true},
                    {"count", std::int64_t{32767}},
                    {"amount", 2.5},
                    {"title", std::string("Tee \"quoted\" ü")},
                    {"due", Date{752'000'000.25}},
                    {"content", CloudData{0, 255, 7}},
                    {"task", CloudReference{"T0"}},
                    {"tags", CloudNameList{"A", "B"}},
                    {"empty", CloudNameList{}}};
    saved.parent = CloudReference{"C1"};
    ASSERT_TRUE(a->privateDatabase().modifyRecords({saved}, {}).has_value());
    const auto fetched = a->privateDatabase().queryRecords({"TK_Task", zone, 0});
    ASSERT_TRUE(fetched.has_value());
    ASSERT_EQ(fetched->size(), 1U);
    EXPECT_EQ(fetched->at(0).fields, saved.fields);
    EXPECT_EQ(fetched->at(0).parent, saved.parent);
    EXPECT_TRUE(a->privateDatabase().queryRecords({"TK_Tag", zone, 0})->empty());
}

// A zone is seen by its owner in the private database and, once shared, by
// the participant in the shared database, writable only with read-write.
TEST_P(CloudContract, SharesMakeAZoneVisibleToTheParticipant) {
    auto a = open("alice");
    auto b = open("bob");
    const std::string bobName = b->currentUser().value();
    const auto zone = makeZone(*a, "Zone");
    ASSERT_TRUE(a->privateDatabase().modifyRecords({record(zone, "T1")}, {}).has_value());

    EXPECT_EQ(failure(b->privateDatabase().queryRecords({"TK_Task", zone, 0})),
              CloudErrorCode::zoneNotFound);
    EXPECT_EQ(failure(b->sharedDatabase().queryRecords({"TK_Task", zone, 0})),
              CloudErrorCode::zoneNotFound);
    EXPECT_TRUE(b->sharedDatabase().fetchAllZones()->empty());

    ASSERT_TRUE(a->saveShare({zone, bobName, CloudSharePermission::readOnly}).has_value());
    EXPECT_EQ(b->sharedDatabase().fetchAllZones().value(), std::vector{zone});
    EXPECT_EQ(b->sharedDatabase().queryRecords({"TK_Task", zone, 0})->size(), 1U);
    EXPECT_EQ(failure(b->sharedDatabase().modifyRecords({record(zone, "T2")}, {})),
              CloudErrorCode::permissionFailure);

    ASSERT_TRUE(a->saveShare({zone, bobName, CloudSharePermission::readWrite}).has_value());
    EXPECT_TRUE(b->sharedDatabase().modifyRecords({record(zone, "T2")}, {}).has_value());
    EXPECT_EQ(a->privateDatabase().queryRecords({"TK_Task", zone, 0})->size(), 2U);
    EXPECT_EQ(a->fetchShares()->size(), 1U);

    ASSERT_TRUE(a->removeShare({zone, bobName, CloudSharePermission::readWrite}).has_value());
    EXPECT_TRUE(b->sharedDatabase().fetchAllZones()->empty());
}

// A change to a zone pushes every subscription that can see it.
TEST_P(CloudContract, SubscriptionsHearChanges) {
    auto a = open("alice");
    auto b = open("bob");
    const auto zone = makeZone(*a, "Zone");
    ASSERT_TRUE(a->saveShare({zone, b->currentUser().value(), CloudSharePermission::readWrite})
                    .has_value());
    ASSERT_TRUE(b->sharedDatabase().modifySubscriptions({{"Shared", true}}, {}).has_value());
    EXPECT_EQ(b->sharedDatabase().fetchAllSubscriptions().value(),
              (std::vector<CloudSubscription>{{"Shared", true}}));
    EXPECT_TRUE(b->privateDatabase().fetchAllSubscriptions()->empty());

    ASSERT_TRUE(a->privateDatabase().modifyRecords({record(zone, "T1")}, {}).has_value());
    const auto pushes = b->waitForPushes(5.0);
    ASSERT_TRUE(pushes.has_value());
    ASSERT_FALSE(pushes->empty());
    EXPECT_EQ(pushes->at(0).subscriptionID, "Shared");

    ASSERT_TRUE(b->sharedDatabase().modifySubscriptions({}, {"Shared"}).has_value());
    EXPECT_TRUE(b->sharedDatabase().fetchAllSubscriptions()->empty());
}
