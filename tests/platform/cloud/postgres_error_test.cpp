// Every failure of the cloud database reaches the caller with its cloud
// error code. Each case is produced for real against a running server where
// a server can be brought to it; the rest go through the table alone.
#include "platform/cloud/cloud_schema.h"
#include "platform/cloud/postgres_connection.h"
#include "support/postgres_server.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace tasket::platform {
namespace {

using testing::PostgresServer;

class PostgresErrors : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { server = std::make_unique<PostgresServer>(); }
    static void TearDownTestSuite() { server.reset(); }

    static PostgresConnection connect(const std::string& role) {
        auto connection = PostgresConnection::open(server->connectionFor(role));
        if (!connection)
            throw std::runtime_error(connection.error().message);
        return std::move(*connection);
    }
    static void run(PostgresConnection& connection, const std::string& sql) {
        if (auto done = connection.execute(sql); !done)
            throw std::runtime_error(sql + ": " + done.error().message);
    }
    static PostgresError failureOf(std::expected<PostgresRows, PostgresError> result) {
        if (result)
            throw std::runtime_error("the statement succeeded");
        return result.error();
    }

    static inline std::unique_ptr<PostgresServer> server;
};

struct RealCase {
    const char* name;
    std::function<PostgresError()> produce;
    int code;
    const char* sqlState;
};

TEST_F(PostgresErrors, RealFailuresMapToCloudCodes) {
    {
        auto alice = connect("alice");
        run(alice, std::string(cloudSchema()));
        run(alice, "INSERT INTO cloud.zones (name) VALUES ('Z'); "
                   "INSERT INTO cloud.records (owner, zone, name, type) "
                   "VALUES ('alice', 'Z', 'r', 'TK_Task')");
    }

    const RealCase cases[] = {
        {"wrong password",
         [] {
             server->setPasswordFileEntry("bob", "not-bob's");
             auto error = PostgresConnection::open(server->connectionFor("bob")).error();
             server->setPasswordFileEntry("bob", "bob-secret");
             return error;
         },
         9, "28P01"},
        {"no password to be found",
         [] { return PostgresConnection::open(server->connectionFor("carol")).error(); }, 9, ""},
        {"server stopped: connection refused",
         [] {
             server->stop();
             auto error = PostgresConnection::open(server->connectionFor("bob")).error();
             server->start();
             return error;
         },
         3, ""},
        {"session ended by the server: connection lost",
         [] {
             auto bob = connect("bob");
             server->admin("SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                           "WHERE usename = 'bob'");
             return failureOf(bob.execute("SELECT 1"));
         },
         4, ""},
        {"too many connections",
         [] {
             server->admin("ALTER ROLE bob CONNECTION LIMIT 1");
             auto first = connect("bob");
             auto error = PostgresConnection::open(server->connectionFor("bob")).error();
             server->admin("ALTER ROLE bob CONNECTION LIMIT -1");
             return error;
         },
         6, "53300"},
        {"lock timeout",
         [] {
             auto holder = connect("alice");
             auto waiter = connect("alice");
             run(holder, "BEGIN; UPDATE cloud.records SET type = type");
             run(waiter, "SET lock_timeout = '20ms'");
             return failureOf(waiter.execute("UPDATE cloud.records SET type = type"));
         },
         23, "55P03"},
        {"serialization failure",
         [] {
             auto first = connect("alice");
             auto second = connect("alice");
             for (auto* c : {&first, &second})
                 run(*c, "BEGIN ISOLATION LEVEL REPEATABLE READ; SELECT 1 FROM cloud.records");
             run(first, "UPDATE cloud.records SET type = type; COMMIT");
             return failureOf(second.execute("UPDATE cloud.records SET type = type"));
         },
         23, "40001"},
        {"row-level security refuses a write into another's zone",
         [] {
             auto bob = connect("bob");
             return failureOf(bob.execute("INSERT INTO cloud.records (owner, zone, name, type) "
                                          "VALUES ('alice', 'Z', 'mine', 'TK_Task')"));
         },
         10, "42501"},
        {"a zone made twice",
         [] {
             auto alice = connect("alice");
             return failureOf(alice.execute("INSERT INTO cloud.zones (name) VALUES ('Z')"));
         },
         14, "23505"},
        {"a record in a missing zone",
         [] {
             auto alice = connect("alice");
             return failureOf(alice.execute("INSERT INTO cloud.records (owner, zone, name, type) "
                                            "VALUES ('alice', 'none', 'r', 'TK_Task')"));
         },
         26, "23503"},
        {"a database never set up",
         [] {
             server->admin("CREATE DATABASE empty");
             auto connection =
                 PostgresConnection::open(server->connectionFor("bob") + " dbname=empty");
             return failureOf(connection->execute("SELECT 1 FROM cloud.records"));
         },
         5, "42P01"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto error = c.produce();
        EXPECT_EQ(static_cast<int>(error.code), c.code) << error.message;
        EXPECT_EQ(error.sqlState, c.sqlState);
        EXPECT_FALSE(error.message.empty());
    }
}

// A connection setting never holds the password; a malformed one says why.
TEST(PostgresConnectionCheck, RefusesPasswordsAndMalformedSettings) {
    EXPECT_TRUE(PostgresConnection::check("service=tasket").has_value());
    EXPECT_TRUE(PostgresConnection::check("host=/run/x dbname=tasket user=me").has_value());
    EXPECT_TRUE(PostgresConnection::check("postgresql://me@db/tasket").has_value());
    for (const char* bad : {"host=db password=secret", "postgresql://me:secret@db/tasket",
                            "host=db 'unterminated", "nokeyword=1"}) {
        const auto checked = PostgresConnection::check(bad);
        ASSERT_FALSE(checked.has_value()) << bad;
        EXPECT_EQ(checked.error().code, CloudErrorCode::invalidArguments) << bad;
    }
}

TEST(PostgresErrorCode, StatesNoTestServerReachesMapByTheTable) {
    struct Case {
        const char* state;
        int code;
    };
    const Case cases[] = {
        {"57P03", 6},  {"40P01", 23}, {"28000", 9},  {"57P01", 4}, {"08006", 4},  {"3D000", 5},
        {"53100", 25}, {"54000", 27}, {"22P02", 12}, {"XX000", 1}, {"P0001", 15},
    };
    for (const auto& c : cases)
        EXPECT_EQ(static_cast<int>(postgresErrorCode(c.state)), c.code) << c.state;
}

} // namespace
} // namespace tasket::platform
