#include "transfer/store_mapping.h"

#include "store/tk_data_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

namespace tasket::transfer {
namespace {

using objectstore::AttributeType;
using objectstore::EntityDescription;
using objectstore::ManagedObject;
using objectstore::ObjectID;
using objectstore::ObjectPtr;
using objectstore::Value;
using platform::Errc;
using platform::Result;

const objectstore::Model& model() {
    return *store::tkDataModel();
}

// The attribute an entity's objects are named by: its one indexed attribute.
std::size_t identifierProperty(const EntityDescription& entity) {
    for (std::size_t i = 0; i < entity.attributes.size(); ++i)
        if (entity.attributes[i].indexed)
            return i;
    throw std::logic_error(fmt::format("{} has no identifier attribute", entity.name));
}

std::string identifierText(const Value& value) {
    if (const auto* text = std::get_if<std::string>(&value))
        return *text;
    if (const auto* uuid = std::get_if<platform::Uuid>(&value))
        return uuid->toString();
    return {};
}

// Where each field of R lives on its entity, resolved once from the model.
struct Plan {
    const EntityDescription* entity;
    std::size_t idProperty;
    std::vector<std::size_t> properties; // per field
    std::vector<std::uint32_t> targets;  // per field: entity index of a Ref/Refs
};

template <class R> const Plan& planOf() {
    static const Plan plan = [] {
        const EntityDescription* entity = model().entity(RecordTraits<R>::kEntity);
        if (!entity)
            throw std::logic_error(fmt::format("no entity {}", RecordTraits<R>::kEntity));
        Plan p{entity, identifierProperty(*entity), {}, {}};
        for (const auto& field : RecordTraits<R>::kFields) {
            const auto property = entity->propertyIndex(field.storeName);
            if (!property)
                throw std::logic_error(fmt::format("{}.{}: the store has no {}",
                                                   RecordTraits<R>::kName, field.key,
                                                   field.storeName));
            p.properties.push_back(*property);
            const auto* target = field.target.empty() ? nullptr : model().entity(field.target);
            p.targets.push_back(target ? target->index : 0);
        }
        return p;
    }();
    return plan;
}

template <class R> constexpr std::size_t kindIndex() {
    for (std::size_t i = 0; i < kRecordKinds.size(); ++i)
        if (kRecordKinds[i].name == RecordTraits<R>::kName)
            return i;
    return kRecordKinds.size();
}

// ---- Store value -> record field ------------------------------------------------

template <class T> void assign(const Value& value, std::optional<T>& out, std::string_view key) {
    if (objectstore::isNil(value)) {
        out.reset();
    } else if constexpr (std::is_same_v<T, std::string>) {
        out = identifierText(value);
    } else if (const auto* v = std::get_if<T>(&value)) {
        out = *v;
    } else {
        throw std::logic_error(fmt::format("{}: the store's value has another type", key));
    }
}

// ---- Record field -> store value ------------------------------------------------

template <class T> Value toValue(const std::optional<T>& field, const Value& nilValue) {
    if (!field)
        return nilValue;
    if constexpr (std::is_same_v<T, Strings>)
        throw std::logic_error("a list is not a value");
    else
        return Value(*field);
}

std::string normalised(const EntityDescription& entity, const std::string& identifier) {
    if (entity.attributes[identifierProperty(entity)].type != AttributeType::UUID)
        return identifier;
    const auto uuid = platform::Uuid::parse(identifier);
    return uuid ? uuid->toString() : identifier;
}

} // namespace

// ---- Filling ------------------------------------------------------------------

std::string recordIdentifier(const ManagedObject& object) {
    return identifierText(object.value(identifierProperty(object.entityDescription())));
}

template <class R> R recordFrom(const ManagedObject& object) {
    const Plan& plan = planOf<R>();
    if (&object.entityDescription() != plan.entity &&
        object.entityDescription().name != plan.entity->name)
        throw std::logic_error(
            fmt::format("{} is not a {}", object.entityDescription().name, plan.entity->name));
    R record;
    record.id = identifierText(object.value(plan.idProperty));
    const auto& fields = RecordTraits<R>::kFields;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto& field = fields[i];
        const std::size_t property = plan.properties[i];
        std::visit(
            [&](auto member) {
                auto& out = record.*member;
                using T = typename std::decay_t<decltype(out)>::value_type;
                if constexpr (std::is_same_v<T, Strings>) {
                    auto targets = object.toMany(property);
                    if (auto loaded = object.context()->fireFaults(targets); !loaded)
                        throw std::runtime_error(loaded.error().message);
                    out.emplace();
                    for (const auto& target : targets)
                        if (auto id = recordIdentifier(*target); !id.empty())
                            out->push_back(std::move(id));
                    // A to-many is a set: sorted, the same objects always
                    // give the same record.
                    std::ranges::sort(*out);
                } else if (field.kind == FieldKind::Ref) {
                    const auto target = object.toOne(property);
                    std::string id = target ? recordIdentifier(*target) : std::string();
                    if constexpr (std::is_same_v<T, std::string>) {
                        if (id.empty())
                            out.reset();
                        else
                            out = std::move(id);
                    }
                } else {
                    assign(object.value(property), out, field.key);
                }
            },
            field.member);
    }
    return record;
}

