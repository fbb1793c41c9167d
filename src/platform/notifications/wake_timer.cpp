#include "platform/notifications/wake_timer.h"

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace tasket::platform {
namespace {
constexpr time_t kFarFutureUnix = 4102444800; // 2100-01-01, within the kernel's range
} // namespace

Result<std::unique_ptr<RealtimeWakeTimer>> RealtimeWakeTimer::make(Wake wake) {
    std::unique_ptr<RealtimeWakeTimer> timer(new RealtimeWakeTimer(std::move(wake)));
    timer->m_timer = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    timer->m_zoneEvent = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (timer->m_timer < 0 || timer->m_zoneEvent < 0)
        return fail(Errc::unavailable,
                    fmt::format("cannot make the wake-up timer: {}", std::strerror(errno)));
    // /etc/localtime is a symbolic link replaced by rename when the zone
    // changes (timedatectl set-timezone); the watch makes the eventfd readable.
    const int zoneEvent = timer->m_zoneEvent;
    auto watch = FileWatch::start(
        {.file = "/etc/localtime",
         .events = FileWatch::movedIn | FileWatch::created | FileWatch::closedAfterWriting,
         .quietPeriod = std::chrono::milliseconds(50)},
        [zoneEvent] {
            const std::uint64_t one = 1;
            [[maybe_unused]] const auto written = ::write(zoneEvent, &one, sizeof one);
        });
    // Without /etc (a container) the zone comes from TZ alone and cannot change.
    if (watch)
        timer->m_zoneWatch = std::move(*watch);
    timer->arm(std::nullopt);
    return timer;
}

RealtimeWakeTimer::~RealtimeWakeTimer() {
    m_zoneWatch.reset();
    if (m_timer >= 0)
        ::close(m_timer);
    if (m_zoneEvent >= 0)
        ::close(m_zoneEvent);
}

Date RealtimeWakeTimer::now() const {
    return Date::fromSystem(std::chrono::system_clock::now());
}

void RealtimeWakeTimer::arm(std::optional<Date> at) {
    m_armed = at;
    itimerspec alarm{};
    if (at) {
        const double unix = std::max(at->unixSeconds(), 1e-9);
        alarm.it_value.tv_sec = static_cast<time_t>(std::floor(unix));
        alarm.it_value.tv_nsec = static_cast<long>((unix - std::floor(unix)) * 1e9);
        if (alarm.it_value.tv_sec == 0 && alarm.it_value.tv_nsec == 0)
            alarm.it_value.tv_nsec = 1;
    } else {
        // A disarmed timer still has to tell of a clock being set, so it
        // waits for the furthest instant it can name.
        alarm.it_value.tv_sec = kFarFutureUnix;
    }
    ::timerfd_settime(m_timer, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &alarm, nullptr);
}

void RealtimeWakeTimer::handleReadable() {
    std::uint64_t expirations = 0;
    const auto r = ::read(m_timer, &expirations, sizeof expirations);
    if (r < 0 && errno == EAGAIN)
        return;
    const WakeReason reason =
        r < 0 && errno == ECANCELED ? WakeReason::clockSet : WakeReason::alarm;
    // A cancelled timer stays cancelled until set again; a fired alarm is spent.
    arm(reason == WakeReason::clockSet ? m_armed : std::nullopt);
    if (m_wake)
        m_wake(reason);
}

void RealtimeWakeTimer::handleZoneReadable() {
    std::uint64_t count = 0;
    if (::read(m_zoneEvent, &count, sizeof count) < 0)
        return;
    if (m_wake)
        m_wake(WakeReason::zoneChanged);
}

ManualWakeTimer::ManualWakeTimer(Date start, std::string zoneID, Wake wake)
    : m_now(start), m_zoneID(std::move(zoneID)), m_wake(std::move(wake)) {}

Calendar ManualWakeTimer::calendar() const {
    auto calendar = Calendar::inZone(m_zoneID);
    return calendar ? *calendar : Calendar::current();
}

void ManualWakeTimer::arm(std::optional<Date> at) {
    m_armed = at;
}

void ManualWakeTimer::fireIfDue() {
    if (m_armed && *m_armed <= m_now) {
        m_armed.reset();
        if (m_wake)
            m_wake(WakeReason::alarm);
    }
}

void ManualWakeTimer::advance(double seconds) {
    m_now = m_now.addingSeconds(seconds);
    fireIfDue();
}

void ManualWakeTimer::set(Date date) {
    m_now = date;
    if (m_wake)
        m_wake(WakeReason::clockSet);
}

void ManualWakeTimer::setZone(std::string zoneID) {
    m_zoneID = std::move(zoneID);
    if (m_wake)
        m_wake(WakeReason::zoneChanged);
}

} // namespace tasket::platform
