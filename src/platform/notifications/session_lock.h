// Whether the user's graphical session is locked, as logind tells it (the
// session's LockedHint, on the system bus), and a watch that hears it being
// unlocked.
#pragma once

#include <functional>
#include <memory>
#include <optional>

namespace tasket::platform {

/// True while the user's session is locked; nullopt when logind cannot
/// be asked (no system bus, no session).
[[nodiscard]] std::optional<bool> sessionIsLocked();

/// Calls `unlocked` each time logind says the session's lock hint changed
/// and it is no longer locked. Single-threaded like DesktopNotifications:
/// the owner's loop polls fd() and calls process().
class SessionUnlockWatch {
  public:
    /// Null when logind cannot be reached.
    [[nodiscard]] static std::unique_ptr<SessionUnlockWatch> start(std::function<void()> unlocked);
    ~SessionUnlockWatch();
    SessionUnlockWatch(const SessionUnlockWatch&) = delete;
    SessionUnlockWatch& operator=(const SessionUnlockWatch&) = delete;

    [[nodiscard]] int fd() const;
    void process();

  private:
    struct Connection;
    explicit SessionUnlockWatch(std::unique_ptr<Connection> connection);
    std::unique_ptr<Connection> m_connection;
};

} // namespace tasket::platform
