#include "platform/calendar.h"

#include "platform/civil.h"
#include "platform/unicode.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <mutex>

namespace tasket::platform {

namespace {

// UTC has no rules to look up, so a host in UTC (servers, containers) has
// its calendar without loading ICU: the civil calendar between 1900 and
// 9999, ICU's zone, loaded then, for the years beyond.
class UtcZone final : public unicode::Zone {
  public:
    explicit UtcZone(std::string id) : m_id(std::move(id)) {}

    std::string id() const override { return m_id; }

    DateComponents components(Date date, int* utcOffset) const override {
        const double seconds = std::floor(date.unixSeconds());
        if (!(seconds >= static_cast<double>(civil::kFrom) &&
              seconds < static_cast<double>(civil::kTo)))
            return icu().components(date, utcOffset);
        if (utcOffset)
            *utcOffset = 0;
        return civil::components(static_cast<std::int64_t>(seconds));
    }

    Date date(const DateComponents& components) const override {
        const std::int64_t seconds = civil::localSeconds(components);
        if (seconds < civil::kFrom || seconds >= civil::kTo)
            return icu().date(components);
        return Date::fromUnix(static_cast<double>(seconds));
    }

  private:
    const unicode::Zone& icu() const {
        std::call_once(m_once, [this] { m_icu = unicode::functions().zoneNamed(m_id); });
        return *m_icu;
    }

    std::string m_id;
    mutable std::once_flag m_once;
    mutable std::shared_ptr<const unicode::Zone> m_icu;
};

// The host's zone when it names UTC, as ICU reads it: TZ, else the zone
// that /etc/localtime links to; empty for any other.
std::string hostUtcZone() {
    std::string id;
    if (const char* tz = std::getenv("TZ")) {
        id = tz[0] == ':' ? tz + 1 : tz;
    } else {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink("/etc/localtime", error).string();
        const auto at = target.rfind("zoneinfo/");
        if (error || at == std::string::npos)
            return {};
        id = target.substr(at + 9);
    }
    return id == "UTC" || id == "Etc/UTC" ? id : std::string();
}

} // namespace

Calendar Calendar::current() {
    if (std::string utc = hostUtcZone(); !utc.empty())
        return Calendar(std::make_shared<const UtcZone>(std::move(utc)));
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
