// The domain's predicates, in the object store's predicate language: which
// records are listed at all, what a task or subtask holds, how searches,
// the focus filter and identifier lookups narrow a fetch. The texts are
// fixed (fetches, smart-list filters and the in-memory evaluator all use
// them as written); the builders give them parsed, with their arguments.
#pragma once

#include "objectstore/predicate/predicate.h"

#include <string>
#include <string_view>
#include <vector>

namespace tasket::rules::predicates {

// ---- Which records are listed -----------------------------------------------------

/// A task is valid, and listed anywhere, only with a non-empty identifier in
/// a list that has a non-empty identifier and title. (TK_Task)
inline constexpr std::string_view kValidTask =
    "taskID != nil AND taskID != '' AND category != nil AND category.categoryID != '' AND "
    "category.title != ''";
/// A subtask is listed when it has an identifier. (TK_Subtask)
inline constexpr std::string_view kListedSubtask = "subtaskID != nil";
/// Folders, smart lists, attributes, board sections and attachments are
/// listed when they have an identifier.
inline constexpr std::string_view kHasIdentifier = "identifier != nil";
inline constexpr std::string_view kListedCategory = "categoryID != nil";
inline constexpr std::string_view kListedTag = "tagID != nil";
inline constexpr std::string_view kListedPriority = "priorityID != nil";
inline constexpr std::string_view kListedStatus = "statusID != nil";
/// An attribute value is listed under its attribute only.
inline constexpr std::string_view kListedValue = "attribute != nil";

// ---- What a task or subtask holds ---------------------------------------------------

inline constexpr std::string_view kHasNotes = "note != nil AND note != ''";
inline constexpr std::string_view kHasLink = "url != nil AND url != ''";
/// The older single blob, or attachment objects.
inline constexpr std::string_view kHasAttachments =
    "attachments != nil OR ANY attachmentsArray != nil";
/// The negation of kHasAttachments.
inline constexpr std::string_view kHasNoAttachments =
    "attachments = nil AND ANY attachmentsArray = nil";

// ---- Narrowing, with one argument each ------------------------------------------------

/// The title holds the text, ignoring case. (every titled record)
inline constexpr std::string_view kTitleContains = "title CONTAINS[c] %@";
/// The task's list is one of the identifiers. (TK_Task: the focus filter)
inline constexpr std::string_view kInCategories = "category.categoryID IN %@";
/// The record whose identifier is the argument; identifiers are upper-case
/// UUIDs, matched ignoring case so a typed lower-case one is found too.
inline constexpr std::string_view kTaskWithID = "taskID ==[c] %@";
inline constexpr std::string_view kSubtaskWithID = "subtaskID ==[c] %@";
inline constexpr std::string_view kCategoryWithID = "categoryID ==[c] %@";
/// The records whose identifier, under the key the first argument names
/// (taskID, categoryID, tagID, …), is one of the second argument's.
inline constexpr std::string_view kIdentifierIn = "%K IN %@";
/// A task still to do. (TK_Task: suggestions)
inline constexpr std::string_view kNotCompleted = "isCompleted != %@";

// ---- Parsed -------------------------------------------------------------------------

/// `format` parsed with `arguments`. Throws std::logic_error when it does
/// not parse: the texts above are this library's own, so that is a
/// programming error.
objectstore::Predicate parsed(std::string_view format,
                              const std::vector<objectstore::PredicateArgument>& arguments = {});

// The fixed texts, parsed once.
const objectstore::Predicate& validTask();
const objectstore::Predicate& listedSubtask();
const objectstore::Predicate& hasNotes();
const objectstore::Predicate& hasLink();
const objectstore::Predicate& hasAttachments();
const objectstore::Predicate& hasNoAttachments();

objectstore::Predicate titleContains(std::string_view text);
objectstore::Predicate inCategories(const std::vector<std::string>& categoryIDs);
objectstore::Predicate taskWithID(std::string_view taskID);
objectstore::Predicate subtaskWithID(std::string_view subtaskID);
objectstore::Predicate categoryWithID(std::string_view categoryID);
objectstore::Predicate identifierIn(std::string_view key,
                                    objectstore::PredicateArgument identifiers);
objectstore::Predicate notCompleted();

} // namespace tasket::rules::predicates
