#include "platform/calendars/calendar_store.h"

#include <algorithm>
#include <limits>

namespace tasket::platform {

bool operator==(const DueDateComponents& a, const DueDateComponents& b) {
    const auto& x = a.date;
    const auto& y = b.date;
    if (a.hasTime != b.hasTime || x.year != y.year || x.month != y.month || x.day != y.day)
        return false;
    return !a.hasTime || (x.hour == y.hour && x.minute == y.minute && x.second == y.second &&
                          a.timeZone == b.timeZone);
}

bool CalendarItem::hasSameContent(const CalendarItem& other) const {
    if (kind != other.kind || title != other.title || notes != other.notes ||
        recurrenceRules != other.recurrenceRules)
        return false;
    if (kind == CalendarEntityType::reminder)
        return completed == other.completed && dueDateComponents == other.dueDateComponents &&
               priority == other.priority;
    return allDay == other.allDay && startDate == other.startDate && endDate == other.endDate;
}

std::optional<CalendarInfo> CalendarStore::defaultCalendarForNewReminders() const {
    const auto all = calendars(CalendarEntityType::reminder);
    for (const auto& source : sources()) {
        const auto found =
            std::ranges::find(all, source.identifier, &CalendarInfo::sourceIdentifier);
        if (found != all.end())
            return *found;
    }
    return std::nullopt;
}

Result<> CalendarStore::saveReminder(CalendarItem& reminder, bool commit) {
    if (reminder.kind != CalendarEntityType::reminder)
        return fail(Errc::invalidArgument, "an event cannot be saved as a reminder");
    if (auto valid = validate(reminder); !valid)
        return valid;
    return storeItem(reminder, commit);
}

Result<> CalendarStore::saveEvent(CalendarItem& event, EventSpan, bool commit) {
    if (event.kind != CalendarEntityType::event)
        return fail(Errc::invalidArgument, "a reminder cannot be saved as an event");
    if (auto valid = validate(event); !valid)
        return valid;
    return storeItem(event, commit);
}

std::optional<CalendarEntityType> CalendarStore::calendarKind(std::string_view identifier) const {
    const auto calendar = calendarWithIdentifier(identifier);
    return calendar ? std::optional(calendar->entityType) : std::nullopt;
}

Result<> CalendarStore::validate(const CalendarItem& item) const {
    const auto kind = calendarKind(item.calendarIdentifier);
    if (!kind)
        return fail(Errc::invalidArgument, "the item has no calendar, or its calendar is gone");
    if (*kind != item.kind) {
        const auto calendar = calendarWithIdentifier(item.calendarIdentifier);
        return fail(Errc::invalidArgument,
                    "the calendar \"" + (calendar ? calendar->title : item.calendarIdentifier) +
                        "\" holds the other kind of item");
    }
    if (item.kind == CalendarEntityType::event) {
        if (!item.startDate || !item.endDate)
            return fail(Errc::invalidArgument, "an event needs a start and an end date");
        if (*item.endDate < *item.startDate)
            return fail(Errc::invalidArgument, "the event ends before it starts");
    }
    for (const auto& rule : item.recurrenceRules)
        if (rule.interval < 1)
            return fail(Errc::invalidArgument, "a recurrence interval must be at least 1");
    if (item.identifier.empty())
        return {};
    const auto existing = canChange(item.identifier);
    if (!existing)
        return std::unexpected(existing.error());
    if (!*existing)
        return fail(Errc::notFound, "there is no calendar item \"" + item.identifier + "\"");
    return {};
}

std::optional<std::string> CalendarStore::changeToken(std::string_view) const {
    return std::nullopt;
}

std::optional<CalendarChanges> CalendarStore::changesSince(std::string_view,
                                                           std::string_view) const {
    return std::nullopt;
}

std::optional<std::string> CalendarStore::tokenAfterOwnWrites(std::string_view identifier) const {
    return changeToken(identifier);
}

void CalendarStore::keepStateIn(std::filesystem::path) {}

Result<bool> CalendarStore::canChange(std::string_view identifier) const {
    const auto found = findItem(identifier);
    if (!found)
        return std::unexpected(found.error());
    return found->has_value();
}

Result<std::optional<CalendarItem>> CalendarStore::findItem(std::string_view identifier) const {
    return itemWithIdentifier(identifier);
}

Result<std::optional<CalendarItem>> CalendarStore::itemToChange(std::string_view identifier) const {
    return findItem(identifier);
}

} // namespace tasket::platform
