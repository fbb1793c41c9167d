// The calendar in zones whose days are not all 24 hours long: Berlin (a
// one-hour gap at 02:00 and a repeated hour), Sao Paulo on 2018-11-04
// (midnight skipped) and Apia, which skipped 2011-12-30 altogether.
#include "platform/calendar.h"
#include "platform/date_text.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using tasket::platform::Calendar;
using tasket::platform::Date;
using tasket::platform::DateComponents;

namespace {

/// The instant at this UTC wall time.
Date utc(int y, unsigned m, unsigned d, int hour = 0, int minute = 0, double second = 0) {
    using namespace std::chrono;
    const sys_days date{year{y} / month{m} / day{d}};
    return Date::fromUnix(static_cast<double>(date.time_since_epoch().count()) * 86400 +
                          hour * 3600 + minute * 60 + second);
}

Calendar in(const char* zone) {
    auto calendar = Calendar::inZone(zone);
    EXPECT_TRUE(calendar) << zone;
    return *calendar;
}

std::string text(Date date) {
    return std::to_string(date.unixSeconds());
}

} // namespace

TEST(Calendar, ComponentsNameTheInstantInTheZone) {
    const std::tuple<const char*, Date, DateComponents> cases[] = {
        {"UTC", Date{0}, {2001, 1, 1, 0, 0, 0, 2}},
        {"UTC", Date{-0.5}, {2000, 12, 31, 23, 59, 59, 1}}, // fractions drop toward the past
        {"Europe/Berlin", utc(2024, 10, 27, 0, 30), {2024, 10, 27, 2, 30, 0, 1}},
        {"Europe/Berlin", utc(2024, 10, 27, 1, 30), {2024, 10, 27, 2, 30, 0, 1}}, // once more
        {"Pacific/Apia", utc(2011, 12, 30, 9, 59, 59), {2011, 12, 29, 23, 59, 59, 5}},
        {"Pacific/Apia", utc(2011, 12, 30, 10), {2011, 12, 31, 0, 0, 0, 7}},
    };
    for (const auto& [zone, date, local] : cases)
        EXPECT_EQ(in(zone).components(date), local) << zone << " " << text(date);
}

// Components are worked out from the zone's offset and a day count, not
// by a calendar of ICU's: the same answers, instant by instant, in zones
// with half-hour offsets, half-hour daylight saving and a skipped day,
// before 1970 and at the ends of the years that take the short way.
TEST(Calendar, ComponentsAgreeWithIcusGregorianCalendar) {
    std::mt19937_64 random(20261124);
    std::uniform_real_distribution<double> instant(-2300000000.0, 4200000000.0); // 1897 to 2103
    const tasket::testing::ScopedEnv tz("TZ", "UTC");
    const Calendar utcHost = Calendar::current();
    for (const char* zone : {"UTC", "Europe/Berlin", "America/Sao_Paulo", "Pacific/Apia",
                             "Asia/Kolkata", "Australia/Lord_Howe", "America/St_Johns"}) {
        const Calendar calendar = in(zone);
        UErrorCode status = U_ZERO_ERROR;
        icu::GregorianCalendar icu(
            icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)), status);
        ASSERT_TRUE(U_SUCCESS(status));
        std::vector<double> instants{-2208988801.0, -2208988800.0, 0.0, 253402300799.0};
        for (int i = 0; i < 3000; ++i)
            instants.push_back(std::floor(instant(random)));
        for (const double unix : instants) {
            icu.setTime(unix * 1000, status);
            const DateComponents expected{
                icu.get(UCAL_EXTENDED_YEAR, status), icu.get(UCAL_MONTH, status) + 1,
                icu.get(UCAL_DATE, status),          icu.get(UCAL_HOUR_OF_DAY, status),
                icu.get(UCAL_MINUTE, status),        icu.get(UCAL_SECOND, status),
                icu.get(UCAL_DAY_OF_WEEK, status)};
            const int offset =
                (icu.get(UCAL_ZONE_OFFSET, status) + icu.get(UCAL_DST_OFFSET, status)) / 1000;
            int got = 0;
            ASSERT_EQ(calendar.components(Date::fromUnix(unix), &got), expected)
                << zone << " " << unix;
            ASSERT_EQ(got, offset) << zone << " " << unix;
            if (zone == std::string_view("UTC")) { // a host in UTC has a calendar of its own
                ASSERT_EQ(utcHost.components(Date::fromUnix(unix), &got), expected) << unix;
                ASSERT_EQ(got, 0);
            }
        }
        ASSERT_TRUE(U_SUCCESS(status));
    }
}

