#include "platform/date_text.h"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <array>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <optional>

namespace tasket::platform {

namespace {

constexpr std::array<std::string_view, 7> kWeekdays{"sunday",   "monday", "tuesday", "wednesday",
                                                    "thursday", "friday", "saturday"};

std::string lowered(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Reads exactly `digits` decimal digits at `at`, moving past them.
std::optional<int> number(std::string_view text, std::size_t& at, std::size_t digits) {
    if (at + digits > text.size())
        return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + digits; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    at += digits;
    return value;
}

bool take(std::string_view text, std::size_t& at, char c) {
    if (at < text.size() && text[at] == c) {
        ++at;
        return true;
    }
    return false;
}

Date dayFromToday(Date now, int days, const Calendar& calendar) {
    return calendar.startOfDay(calendar.addingDays(now, days));
}

// today, tomorrow, yesterday, ±N[dw], weekday names.
std::optional<Date> relativeDay(const std::string& word, Date now, const Calendar& calendar) {
    if (word == "today")
        return dayFromToday(now, 0, calendar);
    if (word == "tomorrow")
        return dayFromToday(now, 1, calendar);
    if (word == "yesterday")
        return dayFromToday(now, -1, calendar);
    if (word.size() >= 3 && (word[0] == '+' || word[0] == '-') &&
        (word.back() == 'd' || word.back() == 'w')) {
        int count = 0;
        const char* first = word.data() + 1;
        const char* last = word.data() + word.size() - 1;
        const auto [end, error] = std::from_chars(first, last, count);
        if (error != std::errc() || end != last || count > 100000)
            return std::nullopt;
        const int days = (word.back() == 'w' ? 7 : 1) * (word[0] == '-' ? -count : count);
        return dayFromToday(now, days, calendar);
    }
    for (std::size_t i = 0; i < kWeekdays.size(); ++i) {
        const std::string_view name = kWeekdays[i];
        if (word == name || (word.size() == 3 && name.starts_with(word))) {
            const int today = calendar.components(now).weekday - 1; // 0 = Sunday
            int ahead = (static_cast<int>(i) - today + 7) % 7;
            return dayFromToday(now, ahead == 0 ? 7 : ahead, calendar);
        }
    }
    return std::nullopt;
}

// YYYY-MM-DD[(T| )HH:MM[:SS][Z|±HH[:]MM]]
std::optional<When> isoDate(std::string_view text, const Calendar& calendar) {
    std::size_t at = 0;
    DateComponents c;
    const auto year = number(text, at, 4);
    if (!year || !take(text, at, '-'))
        return std::nullopt;
    const auto month = number(text, at, 2);
    if (!month || !take(text, at, '-'))
        return std::nullopt;
    const auto day = number(text, at, 2);
    if (!day)
        return std::nullopt;
    c.year = *year;
    c.month = *month;
    c.day = *day;
    bool hasTime = false;
    std::optional<int> offsetSeconds;
    if (at < text.size()) {
        if (!take(text, at, 'T') && !take(text, at, 't') && !take(text, at, ' '))
            return std::nullopt;
        const auto hour = number(text, at, 2);
        if (!hour || !take(text, at, ':'))
            return std::nullopt;
        const auto minute = number(text, at, 2);
        if (!minute)
            return std::nullopt;
        c.hour = *hour;
        c.minute = *minute;
        if (take(text, at, ':')) {
            const auto second = number(text, at, 2);
            if (!second)
                return std::nullopt;
            c.second = *second;
        }
        hasTime = true;
        if (take(text, at, 'Z') || take(text, at, 'z')) {
            offsetSeconds = 0;
        } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
            const int sign = text[at++] == '-' ? -1 : 1;
            const auto hours = number(text, at, 2);
            take(text, at, ':');
            const auto minutes = number(text, at, 2);
            if (!hours || !minutes || *hours > 23 || *minutes > 59)
                return std::nullopt;
            offsetSeconds = sign * (*hours * 3600 + *minutes * 60);
        }
        if (at != text.size())
            return std::nullopt;
    }
    if (c.month < 1 || c.month > 12 || c.day < 1 || c.day > 31 || c.hour > 23 || c.minute > 59 ||
        c.second > 59)
        return std::nullopt;
    // The fields name this day (no rolling over into the next month).
    const Calendar utc = Calendar::inZone("UTC").value();
    const DateComponents check = utc.components(utc.date(c));
    if (check.day != c.day)
        return std::nullopt;
    if (offsetSeconds)
        return When{utc.date(c).addingSeconds(-*offsetSeconds), true};
    return When{calendar.date(c), hasTime};
}

} // namespace

Result<When> parseWhen(std::string_view text, Date now, const Calendar& calendar) {
    if (auto day = relativeDay(lowered(text), now, calendar))
        return When{*day, false};
    if (auto when = isoDate(text, calendar))
        return *when;
    return fail(Errc::invalidArgument,
                fmt::format("\"{}\" is not a date: write 2026-03-28 or 2026-03-28T09:30 (local "
                            "time), or today, tomorrow, yesterday, +3d, +2w or a weekday name",
                            text));
}

std::string isoDay(Date date, const Calendar& calendar) {
    const DateComponents c = calendar.components(date);
    return fmt::format(FMT_COMPILE("{:04}-{:02}-{:02}"), c.year, c.month, c.day);
}

std::string isoDateTime(Date date, const Calendar& calendar) {
    int offset = 0;
    const DateComponents c = calendar.components(date, &offset);
    const int magnitude = std::abs(offset) / 60;
    if (c.year < 0 || c.year > 9999)
        return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}{:02}:{:02}", c.year, c.month,
                           c.day, c.hour, c.minute, c.second, offset < 0 ? '-' : '+',
                           magnitude / 60, magnitude % 60);
    // By hand: a listing writes one or more of these for each task, and
    // every field but the year is two digits.
    std::string text = "0000-00-00T00:00:00+00:00";
    const auto two = [&text](std::size_t at, int value) {
        text[at] = static_cast<char>('0' + value / 10 % 10);
        text[at + 1] = static_cast<char>('0' + value % 10);
    };
    two(0, c.year / 100);
    two(2, c.year % 100);
    two(5, c.month);
    two(8, c.day);
    two(11, c.hour);
    two(14, c.minute);
    two(17, c.second);
    text[19] = offset < 0 ? '-' : '+';
    two(20, magnitude / 60);
    two(23, magnitude % 60);
    return text;
}

} // namespace tasket::platform
