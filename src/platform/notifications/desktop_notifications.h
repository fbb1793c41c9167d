// The desktop's notification server and launcher over the session D-Bus
// (sd-bus): shows and closes notifications through
// org.freedesktop.Notifications, hears which action the user chose and
// which notification closed, sets the application's badge through the
// com.canonical.Unity.LauncherEntry signal, and owns a well-known name so
// that one program runs once per session. Single-threaded: call it from one
// thread and let that thread's loop call process() when fd() is readable.
#pragma once

#include "platform/error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tasket::platform {

/// The server's urgency hint; its numbers are the protocol's.
enum class Urgency : std::uint8_t { low = 0, normal = 1, critical = 2 };

struct DesktopNotification {
    std::string appName;
    /// The server's id of a shown notification this one replaces; 0 = none.
    std::uint32_t replacesId = 0;
    std::string icon;
    std::string summary;
    std::string body;
    /// (identifier, title) pairs, in the order the user sees them.
    std::vector<std::pair<std::string, std::string>> actions;
    Urgency urgency = Urgency::normal;
    bool suppressSound = false;
    /// The desktop file's name without ".desktop"; empty: no hint.
    std::string desktopEntry;
    /// -1: the server's default; 0: never expires.
    std::int32_t expireTimeoutMs = -1;
};

/// Why a notification closed; the protocol's numbers.
enum class CloseReason : std::uint32_t {
    expired = 1,
    dismissed = 2,
    closedByCall = 3,
    undefined = 4
};

class DesktopNotifications {
  public:
    struct Handlers {
        std::function<void(std::uint32_t id, const std::string& action)> actionInvoked;
        std::function<void(std::uint32_t id, CloseReason reason)> closed;
    };

    /// Connects to the session bus (DBUS_SESSION_BUS_ADDRESS, else the
    /// user's runtime folder) and subscribes to the server's two signals.
    /// Fails with unavailable when there is no session bus.
    [[nodiscard]] static Result<std::unique_ptr<DesktopNotifications>> connect(Handlers handlers);
    ~DesktopNotifications();
    DesktopNotifications(const DesktopNotifications&) = delete;
    DesktopNotifications& operator=(const DesktopNotifications&) = delete;

    /// Takes `name` on the bus without queueing; fails with conflict, naming
    /// the owner's process when the bus says which, when someone holds it.
    [[nodiscard]] Result<void> ownName(std::string_view name);

    /// Shows `notification` and returns the server's id for it. Fails with
    /// unavailable when no notification server answers.
    [[nodiscard]] Result<std::uint32_t> notify(const DesktopNotification& notification);
    /// Closes a shown notification; the server answers with NotificationClosed.
    [[nodiscard]] Result<void> close(std::uint32_t id);
    /// Emits the launcher's Update signal for `appURI` ("application://x.desktop"):
    /// the count, shown only when above zero.
    [[nodiscard]] Result<void> setBadge(std::string_view appURI, std::int64_t count);

    // ---- The caller's loop ---------------------------------------------------------
    /// The connection's file descriptor, to poll for reading.
    [[nodiscard]] int fd() const;
    /// Dispatches every message that has arrived (the handlers run here).
    /// Fails when the connection is lost.
    [[nodiscard]] Result<void> process();
    /// Blocks until a message arrives or `timeoutMs` passes (-1: forever).
    [[nodiscard]] Result<void> wait(int timeoutMs);

  private:
    struct Connection;
    explicit DesktopNotifications(std::unique_ptr<Connection> connection);
    std::unique_ptr<Connection> m_connection;
};

} // namespace tasket::platform
