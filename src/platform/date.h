// Instants as the store and transfer records carry them: seconds since the
// reference date 2001-01-01 00:00:00 UTC, as a double.
#pragma once

#include <chrono>
#include <compare>

namespace tasket::platform {

struct Date {
    static constexpr double kUnixOffset = 978307200.0; // 2001-01-01 in Unix time

    double secondsSinceReference = 0.0;

    [[nodiscard]] static constexpr Date fromUnix(double unixSeconds) {
        return {unixSeconds - kUnixOffset};
    }
    [[nodiscard]] constexpr double unixSeconds() const {
        return secondsSinceReference + kUnixOffset;
    }
    [[nodiscard]] static Date fromSystem(std::chrono::system_clock::time_point tp) {
        return fromUnix(std::chrono::duration<double>(tp.time_since_epoch()).count());
    }
    [[nodiscard]] constexpr Date addingSeconds(double s) const {
        return {secondsSinceReference + s};
    }

    friend constexpr auto operator<=>(const Date&, const Date&) = default;
};

} // namespace tasket::platform
