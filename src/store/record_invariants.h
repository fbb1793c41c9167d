// The rules the rest of the system relies on when it lists tasks and
// subtasks, as named predicates in the object store's predicate language.
// The texts are fixed: fetches, smart-list filters and the in-memory
// evaluator all use them as written.
#pragma once

#include "objectstore/managed_object.h"
#include "objectstore/predicate/predicate.h"

#include <string_view>

namespace tasket::store {

/// A task is valid, and listed anywhere, only with a non-empty identifier in
/// a category that has a non-empty identifier and title. (TK_Task)
inline constexpr std::string_view kValidTaskFormat =
    "taskID != nil AND taskID != '' AND category != nil AND category.categoryID != '' AND "
    "category.title != ''";
/// A subtask is listed when it has an identifier. (TK_Subtask)
inline constexpr std::string_view kListedSubtaskFormat = "subtaskID != nil";
/// A task or subtask has notes. (TK_Task, TK_Subtask)
inline constexpr std::string_view kHasNotesFormat = "note != nil AND note != ''";
/// A task or subtask has a link.
inline constexpr std::string_view kHasLinkFormat = "url != nil AND url != ''";
/// A task or subtask has attachments: the older single blob, or attachment
/// objects.
inline constexpr std::string_view kHasAttachmentsFormat =
    "attachments != nil OR ANY attachmentsArray != nil";
/// The negation of kHasAttachmentsFormat.
inline constexpr std::string_view kHasNoAttachmentsFormat =
    "attachments = nil AND ANY attachmentsArray = nil";

// The same, parsed once.
const objectstore::Predicate& validTaskPredicate();
const objectstore::Predicate& listedSubtaskPredicate();
const objectstore::Predicate& hasNotesPredicate();
const objectstore::Predicate& hasLinkPredicate();
const objectstore::Predicate& hasAttachmentsPredicate();
const objectstore::Predicate& hasNoAttachmentsPredicate();

/// Whether `object` satisfies `predicate`, evaluated in memory (unsaved
/// changes included). Throws std::invalid_argument when the predicate does
/// not fit the object's entity (a programming error).
bool satisfies(const objectstore::ManagedObject& object, const objectstore::Predicate& predicate);

} // namespace tasket::store
