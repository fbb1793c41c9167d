// In-process notifications: named posts with a sender and a payload,
// delivered synchronously on the posting thread to every matching observer.
// Observation is held by a move-only token that unregisters when destroyed;
// once removal returns, the handler is never entered again.
#pragma once

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tasket::platform {

struct Notification {
    std::string name;
    const void* sender = nullptr;
    std::any userInfo;
};

namespace detail {
struct NotificationCenterState;
}

class ObserverToken {
  public:
    ObserverToken() = default;
    ObserverToken(ObserverToken&& other) noexcept;
    ObserverToken& operator=(ObserverToken&& other) noexcept;
    ObserverToken(const ObserverToken&) = delete;
    ObserverToken& operator=(const ObserverToken&) = delete;
    ~ObserverToken();

    /// Unregisters now (waits for a delivery running on another thread).
    void reset();
    bool isActive() const { return m_id != 0; }

  private:
    friend class NotificationCenter;
    ObserverToken(std::weak_ptr<detail::NotificationCenterState> state, std::uint64_t id)
        : m_state(std::move(state)), m_id(id) {}
    std::weak_ptr<detail::NotificationCenterState> m_state;
    std::uint64_t m_id = 0;
};

class NotificationCenter {
  public:
    using Handler = std::function<void(const Notification&)>;

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// The process-wide centre.
    static NotificationCenter& defaultCenter();

    /// Observes posts named `name` (empty: every name) from `sender`
    /// (nullptr: any sender). Thread-safe.
    [[nodiscard]] ObserverToken addObserver(std::string name, const void* sender, Handler handler);

    /// Delivers to every matching observer on the calling thread, in the
    /// order they registered. Thread-safe; handlers may add or remove
    /// observers and post again.
    void post(const Notification& notification);
    void post(std::string name, const void* sender = nullptr, std::any userInfo = {});

  private:
    std::shared_ptr<detail::NotificationCenterState> m_state;
};

} // namespace tasket::platform
