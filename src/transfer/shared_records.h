// The twelve transfer records as C++ values: flat copies of store objects
// that carry attributes by value and relationships as identifier texts.
// Each record type and its field table are expanded from
// shared_records.def; code that works on any record walks
// RecordTraits<R>::fields() instead of naming members.
#pragma once

#include "platform/date.h"
#include "transfer/shared_records.def"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tasket::transfer {

using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;

/// What a field holds: a value of the object, or identifiers of others.
enum class FieldKind { String, Int, Double, Bool, Date, Data, Ref, Refs };

// The C++ type of each kind: every field but `id` may be absent.
using TK_SharedType_String = std::optional<std::string>;
using TK_SharedType_Int = std::optional<std::int64_t>;
using TK_SharedType_Double = std::optional<double>;
using TK_SharedType_Bool = std::optional<bool>;
using TK_SharedType_Date = std::optional<platform::Date>;
using TK_SharedType_Data = std::optional<Bytes>;
using TK_SharedType_Ref = std::optional<std::string>;
using TK_SharedType_Refs = std::optional<Strings>;

#define TK_SHARED_MEMBER(key, Kind, store, Target) TK_SharedType_##Kind key{};
#define TK_SHARED_DECLARE(Record, Entity, contentType)                                             \
    struct Record {                                                                                \
        std::string id;                                                                            \
        TK_SHARED_##Record(TK_SHARED_MEMBER) friend bool operator==(const Record&,                 \
                                                                    const Record&) = default;      \
    };
TK_SHARED_RECORDS(TK_SHARED_DECLARE)
#undef TK_SHARED_DECLARE
#undef TK_SHARED_MEMBER

/// Any one record, tagged by its type.
#define TK_SHARED_ALTERNATIVE(Record, Entity, contentType) , Record
using AnyRecord = std::variant<std::monostate TK_SHARED_RECORDS(TK_SHARED_ALTERNATIVE)>;
#undef TK_SHARED_ALTERNATIVE

/// One field of record type R: its key, kind, store property, the entity
/// a reference names ("" for values), and where R keeps it.
template <class R> struct Field {
    using Member = std::variant<std::optional<std::string> R::*, std::optional<std::int64_t> R::*,
                                std::optional<double> R::*, std::optional<bool> R::*,
                                std::optional<platform::Date> R::*, std::optional<Bytes> R::*,
                                std::optional<Strings> R::*>;
    std::string_view key;
    FieldKind kind;
    std::string_view storeName;
    std::string_view target;
    Member member;
};

template <class R> struct RecordTraits;

/// The entity a table row names: "" for `_`, the mark of a value.
constexpr std::string_view targetName(std::string_view target) {
    return target == "_" ? std::string_view() : target;
}

#define TK_SHARED_FIELD(key, Kind, store, Target)                                                  \
    Field<R>{#key, FieldKind::Kind, #store, targetName(#Target), &R::key},
#define TK_SHARED_TRAITS(Record, Entity, contentType)                                              \
    template <> struct RecordTraits<Record> {                                                      \
        using R = Record;                                                                          \
        static constexpr std::string_view kName = #Record;                                         \
        static constexpr std::string_view kEntity = #Entity;                                       \
        static constexpr std::string_view kContentType = contentType;                              \
        /* The fields after `id`, in declared order. */                                            \
        static constexpr std::array kFields{TK_SHARED_##Record(TK_SHARED_FIELD)};                  \
    };
TK_SHARED_RECORDS(TK_SHARED_TRAITS)
#undef TK_SHARED_TRAITS
#undef TK_SHARED_FIELD

/// The names of the records, in the order the table lists them, and the
/// content type of each ("" for the attachment, which has none).
struct RecordKind {
    std::string_view name;
    std::string_view entity;
    std::string_view contentType;
};
#define TK_SHARED_KIND(Record, Entity, contentType) RecordKind{#Record, #Entity, contentType},
inline constexpr std::array kRecordKinds{TK_SHARED_RECORDS(TK_SHARED_KIND)};
#undef TK_SHARED_KIND

/// Calls f(record) with the record held by `any` (nothing for monostate).
template <class F> void visitRecord(const AnyRecord& any, F&& f) {
    std::visit(
        [&](const auto& record) {
            if constexpr (!std::is_same_v<std::decay_t<decltype(record)>, std::monostate>)
                f(record);
        },
        any);
}

} // namespace tasket::transfer
