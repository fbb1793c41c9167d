#include "cloud/cloud_record_keys.h"

#include "store/tk_data_model.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

namespace tasket::cloud {

using objectstore::AttributeType;
using objectstore::EntityDescription;
using objectstore::Value;

namespace {

struct Rename {
    std::string_view entity; // "" for every entity
    std::string_view property;
    std::string_view key;
};

// Where the cloud's records spell a key differently from the store.
constexpr std::array kRenames{
    Rename{"", "notes", "note"},
    Rename{"", "creationDate", "whenCreated"},
    Rename{"TK_Task", "attachmentsFilter", "taskAttachmentsFilter"},
    Rename{"TK_Task", "attachmentsSortOrder", "taskAttachmentsSortOrder"},
    Rename{"TK_Task", "attachmentsSortOrderDirection", "taskAttachmentsSortOrderDirection"},
    Rename{"TK_Task", "attachmentsViewType", "taskAttachmentsViewType"},
    Rename{"TK_Subtask", "attachmentsFilter", "taskAttachmentsFilter"},
    Rename{"TK_Subtask", "attachmentsSortOrder", "taskAttachmentsSortOrder"},
    Rename{"TK_Subtask", "attachmentsSortOrderDirection", "taskAttachmentsSortOrderDirection"},
    Rename{"TK_Subtask", "attachmentsViewType", "taskAttachmentsViewType"},
    // The attachment objects travel as "attachments"; the archived
    // attachment bytes of the same name move aside.
    Rename{"TK_Task", "attachmentsArray", "attachments"},
    Rename{"TK_Task", "attachments", "attachmentsData"},
    Rename{"TK_Subtask", "attachmentsArray", "attachments"},
    Rename{"TK_Subtask", "attachments", "attachmentsData"},
};

// The list actions' targets: "addTasksToTags" -> "addToTags".
constexpr std::array<std::pair<std::string_view, std::string_view>, 2> kPrefixes{{
    {"addTasksTo", "addTo"},
    {"removeTasksFrom", "removeFrom"},
}};

// The record above an object in a shared category's hierarchy.
constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kParents{{
    {"TK_Task", "category"},
    {"TK_Subtask", "task"},
    {"TK_Attachment", "task"},
    {"TK_Attachment", "subtask"},
    {"TK_BoardSection", "category"},
    {"TK_AttributeValue", "attribute"},
}};

EntityKeys makeKeys(const EntityDescription& e) {
    EntityKeys keys;
    keys.entity = &e;
    for (std::size_t p = 0; p < e.propertyCount(); ++p) {
        const auto& name = e.propertyName(p);
        // The user's own role in a share is not the object's: never sent.
        if (name == "shareRole")
            continue;
        if (e.isAttribute(p) && e.attributes[p].indexed)
            keys.identifier = p;
        if (name == "sharedCategoryIdentifier")
            keys.sharedCategoryIdentifier = p;
        const CloudKeyKind kind = e.isAttribute(p)           ? CloudKeyKind::attribute
                                  : e.relationship(p).toMany ? CloudKeyKind::toMany
                                                             : CloudKeyKind::toOne;
        keys.keys.push_back({cloudKeyFor(e.name, name), p, kind});
    }
    for (const auto& [entity, relationship] : kParents)
        if (entity == e.name)
            keys.parents.push_back(e.propertyIndex(relationship).value());
    return keys;
}

const std::map<std::string, EntityKeys, std::less<>>& tables() {
    static const auto built = [] {
        std::map<std::string, EntityKeys, std::less<>> out;
        for (const auto& e : store::tkDataModel()->entities())
            out.emplace(e.name, makeKeys(e));
        return out;
    }();
    return built;
}

} // namespace

const EntityKeys* entityKeys(std::string_view entity) {
    const auto& all = tables();
    const auto it = all.find(entity);
    return it == all.end() ? nullptr : &it->second;
}

std::string cloudKeyFor(std::string_view entity, std::string_view property) {
    for (const auto& rename : kRenames)
        if ((rename.entity.empty() || rename.entity == entity) && rename.property == property)
            return std::string(rename.key);
    for (const auto& [from, to] : kPrefixes)
        if (property.starts_with(from))
            return std::string(to) + std::string(property.substr(from.size()));
    return std::string(property);
}

std::string identifierOf(const objectstore::ManagedObject& object) {
    const auto* keys = entityKeys(object.entityDescription().name);
    if (keys == nullptr)
        return {};
    const Value& value = object.value(keys->identifier);
    if (const auto* text = std::get_if<std::string>(&value))
        return *text;
    if (const auto* uuid = std::get_if<platform::Uuid>(&value))
        return uuid->toString();
    return {};
}

namespace {

platform::CloudValue cloudValue(const Value& value) {
    return std::visit(
        [](const auto& v) -> platform::CloudValue {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, platform::Uuid>)
                return v.toString();
            else if constexpr (std::is_same_v<T, objectstore::Bytes>)
                return platform::CloudData(v);
            else
                return v;
        },
        value);
}

} // namespace

