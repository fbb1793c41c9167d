// The calendar mirror: a list (TK_Category) mirrored as a reminders list or
// an event calendar of a calendar store, its tasks as reminders or events,
// and the identifiers that tie the two sides together (calendarIdentifier
// and calendarSourceIdentifier on the list, calendarItemIdentifier on the
// task). Writing one task and finding a list's calendar follow the
// platform's own rules; sync() keeps every mirrored list and its calendar
// in step by the reminders database mode:
//
//   all      tasks become items and items tasks, and edits go both ways;
//            nothing is deleted on either side.
//   exact    as all, and a deletion on one side deletes the other side's
//            counterpart: a task whose item is gone, an item we wrote whose
//            task is gone.
//   addOnly  only new tasks become items and new items tasks; nothing
//            already linked is changed or deleted.
//
// Which side changed is told by the fingerprint of what was last written,
// kept with the item: an item that differs from it was edited in another
// calendar client and is read back into its task, unless the task changed
// too, in which case the task wins. Items carry no fingerprint until we
// write them, so an item another client created is imported once.
//
// With a folder to keep its state in, a sync remembers what it left in each
// calendar (the calendar's change token, the store's history position the
// pass began at, and the fingerprint of each task), and the next one reads
// neither a calendar whose token is unchanged nor the tasks that no save
// has touched since: the store's history names the tasks to write. A change
// another client makes between our last write and the token read after it
// is seen at the next change there.
#pragma once

#include "objectstore/object_context.h"
#include "platform/calendars/calendar_store.h"
#include "platform/error.h"
#include "settings/customization_manager.h"
#include "store/records.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tasket::reminders {

using platform::CalendarEntityType;
using platform::CalendarItem;
using platform::Result;

/// Where the programs keep the mirror's sync state: "Calendar.Sync" in the
/// application-group folder.
[[nodiscard]] std::filesystem::path calendarSyncFolder();

/// What a sync left in one calendar (see the file comment).
struct SyncState {
    struct Entry {
        std::string fingerprint;
        std::int64_t task = 0; // the store key of the task the item mirrors
        // The task itself when this pass saw it: a new one has its key only
        // once the context is saved.
        std::shared_ptr<const store::TK_Task> object = nullptr;
    };
    int mode = 0;             // TK_RemindersDatabaseType
    std::string zone;         // the zone days were read in
    std::int64_t history = 0; // the store's history position the pass began at
    std::string token;        // the calendar's change token after the pass
    using Items = std::map<std::string, Entry, std::less<>>;
    Items items; // by item identifier
};

class CalendarMirror {
  public:
    /// A mirror into `calendarStore` under the mode of `customizationManager`
    /// (neither may be null).
    CalendarMirror(std::shared_ptr<platform::CalendarStore> calendarStore,
                   std::shared_ptr<settings::CustomizationManager> customizationManager);

    // ---- One list, one task ----------------------------------------------------------
    /// The identifier of `list`'s calendar of `kind`: the one its
    /// calendarIdentifier names when the store has it, else a new one
    /// (titled like the list, or "New Category"; in the source its
    /// calendarSourceIdentifier names, else the default source), whose
    /// identifier is then stored on the list. Fails when the new calendar
    /// cannot be saved.
    [[nodiscard]] Result<std::string> calendarOfList(store::TK_Category& list,
                                                     CalendarEntityType kind);
    /// Writes `task` into its list's calendar as a reminder; on success the
    /// task keeps the reminder's identifier. A failed save leaves the task
    /// as it was.
    [[nodiscard]] Result<> writeReminder(store::TK_Task& task);
    /// The same as an event (saved for this occurrence only).
    [[nodiscard]] Result<> writeEvent(store::TK_Task& task);
    /// The reminders in `list`'s calendar (none when it has no calendar yet).
    [[nodiscard]] Result<std::vector<CalendarItem>> reminders(const store::TK_Category& list) const;
    /// Removes `list`'s calendar and every item in it, and forgets the link.
    [[nodiscard]] Result<> removeCalendar(store::TK_Category& list);
    /// The identifier of the default source: that of the calendar for new
    /// reminders, else the store's first source.
    [[nodiscard]] std::optional<std::string> defaultSourceIdentifier() const;

    /// What a reminder or event for `task` holds (title, notes, dates in
    /// `calendar`, recurrence, priority), without calendar or identifier.
    [[nodiscard]] static CalendarItem itemForTask(const store::TK_Task& task,
                                                  CalendarEntityType kind,
                                                  const platform::Calendar& calendar);

