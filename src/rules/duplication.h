// The titles under which duplication is offered. They name the object and,
// for a duplication with children, what it is duplicated with: "Duplicate
// Category", "Category with Tasks", "Task with Subtasks", "Attribute with
// Values".
#pragma once

#include "rules/action_enumerations.h"
#include "rules/object_enumerations.h"

#include <optional>
#include <string>

namespace tasket::rules {

/// The title of duplicating an object of kind `object` the `type` way;
/// nullopt for TK_DuplicationType::none, for TK_ObjectType::none, and for
/// `with` on kinds that hold no children (subtasks, attachments).
std::optional<std::string> duplicationTitle(TK_DuplicationType type, TK_ObjectType object);

} // namespace tasket::rules
