#include "platform/calendars/detail/ical_codec.h"

#include <fmt/format.h>
#include <libical/ical.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace tasket::platform::detail {

namespace {

constexpr const char* kApplicationDataProperty = "X-TASKET-DATA";
constexpr std::int64_t kLargestInterval = 32767; // libical keeps the interval in a short

struct ComponentFree {
    void operator()(icalcomponent* c) const { icalcomponent_free(c); }
};
using ComponentPtr = std::unique_ptr<icalcomponent, ComponentFree>;

icaltimezone* utc() {
    return icaltimezone_get_utc_timezone();
}

// ---- Times --------------------------------------------------------------------------

// The zone a time property names: "UTC" for a UTC time, its TZID (without
// the prefix libical's own zones carry), or empty for a floating time.
std::string zoneOf(icalproperty* property, const icaltimetype& time) {
    if (icaltime_is_utc(time))
        return "UTC";
    icalparameter* tzid = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER);
    if (!tzid || !icalparameter_get_tzid(tzid))
        return "";
    std::string zone = icalparameter_get_tzid(tzid);
    constexpr std::string_view kPrefix = "/freeassociation.sourceforge.net/";
    if (const auto at = zone.find(kPrefix); at != std::string::npos)
        zone.erase(0, at + kPrefix.size());
    return zone;
}

Calendar calendarOf(const std::string& zone) {
    if (zone.empty())
        return Calendar::current();
    auto calendar = Calendar::inZone(zone);
    return calendar ? *calendar : Calendar::current();
}

DateComponents componentsOf(const icaltimetype& t) {
    return {t.year,
            t.month,
            t.day,
            t.is_date ? 0 : t.hour,
            t.is_date ? 0 : t.minute,
            t.is_date ? 0 : t.second,
            0};
}

// The instant of a time; a day stands for its first instant in this zone.
Date instantOf(const icaltimetype& time, const std::string& zone) {
    return calendarOf(time.is_date ? std::string() : zone).date(componentsOf(time));
}

icaltimetype utcTime(Date date) {
    const auto seconds = static_cast<time_t>(std::llround(date.unixSeconds()));
    return icaltime_from_timet_with_zone(seconds, 0, utc());
}

icaltimetype dayOf(Date date) {
    const auto c = Calendar::current().components(date);
    icaltimetype day = icaltime_null_date();
    day.year = c.year;
    day.month = c.month;
    day.day = c.day;
    return day;
}

icaltimetype dueTime(const DueDateComponents& due) {
    const auto& c = due.date;
    if (!due.hasTime) {
        icaltimetype day = icaltime_null_date();
        day.year = c.year;
        day.month = c.month;
        day.day = c.day;
        return icaltime_normalize(day);
    }
    if (!due.timeZone.empty())
        return utcTime(calendarOf(due.timeZone).date(c));
    icaltimetype floating = icaltime_null_time();
    floating.year = c.year;
    floating.month = c.month;
    floating.day = c.day;
    floating.hour = c.hour;
    floating.minute = c.minute;
    floating.second = c.second;
    return icaltime_normalize(floating);
}

// ---- Properties ---------------------------------------------------------------------

void removeAll(icalcomponent* c, icalproperty_kind kind) {
    while (icalproperty* p = icalcomponent_get_first_property(c, kind)) {
        icalcomponent_remove_property(c, p);
        icalproperty_free(p);
    }
}

void removeApplicationData(icalcomponent* c) {
    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_X_PROPERTY); p;) {
        icalproperty* next = icalcomponent_get_next_property(c, ICAL_X_PROPERTY);
        if (std::string_view(icalproperty_get_x_name(p)) == kApplicationDataProperty) {
            icalcomponent_remove_property(c, p);
            icalproperty_free(p);
        }
        p = next;
    }
}

std::string textOf(icalcomponent* c, icalproperty_kind kind) {
    icalproperty* p = icalcomponent_get_first_property(c, kind);
    const char* text = p ? icalproperty_get_value_as_string(p) : nullptr;
    if (!p || !text)
        return "";
    // The value as written is escaped; the typed getters unescape.
    if (kind == ICAL_SUMMARY_PROPERTY)
        return icalproperty_get_summary(p);
    if (kind == ICAL_DESCRIPTION_PROPERTY)
        return icalproperty_get_description(p);
    return text;
}

