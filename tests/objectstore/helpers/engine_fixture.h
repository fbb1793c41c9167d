// The engine tests' common ground: a test-model store with history in a
// temporary folder, contexts on it, and short ways to make and read items.
#pragma once

#include "objectstore/object_context.h"
#include "support/saved.h"
#include "support/sql.h"
#include "support/temp_dir.h"
#include "support/test_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tasket::testing {

class EngineFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        auto opened = objectstore::PersistentStore::open(dir / "t.sqlite", makeTestModel(),
                                                         objectstore::StoreOptions{true, false});
        ASSERT_TRUE(opened) << opened.error().message;
        store = *opened;
    }
    std::shared_ptr<objectstore::ObjectContext>
    context(objectstore::MergePolicy policy = objectstore::MergePolicy::error) const {
        auto c = objectstore::ObjectContext::make(store, objectstore::ConcurrencyType::mainQueue);
        c->setMergePolicy(policy);
        return c;
    }
    /// A new object of `entity` with its first text attribute set.
    static objectstore::ObjectPtr make(objectstore::ObjectContext& c, const char* entity,
                                       const std::string& text = "") {
        auto o = c.insertNewObject(entity);
        o->setValue(std::size_t{0}, text);
        return o;
    }
    static std::string text(const objectstore::ObjectPtr& o, const char* key = "title") {
        const auto& v = o->value(key);
        return objectstore::isNil(v) ? "<nil>" : std::get<std::string>(v);
    }
    /// The sorted texts of `objects`.
    static std::vector<std::string> texts(const std::vector<objectstore::ObjectPtr>& objects,
                                          const char* key = "title") {
        std::vector<std::string> out;
        for (const auto& o : objects)
            out.push_back(text(o, key));
        std::sort(out.begin(), out.end());
        return out;
    }
    /// The members of `owner`'s to-many `name`, as sorted texts.
    static std::vector<std::string> members(const objectstore::ObjectPtr& owner, const char* name,
                                            const char* key = "title") {
        return texts(owner->toMany(owner->propertyIndex(name)), key);
    }

    TempDir dir;
    std::shared_ptr<objectstore::PersistentStore> store;
};

} // namespace tasket::testing
