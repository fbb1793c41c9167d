#include "store/records.h"
#include "store/tk_data_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using tasket::store::tkDataModel;

TEST(TkDataModel, HoldsTheTwelveEntitiesInTheirOrder) {
    std::vector<std::string> names;
    for (const auto& e : tkDataModel()->entities())
        names.push_back(e.name);
    EXPECT_EQ(names, (std::vector<std::string>{"TK_Task", "TK_Subtask", "TK_Category", "TK_Folder",
                                               "TK_SmartCategory", "TK_Tag", "TK_Priority",
                                               "TK_Status", "TK_Attribute", "TK_AttributeValue",
                                               "TK_BoardSection", "TK_Attachment"}));
}

TEST(TkDataModel, KeepsPropertiesInTheByteOrderOfTheirNames) {
    for (const auto& e : tkDataModel()->entities()) {
        SCOPED_TRACE(e.name);
        EXPECT_TRUE(std::is_sorted(e.attributes.begin(), e.attributes.end(),
                                   [](const auto& a, const auto& b) { return a.name < b.name; }));
        EXPECT_TRUE(std::is_sorted(e.relationships.begin(), e.relationships.end(),
                                   [](const auto& a, const auto& b) { return a.name < b.name; }));
    }
}

// The compile-time property indexes the accessors use are the engine's.
TEST(TkDataModel, RecordPropertyIndexesAreTheEngines) {
    using tasket::store::detail::Schema;
#define TK_TEST_INDEX(C, kind, name, ...)                                                          \
    EXPECT_EQ(tkDataModel()->entity(#C)->propertyIndex(#name), Schema<C>::Property::name)          \
        << #C "." #name;
#define TK_TEST_ENTITY(C) TK_DATA_##C(TK_TEST_INDEX, C)
    using namespace tasket::store;
    TK_DATA_ENTITIES(TK_TEST_ENTITY)
#undef TK_TEST_ENTITY
#undef TK_TEST_INDEX
}
