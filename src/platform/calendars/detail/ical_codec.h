// Reading and writing one calendar item as iCalendar text (RFC 5545) over
// libical, and the file names items and calendars get in a folder. An item
// is the first VTODO (reminder) or VEVENT (event) of a VCALENDAR. Writing
// starts from the item's previous text, so the properties other calendar
// clients keep with an item survive our saves.
#pragma once

#include "platform/calendars/calendar_store.h"

#include <string>
#include <string_view>

namespace tasket::platform::detail {

/// The item of an iCalendar text; fails with parseError when the text holds
/// no VTODO or VEVENT, or one without a UID.
[[nodiscard]] Result<CalendarItem> parseCalendarItem(std::string_view text);

/// The iCalendar text of `item` (its identifier is the UID): `previous`
/// (the item's current text, or empty for a new item) with the fields of
/// the item replaced, stamped as modified at `now`. Fails with
/// invalidArgument for what iCalendar in libical cannot hold (an interval
/// above 32767).
[[nodiscard]] Result<std::string> formatCalendarItem(const CalendarItem& item,
                                                     std::string_view previous, Date now);

/// Whether `name` can be used as a file name as it is: 1 to 128 letters,
/// digits and "-_.@+", not starting with a dot.
[[nodiscard]] bool isSafeFileName(std::string_view name);

/// The file name ("….ics") of the item named `identifier`: the identifier
/// itself when it is a safe file name, else a name derived from a hash of
/// it, so no identifier ever reaches the file system as a path.
[[nodiscard]] std::string itemFileName(std::string_view identifier);

} // namespace tasket::platform::detail
