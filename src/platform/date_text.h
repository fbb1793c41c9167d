// Dates as people type and read them: ISO 8601 in the local zone
// ("2026-03-28", "2026-03-28T09:30", with an optional "Z" or "+01:00"),
// and the words today, tomorrow, yesterday, +3d, -2w and weekday names.
// The store's seconds since 2001 never reach a person; this is the one
// place that turns them into text and back.
#pragma once

#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/error.h"

#include <string>
#include <string_view>

namespace tasket::platform {

/// A typed date: a whole day (its first instant) or a moment.
struct When {
    Date date;
    bool hasTime = false;

    friend bool operator==(const When&, const When&) = default;
};

/// `text` read in `calendar`'s zone, relative words counted from `now`:
/// today, tomorrow, yesterday, +Nd / -Nd (days), +Nw / -Nw (weeks) and a
/// weekday name ("friday" or "fri": the next such day after today) give a
/// day; an ISO date gives a day, an ISO date and time (T or a space
/// between, seconds optional) a moment in the zone, or at the offset it
/// names. Words ignore case. Fails with invalidArgument naming the text
/// and the forms it takes, also for a day or time that does not exist.
[[nodiscard]] Result<When> parseWhen(std::string_view text, Date now, const Calendar& calendar);

/// "2026-03-28T09:30:00+01:00": `date` in `calendar`'s zone, whole seconds.
[[nodiscard]] std::string isoDateTime(Date date, const Calendar& calendar);
/// "2026-03-28": the day that holds `date` in `calendar`'s zone.
[[nodiscard]] std::string isoDay(Date date, const Calendar& calendar);

} // namespace tasket::platform
