// The TK_Data model: its twelve entities as the engine's model description,
// built from the one list in tk_data_model.def. Every object the engine makes
// for an entity of this model is an object of the record class of the same
// name (TK_Task, TK_Category, ...).
#pragma once

#include "objectstore/model/model.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace tasket::store {

/// The model's name, which is also the persistent container's.
inline constexpr std::string_view kModelName = "TK_Data";
/// The schema version written to the store file; raise it when an entity or
/// attribute is added.
inline constexpr std::int32_t kModelVersion = 1;

/// The model description, not yet finalized: for tests and tools that check
/// or vary it. Attributes and relationships are in the byte order of their
/// names; Bool, Int16 and Double attributes are required with a default of
/// 0, the others optional without default; identifiers are indexed.
objectstore::Model describeTkDataModel();

/// The finalized model, built once per process. Throws std::logic_error if
/// the description does not validate (a programming error).
const std::shared_ptr<const objectstore::Model>& tkDataModel();

} // namespace tasket::store
