#include "objectstore/model/model.h"

#include <gtest/gtest.h>

using namespace tasket::objectstore;

namespace {

// Two entities, A.bs <-> B.a, which each case then breaks in one way.
Model pair(const std::function<void(Model&)>& breakIt) {
    Model m("M", 1);
    auto& a = m.addEntity("A");
    a.attributes = {{"name", AttributeType::String}};
    a.relationships = {{"bs", "B", "a", true}};
    auto& b = m.addEntity("B");
    b.relationships = {{"a", "A", "bs", false}};
    breakIt(m);
    return m;
}

EntityDescription& A(Model& m) {
    return const_cast<EntityDescription&>(*m.entity("A"));
}
EntityDescription& B(Model& m) {
    return const_cast<EntityDescription&>(*m.entity("B"));
}

} // namespace

TEST(Model, ValidationRejectsWhatDoesNotPairUp) {
    struct Case {
        const char* name;
        std::function<void(Model&)> breakIt;
        const char* message;
    };
    const std::vector<Case> cases = {
        {"missing inverse", [](Model& m) { B(m).relationships.clear(); },
         "inverse 'B.a' does not exist"},
        {"inverse names another", [](Model& m) { B(m).relationships[0].inverse = "other"; },
         "does not point back"},
        {"unknown destination", [](Model& m) { A(m).relationships[0].destination = "C"; },
         "destination entity 'C' does not exist"},
        {"inverse is an attribute", [](Model& m) { B(m).relationships[0].inverse = "name"; },
         "does not point back"},
        {"property twice",
         [](Model& m) {
             A(m).attributes.push_back({"bs", AttributeType::Bool});
         },
         "used twice"},
        {"reserved name",
         [](Model& m) {
             A(m).attributes.push_back({"pk", AttributeType::Bool});
         },
         "reserved"},
        {"default of another type",
         [](Model& m) { A(m).attributes[0].defaultValue = std::int64_t(1); },
         "default value is not of type String"},
        {"sort index orders by nothing",
         [](Model& m) {
             A(m).sortIndexes = {{{}, {"name"}}};
         },
         "orders by nothing"},
        {"sort index on a to-many",
         [](Model& m) {
             A(m).sortIndexes = {{{"name"}, {"bs"}}};
         },
         "A.bs: a sort index names what is not a column"},
        {"sort index on an unknown name", [](Model& m) { B(m).sortIndexes = {{{"size"}}}; },
         "B.size: a sort index names what is not a column"},
    };
    for (const auto& c : cases) {
        Model m = pair(c.breakIt);
        auto ok = m.finalize();
        ASSERT_FALSE(ok) << c.name;
        EXPECT_NE(ok.error().message.find(c.message), std::string::npos)
            << c.name << ": " << ok.error().message;
    }
    Model good = pair([](Model& m) { B(m).sortIndexes = {{{"a"}}}; });
    ASSERT_TRUE(good.finalize());
    EXPECT_EQ(good.entity("B")->storage[0], RelationshipStorage::ForeignKey);
    EXPECT_EQ(good.entity("A")->storage[0], RelationshipStorage::InverseColumn);
}
