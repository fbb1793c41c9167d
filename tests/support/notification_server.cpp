// A notification server for tests, run inside its own session bus
// (dbus-run-session -- notification_server FOLDER). It owns
// org.freedesktop.Notifications, writes one line to FOLDER/log for every
// Notify, CloseNotification and launcher badge it sees, and on the test's
// call tasket.test.NotificationServer.Invoke(id, action) or .Dismiss(id)
// emits ActionInvoked or NotificationClosed as a person's click would. Once
// it serves, it writes the bus address and its process id to FOLDER/ready.
//
// Log lines, tab-separated:
//   notify ID REPLACES APP SUMMARY BODY ACTIONS(key=title;…) URGENCY SUPPRESS-SOUND DESKTOP-ENTRY
//   close ID
//   badge COUNT VISIBLE
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";

std::string g_folder;
std::uint32_t g_lastId = 0;

void log(const std::string& line) {
    std::ofstream(g_folder + "/log", std::ios::app) << line << '\n' << std::flush;
}

int emitClosed(sd_bus_message* m, std::uint32_t id, std::uint32_t reason) {
    return sd_bus_emit_signal(sd_bus_message_get_bus(m), kPath, kInterface, "NotificationClosed",
                              "uu", id, reason);
}

int readHints(sd_bus_message* m, std::string& urgency, std::string& suppress, std::string& entry) {
    int r = sd_bus_message_enter_container(m, 'a', "{sv}");
    while (r >= 0 && (r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
        const char* key = nullptr;
        sd_bus_message_read(m, "s", &key);
        const std::string name = key;
        if (name == "urgency") {
            std::uint8_t value = 0;
            r = sd_bus_message_read(m, "v", "y", &value);
            urgency = std::to_string(value);
        } else if (name == "suppress-sound") {
            int value = 0;
            r = sd_bus_message_read(m, "v", "b", &value);
            suppress = value ? "1" : "0";
        } else if (name == "desktop-entry") {
            const char* value = nullptr;
            r = sd_bus_message_read(m, "v", "s", &value);
            entry = value;
        } else {
            r = sd_bus_message_skip(m, "v");
        }
        if (r >= 0)
            r = sd_bus_message_exit_container(m);
    }
    return r < 0 ? r : sd_bus_message_exit_container(m);
}

int notify(sd_bus_message* m, void*, sd_bus_error*) {
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
    std::uint32_t replaces = 0;
    int r = sd_bus_message_read(m, "susss", &app, &replaces, &icon, &summary, &body);
    std::string actions;
    if (r >= 0)
        r = sd_bus_message_enter_container(m, 'a', "s");
    const char* word = nullptr;
    for (int i = 0; r >= 0 && (r = sd_bus_message_read(m, "s", &word)) > 0; ++i)
        actions += std::string(i % 2 ? "=" : (i ? ";" : "")) + word;
    if (r >= 0)
        r = sd_bus_message_exit_container(m);
    std::string urgency = "-", suppress = "0", entry;
    if (r >= 0)
        r = readHints(m, urgency, suppress, entry);
    if (r < 0)
        return r;
    const std::uint32_t id = replaces != 0 ? replaces : ++g_lastId;
    log("notify\t" + std::to_string(id) + '\t' + std::to_string(replaces) + '\t' + app + '\t' +
        summary + '\t' + body + '\t' + actions + '\t' + urgency + '\t' + suppress + '\t' + entry);
    return sd_bus_reply_method_return(m, "u", id);
}

int closeNotification(sd_bus_message* m, void*, sd_bus_error*) {
    std::uint32_t id = 0;
    if (const int r = sd_bus_message_read(m, "u", &id); r < 0)
        return r;
    log("close\t" + std::to_string(id));
    emitClosed(m, id, 3);
    return sd_bus_reply_method_return(m, "");
}

int capabilities(sd_bus_message* m, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(m, "as", 2, "actions", "body");
}

int information(sd_bus_message* m, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(m, "ssss", "test-server", "tasket", "1", "1.2");
}

int invoke(sd_bus_message* m, void*, sd_bus_error*) {
    std::uint32_t id = 0;
    const char* action = nullptr;
    if (const int r = sd_bus_message_read(m, "us", &id, &action); r < 0)
        return r;
    sd_bus_emit_signal(sd_bus_message_get_bus(m), kPath, kInterface, "ActionInvoked", "us", id,
                       action);
    emitClosed(m, id, 2);
    return sd_bus_reply_method_return(m, "");
}

int dismiss(sd_bus_message* m, void*, sd_bus_error*) {
    std::uint32_t id = 0;
    if (const int r = sd_bus_message_read(m, "u", &id); r < 0)
        return r;
    emitClosed(m, id, 2);
    return sd_bus_reply_method_return(m, "");
}

int badge(sd_bus_message* m, void*, sd_bus_error*) {
    const char* uri = nullptr;
    std::int64_t count = -1;
    int visible = -1;
    int r = sd_bus_message_read(m, "s", &uri);
    if (r >= 0)
        r = sd_bus_message_enter_container(m, 'a', "{sv}");
    while (r >= 0 && (r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
        const char* key = nullptr;
        sd_bus_message_read(m, "s", &key);
        if (std::strcmp(key, "count") == 0)
            r = sd_bus_message_read(m, "v", "x", &count);
        else if (std::strcmp(key, "count-visible") == 0)
            r = sd_bus_message_read(m, "v", "b", &visible);
        else
            r = sd_bus_message_skip(m, "v");
        if (r >= 0)
            r = sd_bus_message_exit_container(m);
    }
    log("badge\t" + std::to_string(count) + '\t' + std::to_string(visible) + '\t' + uri);
    return 0;
}

const sd_bus_vtable kServerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, 0),
    SD_BUS_METHOD("CloseNotification", "u", "", closeNotification, 0),
    SD_BUS_METHOD("GetCapabilities", "", "as", capabilities, 0),
    SD_BUS_METHOD("GetServerInformation", "", "ssss", information, 0),
    SD_BUS_SIGNAL("ActionInvoked", "us", 0),
    SD_BUS_SIGNAL("NotificationClosed", "uu", 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kTestTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Invoke", "us", "", invoke, 0),
    SD_BUS_METHOD("Dismiss", "u", "", dismiss, 0),
    SD_BUS_VTABLE_END,
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: notification_server FOLDER\n", stderr);
        return 2;
    }
    g_folder = argv[1];
    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0 ||
        sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kServerTable, nullptr) < 0 ||
        sd_bus_add_object_vtable(bus, nullptr, kPath, "tasket.test.NotificationServer", kTestTable,
                                 nullptr) < 0 ||
        sd_bus_match_signal(bus, nullptr, nullptr, nullptr, "com.canonical.Unity.LauncherEntry",
                            "Update", badge, nullptr) < 0 ||
        sd_bus_request_name(bus, kInterface, 0) < 0) {
        std::fputs("notification_server: cannot serve on the session bus\n", stderr);
        return 1;
    }
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    {
        std::ofstream ready(g_folder + "/ready.part");
        ready << (address ? address : "") << '\n' << ::getpid() << '\n';
    }
    std::rename((g_folder + "/ready.part").c_str(), (g_folder + "/ready").c_str());
    for (;;) {
        const int r = sd_bus_process(bus, nullptr);
        if (r < 0)
            return 1;
        if (r == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)
            return 1;
    }
}