AnyRecord recordFromObject(const ManagedObject& object) {
    const std::string_view entity = object.entityDescription().name;
#define TK_SHARED_FROM(Record, Entity, contentType)                                                \
    if (entity == #Entity)                                                                         \
        return recordFrom<Record>(object);
    TK_SHARED_RECORDS(TK_SHARED_FROM)
#undef TK_SHARED_FROM
    throw std::logic_error(fmt::format("no record for {}", entity));
}

std::vector<std::string> referencedRelationships(std::string_view entity) {
    std::vector<std::string> names;
    auto collect = [&](const Plan& plan) {
        for (const std::size_t property : plan.properties)
            if (property >= plan.entity->attributes.size())
                names.push_back(
                    plan.entity->relationships[property - plan.entity->attributes.size()].name);
    };
#define TK_SHARED_RELATIONSHIPS(Record, Entity, contentType)                                       \
    if (entity == #Entity)                                                                         \
        collect(planOf<Record>());
    TK_SHARED_RECORDS(TK_SHARED_RELATIONSHIPS)
#undef TK_SHARED_RELATIONSHIPS
    return names;
}

// ---- Applying -----------------------------------------------------------------

Result<RecordApplier> RecordApplier::make(objectstore::ObjectContext& context) {
    constexpr std::size_t kChunk = 1000;
    RecordApplier applier(context);
    applier.m_stored.resize(model().entities().size());
    applier.m_applied.resize(model().entities().size());
    for (const auto& entity : model().entities()) {
        objectstore::FetchRequest request(entity.name);
        request.includesPendingChanges = false;
        auto ids = context.fetchObjectIDs(request);
        if (!ids)
            return std::unexpected(ids.error());
        const std::size_t property = identifierProperty(entity);
        // A chunk at a time, forgotten after, so a large store costs its
        // identifiers and not its rows.
        for (std::size_t at = 0; at < ids->size(); at += kChunk) {
            std::vector<ObjectPtr> chunk;
            for (std::size_t i = at; i < std::min(ids->size(), at + kChunk); ++i)
                chunk.push_back(context.objectWithID((*ids)[i]));
            if (auto loaded = context.fireFaults(chunk); !loaded)
                return std::unexpected(loaded.error());
            for (const auto& object : chunk)
                if (auto id = identifierText(object->value(property)); !id.empty())
                    applier.m_stored[entity.index].emplace(std::move(id), object->objectID());
            if (!context.hasChanges())
                context.reset();
        }
    }
    return applier;
}

ObjectPtr RecordApplier::resolve(std::uint32_t entity, const std::string& identifier) {
    auto& applied = m_applied[entity];
    if (const auto found = applied.find(identifier); found != applied.end())
        return found->second;
    const auto& stored = m_stored[entity];
    if (const auto found = stored.find(identifier); found != stored.end())
        return applied.emplace(identifier, m_context->objectWithID(found->second)).first->second;
    return nullptr;
}

template <class R> Result<void> RecordApplier::applyRecord(const R& record, std::size_t kind) {
    const Plan& plan = planOf<R>();
    const EntityDescription& entity = *plan.entity;
    const auto& fields = RecordTraits<R>::kFields;
    auto refuse = [&](std::string_view key, std::string_view problem) {
        return platform::fail(
            Errc::invalidArgument,
            fmt::format("{} \"{}\": \"{}\" {}", RecordTraits<R>::kName, record.id, key, problem));
    };

    // Everything is checked before anything is written.
    if (record.id.empty())
        return refuse("id", "is empty");
    Value idValue = record.id;
    if (entity.attributes[plan.idProperty].type == AttributeType::UUID) {
        const auto uuid = platform::Uuid::parse(record.id);
        if (!uuid)
            return refuse("id", "is not a UUID");
        idValue = *uuid;
    }
    const std::string key = identifierText(idValue);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto* member = std::get_if<std::optional<std::int64_t> R::*>(&fields[i].member);
        const auto& attribute = entity.attributes[plan.properties[i]];
        if (member && attribute.type == AttributeType::Int16 && record.**member &&
            (*(record.**member) < -32768 || *(record.**member) > 32767))
            return refuse(fields[i].key,
                          fmt::format("is {}, outside the store's range -32768 to 32767",
                                      *(record.**member)));
    }

    ObjectPtr object = resolve(entity.index, key);
    if (object) {
        ++m_counts.updated[kind];
    } else {
        object = m_context->insertNewObject(entity.index);
        object->setValue(plan.idProperty, idValue);
        m_applied[entity.index].emplace(key, object);
        ++m_counts.created[kind];
    }
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto& field = fields[i];
        const std::size_t property = plan.properties[i];
        if (field.kind == FieldKind::Ref || field.kind == FieldKind::Refs) {
            Link link{
                object,
                property,
                plan.targets[i],
                field.kind == FieldKind::Refs,
                {},
                fmt::format("{} \"{}\": \"{}\"", RecordTraits<R>::kName, record.id, field.key)};
            std::visit(
                [&](auto member) {
                    const auto& value = record.*member;
                    using T = typename std::decay_t<decltype(value)>::value_type;
                    if constexpr (std::is_same_v<T, Strings>) {
                        link.identifiers = value;
                    } else if constexpr (std::is_same_v<T, std::string>) {
                        if (value)
                            link.identifiers = Strings{*value};
                    }
                },
                field.member);
            m_links.push_back(std::move(link));
            continue;
        }
        const Value& nilValue = entity.attributes[property].defaultValue;
        std::visit(
            [&](auto member) { object->setValue(property, toValue(record.*member, nilValue)); },
            field.member);
    }
    return {};
}

