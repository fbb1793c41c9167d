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
        const char* message;
        std::function<void(Model&)> breakIt;
    };
    using M = Model;
    const AttributeDescription bs{"bs", AttributeType::Bool}, pk{"pk", AttributeType::Bool};
    const std::vector<SortIndexDescription> byNothing{{{}, {"name"}}}, onToMany{{{"name"}, {"bs"}}};
    const std::vector<Case> cases = {
        {"inverse 'B.a' does not exist", [](M& m) { B(m).relationships.clear(); }},
        {"does not point back (it names A.other)",
         [](M& m) { B(m).relationships[0].inverse = "other"; }},
        {"entity 'C' does not exist", [](M& m) { A(m).relationships[0].destination = "C"; }},
        {"does not point back (it names A.name)",
         [](M& m) { B(m).relationships[0].inverse = "name"; }},
        {"used twice", [&](M& m) { A(m).attributes.push_back(bs); }},
        {"reserved", [&](M& m) { A(m).attributes.push_back(pk); }},
        {"is not of type String", [](M& m) { A(m).attributes[0].defaultValue = std::int64_t(1); }},
        {"orders by nothing", [&](M& m) { A(m).sortIndexes = byNothing; }},
        {"A.bs: a sort index names what is not a column",
         [&](M& m) { A(m).sortIndexes = onToMany; }},
        {"B.size: a sort index names what is not a column",
         [](M& m) { B(m).sortIndexes = {{{"size"}}}; }},
    };
    for (const auto& c : cases) {
        Model m = pair(c.breakIt);
        auto ok = m.finalize();
        ASSERT_FALSE(ok) << c.message;
        EXPECT_NE(ok.error().message.find(c.message), std::string::npos) << ok.error().message;
    }
    Model good = pair([](Model& m) { B(m).sortIndexes = {{{"a"}}}; });
    ASSERT_TRUE(good.finalize());
    EXPECT_EQ(good.entity("B")->storage[0], RelationshipStorage::ForeignKey);
    EXPECT_EQ(good.entity("A")->storage[0], RelationshipStorage::InverseColumn);
}
