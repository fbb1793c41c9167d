#include "platform/notifications/session_lock.h"

#include <systemd/sd-bus.h>

namespace tasket::platform {

std::optional<bool> sessionIsLocked() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0)
        return std::nullopt;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int locked = 0;
    std::optional<bool> result;
    // "auto" is the caller's session, or, for a user service outside any
    // session, the user's graphical one.
    if (sd_bus_get_property_trivial(
            bus, "org.freedesktop.login1", "/org/freedesktop/login1/session/auto",
            "org.freedesktop.login1.Session", "LockedHint", &error, 'b', &locked) >= 0)
        result = locked != 0;
    sd_bus_error_free(&error);
    sd_bus_flush_close_unref(bus);
    return result;
}

} // namespace tasket::platform