    // ---- Every mirrored list -----------------------------------------------------------
    struct SyncReport {
        int lists = 0;
        int created = 0;                 // items written for tasks that had none
        int updated = 0;                 // items rewritten after their task changed
        int readBack = 0;                // tasks changed from an item edited elsewhere
        int imported = 0;                // tasks made for items created elsewhere
        int deleted = 0;                 // tasks and items deleted (exact mode)
        int failed = 0;                  // tasks whose item could not be saved or read
        std::vector<std::string> errors; // why, one for each failure
    };
    /// Brings every list of `context` whose calendarType is reminder or
    /// event in step with its calendar (see the file comment), keeps
    /// remindersLists as the identifiers of those calendars, and saves the
    /// context. Fails when the store cannot be read or the context saved;
    /// an item that cannot be read or written is a failure of its task,
    /// which is then left as it is (never taken for deleted).
    [[nodiscard]] Result<SyncReport> sync(objectstore::ObjectContext& context);
    /// Keeps what each sync left in each calendar in files in `folder`
    /// (made when missing; see the file comment), and lets the calendar
    /// store keep what it learned of items in its "items" folder.
    void keepSyncStateIn(std::filesystem::path folder);

    // ---- The tasks one save changed -----------------------------------------------------
    /// Writes each task `identifiers` names into its list's calendar, as a
    /// reminder or an event as the list is mirrored: one write per task
    /// when the calendar store knows the item and its calendar (with the
    /// state sync keeps, from an earlier program too). A task that is gone,
    /// or in a list that is not mirrored, is left to sync(); in add-only
    /// mode, so is a task that has its item. Saves the context when an item
    /// was written, for its identifier. The first failure is returned once
    /// the other tasks are written.
    [[nodiscard]] Result<> writeTasks(objectstore::ObjectContext& context,
                                      std::span<const std::string> identifiers);

  private:
    using MirroredLists =
        std::vector<std::pair<std::shared_ptr<store::TK_Category>, CalendarEntityType>>;
    /// The pass from the states the last one kept and the store's history
    /// since: false when some list needs the full pass (before any write).
    [[nodiscard]] Result<bool> syncFromHistory(objectstore::ObjectContext& context,
                                               const MirroredLists& lists, std::int64_t start,
                                               const platform::Calendar& calendar,
                                               SyncReport& report);
    /// Whether a task of a mirrored list other than deleted links `item`.
    [[nodiscard]] Result<bool> isLinked(objectstore::ObjectContext& context,
                                        const MirroredLists& lists, const std::string& item) const;
    /// Keeps `items` as what the pass left in `calendarID` once the context
    /// is saved; an incomplete pass removes the state instead.
    void keepSyncState(const std::string& calendarID, SyncState::Items items, bool complete);
    /// The items of `list` as its tasks now hold them.
    [[nodiscard]] SyncState::Items itemsOfList(const store::TK_Category& list,
                                               CalendarEntityType kind,
                                               const platform::Calendar& calendar);
    /// contentFingerprint of what `task` holds, computed once per pass.
    const std::string& taskFingerprint(const store::TK_Task& task, CalendarEntityType kind,
                                       const platform::Calendar& calendar);
    [[nodiscard]] Result<> writeTask(store::TK_Task& task, CalendarEntityType kind,
                                     CalendarItem* existing, const platform::Calendar& calendar);
    /// Makes `task` and its `item` equal: reads the item into the task when
    /// only the item changed since it was written, writes the task when it changed.
    void reconcile(objectstore::ObjectContext& context, store::TK_Task& task, CalendarItem& item,
                   CalendarEntityType kind, const platform::Calendar& calendar, SyncReport& report);
    [[nodiscard]] Result<> syncList(objectstore::ObjectContext& context, store::TK_Category& list,
                                    CalendarEntityType kind,
                                    const std::vector<std::string>& linkedElsewhere,
                                    const platform::Calendar& calendar, SyncReport& report);

    std::shared_ptr<platform::CalendarStore> m_calendarStore;
    std::shared_ptr<settings::CustomizationManager> m_customizationManager;
    std::filesystem::path m_stateFolder; // empty: keep no state
    // Written by sync() once the context is saved; no token: remove the file.
    struct KeptState {
        std::string calendarID;
        std::optional<std::string> token;
        SyncState::Items items;
    };
    std::vector<KeptState> m_statesToKeep;
    // Valid for one pass: a task the pass reads an item into leaves it.
    std::unordered_map<objectstore::ObjectID, std::string, objectstore::ObjectIDHash>
        m_fingerprints;
};

/// The fingerprint of what a person sees of `item` (days and times read in
/// `calendar`), as kept with it.
[[nodiscard]] std::string contentFingerprint(const CalendarItem& item,
                                             const platform::Calendar& calendar);

} // namespace tasket::reminders
