// The Gregorian calendar of one time zone (ICU's, through unicode.h): what
// a person means by "that day", "three days later" and "9:30 on the 4th".
// Every day-only date, date component and day arithmetic of the project
// goes through it.
//
// A local time that does not exist (skipped by a daylight-saving change, or
// on a day the zone skipped altogether) stands for the first valid instant
// after the gap: 02:30 on a day whose clocks jump from 02:00 to 03:00 is
// 03:00. A local time that happens twice stands for its first occurrence.
#pragma once

#include "platform/date.h"
#include "platform/error.h"

#include <memory>
#include <string>
#include <string_view>

namespace tasket::platform {

namespace unicode {
class Zone;
}

/// A date as a person reads it in one zone. Out of range fields roll over
/// when a date is made from them (month 13 is January of the next year,
/// day 0 the last day of the month before).
struct DateComponents {
    int year = 2001;
    int month = 1; // 1 = January
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 0; // 1 = Sunday … 7 = Saturday; filled in, ignored when making a date

    friend bool operator==(const DateComponents&, const DateComponents&) = default;
};

class Calendar {
  public:
    /// The calendar of the zone this process runs in (TZ, else the system's).
    [[nodiscard]] static Calendar current();
    /// The calendar of the ICU zone `zoneID` ("Europe/Berlin"); fails with
    /// invalidArgument for a zone ICU does not know.
    [[nodiscard]] static Result<Calendar> inZone(std::string_view zoneID);

    /// The zone's ICU identifier.
    [[nodiscard]] std::string zoneID() const;

    // ---- Days ----------------------------------------------------------------------
    /// The first instant of the day that holds `date`: local midnight, or
    /// the first instant after it when midnight was skipped.
    [[nodiscard]] Date startOfDay(Date date) const;
    /// The same local time `days` calendar days later (earlier when
    /// negative), whatever the length of the days between; see the file
    /// comment for a time that does not exist on the day reached.
    [[nodiscard]] Date addingDays(Date date, int days) const;

    // ---- Components ------------------------------------------------------------------
    /// `date` as year, month, day, hour, minute, second (fractions dropped)
    /// and weekday in this zone; with `utcOffset`, also how far this zone's
    /// clocks are then ahead of UTC, in seconds (daylight saving included;
    /// negative west of Greenwich).
    [[nodiscard]] DateComponents components(Date date, int* utcOffset = nullptr) const;
    /// The instant that `components` name in this zone (weekday ignored).
    [[nodiscard]] Date date(const DateComponents& components) const;

  private:
    explicit Calendar(std::shared_ptr<const unicode::Zone> zone) : m_zone(std::move(zone)) {}

    std::shared_ptr<const unicode::Zone> m_zone;
};

} // namespace tasket::platform