void writeFields(const objectstore::ManagedObject& object, bool underSharedCategory,
                 platform::CloudRecord& record) {
    const auto* keys = entityKeys(object.entityDescription().name);
    if (keys == nullptr)
        return;
    for (const auto& key : keys->keys) {
        switch (key.kind) {
        case CloudKeyKind::attribute:
            record.fields[key.key] = cloudValue(object.value(key.property));
            break;
        case CloudKeyKind::toOne: {
            const auto target = object.toOne(key.property);
            const std::string name = target ? identifierOf(*target) : std::string();
            record.fields[key.key] =
                name.empty() ? platform::CloudValue{} : platform::CloudReference{name};
            break;
        }
        case CloudKeyKind::toMany: {
            platform::CloudNameList names;
            for (const auto& target : object.toMany(key.property))
                if (auto name = identifierOf(*target); !name.empty())
                    names.push_back(std::move(name));
            std::ranges::sort(names); // a set: the same members give the same record
            record.fields[key.key] = std::move(names);
            break;
        }
        }
    }
    record.parent.reset();
    if (!underSharedCategory)
        return;
    for (const auto parent : keys->parents)
        if (const auto target = object.toOne(parent)) {
            record.parent = platform::CloudReference{identifierOf(*target)};
            return;
        }
    if (keys->sharedCategoryIdentifier)
        if (const auto* id =
                std::get_if<std::string>(&object.value(*keys->sharedCategoryIdentifier)))
            record.parent = platform::CloudReference{*id};
}

std::optional<Value> storeValue(const EntityDescription& entity, std::size_t attribute,
                                const platform::CloudValue& field) {
    if (std::holds_alternative<std::monostate>(field))
        return Value{};
    switch (entity.attributes.at(attribute).type) {
    case AttributeType::String:
        if (const auto* v = std::get_if<std::string>(&field))
            return Value{*v};
        break;
    case AttributeType::UUID:
        if (const auto* v = std::get_if<std::string>(&field))
            if (auto uuid = platform::Uuid::parse(*v))
                return Value{*uuid};
        break;
    case AttributeType::Date:
        if (const auto* v = std::get_if<platform::Date>(&field))
            return Value{*v};
        break;
    case AttributeType::Bool:
        if (const auto* v = std::get_if<bool>(&field))
            return Value{*v};
        break;
    case AttributeType::Int16:
    case AttributeType::Int32:
    case AttributeType::Int64:
        if (const auto* v = std::get_if<std::int64_t>(&field))
            return Value{*v};
        break;
    case AttributeType::Double:
        if (const auto* v = std::get_if<double>(&field))
            return Value{*v};
        if (const auto* v = std::get_if<std::int64_t>(&field))
            return Value{static_cast<double>(*v)};
        break;
    case AttributeType::Binary:
        if (const auto* v = std::get_if<platform::CloudData>(&field))
            return Value{objectstore::Bytes(*v)};
        break;
    }
    return std::nullopt;
}

} // namespace tasket::cloud
