// A TK_Data store in a temporary folder and contexts on it, for the store's
// tests.
#pragma once

#include "objectstore/object_context.h"
#include "store/tk_data_model.h"
#include "support/saved.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <memory>

namespace tasket::testing {

class StoreFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        auto opened = objectstore::PersistentStore::open(
            dir / "TK_Data.sqlite", store::tkDataModel(), objectstore::StoreOptions{true, false});
        ASSERT_TRUE(opened) << opened.error().message;
        storeFile = *opened;
    }
    std::shared_ptr<objectstore::ObjectContext> newContext() const {
        return objectstore::ObjectContext::make(storeFile, objectstore::ConcurrencyType::mainQueue);
    }

    TempDir dir;
    std::shared_ptr<objectstore::PersistentStore> storeFile;
};

} // namespace tasket::testing
