// One account's device for the cloud tests: its store, settings, a cloud
// container of the test's choice and the sync between them.
#pragma once

#include "cloud/cloud_sync.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace tasket::testing {

struct CloudDevice {
    explicit CloudDevice(std::shared_ptr<platform::CloudContainer> container) {
        data->setWatchesOtherProcesses(false);
        cloud = std::make_shared<cloud::CloudDataManager>(std::move(container), settings);
        sync = std::make_unique<cloud::CloudSync>(data, cloud, dir.path());
    }
    objectstore::ObjectPtr add(const char* entity, const char* idKey, const std::string& id) {
        auto object = data->viewContext()->insertNewObject(entity);
        object->setValue(idKey, id);
        object->setValue("title", id);
        return object;
    }
    // Every object of an entity by its identifier.
    std::map<std::string, objectstore::ObjectPtr> all(const char* entity, const char* idKey) {
        std::map<std::string, objectstore::ObjectPtr> out;
        const auto objects = data->viewContext()->fetch(objectstore::FetchRequest(entity));
        EXPECT_TRUE(objects) << objects.error().message;
        for (const auto& object : objects.value_or(std::vector<objectstore::ObjectPtr>{}))
            out[std::get<std::string>(object->value(idKey))] = object;
        return out;
    }
    void save() { ASSERT_TRUE(data->viewContext()->save()); }
    void syncOK() {
        auto result = sync->syncNow();
        ASSERT_TRUE(result) << result.error().message;
        data->viewContext()->reset();
    }

    TempDir dir;
    std::shared_ptr<store::LocalDataManager> data = store::LocalDataManager::make(dir.path());
    std::shared_ptr<platform::InMemoryPreferencesSuite> settings =
        std::make_shared<platform::InMemoryPreferencesSuite>("group");
    std::shared_ptr<cloud::CloudDataManager> cloud;
    std::unique_ptr<cloud::CloudSync> sync;
};

} // namespace tasket::testing
