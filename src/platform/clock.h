// An injectable source of "now". Production code asks a Clock; tests hand in
// a ManualClock and move time by hand.
#pragma once

#include "platform/date.h"

#include <atomic>

namespace tasket::platform {

class Clock {
  public:
    virtual ~Clock() = default;
    [[nodiscard]] virtual Date now() const = 0;

    /// The process-wide clock (the system clock unless a test replaced it).
    [[nodiscard]] static const Clock& shared();
    /// Replaces the process-wide clock; nullptr restores the system clock.
    /// The caller keeps `clock` alive while it is installed.
    static void setShared(const Clock* clock);
};

class SystemClock final : public Clock {
  public:
    [[nodiscard]] Date now() const override;
};

class ManualClock final : public Clock {
  public:
    explicit ManualClock(Date start = {}) : m_seconds(start.secondsSinceReference) {}
    [[nodiscard]] Date now() const override { return {m_seconds.load()}; }
    void set(Date d) { m_seconds = d.secondsSinceReference; }
    void advance(double seconds) { m_seconds = m_seconds.load() + seconds; }

  private:
    std::atomic<double> m_seconds;
};

} // namespace tasket::platform