std::optional<RecurrenceRule::Frequency> frequencyOf(icalrecurrencetype_frequency f) {
    using F = RecurrenceRule::Frequency;
    switch (f) {
    case ICAL_MINUTELY_RECURRENCE: return F::minutely;
    case ICAL_HOURLY_RECURRENCE: return F::hourly;
    case ICAL_DAILY_RECURRENCE: return F::daily;
    case ICAL_WEEKLY_RECURRENCE: return F::weekly;
    case ICAL_MONTHLY_RECURRENCE: return F::monthly;
    case ICAL_YEARLY_RECURRENCE: return F::yearly;
    default: return std::nullopt;
    }
}

icalrecurrencetype_frequency icalFrequency(RecurrenceRule::Frequency f) {
    using F = RecurrenceRule::Frequency;
    switch (f) {
    case F::minutely: return ICAL_MINUTELY_RECURRENCE;
    case F::hourly: return ICAL_HOURLY_RECURRENCE;
    case F::daily: return ICAL_DAILY_RECURRENCE;
    case F::weekly: return ICAL_WEEKLY_RECURRENCE;
    case F::monthly: return ICAL_MONTHLY_RECURRENCE;
    case F::yearly: return ICAL_YEARLY_RECURRENCE;
    }
    return ICAL_NO_RECURRENCE;
}

icalcomponent* itemComponent(icalcomponent* root) {
    const auto kind = icalcomponent_isa(root);
    if (kind == ICAL_VTODO_COMPONENT || kind == ICAL_VEVENT_COMPONENT)
        return root;
    if (icalcomponent* todo = icalcomponent_get_first_component(root, ICAL_VTODO_COMPONENT))
        return todo;
    return icalcomponent_get_first_component(root, ICAL_VEVENT_COMPONENT);
}

ComponentPtr parse(std::string_view text) {
    const std::string terminated(text);
    return ComponentPtr(icalparser_parse_string(terminated.c_str()));
}

// The recurrence rules of `c` as an item holds them (frequency and interval).
std::vector<RecurrenceRule> rulesOf(icalcomponent* c) {
    std::vector<RecurrenceRule> rules;
    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_RRULE_PROPERTY); p;
         p = icalcomponent_get_next_property(c, ICAL_RRULE_PROPERTY)) {
        const auto rule = icalproperty_get_rrule(p);
        if (const auto frequency = frequencyOf(rule.freq))
            rules.push_back({*frequency, std::max<std::int64_t>(rule.interval, 1)});
    }
    return rules;
}

// ---- Rules kept as written ----------------------------------------------------------
//
// libical writes a rule it read back in its own order of parts; a rule we
// keep is put back as its author wrote it, folded lines and all.

bool startsWithWord(std::string_view line, std::string_view word) {
    return line.size() >= word.size() &&
           std::ranges::equal(line.substr(0, word.size()), word,
                              [](char a, char b) { return std::toupper(a) == b; });
}

// Where the RRULE content lines (each with its folded continuations and line
// end) of the first `kind` component of `text` are.
std::vector<std::pair<std::size_t, std::size_t>> ruleLines(std::string_view text,
                                                           std::string_view kind) {
    std::vector<std::pair<std::size_t, std::size_t>> found;
    const std::string begin = "BEGIN:" + std::string(kind);
    bool inside = false;
    int depth = 0; // of components nested in the item (alarms)
    for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
        do {
            const auto newline = text.find('\n', end);
            end = newline == std::string_view::npos ? text.size() : newline + 1;
        } while (end < text.size() && (text[end] == ' ' || text[end] == '\t'));
        const auto line = text.substr(at, end - at);
        const auto name = line.substr(0, line.find_first_of(":;\r\n"));
        if (!inside) {
            inside = startsWithWord(line, begin) &&
                     line.find_first_not_of("\r\n", begin.size()) == std::string_view::npos;
        } else if (startsWithWord(name, "BEGIN") && name.size() == 5) {
            ++depth;
        } else if (startsWithWord(name, "END") && name.size() == 3) {
            if (depth-- == 0)
                break;
        } else if (depth == 0 && name.size() == 5 && startsWithWord(name, "RRULE")) {
            found.emplace_back(at, end);
        }
    }
    return found;
}

// `written` with the RRULE lines of its `kind` item replaced by those of
// `previous`, when both hold as many.
std::string withRulesOf(std::string written, std::string_view previous, std::string_view kind) {
    const auto theirs = ruleLines(previous, kind);
    const auto ours = ruleLines(written, kind);
    if (theirs.size() != ours.size())
        return written;
    for (std::size_t i = ours.size(); i-- > 0;) {
        std::string line;
        for (const char ch : previous.substr(theirs[i].first, theirs[i].second - theirs[i].first))
            if (ch != '\r')
                line += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
        written.replace(ours[i].first, ours[i].second - ours[i].first, line);
    }
    return written;
}

} // namespace

