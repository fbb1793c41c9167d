// A small model shaped like the domain (lists, items, labels, notes) for
// the engine's own tests: a one-to-many with nullify/cascade, a
// many-to-many, a deny rule and a one-to-one. Entities are added one at a
// time: a reference from addEntity() is used before the next call.
#pragma once

#include "objectstore/model/model.h"

#include <memory>

namespace tasket::testing {

inline std::shared_ptr<objectstore::Model> makeTestModel(int version = 1, bool withExtra = false) {
    using namespace objectstore;
    auto m = std::make_shared<Model>("Test", version);
    auto& list = m->addEntity("List");
    list.attributes = {{"title", AttributeType::String, true, std::string(""), false},
                       {"sortIndex", AttributeType::Int16, true, std::int64_t(0), false}};
    list.relationships = {{"items", "Item", "list", true, DeleteRule::Cascade},
                          {"owner", "Person", "lists", false, DeleteRule::Nullify}};
    auto& item = m->addEntity("Item");
    item.attributes = {{"title", AttributeType::String, true, {}, false},
                       {"done", AttributeType::Bool, false, false, true},
                       {"due", AttributeType::Date, true, {}, false},
                       {"score", AttributeType::Double, true, {}, false},
                       {"identifier", AttributeType::UUID, true, {}, false},
                       {"blob", AttributeType::Binary, true, {}, false}};
    item.preservedOnDeletion = {"title", "identifier"};
    if (withExtra)
        item.attributes.push_back({"priority", AttributeType::Int32, true, std::int64_t(3), false});
    item.relationships = {{"list", "List", "items", false, DeleteRule::Nullify},
                          {"labels", "Label", "items", true, DeleteRule::Nullify},
                          {"note", "Note", "item", false, DeleteRule::Cascade}};
    auto& label = m->addEntity("Label");
    label.attributes = {{"name", AttributeType::String, true, {}, false}};
    label.relationships = {{"items", "Item", "labels", true, DeleteRule::Nullify}};
    auto& person = m->addEntity("Person");
    person.attributes = {{"name", AttributeType::String, true, {}, false}};
    person.relationships = {{"lists", "List", "owner", true, DeleteRule::Deny}};
    auto& note = m->addEntity("Note");
    note.attributes = {{"text", AttributeType::String, true, {}, false}};
    note.relationships = {{"item", "Item", "note", false, DeleteRule::Nullify}};
    if (withExtra) {
        auto& tag = m->addEntity("Extra");
        tag.attributes = {{"value", AttributeType::String, true, {}, false}};
    }
    auto ok = m->finalize();
    if (!ok)
        throw std::runtime_error(ok.error().message);
    return m;
}

} // namespace tasket::testing
