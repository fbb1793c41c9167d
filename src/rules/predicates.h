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
/// The same, spelled exactly as stored (upper case): answered from the
/// identifier's index.
inline constexpr std::string_view kTaskWithExactID = "taskID == %@";
inline constexpr std::string_view kSubtaskWithExactID = "subtaskID == %@";
inline constexpr std::string_view kCategoryWithExactID = "categoryID == %@";

// ---- Smart-list dimensions -----------------------------------------------------------
// One sub-predicate each (two for a date filter: its switch, then its day or
// moment); a smart list is the AND of those its filters choose, each parsed
// on its own so that a disjunction inside one keeps its grouping.

inline constexpr std::string_view kIsCompleted = "isCompleted = %d";
inline constexpr std::string_view kHasNoNotes = "note = nil OR note = ''";
inline constexpr std::string_view kHasNoLink = "url = nil OR url = ''";
inline constexpr std::string_view kStartReminderEnabled = "isStartDateRemindEnabled = %d";
inline constexpr std::string_view kStartDayBetween = "startDate BETWEEN {%@, %@}";
inline constexpr std::string_view kStartDayIs = "startDate = %@";
inline constexpr std::string_view kStartBefore = "startDateAndTime < %@";
inline constexpr std::string_view kStartAfter = "startDateAndTime > %@";
inline constexpr std::string_view kDueReminderEnabled = "isRemindEnabled = %d";
inline constexpr std::string_view kDueDayBetween = "dueDate BETWEEN {%@, %@}";
inline constexpr std::string_view kDueDayIs = "dueDate = %@";
inline constexpr std::string_view kDueBefore = "dueDateAndTime < %@";
inline constexpr std::string_view kDueAfter = "dueDateAndTime > %@";
inline constexpr std::string_view kInAnyCategory = "category != nil";
inline constexpr std::string_view kHasSubtasks = "ANY subtasks != nil";
inline constexpr std::string_view kHasNoSubtasks = "ANY subtasks = nil";
inline constexpr std::string_view kHasTags = "ANY tags != nil";
inline constexpr std::string_view kHasNoTags = "ANY tags = nil";
inline constexpr std::string_view kHasAnyOfTags = "ANY tags.tagID IN %@";
inline constexpr std::string_view kHasPriority = "customPriority != nil";
inline constexpr std::string_view kHasNoPriority = "customPriority = nil";
inline constexpr std::string_view kHasAnyOfPriorities = "customPriority.priorityID IN %@";
inline constexpr std::string_view kHasStatus = "customStatus != nil";
inline constexpr std::string_view kHasNoStatus = "customStatus = nil";
inline constexpr std::string_view kHasAnyOfStatuses = "customStatus.statusID IN %@";
inline constexpr std::string_view kHasValues = "ANY values != nil";
inline constexpr std::string_view kHasNoValues = "ANY values = nil";
inline constexpr std::string_view kHasAnyOfValues = "ANY values.identifier IN %@";
inline constexpr std::string_view kIsPinned = "isPinned = %d";

// ---- Quick filters of a list (TK_TasksFilter) -------------------------------------------

inline constexpr std::string_view kWithReminder =
    "isStartDateRemindEnabled = true OR isRemindEnabled = true";
inline constexpr std::string_view kPinned = "isPinned = true";

// ---- Membership of one list ----------------------------------------------------------

inline constexpr std::string_view kInCategory = "category.categoryID = %@";
/// The same by the list itself: no join, so the store counts through its index.
inline constexpr std::string_view kInCategoryObject = "category = %@";
inline constexpr std::string_view kHasPriorityWithID = "customPriority.priorityID = %@";
inline constexpr std::string_view kHasStatusWithID = "customStatus.statusID = %@";

// ---- Views around the fetches ------------------------------------------------------------

/// Hides the tasks of archived lists.
inline constexpr std::string_view kInUnarchivedCategory = "category.isArchived = false";
/// A reminder is on and the start day is not after the due day.
inline constexpr std::string_view kRemindedInOrder =
    "(isStartDateRemindEnabled = true OR isRemindEnabled = true) AND startDate <= dueDate";

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
