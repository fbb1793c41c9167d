// A notification server for tests, run in a private session bus
// (dbus-run-session -- notification_server FOLDER). It owns
// org.freedesktop.Notifications and writes one tab-separated line to
// FOLDER/log for every Notify, CloseNotification and launcher badge:
//   notify ID REPLACES APP SUMMARY BODY ACTIONS(key=title;…) URGENCY SUPPRESS-SOUND DESKTOP-ENTRY
//   close ID
//   badge COUNT VISIBLE URI
// Its method tasket.test.NotificationServer.Invoke(id, action) emits
// ActionInvoked and NotificationClosed as a person's click would. Once it
// serves, it writes the bus address and its process id to FOLDER/ready.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
std::string g_folder;
std::uint32_t g_lastId = 0;

void log(const std::string& line) {
    std::ofstream(g_folder + "/log", std::ios::app) << line << '\n';
}

// Reads an a{sv} of `wanted` keys, each of one basic type, into text.
int readDictionary(sd_bus_message* m, std::string* values,
                   std::initializer_list<std::pair<const char*, char>> wanted) {
    int r = sd_bus_message_enter_container(m, 'a', "{sv}");
    while (r >= 0 && (r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
        const char* key = nullptr;
        r = sd_bus_message_read(m, "s", &key);
        int index = 0;
        for (const auto& [name, type] : wanted) {
            if (r < 0 || std::string(name) != key) {
                ++index;
                continue;
            }
            const char signature[] = {type, 0};
            union {
                std::uint8_t y;
                int b;
                std::int64_t x;
                const char* s;
            } value{};
            r = sd_bus_message_read(m, "v", signature, &value);
            values[index] = type == 'y'   ? std::to_string(value.y)
                            : type == 'b' ? std::to_string(value.b)
                            : type == 'x' ? std::to_string(value.x)
                                          : value.s;
            break;
        }
        if (r >= 0 && index == static_cast<int>(wanted.size()))
            r = sd_bus_message_skip(m, "v");
        if (r >= 0)
            r = sd_bus_message_exit_container(m);
    }
    return r < 0 ? r : sd_bus_message_exit_container(m);
}

int notify(sd_bus_message* m, void*, sd_bus_error*) {
    const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr,
               *word = nullptr;
    std::uint32_t replaces = 0;
    std::string actions, hints[3] = {"-", "0", ""};
    int r = sd_bus_message_read(m, "susss", &app, &replaces, &icon, &summary, &body);
    if (r >= 0)
        r = sd_bus_message_enter_container(m, 'a', "s");
    for (int i = 0; r >= 0 && (r = sd_bus_message_read(m, "s", &word)) > 0; ++i)
        actions += std::string(i % 2 ? "=" : (i ? ";" : "")) + word;
    if (r >= 0)
        r = sd_bus_message_exit_container(m);
    if (r >= 0)
        r = readDictionary(m, hints,
                           {{"urgency", 'y'}, {"suppress-sound", 'b'}, {"desktop-entry", 's'}});
    if (r < 0)
        return r;
    const std::uint32_t id = replaces != 0 ? replaces : ++g_lastId;
    log("notify\t" + std::to_string(id) + '\t' + std::to_string(replaces) + '\t' + app + '\t' +
        summary + '\t' + body + '\t' + actions + '\t' + hints[0] + '\t' + hints[1] + '\t' +
        hints[2]);
    return sd_bus_reply_method_return(m, "u", id);
}

int closeNotification(sd_bus_message* m, void*, sd_bus_error*) {
    std::uint32_t id = 0;
    if (const int r = sd_bus_message_read(m, "u", &id); r < 0)
        return r;
    log("close\t" + std::to_string(id));
    sd_bus_emit_signal(sd_bus_message_get_bus(m), kPath, kInterface, "NotificationClosed", "uu", id,
                       3U);
    return sd_bus_reply_method_return(m, "");
}

int invoke(sd_bus_message* m, void*, sd_bus_error*) {
    std::uint32_t id = 0;
    const char* action = nullptr;
    if (const int r = sd_bus_message_read(m, "us", &id, &action); r < 0)
        return r;
    sd_bus* bus = sd_bus_message_get_bus(m);
    sd_bus_emit_signal(bus, kPath, kInterface, "ActionInvoked", "us", id, action);
    sd_bus_emit_signal(bus, kPath, kInterface, "NotificationClosed", "uu", id, 2U);
    return sd_bus_reply_method_return(m, "");
}

int badge(sd_bus_message* m, void*, sd_bus_error*) {
    const char* uri = nullptr;
    std::string values[2] = {"-", "-"};
    if (sd_bus_message_read(m, "s", &uri) >= 0 &&
        readDictionary(m, values, {{"count", 'x'}, {"count-visible", 'b'}}) >= 0)
        log("badge\t" + values[0] + '\t' + values[1] + '\t' + uri);
    return 0;
}

const sd_bus_vtable kServerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, 0),
    SD_BUS_METHOD("CloseNotification", "u", "", closeNotification, 0),
    SD_BUS_SIGNAL("ActionInvoked", "us", 0),
    SD_BUS_SIGNAL("NotificationClosed", "uu", 0),
    SD_BUS_VTABLE_END,
};
const sd_bus_vtable kTestTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Invoke", "us", "", invoke, 0),
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
    std::ofstream(g_folder + "/ready.part") << (address ? address : "") << '\n'
                                            << ::getpid() << '\n';
    std::rename((g_folder + "/ready.part").c_str(), (g_folder + "/ready").c_str());
    for (int r = 0; r >= 0;)
        r = sd_bus_process(bus, nullptr) > 0 ? 1 : sd_bus_wait(bus, UINT64_MAX);
}
