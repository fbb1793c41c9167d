// The proleptic Gregorian calendar of a day count (H. Hinnant's
// days-from-civil and civil-from-days, in eras of 400 years), for local
// seconds since 1970. Between 1900 and 9999 it is every zone's calendar;
// beyond, ICU's calendar switches to the Julian one before 1582, so callers
// leave those years to it. Inline: the Unicode module shares it.
#pragma once

#include "platform/calendar.h"

#include <cstdint>

namespace tasket::platform::civil {

/// 1900-01-01 and 10000-01-01 UTC in seconds since 1970.
inline constexpr std::int64_t kFrom = -2208988800;
inline constexpr std::int64_t kTo = 253402300800;

/// The floor of a / b for b > 0.
constexpr std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0);
}

/// Local seconds since 1970 as components.
inline DateComponents components(std::int64_t localSeconds) {
    const std::int64_t days = floorDiv(localSeconds, 86400);
    const std::int64_t secondOfDay = localSeconds - days * 86400;
    const std::int64_t z = days + 719468;
    const std::int64_t era = floorDiv(z, 146097);
    const std::int64_t dayOfEra = z - era * 146097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153; // 0 = March
    DateComponents out;
    out.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    out.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    out.year = static_cast<int>(yearOfEra + era * 400 + (out.month <= 2 ? 1 : 0));
    out.hour = static_cast<int>(secondOfDay / 3600);
    out.minute = static_cast<int>(secondOfDay / 60 % 60);
    out.second = static_cast<int>(secondOfDay % 60);
    out.weekday = static_cast<int>(days + 4 - floorDiv(days + 4, 7) * 7) + 1; // 1970-01-01: Thu
    return out;
}

/// Components as local seconds since 1970. Fields out of their range carry
/// over as a lenient calendar's do: day 0 is the month's eve, month 13 the
/// next January, hour 24 the next midnight.
constexpr std::int64_t localSeconds(const DateComponents& c) {
    const std::int64_t month0 = std::int64_t{c.month} - 1;
    const std::int64_t year = c.year + floorDiv(month0, 12);
    const std::int64_t month = month0 - floorDiv(month0, 12) * 12 + 1;
    const std::int64_t y = month <= 2 ? year - 1 : year;
    const std::int64_t era = floorDiv(y, 400);
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    const std::int64_t days = era * 146097 + dayOfEra - 719468 + (c.day - 1);
    return days * 86400 + std::int64_t{c.hour} * 3600 + std::int64_t{c.minute} * 60 + c.second;
}

} // namespace tasket::platform::civil
