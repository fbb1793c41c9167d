// The PostgreSQL adapter keeps the cloud database contract against a real
// server (a lost compare-and-set included), each test in a fresh database;
// row-level security is checked from the other role's own connection,
// below the adapter.
#include "cloud_contract.h"
#include "platform/cloud/postgres_cloud_database.h"
#include "support/postgres_server.h"

#include <poll.h>

using namespace tasket::platform;
using tasket::testing::CloudBackend;
using tasket::testing::CloudContract;
using tasket::testing::PostgresServer;

namespace {

PostgresServer& server() {
    static PostgresServer running;
    return running;
}

// A fresh database set up by alice, its owner.
std::string freshDatabase() {
    static int count = 0;
    const std::string name = "contract" + std::to_string(++count);
    server().admin("CREATE DATABASE " + name + " OWNER alice");
    return name;
}

std::unique_ptr<PostgresCloudContainer> openAccount(const std::string& account,
                                                    const std::string& database,
                                                    double maxRequestsPerSecond = 0) {
    auto container = PostgresCloudContainer::open(
        {.connection = server().connectionFor(account) + " dbname=" + database,
         .maxRequestsPerSecond = maxRequestsPerSecond});
    if (!container)
        throw std::runtime_error(container.error().message);
    if (auto ok = (*container)->setUpServer(); !ok)
        throw std::runtime_error(ok.error().message);
    return std::move(*container);
}

CloudBackend postgres() {
    return {"Postgres", [] {
                const std::string database = freshDatabase();
                openAccount("alice", database); // the first setup needs the owner
                return [database](const std::string& account) -> std::unique_ptr<CloudContainer> {
                    return openAccount(account, database);
                };
            }};
}

PostgresConnection rawConnection(const std::string& role, const std::string& database) {
    auto connection =
        PostgresConnection::open(server().connectionFor(role) + " dbname=" + database);
    if (!connection)
        throw std::runtime_error(connection.error().message);
    return std::move(*connection);
}

CloudRecord task(const CloudZoneID& zone, std::string name) {
    return {"TK_Task", {std::move(name), zone}, {}, {{"title", std::string("secret")}}, {}, {}};
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Adapters, CloudContract, ::testing::Values(postgres()),
                         [](const ::testing::TestParamInfo<CloudBackend>& param) {
                             return param.param.name;
                         });

// Alice set the schema up and owns its tables, yet sees nothing of bob's;
// bob, asking the tables himself, sees nothing of alice's private zone
// and changes nothing in it.
TEST(PostgresCloudDatabase, RowLevelSecurityHidesPrivateZones) {
    const std::string database = freshDatabase();
    auto alice = openAccount("alice", database);
    auto bob = openAccount("bob", database);
    const CloudZoneID aliceZone{"Private", "alice"};
    const CloudZoneID bobZone{"Private", "bob"};
    ASSERT_TRUE(alice->privateDatabase().modifyZones({aliceZone}, {}).has_value());
    ASSERT_TRUE(bob->privateDatabase().modifyZones({bobZone}, {}).has_value());
    ASSERT_TRUE(alice->privateDatabase().modifyRecords({task(aliceZone, "T1")}, {}).has_value());
    ASSERT_TRUE(bob->privateDatabase().modifyRecords({task(bobZone, "T2")}, {}).has_value());
    EXPECT_EQ(alice->privateDatabase().fetchAllZones().value(), std::vector{aliceZone});

    auto raw = rawConnection("bob", database);
    struct Probe {
        const char* sql;
        const char* answer;
    };
    const Probe probes[] = {
        {"SELECT count(*) FROM cloud.records WHERE owner = 'alice'", "0"},
        {"SELECT count(*) FROM cloud.zones WHERE owner = 'alice'", "0"},
        {"WITH u AS (UPDATE cloud.records SET fields = '{}' WHERE owner = 'alice' RETURNING 1) "
         "SELECT count(*) FROM u",
         "0"},
        {"WITH d AS (DELETE FROM cloud.zones WHERE owner = 'alice' RETURNING 1) "
         "SELECT count(*) FROM d",
         "0"},
        {"SELECT count(*) FROM cloud.records WHERE owner = 'bob'", "1"},
    };
    for (const auto& probe : probes) {
        const auto rows = raw.execute(probe.sql);
        ASSERT_TRUE(rows.has_value()) << probe.sql;
        EXPECT_EQ(rows->text(0, 0), probe.answer) << probe.sql;
    }
    // Nor may he share her zone, learn her push channels, or choose who
    // hears of his own zone other than by sharing it.
    for (const char* refused :
         {"INSERT INTO cloud.shares (owner, zone, participant) VALUES ('alice', 'Private', 'bob')",
          "SELECT cloud.channel('alice', 'private')", "SELECT token FROM cloud.listeners",
          "INSERT INTO cloud.audience VALUES ('bob', 'Private', 'alice')"}) {
        const auto refusal = raw.execute(refused);
        ASSERT_FALSE(refusal.has_value()) << refused;
        EXPECT_EQ(refusal.error().code, CloudErrorCode::permissionFailure) << refused;
    }
    EXPECT_EQ(alice->privateDatabase().queryRecords({"TK_Task", aliceZone, 0})->size(), 1U);
}

// A daemon polls the push descriptor: it turns readable when the other
// account writes into the shared zone, and the push names the subscription.
// Listening where alice's private pushes would go were channels named from
// the role hears nothing of them.
TEST(PostgresCloudDatabase, PushesWakeThePollLoop) {
    const std::string database = freshDatabase();
    auto alice = openAccount("alice", database);
    auto bob = openAccount("bob", database);
    const CloudZoneID zone{"Shared", "alice"};
    ASSERT_TRUE(alice->privateDatabase().modifyZones({zone}, {}).has_value());
    ASSERT_TRUE(alice->saveShare({zone, "bob", CloudSharePermission::readWrite}).has_value());
    ASSERT_TRUE(bob->sharedDatabase().modifySubscriptions({{"Shared.Subscription", true}}, {}));
    ASSERT_TRUE(bob->takePushes()->empty());
    auto guess = rawConnection("bob", database);
    ASSERT_TRUE(guess.execute(R"(DO $$ BEGIN EXECUTE format('LISTEN %I', 'cloud_private_' ||
                md5('alice')); END $$)"));
    const CloudZoneID own{"Private", "alice"};
    ASSERT_TRUE(alice->privateDatabase().modifyZones({own}, {}).has_value());
    ASSERT_TRUE(alice->privateDatabase().modifyRecords({task(own, "P1")}, {}).has_value());

    ASSERT_TRUE(alice->privateDatabase().modifyRecords({task(zone, "T1")}, {}).has_value());
    pollfd wait{bob->pushSocket(), POLLIN, 0};
    ASSERT_EQ(::poll(&wait, 1, 5000), 1);
    const auto pushes = bob->takePushes();
    ASSERT_TRUE(pushes.has_value());
    ASSERT_EQ(pushes->size(), 1U);
    EXPECT_EQ(pushes->at(0).subscriptionID, "Shared.Subscription");
    ASSERT_TRUE(guess.execute("SELECT 1")); // the earlier commits' notifications have come
    EXPECT_TRUE(guess.takeNotifications()->empty());
}

// Our own rate limit answers 7 with the wait; a broken session answers 4
// once, and the next request reconnects.
TEST(PostgresCloudDatabase, RateLimitAndReconnection) {
    const std::string database = freshDatabase();
    auto alice = openAccount("alice", database, 2.0);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_TRUE(alice->currentUser().has_value());
    ASSERT_TRUE(alice->currentUser().has_value());
    const auto limited = alice->currentUser();
    ASSERT_FALSE(limited.has_value());
    EXPECT_EQ(limited.error().code, CloudErrorCode::requestRateLimited);
    ASSERT_TRUE(limited.error().retryAfterSeconds.has_value());
    EXPECT_GT(*limited.error().retryAfterSeconds, 0.0);
    EXPECT_LE(*limited.error().retryAfterSeconds, 0.5);

    std::this_thread::sleep_for(std::chrono::seconds(1));
    server().admin(
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE usename = 'alice'");
    const auto lost = alice->privateDatabase().fetchAllZones();
    ASSERT_FALSE(lost.has_value());
    EXPECT_EQ(lost.error().code, CloudErrorCode::networkFailure);
    EXPECT_TRUE(alice->privateDatabase().fetchAllZones().has_value());
}
