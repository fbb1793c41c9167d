#include "share/pending_saves.h"

namespace tasket::share {

void PendingSaves::finish(platform::Result<std::string> outcome) {
    m_outcomes.push_back(std::move(outcome));
    if (m_running > 0)
        --m_running;
    if (m_running == 0) {
        auto callbacks = std::move(m_idleCallbacks);
        m_idleCallbacks.clear();
        for (auto& callback : callbacks)
            callback();
    }
}

void PendingSaves::whenIdle(std::function<void()> callback) {
    if (isIdle())
        callback();
    else
        m_idleCallbacks.push_back(std::move(callback));
}

} // namespace tasket::share