TEST(Calendar, ADateFromComponentsTakesTheFirstValidInstant) {
    const std::tuple<const char*, const char*, DateComponents, Date> cases[] = {
        {"plain", "Europe/Berlin", {2024, 1, 15, 9, 30, 45}, utc(2024, 1, 15, 8, 30, 45)},
        {"in the spring gap", "Europe/Berlin", {2024, 3, 31, 2, 30}, utc(2024, 3, 31, 1)},
        {"repeated: the first", "Europe/Berlin", {2024, 10, 27, 2, 30}, utc(2024, 10, 27, 0, 30)},
        {"month 13", "Europe/Berlin", {2024, 13, 1}, utc(2024, 12, 31, 23)},
        {"day 0", "UTC", {2024, 3, 0}, utc(2024, 2, 29)},
        {"skipped midnight", "America/Sao_Paulo", {2018, 11, 4}, utc(2018, 11, 4, 3)},
        {"skipped day", "Pacific/Apia", {2011, 12, 30, 12}, utc(2011, 12, 30, 10)},
        {"hour 24, minute -1", "UTC", {2024, 2, 28, 24, -1}, utc(2024, 2, 28, 23, 59)},
        {"month 0", "UTC", {2024, 0, 31, 12}, utc(2023, 12, 31, 12)},
        {"in the Julian calendar", "UTC", {1500, 3, 1}, utc(1500, 3, 11)},
        {"past 9999", "UTC", {9999, 12, 32}, utc(10000, 1, 1)},
    };
    const tasket::testing::ScopedEnv tz("TZ", ":Etc/UTC");
    const Calendar utcHost = Calendar::current();
    for (const auto& [what, zone, local, expected] : cases) {
        EXPECT_EQ(text(in(zone).date(local)), text(expected)) << what;
        if (zone == std::string_view("UTC")) {
            EXPECT_EQ(text(utcHost.date(local)), text(expected)) << what << ", on a host in UTC";
            EXPECT_EQ(utcHost.components(utcHost.date(local)), in(zone).components(expected));
        }
    }
}

TEST(Calendar, StartOfDayIsTheDaysFirstInstant) {
    const std::tuple<const char*, Date, Date> cases[] = {
        {"Europe/Berlin", utc(2024, 3, 31, 13), utc(2024, 3, 30, 23)},    // a 23-hour day
        {"Europe/Berlin", utc(2024, 3, 30, 23), utc(2024, 3, 30, 23)},    // already there
        {"America/Sao_Paulo", utc(2018, 11, 4, 14), utc(2018, 11, 4, 3)}, // 01:00, not 00:00
        {"Pacific/Apia", utc(2011, 12, 30, 22), utc(2011, 12, 30, 10)},   // the 31st
        {"Pacific/Apia", utc(2011, 12, 29, 22), utc(2011, 12, 29, 10)},   // the 29th
    };
    for (const auto& [zone, date, expected] : cases)
        EXPECT_EQ(text(in(zone).startOfDay(date)), text(expected)) << zone << " " << text(date);
}

TEST(Calendar, AddingDaysKeepsTheLocalTimeAcrossShortAndLongDays) {
    const std::tuple<const char*, const char*, Date, int, Date> cases[] = {
        {"over a 23-hour day", "Europe/Berlin", utc(2024, 3, 30, 11), 1, utc(2024, 3, 31, 10)},
        {"over a 25-hour day", "Europe/Berlin", utc(2024, 10, 26, 10), 1, utc(2024, 10, 27, 11)},
        {"backwards", "Europe/Berlin", utc(2024, 4, 1, 10), -2, utc(2024, 3, 30, 11)},
        {"into the gap", "Europe/Berlin", utc(2024, 3, 30, 1, 30), 1, utc(2024, 3, 31, 1)},
        {"from the repeat", "Europe/Berlin", utc(2024, 10, 27, 1, 30), 0, utc(2024, 10, 27, 1, 30)},
        {"leap day", "UTC", utc(2024, 2, 28, 12), 2, utc(2024, 3, 1, 12)},
        {"keeps fractions", "UTC", utc(2024, 1, 31, 12, 0, 0.25), 1, utc(2024, 2, 1, 12, 0, 0.25)},
        {"onto skipped midnight", "America/Sao_Paulo", utc(2018, 11, 3, 3), 1, utc(2018, 11, 4, 3)},
        {"onto the skipped day", "Pacific/Apia", utc(2011, 12, 29, 20), 1, utc(2011, 12, 30, 10)},
        {"over the skipped day", "Pacific/Apia", utc(2011, 12, 29, 20), 2, utc(2011, 12, 30, 20)},
    };
    for (const auto& [what, zone, date, days, expected] : cases)
        EXPECT_EQ(text(in(zone).addingDays(date, days)), text(expected)) << what;
}

