// Two accounts' stores kept in step through a real PostgreSQL server: alice's
// lists and 1,000 tasks reach bob through shares, the higher counter wins a
// conflict, and deletions travel both ways.
#include "cloud/cloud_sync.h"
#include "platform/cloud/postgres_cloud_database.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "support/postgres_server.h"
#include "support/temp_dir.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace tasket::cloud;
using namespace tasket::platform;
using tasket::objectstore::ObjectPtr;
using tasket::objectstore::Value;

namespace {

constexpr int kLists = 4;
constexpr int kTasks = 1000;

struct Device {
    Device(const tasket::testing::PostgresServer& server, const std::string& role) {
        data->setWatchesOtherProcesses(false);
        auto container = PostgresCloudContainer::open({.connection = server.connectionFor(role)});
        EXPECT_TRUE(container && (*container)->setUpServer());
        cloud = std::make_shared<CloudDataManager>(std::move(*container), settings);
        sync = std::make_unique<CloudSync>(data, cloud, dir.path());
    }
    std::map<std::string, ObjectPtr> all(const char* entity, const char* idKey) {
        std::map<std::string, ObjectPtr> out;
        const auto objects = data->viewContext()->fetch(tasket::objectstore::FetchRequest(entity));
        for (const auto& object : objects.value())
            out[std::get<std::string>(object->value(idKey))] = object;
        return out;
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

TEST(PostgresSync, TwoAccountsShareListsOfAThousandTasks) {
    tasket::testing::PostgresServer server;
    Device a(server, "alice");
    Device b(server, "bob");
    auto& context = *a.data->viewContext();
    std::vector<ObjectPtr> lists;
    for (int l = 0; l < kLists; ++l) {
        auto list = context.insertNewObject("TK_Category");
        list->setValue("categoryID", fmt::format("C{}", l));
        list->setValue("title", fmt::format("List {}", l));
        list->setValue("isShared", true);
        list->setValue("shareRole", std::int64_t{1});
        lists.push_back(list);
    }
    for (int t = 0; t < kTasks; ++t) {
        auto task = context.insertNewObject("TK_Task");
        task->setValue("taskID", fmt::format("T{}", t));
        task->setValue("title", fmt::format("Task {}", t));
        task->setValue("isShared", true);
        task->setToOne(task->propertyIndex("category"), lists[t % kLists]);
    }
    auto secret = context.insertNewObject("TK_Task");
    secret->setValue("taskID", std::string("private"));
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
    EXPECT_EQ(
        std::get<std::string>(
            tasks.at("T7")->toOne(tasks.at("T7")->propertyIndex("category"))->value("categoryID")),
        "C3");

    // Bob edits T1 once, alice twice: alice's counter is higher and wins.
    tasks.at("T1")->setValue("title", std::string("from bob"));
    b.save();
    b.syncOK();
    for (const char* title : {"from alice", "from alice again"}) {
        a.all("TK_Task", "taskID").at("T1")->setValue("title", std::string(title));
        a.save();
    }
    context.deleteObject(a.all("TK_Task", "taskID").at("T2"));
    a.save();
    a.syncOK();
    b.syncOK();
    b.data->viewContext()->deleteObject(b.all("TK_Task", "taskID").at("T3"));
    b.save();
    b.syncOK();
    a.syncOK();
    for (auto* device : {&a, &b}) {
        auto seen = device->all("TK_Task", "taskID");
        EXPECT_EQ(seen.at("T1")->value("title"), Value{std::string("from alice again")});
        EXPECT_FALSE(seen.contains("T2"));
        EXPECT_FALSE(seen.contains("T3"));
        EXPECT_TRUE(device->cloud->notSynced(tasket::settings::keys::kNotSyncedTasks).empty());
    }
}

} // namespace