Result<CalendarItem> parseCalendarItem(std::string_view text) {
    const auto root = parse(text);
    icalcomponent* c = root ? itemComponent(root.get()) : nullptr;
    if (!c)
        return fail(Errc::parseError, "the text holds no to-do and no event");
    const char* uid = icalcomponent_get_uid(c);
    if (!uid || !*uid)
        return fail(Errc::parseError, "the calendar item has no UID");

    CalendarItem item;
    item.identifier = uid;
    item.kind = icalcomponent_isa(c) == ICAL_VTODO_COMPONENT ? CalendarEntityType::reminder
                                                             : CalendarEntityType::event;
    item.title = textOf(c, ICAL_SUMMARY_PROPERTY);
    item.notes = textOf(c, ICAL_DESCRIPTION_PROPERTY);
    item.recurrenceRules = rulesOf(c);
    for (icalproperty* p = icalcomponent_get_first_property(c, ICAL_X_PROPERTY); p;
         p = icalcomponent_get_next_property(c, ICAL_X_PROPERTY))
        if (std::string_view(icalproperty_get_x_name(p)) == kApplicationDataProperty)
            item.applicationData = icalproperty_get_x(p);
    if (icalproperty* p = icalcomponent_get_first_property(c, ICAL_LASTMODIFIED_PROPERTY))
        item.lastModified = instantOf(icalproperty_get_lastmodified(p), "UTC");

    if (item.kind == CalendarEntityType::reminder) {
        item.completed = icalcomponent_get_status(c) == ICAL_STATUS_COMPLETED ||
                         icalcomponent_get_first_property(c, ICAL_COMPLETED_PROPERTY);
        if (icalproperty* p = icalcomponent_get_first_property(c, ICAL_PRIORITY_PROPERTY))
            item.priority = std::clamp(icalproperty_get_priority(p), 0, 9);
        if (icalproperty* p = icalcomponent_get_first_property(c, ICAL_DUE_PROPERTY)) {
            const auto due = icalproperty_get_due(p);
            item.dueDateComponents = DueDateComponents{componentsOf(due), !due.is_date,
                                                       due.is_date ? "" : zoneOf(p, due)};
        }
        return item;
    }
    icalproperty* start = icalcomponent_get_first_property(c, ICAL_DTSTART_PROPERTY);
    icalproperty* end = icalcomponent_get_first_property(c, ICAL_DTEND_PROPERTY);
    if (start) {
        const auto s = icalproperty_get_dtstart(start);
        item.allDay = s.is_date;
        item.startDate = instantOf(s, zoneOf(start, s));
        item.endDate = item.startDate;
    }
    if (start && end) {
        auto e = icalproperty_get_dtend(end);
        if (e.is_date) // the end day is exclusive: the event covers the day before it
            icaltime_adjust(&e, -1, 0, 0, 0);
        const Date endDate = instantOf(e, zoneOf(end, e));
        if (endDate > *item.startDate)
            item.endDate = endDate;
    }
    return item;
}