TEST(Calendar, ZonesComeFromTheirNameOrTheEnvironment) {
    EXPECT_EQ(in("America/Sao_Paulo").zoneID(), "America/Sao_Paulo");
    const auto unknown = Calendar::inZone("Nowhere/Atlantis");
    ASSERT_FALSE(unknown);
    EXPECT_NE(unknown.error().message.find("Nowhere/Atlantis"), std::string::npos);

    for (const char* tz : {"Pacific/Apia", "UTC", ":Etc/UTC", "UTC0"}) {
        const tasket::testing::ScopedEnv zone("TZ", tz);
        icu::UnicodeString id;
        std::unique_ptr<icu::TimeZone>(icu::TimeZone::detectHostTimeZone())->getID(id);
        std::string expected;
        EXPECT_EQ(Calendar::current().zoneID(), id.toUTF8String(expected)) << tz;
    }
}

// What a person types, read in Berlin at 23:30 on Saturday 28 March 2026,
// the night the clocks go forward; and the ISO text written back.
TEST(DateText, ReadsTypedDatesAndWritesIsoInTheZone) {
    using tasket::platform::parseWhen;
    const Calendar berlin = in("Europe/Berlin");
    const Date now = utc(2026, 3, 28, 22, 30);
    const std::tuple<const char*, std::string> cases[] = {
        {"today", "2026-03-28"},
        {"Tomorrow", "2026-03-29"}, // a 23-hour day: not now + 24 h
        {"yesterday", "2026-03-27"},
        {"+3d", "2026-03-31"},
        {"+2w", "2026-04-11"},
        {"-1d", "2026-03-27"},
        {"saturday", "2026-04-04"}, // today's weekday is a week ahead
        {"mon", "2026-03-30"},
        {"2026-02-28", "2026-02-28"},
        {"2026-03-29T02:30", "2026-03-29T03:00:00+02:00"}, // skipped: the first instant after
        {"2026-03-29 12:00:05", "2026-03-29T12:00:05+02:00"},
        {"2026-03-29T10:00Z", "2026-03-29T12:00:00+02:00"},
        {"2026-01-10T10:00-05:00", "2026-01-10T16:00:00+01:00"},
    };
    for (const auto& [typed, expected] : cases) {
        SCOPED_TRACE(typed);
        const auto when = parseWhen(typed, now, berlin);
        ASSERT_TRUE(when) << when.error().message;
        const bool hasTime = expected.size() > 10;
        EXPECT_EQ(when->hasTime, hasTime);
        EXPECT_EQ(hasTime ? tasket::platform::isoDateTime(when->date, berlin)
                          : tasket::platform::isoDay(when->date, berlin),
                  expected);
        if (!hasTime) {
            EXPECT_EQ(when->date, berlin.startOfDay(when->date));
        }
    }
    // Offsets west of UTC and in half hours; a year of five digits.
    EXPECT_EQ(tasket::platform::isoDateTime(utc(2026, 1, 10, 12, 0, 7), in("America/St_Johns")),
              "2026-01-10T08:30:07-03:30");
    EXPECT_EQ(tasket::platform::isoDateTime(utc(10000, 1, 2, 3, 4), in("UTC")),
              "10000-01-02T03:04:00+00:00");
    for (const char* bad : {"", "2026-02-30", "2026-13-01", "2026-03-28T24:00", "+d", "+3y",
                            "someday", "2026-03-28T10:00+", "28/03/2026"}) {
        const auto when = parseWhen(bad, now, berlin);
        ASSERT_FALSE(when) << bad;
        EXPECT_NE(when.error().message.find("is not a date"), std::string::npos);
    }
}
