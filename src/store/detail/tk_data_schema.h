// The compile-time form of the TK_Data lists: per record class, its
// attributes and relationships as constexpr tables sorted by name (the
// model's order), and one index constant per property, so accessors reach a
// property by a number fixed at compile time. The model description
// (tk_data_model.cpp) is built from these tables.
#pragma once

#include "objectstore/model/model.h"
#include "store/tk_data_model.def"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace tasket::store {

#define TK_DATA_FORWARD_DECLARE(Class) class Class;
TK_DATA_ENTITIES(TK_DATA_FORWARD_DECLARE)
#undef TK_DATA_FORWARD_DECLARE

namespace detail {

struct AttributeField {
    std::string_view name;
    objectstore::AttributeType type;
    bool indexed;
};

struct RelationshipField {
    std::string_view name;
    std::string_view destination;
    std::string_view inverse;
    bool toMany;
    objectstore::DeleteRule deleteRule;
};

template <class Field, std::size_t N>
consteval std::array<Field, N> sortedByName(std::array<Field, N> fields) {
    std::sort(fields.begin(), fields.end(),
              [](const Field& a, const Field& b) { return a.name < b.name; });
    return fields;
}

template <class Field, std::size_t N>
consteval bool namesAreUnique(const std::array<Field, N>& sorted) {
    for (std::size_t i = 1; i < N; ++i)
        if (sorted[i - 1].name == sorted[i].name)
            return false;
    return true;
}

/// The position of `name` in `fields`; a name that is not there does not
/// compile.
template <class Field, std::size_t N>
consteval std::size_t indexOf(const std::array<Field, N>& fields, std::string_view name) {
    for (std::size_t i = 0; i < N; ++i)
        if (fields[i].name == name)
            return i;
    throw "no such property";
}

/// Specialised for each record class below.
template <class Record> struct Schema;

// X callbacks: attribute fields, relationship fields, index constants.
#define TK_SCHEMA_ATTRIBUTE(C, kind, ...) TK_SCHEMA_ATTRIBUTE_##kind(__VA_ARGS__)
#define TK_SCHEMA_ATTRIBUTE_ATTRIBUTE(name, Name, Type)                                            \
    AttributeField{#name, objectstore::AttributeType::Type, false},
#define TK_SCHEMA_ATTRIBUTE_IDENTIFIER(name, Name, Type)                                           \
    AttributeField{#name, objectstore::AttributeType::Type, true},
#define TK_SCHEMA_ATTRIBUTE_ENUM(name, Name, Enumeration)                                          \
    AttributeField{#name, objectstore::AttributeType::Int16, false},
#define TK_SCHEMA_ATTRIBUTE_TO_ONE(...)
#define TK_SCHEMA_ATTRIBUTE_TO_MANY(...)

#define TK_SCHEMA_RELATIONSHIP(C, kind, ...) TK_SCHEMA_RELATIONSHIP_##kind(__VA_ARGS__)
#define TK_SCHEMA_RELATIONSHIP_ATTRIBUTE(...)
#define TK_SCHEMA_RELATIONSHIP_IDENTIFIER(...)
#define TK_SCHEMA_RELATIONSHIP_ENUM(...)
#define TK_SCHEMA_RELATIONSHIP_TO_ONE(name, Name, Destination, inverse, Rule)                      \
    RelationshipField{#name, #Destination, #inverse, false, objectstore::DeleteRule::Rule},
#define TK_SCHEMA_RELATIONSHIP_TO_MANY(name, Name, Destination, inverse, Rule)                     \
    RelationshipField{#name, #Destination, #inverse, true, objectstore::DeleteRule::Rule},

#define TK_SCHEMA_INDEX(C, kind, ...) TK_SCHEMA_INDEX_##kind(__VA_ARGS__)
#define TK_SCHEMA_INDEX_ATTRIBUTE(name, ...)                                                       \
    static constexpr std::size_t name = indexOf(attributeFields, #name);
#define TK_SCHEMA_INDEX_IDENTIFIER TK_SCHEMA_INDEX_ATTRIBUTE
#define TK_SCHEMA_INDEX_ENUM TK_SCHEMA_INDEX_ATTRIBUTE
#define TK_SCHEMA_INDEX_TO_ONE(name, ...)                                                          \
    static constexpr std::size_t name = attributeFields.size() + indexOf(relationshipFields, #name);
#define TK_SCHEMA_INDEX_TO_MANY TK_SCHEMA_INDEX_TO_ONE

#define TK_SCHEMA_SPECIALIZE(Class)                                                                \
    template <> struct Schema<Class> {                                                             \
        static constexpr std::string_view entityName = #Class;                                     \
        static constexpr auto attributeFields =                                                    \
            sortedByName(std::array{TK_DATA_##Class(TK_SCHEMA_ATTRIBUTE, Class)});                 \
        static constexpr auto relationshipFields =                                                 \
            sortedByName(std::array{TK_DATA_##Class(TK_SCHEMA_RELATIONSHIP, Class)});              \
        static_assert(namesAreUnique(attributeFields) && namesAreUnique(relationshipFields),       \
                      #Class " names a property twice");                                           \
        /* Property indexes as the engine numbers them: attributes, then relationships. */         \
        struct Property {                                                                          \
            TK_DATA_##Class(TK_SCHEMA_INDEX, Class)                                                \
        };                                                                                         \
    };

TK_DATA_ENTITIES(TK_SCHEMA_SPECIALIZE)

#undef TK_SCHEMA_SPECIALIZE
#undef TK_SCHEMA_INDEX
#undef TK_SCHEMA_INDEX_ATTRIBUTE
#undef TK_SCHEMA_INDEX_IDENTIFIER
#undef TK_SCHEMA_INDEX_ENUM
#undef TK_SCHEMA_INDEX_TO_ONE
#undef TK_SCHEMA_INDEX_TO_MANY
#undef TK_SCHEMA_RELATIONSHIP
#undef TK_SCHEMA_RELATIONSHIP_ATTRIBUTE
#undef TK_SCHEMA_RELATIONSHIP_IDENTIFIER
#undef TK_SCHEMA_RELATIONSHIP_ENUM
#undef TK_SCHEMA_RELATIONSHIP_TO_ONE
#undef TK_SCHEMA_RELATIONSHIP_TO_MANY
#undef TK_SCHEMA_ATTRIBUTE
#undef TK_SCHEMA_ATTRIBUTE_ATTRIBUTE
#undef TK_SCHEMA_ATTRIBUTE_IDENTIFIER
#undef TK_SCHEMA_ATTRIBUTE_ENUM
#undef TK_SCHEMA_ATTRIBUTE_TO_ONE
#undef TK_SCHEMA_ATTRIBUTE_TO_MANY

} // namespace detail
} // namespace tasket::store
