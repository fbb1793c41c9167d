#include "support/notification_server_run.h"

#include "support/program_run.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace tasket::testing {

NotificationServerRun::NotificationServerRun(std::filesystem::path folder)
    : m_folder(std::move(folder)) {
    std::filesystem::create_directories(m_folder);
    m_session =
        startProgram("/usr/bin/dbus-run-session",
                     {"--", NOTIFICATION_SERVER_BINARY, m_folder.string()}, {.home = m_folder});
    const auto ready = m_folder / "ready";
    for (int i = 0; i < 1000 && !std::filesystem::exists(ready); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ifstream in(ready);
    std::getline(in, m_address);
    in >> m_server;
    if (m_address.empty())
        ADD_FAILURE() << "the test notification server did not start in its private bus";
}

NotificationServerRun::~NotificationServerRun() {
    if (m_server > 0)
        ::kill(m_server, SIGTERM);
    else if (m_session > 0)
        ::kill(m_session, SIGTERM);
    if (m_session > 0)
        ::waitpid(m_session, nullptr, 0);
}

std::vector<std::vector<std::string>> NotificationServerRun::lines(std::string_view kind) const {
    std::vector<std::vector<std::string>> found;
    std::ifstream in(m_folder / "log");
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        std::stringstream split(line);
        for (std::string field; std::getline(split, field, '\t');)
            fields.push_back(field);
        if (line.ends_with('\t'))
            fields.emplace_back();
        if (!fields.empty() && fields.front() == kind)
            found.push_back(std::move(fields));
    }
    return found;
}

bool NotificationServerRun::waitForLines(std::string_view kind, std::size_t count,
                                         std::chrono::milliseconds timeout) const {
    const auto until = std::chrono::steady_clock::now() + timeout;
    while (lines(kind).size() < count) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

namespace {
void callServer(const std::string& address, const char* member, const char* types, std::uint32_t id,
                const char* action) {
    sd_bus* bus = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int r = sd_bus_new(&bus);
    if (r >= 0)
        r = sd_bus_set_address(bus, address.c_str());
    if (r >= 0)
        r = sd_bus_set_bus_client(bus, 1);
    if (r >= 0)
        r = sd_bus_start(bus);
    if (r >= 0)
        r = action ? sd_bus_call_method(bus, "org.freedesktop.Notifications",
                                        "/org/freedesktop/Notifications",
                                        "tasket.test.NotificationServer", member, &error, nullptr,
                                        types, id, action)
                   : sd_bus_call_method(
                         bus, "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                         "tasket.test.NotificationServer", member, &error, nullptr, types, id);
    if (r < 0)
        ADD_FAILURE() << "cannot reach the test notification server: " << r;
    sd_bus_error_free(&error);
    sd_bus_flush_close_unref(bus);
}
} // namespace

void NotificationServerRun::invoke(std::uint32_t id, const std::string& action) const {
    callServer(m_address, "Invoke", "us", id, action.c_str());
}

void NotificationServerRun::dismiss(std::uint32_t id) const {
    callServer(m_address, "Dismiss", "u", id, nullptr);
}

} // namespace tasket::testing
