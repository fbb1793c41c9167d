#include "platform/calendar.h"

#include <fmt/format.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cmath>
#include <stdexcept>

namespace tasket::platform {

// A prototype calendar, cloned for each question: an icu::Calendar keeps
// its fields in itself, so one instance must not answer two threads.
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

DateComponents Calendar::components(Date date, int* utcOffset) const {
    auto calendar = m_zone->calendar();
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(split(date).wholeMilliseconds, status);
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
