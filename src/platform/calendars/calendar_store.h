// The port to a calendar store: sources (accounts) holding calendars, each
// calendar holding either reminders (to-dos) or events. Adapters:
// InMemoryCalendarStore (tests, and programs that want no files) and
// VdirCalendarStore (iCalendar files in vdir folders, over libical).
//
// Contract shared by every adapter:
// - A calendar or item not yet saved has an empty identifier; the first
//   successful save gives it one, and the identifier never changes after.
// - Saves and removals with commit = false are pending: reads see them at
//   once, but nothing is stored until commit(); reset() drops them.
// - A save fails with invalidArgument for an item that cannot be stored (no
//   calendar, a calendar of the other kind, an event that ends before it
//   starts, a recurrence interval below 1), notFound for a calendar, source
//   or item identifier the store does not hold; nothing is changed then.
// - An item is a whole series: its recurrence rules apply to every
//   occurrence, and saving with any span saves the series.
#pragma once

#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/error.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform {

/// What a calendar holds.
enum class CalendarEntityType { reminder, event };

/// An account that holds calendars (a vdir root, a CalDAV account).
struct CalendarSource {
    std::string identifier;
    std::string title;

    friend bool operator==(const CalendarSource&, const CalendarSource&) = default;
};

struct CalendarInfo {
    std::string identifier; // empty until saved
    std::string title;
    std::string color; // "#RRGGBB", or empty
    CalendarEntityType entityType = CalendarEntityType::reminder;
    std::string sourceIdentifier; // empty: the source of the default calendar

    friend bool operator==(const CalendarInfo&, const CalendarInfo&) = default;
};

/// A repetition every `interval` units of `frequency` (RFC 5545 RRULE).
struct RecurrenceRule {
    enum class Frequency { minutely, hourly, daily, weekly, monthly, yearly };
    Frequency frequency = Frequency::daily;
    std::int64_t interval = 1;

    friend bool operator==(const RecurrenceRule&, const RecurrenceRule&) = default;
};

/// A reminder's due date as a person gave it.
struct DueDateComponents {
    DateComponents date;  // weekday ignored; the time fields only when hasTime
    bool hasTime = false; // false: a day, not an instant
    std::string timeZone; // ICU zone of the time; empty: floating (the reader's zone)

    friend bool operator==(const DueDateComponents& a, const DueDateComponents& b);
};

/// A reminder or an event.
struct CalendarItem {
    std::string identifier; // empty until saved
    CalendarEntityType kind = CalendarEntityType::reminder;
    std::string calendarIdentifier;
    std::string title;
    std::string notes;
    std::vector<RecurrenceRule> recurrenceRules;
    /// Text an application keeps with the item; stores keep it unchanged.
    std::string applicationData;
    std::optional<Date> lastModified; // set by the store on every save

    // Reminders
    bool completed = false;
    std::optional<DueDateComponents> dueDateComponents;
    int priority = 0; // 0 none, 1 highest … 9 lowest

    // Events
    bool allDay = false;
    std::optional<Date> startDate;
    std::optional<Date> endDate; // an all-day event's end is the last day it covers

    /// Whether the fields a person edits (everything but the identifier,
    /// calendar, application data and modification date) are equal.
    [[nodiscard]] bool hasSameContent(const CalendarItem& other) const;
};

/// What changed in a calendar since a change token.
struct CalendarChanges {
    std::vector<CalendarItem> changed; // added or changed since, of either kind
    std::size_t removed = 0;           // removed since (which ones is not told)
};

/// Which occurrences of a repeating event a save applies to.
enum class EventSpan { thisEvent = 0, futureEvents = 1 };

class CalendarStore {
  public:
    virtual ~CalendarStore() = default;

    // ---- Sources and calendars -------------------------------------------------------
    [[nodiscard]] virtual std::vector<CalendarSource> sources() const = 0;
    /// Every calendar holding `type`, in a stable order.
    [[nodiscard]] virtual std::vector<CalendarInfo> calendars(CalendarEntityType type) const = 0;
    /// The calendar named `identifier`, or nullopt.
    [[nodiscard]] virtual std::optional<CalendarInfo>
    calendarWithIdentifier(std::string_view identifier) const = 0;
    /// What the calendar named `identifier` holds, or nullopt when there is
    /// none. The base looks the calendar up; a store may know it without.
    [[nodiscard]] virtual std::optional<CalendarEntityType>
    calendarKind(std::string_view identifier) const;
    /// The calendar new reminders go to: the first reminders calendar of
    /// the first source, or nullopt when there is none.
    [[nodiscard]] virtual std::optional<CalendarInfo> defaultCalendarForNewReminders() const;
    /// Saves a new or changed calendar; a new one gets its identifier.
    [[nodiscard]] virtual Result<> saveCalendar(CalendarInfo& calendar, bool commit) = 0;
    /// Removes a calendar and every item in it.
    [[nodiscard]] virtual Result<> removeCalendar(std::string_view identifier, bool commit) = 0;

