// The wall clock as a daemon that sleeps until a given local time sees it:
// "now", the calendar of the zone in force, and one alarm at an instant of
// the wall clock. Besides the alarm, the owner is woken when the wall clock
// is set (by a person, NTP or a resume from suspend) and when the local
// zone changes, since both move every local time it waits for.
// RealtimeWakeTimer is the system's (timerfd on CLOCK_REALTIME, /etc/localtime
// watched); ManualWakeTimer is moved by hand.
#pragma once

#include "platform/calendar.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/file_watch.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tasket::platform {

enum class WakeReason { alarm, clockSet, zoneChanged };

class WakeTimer {
  public:
    using Wake = std::function<void(WakeReason)>;
    virtual ~WakeTimer() = default;

    [[nodiscard]] virtual Date now() const = 0;
    /// The calendar of the zone in force now.
    [[nodiscard]] virtual Calendar calendar() const = 0;
    /// Sets the one alarm (replacing any earlier one); nullopt disarms. An
    /// instant already past wakes at once.
    virtual void arm(std::optional<Date> at) = 0;
    [[nodiscard]] virtual std::optional<Date> armed() const = 0;
};

/// The system's wall clock. Wakes come through poll(): when fd() is
/// readable, call handleReadable(), which calls `wake` on the caller's thread.
/// A zone change is seen on a thread of the watch and turned into a readable fd.
class RealtimeWakeTimer final : public WakeTimer {
  public:
    /// Fails when the timer or the zone watch cannot be made.
    [[nodiscard]] static Result<std::unique_ptr<RealtimeWakeTimer>> make(Wake wake);
    ~RealtimeWakeTimer() override;

    [[nodiscard]] Date now() const override;
    [[nodiscard]] Calendar calendar() const override { return Calendar::current(); }
    void arm(std::optional<Date> at) override;
    [[nodiscard]] std::optional<Date> armed() const override { return m_armed; }

    [[nodiscard]] int fd() const { return m_timer; }
    [[nodiscard]] int zoneFd() const { return m_zoneEvent; }
    void handleReadable();
    void handleZoneReadable();

  private:
    explicit RealtimeWakeTimer(Wake wake) : m_wake(std::move(wake)) {}

    Wake m_wake;
    int m_timer = -1;
    int m_zoneEvent = -1;
    std::optional<Date> m_armed;
    std::unique_ptr<FileWatch> m_zoneWatch;
};

/// A wall clock moved by hand, for tests: moving it past the alarm wakes
/// with alarm, setting it wakes with clockSet, changing the zone with
/// zoneChanged, each on the caller's thread.
class ManualWakeTimer final : public WakeTimer {
  public:
    ManualWakeTimer(Date start, std::string zoneID, Wake wake = nullptr);
    void setWake(Wake wake) { m_wake = std::move(wake); }

    [[nodiscard]] Date now() const override { return m_now; }
    [[nodiscard]] Calendar calendar() const override;
    void arm(std::optional<Date> at) override;
    [[nodiscard]] std::optional<Date> armed() const override { return m_armed; }

    /// Time passing: wakes once if the alarm falls due on the way.
    void advance(double seconds);
    /// The clock being set (a jump either way, or a resume from sleep).
    void set(Date date);
    void setZone(std::string zoneID);

  private:
    void fireIfDue();

    Date m_now;
    std::string m_zoneID;
    Wake m_wake;
    std::optional<Date> m_armed;
};

} // namespace tasket::platform
