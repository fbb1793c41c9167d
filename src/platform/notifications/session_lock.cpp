#include "platform/notifications/session_lock.h"

#include <systemd/sd-bus.h>

namespace tasket::platform {
namespace {

constexpr const char* kLogin = "org.freedesktop.login1";
// "auto" is the caller's session, or, for a user service outside any
// session, the user's graphical one.
constexpr const char* kAutoSession = "/org/freedesktop/login1/session/auto";

std::optional<bool> lockedHint(sd_bus* bus, const char* session) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int locked = 0;
    const int r = sd_bus_get_property_trivial(
        bus, kLogin, session, "org.freedesktop.login1.Session", "LockedHint", &error, 'b', &locked);
    sd_bus_error_free(&error);
    return r < 0 ? std::nullopt : std::optional<bool>(locked != 0);
}

} // namespace

std::optional<bool> sessionIsLocked() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0)
        return std::nullopt;
    const auto locked = lockedHint(bus, kAutoSession);
    sd_bus_flush_close_unref(bus);
    return locked;
}

struct SessionUnlockWatch::Connection {
    sd_bus* bus = nullptr;
    sd_bus_slot* slot = nullptr;
    std::string session;
    std::function<void()> unlocked;

    ~Connection() {
        sd_bus_slot_unref(slot);
        sd_bus_flush_close_unref(bus);
    }
    static int changed(sd_bus_message*, void* self, sd_bus_error*) {
        auto* connection = static_cast<Connection*>(self);
        if (lockedHint(connection->bus, connection->session.c_str()) == false)
            connection->unlocked();
        return 0;
    }
};

SessionUnlockWatch::SessionUnlockWatch(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection)) {}
SessionUnlockWatch::~SessionUnlockWatch() = default;

std::unique_ptr<SessionUnlockWatch> SessionUnlockWatch::start(std::function<void()> unlocked) {
    auto connection = std::make_unique<Connection>();
    connection->unlocked = std::move(unlocked);
    if (sd_bus_open_system(&connection->bus) < 0)
        return nullptr;
    // Signals name the session's own path, never "auto".
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const char* path = nullptr;
    int r = sd_bus_call_method(connection->bus, kLogin, "/org/freedesktop/login1",
                               "org.freedesktop.login1.Manager", "GetSession", &error, &reply, "s",
                               "auto");
    if (r >= 0)
        r = sd_bus_message_read(reply, "o", &path);
    if (r >= 0)
        connection->session = path;
    sd_bus_message_unref(reply);
    sd_bus_error_free(&error);
    if (r < 0 ||
        sd_bus_match_signal(connection->bus, &connection->slot, kLogin, connection->session.c_str(),
                            "org.freedesktop.DBus.Properties", "PropertiesChanged",
                            &Connection::changed, connection.get()) < 0)
        return nullptr;
    return std::unique_ptr<SessionUnlockWatch>(new SessionUnlockWatch(std::move(connection)));
}

int SessionUnlockWatch::fd() const {
    return sd_bus_get_fd(m_connection->bus);
}

void SessionUnlockWatch::process() {
    while (sd_bus_process(m_connection->bus, nullptr) > 0) {
    }
}

} // namespace tasket::platform