Result<std::string> formatCalendarItem(const CalendarItem& item, std::string_view previous,
                                       Date now) {
    for (const auto& rule : item.recurrenceRules)
        if (rule.interval > kLargestInterval)
            return fail(Errc::invalidArgument,
                        fmt::format("a recurrence interval of {} is more than iCalendar files "
                                    "here can hold ({})",
                                    rule.interval, kLargestInterval));
    const bool isReminder = item.kind == CalendarEntityType::reminder;
    const auto wanted = isReminder ? ICAL_VTODO_COMPONENT : ICAL_VEVENT_COMPONENT;

    ComponentPtr root = previous.empty() ? nullptr : parse(previous);
    icalcomponent* c = root ? itemComponent(root.get()) : nullptr;
    const bool reused = c && icalcomponent_isa(c) == wanted && root.get() != c;
    if (!reused) {
        root.reset(icalcomponent_vanew(ICAL_VCALENDAR_COMPONENT, icalproperty_new_version("2.0"),
                                       icalproperty_new_prodid("-//Tasket//Tasket//EN"), nullptr));
        c = icalcomponent_new(wanted);
        icalcomponent_add_component(root.get(), c);
        icalcomponent_set_uid(c, item.identifier.c_str());
    }
    // A rule that says what the item's rules say is kept as it is, with the
    // parts an item does not hold (COUNT, UNTIL, BYDAY, …).
    const bool keepRules = reused && rulesOf(c) == item.recurrenceRules;
    if (!keepRules)
        removeAll(c, ICAL_RRULE_PROPERTY);
    for (const auto kind :
         {ICAL_SUMMARY_PROPERTY, ICAL_DESCRIPTION_PROPERTY, ICAL_LASTMODIFIED_PROPERTY,
          ICAL_DTSTAMP_PROPERTY, ICAL_STATUS_PROPERTY, ICAL_COMPLETED_PROPERTY,
          ICAL_PERCENTCOMPLETE_PROPERTY, ICAL_PRIORITY_PROPERTY, ICAL_DUE_PROPERTY,
          ICAL_DTSTART_PROPERTY, ICAL_DTEND_PROPERTY, ICAL_DURATION_PROPERTY})
        removeAll(c, kind);
    removeApplicationData(c);

    const auto stamp = utcTime(now);
    icalcomponent_add_property(c, icalproperty_new_dtstamp(stamp));
    icalcomponent_add_property(c, icalproperty_new_lastmodified(stamp));
    icalcomponent_add_property(c, icalproperty_new_summary(item.title.c_str()));
    if (!item.notes.empty())
        icalcomponent_add_property(c, icalproperty_new_description(item.notes.c_str()));
    for (const auto& rule : item.recurrenceRules) {
        if (keepRules)
            break;
        icalrecurrencetype r;
        icalrecurrencetype_clear(&r);
        r.freq = icalFrequency(rule.frequency);
        r.interval = static_cast<short>(rule.interval);
        icalcomponent_add_property(c, icalproperty_new_rrule(r));
    }
    if (!item.applicationData.empty()) {
        icalproperty* data = icalproperty_new_x(item.applicationData.c_str());
        icalproperty_set_x_name(data, kApplicationDataProperty);
        icalcomponent_add_property(c, data);
    }

    if (isReminder) {
        icalcomponent_add_property(c, icalproperty_new_status(item.completed
                                                                  ? ICAL_STATUS_COMPLETED
                                                                  : ICAL_STATUS_NEEDSACTION));
        if (item.completed) {
            icalcomponent_add_property(c, icalproperty_new_completed(stamp));
            icalcomponent_add_property(c, icalproperty_new_percentcomplete(100));
        }
        if (item.priority > 0)
            icalcomponent_add_property(c, icalproperty_new_priority(item.priority));
        if (item.dueDateComponents)
            icalcomponent_add_property(c, icalproperty_new_due(dueTime(*item.dueDateComponents)));
    } else if (item.startDate && item.endDate) {
        if (item.allDay) {
            auto endDay = dayOf(*item.endDate);
            icaltime_adjust(&endDay, 1, 0, 0, 0); // iCalendar's end day is exclusive
            icalcomponent_add_property(c, icalproperty_new_dtstart(dayOf(*item.startDate)));
            icalcomponent_add_property(c, icalproperty_new_dtend(endDay));
        } else {
            icalcomponent_add_property(c, icalproperty_new_dtstart(utcTime(*item.startDate)));
            icalcomponent_add_property(c, icalproperty_new_dtend(utcTime(*item.endDate)));
        }
    }
    char* text = icalcomponent_as_ical_string_r(root.get());
    std::string result(text);
    icalmemory_free_buffer(text);
    if (keepRules)
        return withRulesOf(std::move(result), previous, isReminder ? "VTODO" : "VEVENT");
    return result;
}

bool isSafeFileName(std::string_view name) {
    if (name.empty() || name.size() > 128 || name.front() == '.')
        return false;
    for (const char ch : name) {
        const bool plain = (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') ||
                           (ch >= '0' && ch <= '9') || ch == '-' || ch == '_' || ch == '.' ||
                           ch == '@' || ch == '+';
        if (!plain)
            return false;
    }
    return true;
}

std::string itemFileName(std::string_view identifier) {
    if (isSafeFileName(identifier))
        return std::string(identifier) + ".ics";
    // FNV-1a, 64 bits: stable across runs and machines.
    std::uint64_t hash = 14695981039346656037ULL;
    for (const unsigned char ch : identifier) {
        hash ^= ch;
        hash *= 1099511628211ULL;
    }
    return fmt::format("uid-{:016x}.ics", hash);
}

} // namespace tasket::platform::detail
