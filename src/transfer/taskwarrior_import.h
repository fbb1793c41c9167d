// Moving tasks in from Taskwarrior: the JSON array that `task export`
// writes becomes records for the store. description -> title, project ->
// list (found by title, else a new one; tasks without a project go to
// "Inbox"), tags -> tags (the same), due and scheduled -> the due and start
// dates (day and instant), status completed -> done, annotations -> notes
// (one line each), entry -> creation date, and the uuid stays the task's
// identifier. Deleted tasks are left out.
#pragma once

#include "platform/error.h"
#include "transfer/record_stream.h"

#include <string_view>

namespace tasket::transfer {

/// Adds the tasks of `json` (Taskwarrior's export) to `importer`, with the
/// lists and tags they need. Fails on text that is not such an export,
/// naming the task and key; the importer should then be abandoned.
/// Returns how many tasks were left out as deleted.
[[nodiscard]] platform::Result<std::size_t> addTaskwarriorExport(Importer& importer,
                                                                 std::string_view json);

} // namespace tasket::transfer
