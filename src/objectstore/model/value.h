// The values an object-store attribute can hold, and object identities.
// Header-only so the predicate language can share it without a link
// dependency on the engine.
#pragma once

#include "platform/date.h"
#include "platform/uuid.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace tasket::objectstore {

using platform::Date;
using platform::Uuid;
using Bytes = std::vector<std::uint8_t>;

/// An attribute value; std::monostate is nil. Every integer width is held
/// as int64; Int16 attributes are range-checked when set.
using Value =
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Uuid, Bytes>;

[[nodiscard]] inline bool isNil(const Value& v) {
    return std::holds_alternative<std::monostate>(v);
}

/// The identity of one object in one store. Objects inserted and not yet
/// saved carry a temporary (negative) key; saving makes it permanent.
struct ObjectID {
    std::uint32_t entity = 0; // index into the model's entities
    std::int64_t key = 0;     // SQLite rowid; negative while temporary

    [[nodiscard]] bool isTemporary() const { return key < 0; }
    [[nodiscard]] bool isValid() const { return key != 0; }
    friend auto operator<=>(const ObjectID&, const ObjectID&) = default;
};

struct ObjectIDHash {
    std::size_t operator()(const ObjectID& id) const noexcept {
        return std::hash<std::int64_t>()(id.key) * 31u + id.entity;
    }
};

} // namespace tasket::objectstore
