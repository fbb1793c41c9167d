#include "store/tk_data_model.h"

#include "store/records.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::store {

using objectstore::AttributeType;

namespace {

objectstore::Value defaultValue(AttributeType type) {
    switch (type) {
    case AttributeType::Bool: return false;
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64: return std::int64_t(0);
    case AttributeType::Double: return 0.0;
    default: return {};
    }
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find(' ', start), text.size());
        if (end > start)
            out.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

struct SortIndexField {
    std::string_view entity;
    std::string_view orderedBy;
    std::string_view carried;
};

constexpr SortIndexField kSortIndexes[] = {
#define TK_DATA_SORT_INDEX(Class, orderedBy, carried)                                              \
    {detail::Schema<Class>::entityName, orderedBy, carried},
    TK_DATA_SORT_INDEXES(TK_DATA_SORT_INDEX)
#undef TK_DATA_SORT_INDEX
};

template <class Record> void describe(objectstore::Model& model) {
    using Schema = detail::Schema<Record>;
    auto& entity = model.addEntity(std::string(Schema::entityName));
    for (const auto& a : Schema::attributeFields) {
        const auto initial = defaultValue(a.type);
        entity.attributes.push_back(
            {std::string(a.name), a.type, objectstore::isNil(initial), initial, a.indexed});
        // History keeps a deleted object's identifier, so the deletion can
        // be passed on (to the cloud) after the row is gone.
        if (a.indexed)
            entity.preservedOnDeletion.push_back(std::string(a.name));
    }
    for (const auto& r : Schema::relationshipFields)
        entity.relationships.push_back({std::string(r.name), std::string(r.destination),
                                        std::string(r.inverse), r.toMany, r.deleteRule, true});
    for (const auto& index : kSortIndexes)
        if (index.entity == Schema::entityName)
            entity.sortIndexes.push_back({words(index.orderedBy), words(index.carried)});
    entity.makeObject = [] { return std::make_shared<Record>(); };
}

} // namespace

objectstore::Model describeTkDataModel() {
    objectstore::Model model(std::string(kModelName), kModelVersion);
#define TK_DATA_DESCRIBE(Class) describe<Class>(model);
    TK_DATA_ENTITIES(TK_DATA_DESCRIBE)
#undef TK_DATA_DESCRIBE
    return model;
}

const std::shared_ptr<const objectstore::Model>& tkDataModel() {
    static const std::shared_ptr<const objectstore::Model> model = [] {
        auto m = std::make_shared<objectstore::Model>(describeTkDataModel());
        if (auto ok = m->finalize(); !ok)
            throw std::logic_error("the TK_Data model does not validate: " + ok.error().message);
        return std::shared_ptr<const objectstore::Model>(std::move(m));
    }();
    return model;
}

} // namespace tasket::store