    // ---- Items -----------------------------------------------------------------------
    /// Every item of `calendarIdentifiers` (all calendars of the kind when
    /// empty) of kind `kind`. Fails when a calendar cannot be read.
    [[nodiscard]] virtual Result<std::vector<CalendarItem>>
    items(CalendarEntityType kind, std::span<const std::string> calendarIdentifiers) const = 0;
    /// The item named `identifier`, or nullopt (also when it cannot be read).
    [[nodiscard]] virtual std::optional<CalendarItem>
    itemWithIdentifier(std::string_view identifier) const = 0;
    /// The item named `identifier`; nullopt only when the store holds none,
    /// a failure when it cannot tell (a server that cannot be reached or
    /// refuses). The base asks itemWithIdentifier, for stores that always can.
    [[nodiscard]] virtual Result<std::optional<CalendarItem>>
    findItem(std::string_view identifier) const;
    /// The item as a change to it would be made against: for a store whose
    /// writes are conditional, the version it last read, wrote or kept,
    /// which may be out of date (the write then finds out); else findItem.
    [[nodiscard]] virtual Result<std::optional<CalendarItem>>
    itemToChange(std::string_view identifier) const;
    /// Saves a new or changed reminder; a new one gets its identifier.
    [[nodiscard]] Result<> saveReminder(CalendarItem& reminder, bool commit);
    /// Saves a new or changed event (the span: see the file comment).
    [[nodiscard]] Result<> saveEvent(CalendarItem& event, EventSpan span, bool commit);
    [[nodiscard]] virtual Result<> removeItem(std::string_view identifier, bool commit) = 0;
    /// A text that changes whenever an item of the calendar `identifier` is
    /// added, changed or removed, by anyone; nullopt when the store cannot
    /// tell (or has changes pending), and then only reading every item does.
    [[nodiscard]] virtual std::optional<std::string> changeToken(std::string_view identifier) const;
    /// A token for the calendar `identifier` as it is if nothing but this
    /// store's own commits changed it since changeToken or changesSince
    /// last read it: what a sync records as seen, so that a change another
    /// program makes meanwhile is not taken as seen. changesSince from it
    /// tells no change until another program makes one; a store that cannot
    /// tell changes gives what changeToken would. The base reads changeToken
    /// again, which cannot tell the two apart.
    [[nodiscard]] virtual std::optional<std::string>
    tokenAfterOwnWrites(std::string_view identifier) const;

    /// The items of the calendar `identifier` added, changed or removed
    /// since `token` (a token changeToken or tokenAfterOwnWrites gave), as
    /// of now: a later tokenAfterOwnWrites counts from here. Nullopt when
    /// the store cannot tell (or has changes pending), and then only reading
    /// every item does; the base cannot.
    [[nodiscard]] virtual std::optional<CalendarChanges> changesSince(std::string_view identifier,
                                                                      std::string_view token) const;

    /// Whether changesSince answers for tokens this store gives: then a
    /// program that writes an item need not move on the token a later
    /// reader compares (which may cost reading the whole calendar). The
    /// base cannot.
    [[nodiscard]] virtual bool tellsChangesSince() const { return false; }

    /// Lets the store keep in `folder` (made when needed) what it learned
    /// of items that another program using the same folder may use instead
    /// of asking again; a cache, which may go at any time. The base keeps
    /// nothing.
    virtual void keepStateIn(std::filesystem::path folder);

    // ---- Batches ---------------------------------------------------------------------
    /// Stores every pending change; on failure the ones not yet stored stay pending.
    [[nodiscard]] virtual Result<> commit() = 0;
    /// Drops every pending change.
    virtual void reset() = 0;

  protected:
    /// Checks `item` against the contract (calendar, kind, dates, rules).
    [[nodiscard]] Result<> validate(const CalendarItem& item) const;
    /// Whether a change to the item `identifier` can be made: whether the
    /// store holds it, or, for a store whose writes are conditional, holds
    /// a version a change is made against (a write then fails with a
    /// conflict if the item changed or went since). The base asks findItem.
    [[nodiscard]] virtual Result<bool> canChange(std::string_view identifier) const;
    /// Stores a validated item; a new one gets its identifier.
    [[nodiscard]] virtual Result<> storeItem(CalendarItem& item, bool commit) = 0;
};

} // namespace tasket::platform
