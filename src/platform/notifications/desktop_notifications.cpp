#include "platform/notifications/desktop_notifications.h"

#include <fmt/format.h>
#include <systemd/sd-bus.h>

#include <cstring>

namespace tasket::platform {
namespace {

constexpr const char* kServer = "org.freedesktop.Notifications";
constexpr const char* kServerPath = "/org/freedesktop/Notifications";
constexpr const char* kLauncherInterface = "com.canonical.Unity.LauncherEntry";
constexpr const char* kLauncherPath = "/com/canonical/unity/launcherentry/tasket";

std::string busError(int negativeErrno, const sd_bus_error* error) {
    if (error != nullptr && sd_bus_error_is_set(error) && error->message != nullptr)
        return error->message;
    return std::strerror(-negativeErrno);
}

struct BusError {
    sd_bus_error value = SD_BUS_ERROR_NULL;
    BusError() = default;
    ~BusError() { sd_bus_error_free(&value); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
};

struct Message {
    sd_bus_message* value = nullptr;
    Message() = default;
    ~Message() { sd_bus_message_unref(value); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
};

} // namespace

struct DesktopNotifications::Connection {
    sd_bus* bus = nullptr;
    sd_bus_slot* actionSlot = nullptr;
    sd_bus_slot* closedSlot = nullptr;
    Handlers handlers;

    ~Connection() {
        sd_bus_slot_unref(actionSlot);
        sd_bus_slot_unref(closedSlot);
        sd_bus_flush_close_unref(bus);
    }

