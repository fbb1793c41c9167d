// The file form of many records, as `tasket export` writes and `tasket
// import` reads it: one line per record, {"kind":"TK_SharedTask","record":
// {...}}, the record in its exact JSON form. Lines are written and read one
// at a time, so a file of any size costs one record of memory; an import
// applies every line to one context and saves once, or not at all.
#pragma once

#include "objectstore/object_context.h"
#include "platform/error.h"
#include "transfer/shared_records.h"
#include "transfer/store_mapping.h"

#include <cstddef>
#include <functional>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace tasket::transfer {

/// Called now and then with how many records are done of how many.
using Progress = std::function<void(std::size_t done, std::size_t total)>;

struct ExportOptions {
    /// Only this list (a TK_Category), its board sections, tasks, their
    /// subtasks and attachments, and every tag, priority, status, attribute
    /// and value; nullopt: every object of every kind.
    std::optional<objectstore::ObjectID> list;
    /// Objects loaded at a time; the context forgets them after each batch.
    std::size_t batchSize = 500;
};

/// Writes the records of the objects `context` fetches to `out`, one line
/// each, and returns how many. `context` must hold no changes; it is reset
/// between batches. Fails with the store's error, or ioError when `out`
/// fails.
[[nodiscard]] platform::Result<std::size_t> exportRecords(objectstore::ObjectContext& context,
                                                          const ExportOptions& options,
                                                          std::ostream& out,
                                                          const Progress& progress = {});

/// One line of the file form for `record`. Fails when a number is not finite.
[[nodiscard]] platform::Result<std::string> recordLine(const AnyRecord& record);

/// What an import did (or, in a dry run, would do).
struct ImportReport {
    RecordApplier::Counts counts;
    std::vector<std::string> missing; // references left out
};

/// Applies records to one context and then saves it once (or, in a dry
/// run, rolls it back). Any failure rolls every change back.
class Importer {
  public:
    /// Fails with the store's error.
    [[nodiscard]] static platform::Result<Importer> make(objectstore::ObjectContext& context);
    [[nodiscard]] platform::Result<void> add(const AnyRecord& record);
    /// Resolves the references and saves (or rolls back when `dryRun`).
    [[nodiscard]] platform::Result<ImportReport> finish(bool dryRun);
    /// Drops every change made so far.
    void abandon();
    [[nodiscard]] objectstore::ObjectContext& context() { return *m_context; }

  private:
    Importer(objectstore::ObjectContext& context, RecordApplier applier)
        : m_context(&context), m_applier(std::move(applier)) {}
    objectstore::ObjectContext* m_context;
    RecordApplier m_applier;
};

/// Reads the file form from `in` into `importer`. A line that is not one
/// record fails the whole import ("line 12: TK_SharedTask \"ID\": \"dueDate\"
/// must be ..."); nothing is applied then.
[[nodiscard]] platform::Result<ImportReport> importRecords(objectstore::ObjectContext& context,
                                                           std::istream& in, bool dryRun);

} // namespace tasket::transfer
