// The model the predicate language is tried on (its tests, its fuzzer):
// every attribute type, a to-one and its to-many inverse, a many-to-many,
// a one-to-one and a folder tree that refers to itself.
#pragma once

#include "objectstore/model/model.h"

#include <memory>
#include <stdexcept>

namespace tasket::testing {

/// Task(title, note, count:Int16, score:Double, flag:Bool, due, start:Date,
/// ident:UUID, blob:Binary, big:Int64; folder ->Folder, tags <<->> Tag,
/// steps ->> Step, detail <-> Detail), Folder(name, rank:Int32, archived;
/// tasks, parent <-> children), Tag(label, weight:Double; tasks),
/// Step(label, done, when; task), Detail(text; task). Names of folders,
/// tags and steps are indexed.
inline std::shared_ptr<const objectstore::Model> predicateTestModel() {
    static const std::shared_ptr<const objectstore::Model> model = [] {
        using namespace objectstore;
        using T = AttributeType;
        auto m = std::make_shared<Model>("PredicateTest", 1);
        auto& task = m->addEntity("Task");
        task.attributes = {{"title", T::String}, {"note", T::String}, {"count", T::Int16},
                           {"score", T::Double}, {"flag", T::Bool},   {"due", T::Date},
                           {"start", T::Date},   {"ident", T::UUID},  {"blob", T::Binary},
                           {"big", T::Int64}};
        task.relationships = {{"folder", "Folder", "tasks", false},
                              {"tags", "Tag", "tasks", true},
                              {"steps", "Step", "task", true},
                              {"detail", "Detail", "task", false}};
        auto& folder = m->addEntity("Folder");
        folder.attributes = {
            {"name", T::String, true, {}, true}, {"rank", T::Int32}, {"archived", T::Bool}};
        folder.relationships = {{"tasks", "Task", "folder", true},
                                {"parent", "Folder", "children", false},
                                {"children", "Folder", "parent", true}};
        auto& tag = m->addEntity("Tag");
        tag.attributes = {{"label", T::String, true, {}, true}, {"weight", T::Double}};
        tag.relationships = {{"tasks", "Task", "tags", true}};
        auto& step = m->addEntity("Step");
        step.attributes = {
            {"label", T::String, true, {}, true}, {"done", T::Bool}, {"when", T::Date}};
        step.relationships = {{"task", "Task", "steps", false}};
        auto& detail = m->addEntity("Detail");
        detail.attributes = {{"text", T::String}};
        detail.relationships = {{"task", "Task", "detail", false}};
        if (auto finalized = m->finalize(); !finalized)
            throw std::logic_error(finalized.error().message);
        return m;
    }();
    return model;
}

} // namespace tasket::testing
