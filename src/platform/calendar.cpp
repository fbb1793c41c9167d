#include "platform/calendar.h"

#include "platform/unicode.h"

#include <fmt/format.h>

#include <cmath>

namespace tasket::platform {

Calendar Calendar::current() {
    return Calendar(unicode::functions().hostZone());
}

Result<Calendar> Calendar::inZone(std::string_view zoneID) {
    auto zone = unicode::functions().zoneNamed(zoneID);
    if (!zone)
        return fail(Errc::invalidArgument, fmt::format("\"{}\" is not a time zone", zoneID));
    return Calendar(std::move(zone));
}

std::string Calendar::zoneID() const {
    return m_zone->id();
}

DateComponents Calendar::components(Date date, int* utcOffset) const {
    return m_zone->components(date, utcOffset);
}

Date Calendar::date(const DateComponents& components) const {
    return m_zone->date(components);
}

Date Calendar::startOfDay(Date date) const {
    DateComponents day = components(date);
    day.hour = day.minute = day.second = 0;
    return this->date(day);
}

Date Calendar::addingDays(Date date, int days) const {
    if (days == 0)
        return date; // even the second of two equal local times stays itself
    // The zone counts whole seconds; the fraction is carried beside them.
    const double fraction = date.unixSeconds() - std::floor(date.unixSeconds());
    DateComponents later = components(date);
    later.day += days;
    return this->date(later).addingSeconds(fraction);
}

} // namespace tasket::platform