Result<void> RecordApplier::apply(const AnyRecord& any) {
    Result<void> result = platform::fail(Errc::invalidArgument, "no record");
    visitRecord(any, [&](const auto& record) {
        using R = std::decay_t<decltype(record)>;
        result = applyRecord(record, kindIndex<R>());
    });
    return result;
}

std::vector<std::string> RecordApplier::finish() {
    std::vector<std::string> missing;
    const auto& entities = model().entities();
    for (auto& link : m_links) {
        if (!link.identifiers) {
            if (!link.toMany)
                link.owner->setToOne(link.property, nullptr);
            continue;
        }
        const EntityDescription& target = entities[link.target];
        std::vector<ObjectPtr> wanted;
        std::unordered_set<ObjectID, objectstore::ObjectIDHash> wantedIDs;
        for (const auto& identifier : *link.identifiers) {
            const std::string key = normalised(target, identifier);
            if (auto object = resolve(link.target, key)) {
                wantedIDs.insert(object->objectID());
                wanted.push_back(std::move(object));
            } else {
                missing.push_back(fmt::format("{} names {} \"{}\", which is neither in the store "
                                              "nor among the records; left out",
                                              link.who, target.name, identifier));
            }
        }
        if (!link.toMany) {
            if (!wanted.empty())
                link.owner->setToOne(link.property, wanted.front());
            continue;
        }
        const auto current = link.owner->toManyIDs(link.property);
        for (const ObjectID id : current)
            if (!wantedIDs.contains(id))
                link.owner->removeFromMany(link.property, m_context->objectWithID(id));
        for (const auto& object : wanted)
            link.owner->addToMany(link.property, object);
    }
    m_links.clear();
    return missing;
}

#define TK_SHARED_INSTANTIATE(Record, Entity, contentType)                                         \
    template Record recordFrom<Record>(const ManagedObject&);
TK_SHARED_RECORDS(TK_SHARED_INSTANTIATE)
#undef TK_SHARED_INSTANTIATE

} // namespace tasket::transfer