    static int onAction(sd_bus_message* message, void* self, sd_bus_error*) {
        std::uint32_t id = 0;
        const char* action = nullptr;
        auto& handlers = static_cast<Connection*>(self)->handlers;
        if (sd_bus_message_read(message, "us", &id, &action) >= 0 && handlers.actionInvoked)
            handlers.actionInvoked(id, action);
        return 0;
    }
    static int onClosed(sd_bus_message* message, void* self, sd_bus_error*) {
        std::uint32_t id = 0;
        std::uint32_t reason = 0;
        auto& handlers = static_cast<Connection*>(self)->handlers;
        if (sd_bus_message_read(message, "uu", &id, &reason) >= 0 && handlers.closed)
            handlers.closed(id, static_cast<CloseReason>(reason));
        return 0;
    }
};

DesktopNotifications::DesktopNotifications(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection)) {}

DesktopNotifications::~DesktopNotifications() = default;

Result<std::unique_ptr<DesktopNotifications>> DesktopNotifications::connect(Handlers handlers) {
    auto connection = std::make_unique<Connection>();
    connection->handlers = std::move(handlers);
    if (const int r = sd_bus_open_user(&connection->bus); r < 0)
        return fail(Errc::unavailable,
                    fmt::format("no session bus to reach: {}", std::strerror(-r)));
    for (auto [member, slot, callback] :
         {std::tuple{"ActionInvoked", &connection->actionSlot, &Connection::onAction},
          std::tuple{"NotificationClosed", &connection->closedSlot, &Connection::onClosed}})
        // Only the notification server's own signals: another program on the
        // bus must not complete tasks by sending an ActionInvoked.
        if (const int r = sd_bus_match_signal(connection->bus, slot, kServer, kServerPath, kServer,
                                              member, callback, connection.get());
            r < 0)
            return fail(Errc::unavailable,
                        fmt::format("cannot listen for {} on the session bus: {}", member,
                                    std::strerror(-r)));
    return std::unique_ptr<DesktopNotifications>(new DesktopNotifications(std::move(connection)));
}

Result<void> DesktopNotifications::ownName(std::string_view name) {
    const std::string wanted(name);
    const int r = sd_bus_request_name(m_connection->bus, wanted.c_str(), 0);
    if (r >= 0)
        return {};
    if (r != -EEXIST)
        return fail(Errc::unavailable,
                    fmt::format("cannot take the bus name {}: {}", wanted, std::strerror(-r)));
    std::string owner;
    sd_bus_creds* creds = nullptr;
    pid_t pid = 0;
    if (sd_bus_get_name_creds(m_connection->bus, wanted.c_str(), SD_BUS_CREDS_PID, &creds) >= 0 &&
        sd_bus_creds_get_pid(creds, &pid) >= 0)
        owner = fmt::format(" (process {})", pid);
    sd_bus_creds_unref(creds);
    return fail(
        Errc::conflict,
        fmt::format("another instance already runs in this session{}: it holds the bus name {}",
                    owner, wanted));
}

Result<std::uint32_t> DesktopNotifications::notify(const DesktopNotification& n) {
    sd_bus* bus = m_connection->bus;
    Message call;
    int r =
        sd_bus_message_new_method_call(bus, &call.value, kServer, kServerPath, kServer, "Notify");
    if (r >= 0)
        r = sd_bus_message_append(call.value, "susss", n.appName.c_str(), n.replacesId,
                                  n.icon.c_str(), n.summary.c_str(), n.body.c_str());
    if (r >= 0)
        r = sd_bus_message_open_container(call.value, 'a', "s");
    for (const auto& [identifier, title] : n.actions)
        if (r >= 0)
            r = sd_bus_message_append(call.value, "ss", identifier.c_str(), title.c_str());
    if (r >= 0)
        r = sd_bus_message_close_container(call.value);
    if (r >= 0)
        r = sd_bus_message_open_container(call.value, 'a', "{sv}");
    if (r >= 0)
        r = sd_bus_message_append(call.value, "{sv}", "urgency", "y",
                                  static_cast<std::uint8_t>(n.urgency));
    if (r >= 0 && n.suppressSound)
        r = sd_bus_message_append(call.value, "{sv}", "suppress-sound", "b", 1);
    if (r >= 0 && !n.desktopEntry.empty())
        r = sd_bus_message_append(call.value, "{sv}", "desktop-entry", "s", n.desktopEntry.c_str());
    if (r >= 0)
        r = sd_bus_message_close_container(call.value);
    if (r >= 0)
        r = sd_bus_message_append(call.value, "i", n.expireTimeoutMs);
    if (r < 0)
        return fail(Errc::invalidArgument,
                    fmt::format("cannot build the notification: {}", std::strerror(-r)));
    BusError error;
    Message reply;
    r = sd_bus_call(bus, call.value, 0, &error.value, &reply.value);
    if (r < 0)
        return fail(Errc::unavailable,
                    fmt::format("the notification server did not show \"{}\": {}", n.body,
                                busError(r, &error.value)));
    std::uint32_t id = 0;
    if (r = sd_bus_message_read(reply.value, "u", &id); r < 0)
        return fail(Errc::unavailable, "the notification server answered without an id");
    return id;
}

Result<void> DesktopNotifications::close(std::uint32_t id) {
    BusError error;
    Message reply;
    const int r = sd_bus_call_method(m_connection->bus, kServer, kServerPath, kServer,
                                     "CloseNotification", &error.value, &reply.value, "u", id);
    if (r < 0)
        return fail(Errc::unavailable,
                    fmt::format("cannot close notification {}: {}", id, busError(r, &error.value)));
    return {};
}

Result<void> DesktopNotifications::setBadge(std::string_view appURI, std::int64_t count) {
    Message signal;
    const std::string uri(appURI);
    int r = sd_bus_message_new_signal(m_connection->bus, &signal.value, kLauncherPath,
                                      kLauncherInterface, "Update");
    if (r >= 0)
        r = sd_bus_message_append(signal.value, "sa{sv}", uri.c_str(), 2, "count", "x", count,
                                  "count-visible", "b", count > 0 ? 1 : 0);
    if (r >= 0)
        r = sd_bus_send(m_connection->bus, signal.value, nullptr);
    if (r < 0)
        return fail(Errc::unavailable,
                    fmt::format("cannot set the launcher badge: {}", std::strerror(-r)));
    return {};
}

int DesktopNotifications::fd() const {
    return sd_bus_get_fd(m_connection->bus);
}

Result<void> DesktopNotifications::process() {
    for (;;) {
        const int r = sd_bus_process(m_connection->bus, nullptr);
        if (r < 0)
            return fail(Errc::unavailable,
                        fmt::format("the session bus connection failed: {}", std::strerror(-r)));
        if (r == 0)
            return {};
    }
}

Result<void> DesktopNotifications::wait(int timeoutMs) {
    const std::uint64_t usec =
        timeoutMs < 0 ? UINT64_MAX : static_cast<std::uint64_t>(timeoutMs) * 1000U;
    if (const int r = sd_bus_wait(m_connection->bus, usec); r < 0)
        return fail(Errc::unavailable,
                    fmt::format("the session bus connection failed: {}", std::strerror(-r)));
    return {};
}

} // namespace tasket::platform
