// The saves Done started and their outcomes. The form never waits for a
// save, but the process must: it may end only when every save it started
// has committed or failed, so that a shared item is never lost to an early
// exit. Use on the main queue.
#pragma once

#include "platform/error.h"

#include <functional>
#include <string>
#include <vector>

namespace tasket::share {

class PendingSaves {
  public:
    /// A save was started.
    void begin() { ++m_running; }
    /// The save started last-but-n finished: the saved task's identifier, or
    /// why it failed. Runs the idle callbacks when none is left running.
    void finish(platform::Result<std::string> outcome);

    bool isIdle() const { return m_running == 0; }
    /// Runs `callback` now when idle, else once the last running save finished.
    void whenIdle(std::function<void()> callback);

    /// Every finished save, in the order they finished.
    const std::vector<platform::Result<std::string>>& outcomes() const { return m_outcomes; }

  private:
    int m_running = 0;
    std::vector<platform::Result<std::string>> m_outcomes;
    std::vector<std::function<void()>> m_idleCallbacks;
};

} // namespace tasket::share
