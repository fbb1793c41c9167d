// Two accounts' stores kept in step through each cloud database, the
// in-memory one and a real PostgreSQL server: alice's lists and 1,000 tasks
// reach bob through shares, the higher counter wins a conflict, and
// deletions travel both ways.
#include "platform/cloud/in_memory_cloud_container.h"
#include "platform/cloud/postgres_cloud_database.h"
#include "settings/settings_keys.h"
#include "support/cloud_device.h"
#include "support/postgres_server.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace tasket::cloud;
using namespace tasket::platform;
using tasket::objectstore::Value;
using tasket::testing::CloudDevice;

namespace {

constexpr int kLists = 4;
constexpr int kTasks = 1000;

// A database for the test and a container on it for one account.
struct Backend {
    const char* name;
    std::function<std::function<std::shared_ptr<CloudContainer>(const std::string&)>()> open;
};

void PrintTo(const Backend& backend, std::ostream* out) {
    *out << backend.name;
}

const Backend kBackends[] = {
    {"InMemory",
     [] {
         auto server = std::make_shared<InMemoryCloudServer>();
         return [server](const std::string& account) -> std::shared_ptr<CloudContainer> {
             server->addAccount(account);
             return std::make_shared<InMemoryCloudContainer>(server, account);
         };
     }},
    {"Postgres",
     [] {
         auto server = std::make_shared<tasket::testing::PostgresServer>();
         return [server](const std::string& role) -> std::shared_ptr<CloudContainer> {
             auto container =
                 PostgresCloudContainer::open({.connection = server->connectionFor(role)});
             EXPECT_TRUE(container && (*container)->setUpServer());
             return std::move(*container);
         };
     }},
};

class SharedListsSync : public ::testing::TestWithParam<Backend> {};

TEST_P(SharedListsSync, TwoAccountsShareListsOfAThousandTasks) {
    const auto containerFor = GetParam().open();
    CloudDevice a(containerFor("alice"));
    CloudDevice b(containerFor("bob"));
    std::vector<tasket::objectstore::ObjectPtr> lists;
    for (int l = 0; l < kLists; ++l) {
        auto list = a.add("TK_Category", "categoryID", fmt::format("C{}", l));
        list->setValue("isShared", true);
        list->setValue("shareRole", std::int64_t{1});
        lists.push_back(list);
    }
    for (int t = 0; t < kTasks; ++t) {
        auto task = a.add("TK_Task", "taskID", fmt::format("T{}", t));
        task->setValue("isShared", true);
        task->setToOne(task->propertyIndex("category"), lists[t % kLists]);
    }
    a.add("TK_Task", "taskID", "private");
    a.save();
    a.syncOK();
    for (int l = 0; l < kLists; ++l)
        ASSERT_TRUE(
            a.cloud->container().saveShare({{fmt::format("{}.C{}", kSharedZonePrefix, l), "alice"},
                                            "bob",
                                            CloudSharePermission::readWrite}));
    b.syncOK();
    auto tasks = b.all("TK_Task", "taskID");
    EXPECT_EQ(tasks.size(), std::size_t{kTasks});
    EXPECT_FALSE(tasks.contains("private"));
    EXPECT_EQ(b.all("TK_Category", "categoryID").size(), std::size_t{kLists});
    EXPECT_EQ(tasks.at("T7")->toOne(tasks.at("T7")->propertyIndex("category")),
              b.all("TK_Category", "categoryID").at("C3"));
    EXPECT_EQ(tasks.at("T1")->value("shareRole"), Value{std::int64_t{2}});

    // Bob edits T1 once, alice twice: alice's counter is higher and wins.
    tasks.at("T1")->setValue("title", std::string("from bob"));
    b.save();
    b.syncOK();
    for (const char* title : {"from alice", "from alice again"}) {
        a.all("TK_Task", "taskID").at("T1")->setValue("title", std::string(title));
        a.save();
    }
    a.data->viewContext()->deleteObject(a.all("TK_Task", "taskID").at("T2"));
    a.save();
    a.syncOK();
    b.syncOK();
    for (auto* device : {&a, &b}) {
        auto seen = device->all("TK_Task", "taskID");
        EXPECT_EQ(seen.at("T1")->value("title"), Value{std::string("from alice again")});
        EXPECT_FALSE(seen.contains("T2"));
        EXPECT_TRUE(seen.contains("T3"));
    }
    // Bob's deletion reaches alice.
    b.data->viewContext()->deleteObject(b.all("TK_Task", "taskID").at("T3"));
    b.save();
    b.syncOK();
    a.syncOK();
    for (auto* device : {&a, &b}) {
        EXPECT_FALSE(device->all("TK_Task", "taskID").contains("T3"));
        EXPECT_TRUE(device->cloud->notSynced(tasket::settings::keys::kNotSyncedTasks).empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Databases, SharedListsSync, ::testing::ValuesIn(kBackends),
                         [](const auto& backend) { return std::string(backend.param.name); });

} // namespace
