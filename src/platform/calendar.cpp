#include "platform/calendar.h"

#include <fmt/format.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace tasket::platform {

// A prototype calendar, cloned for each question: an icu::Calendar keeps
// its fields in itself, so one instance must not answer two threads. Its
// zone's const questions (the offset at an instant) may be asked at once.
struct Calendar::Zone {
    std::unique_ptr<icu::Calendar> prototype;

    /// A Gregorian calendar in `adoptedZone`, with the project's answers
    /// for skipped and repeated local times.
    static std::shared_ptr<const Zone> make(icu::TimeZone* adoptedZone);
    std::unique_ptr<icu::Calendar> calendar() const;
};

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

// Whole seconds go through ICU, which counts in milliseconds; the fraction
// of a second is carried beside them so that it survives exactly.
struct SplitDate {
    UDate wholeMilliseconds;
    double fraction;
};

SplitDate split(Date date) {
    const double unix = date.unixSeconds();
    const double whole = std::floor(unix);
    return {whole * kMillisecondsPerSecond, unix - whole};
}

void check(UErrorCode status, const char* what) {
    // ICU fails here only for dates beyond its range (about ±5.8 million
    // years), which no caller has: a programmer error.
    if (U_FAILURE(status))
        throw std::out_of_range(fmt::format("Calendar: {} failed: {}", what, u_errorName(status)));
}

} // namespace

std::unique_ptr<icu::Calendar> Calendar::Zone::calendar() const {
    return std::unique_ptr<icu::Calendar>(prototype->clone());
}

std::shared_ptr<const Calendar::Zone> Calendar::Zone::make(icu::TimeZone* adoptedZone) {
    UErrorCode status = U_ZERO_ERROR;
    auto calendar = std::make_unique<icu::GregorianCalendar>(adoptedZone, status);
    check(status, "making the calendar");
    calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
    calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
    return std::make_shared<const Zone>(Zone{std::move(calendar)});
}

Calendar Calendar::current() {
    // Read afresh on each call (TZ, then /etc/localtime), not ICU's cached default.
    return Calendar(Zone::make(icu::TimeZone::detectHostTimeZone()));
}

Result<Calendar> Calendar::inZone(std::string_view zoneID) {
    const auto id = icu::UnicodeString::fromUTF8(
        icu::StringPiece(zoneID.data(), static_cast<int32_t>(zoneID.size())));
    std::unique_ptr<icu::TimeZone> timeZone(icu::TimeZone::createTimeZone(id));
    if (!timeZone || *timeZone == icu::TimeZone::getUnknown())
        return fail(Errc::invalidArgument, fmt::format("\"{}\" is not a time zone", zoneID));
    return Calendar(Zone::make(timeZone.release()));
}

std::string Calendar::zoneID() const {
    icu::UnicodeString id;
    m_zone->prototype->getTimeZone().getID(id);
    std::string out;
    id.toUTF8String(out);
    return out;
}

namespace {

// 1900-01-01 and 10000-01-01 UTC in milliseconds since 1970: between them
// the calendar is the proleptic Gregorian one a day count gives.
constexpr double kCivilFrom = -2208988800000.0;
constexpr double kCivilTo = 253402300800000.0;

// The floor of a / b for b > 0.
constexpr std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0);
}

// Local seconds since 1970 as components: the civil date of a day count
// (H. Hinnant's days-to-civil, eras of 400 years).
DateComponents civil(std::int64_t localSeconds) {
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

} // namespace

DateComponents Calendar::components(Date date, int* utcOffset) const {
    const UDate at = split(date).wholeMilliseconds;
    UErrorCode status = U_ZERO_ERROR;
    if (at >= kCivilFrom && at < kCivilTo) {
        // Only the zone's offset is ICU's: a calendar of our own would cost
        // a clone of the prototype and its zone for each date reported.
        std::int32_t raw = 0, daylight = 0;
        m_zone->prototype->getTimeZone().getOffset(at, false, raw, daylight, status);
        check(status, "reading a date");
        if (utcOffset)
            *utcOffset = (raw + daylight) / 1000;
        return civil(floorDiv(static_cast<std::int64_t>(at) + raw + daylight, 1000));
    }
    auto calendar = m_zone->calendar();
    calendar->setTime(at, status);
    DateComponents out;
    out.year = calendar->get(UCAL_EXTENDED_YEAR, status);
    out.month = calendar->get(UCAL_MONTH, status) + 1;
    out.day = calendar->get(UCAL_DATE, status);
    out.hour = calendar->get(UCAL_HOUR_OF_DAY, status);
    out.minute = calendar->get(UCAL_MINUTE, status);
    out.second = calendar->get(UCAL_SECOND, status);
    out.weekday = calendar->get(UCAL_DAY_OF_WEEK, status);
    if (utcOffset)
        *utcOffset =
            (calendar->get(UCAL_ZONE_OFFSET, status) + calendar->get(UCAL_DST_OFFSET, status)) /
            1000;
    check(status, "reading a date");
    return out;
}

Date Calendar::date(const DateComponents& c) const {
    auto calendar = m_zone->calendar();
    calendar->clear();
    calendar->set(UCAL_EXTENDED_YEAR, c.year);
    calendar->set(UCAL_MONTH, c.month - 1);
    calendar->set(UCAL_DATE, c.day);
    calendar->set(UCAL_HOUR_OF_DAY, c.hour);
    calendar->set(UCAL_MINUTE, c.minute);
    calendar->set(UCAL_SECOND, c.second);
    UErrorCode status = U_ZERO_ERROR;
    const UDate time = calendar->getTime(status);
    check(status, "making a date");
    return Date::fromUnix(time / kMillisecondsPerSecond);
}

Date Calendar::startOfDay(Date date) const {
    DateComponents day = components(date);
    day.hour = day.minute = day.second = 0;
    return this->date(day);
}

Date Calendar::addingDays(Date date, int days) const {
    if (days == 0)
        return date; // even the second of two equal local times stays itself
    const double fraction = split(date).fraction;
    DateComponents later = components(date);
    later.day += days;
    return this->date(later).addingSeconds(fraction);
}

} // namespace tasket::platform
