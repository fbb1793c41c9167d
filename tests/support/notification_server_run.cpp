#include "support/notification_server_run.h"

#include "support/program_run.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

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
    for (int i = 0; i < 1000 && !std::filesystem::exists(m_folder / "ready"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ifstream(m_folder / "ready") >> m_address >> m_server;
    if (m_address.empty())
        ADD_FAILURE() << "the test notification server did not start in its private bus";
}

NotificationServerRun::~NotificationServerRun() {
    // Its bus ends with it.
    ::kill(m_server > 0 ? m_server : m_session, SIGTERM);
    ::waitpid(m_session, nullptr, 0);
}

std::vector<std::vector<std::string>> NotificationServerRun::lines(std::string_view kind) const {
    std::vector<std::vector<std::string>> found;
    std::ifstream in(m_folder / "log");
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        std::stringstream split(line + '\t');
        for (std::string field; std::getline(split, field, '\t');)
            fields.push_back(field);
        if (fields.front() == kind)
            found.push_back(std::move(fields));
    }
    return found;
}

void NotificationServerRun::invoke(std::uint32_t id, const std::string& action) const {
    const auto run = runProgram("/usr/bin/busctl",
                                {"--address=" + m_address, "call", "org.freedesktop.Notifications",
                                 "/org/freedesktop/Notifications", "tasket.test.NotificationServer",
                                 "Invoke", "us", std::to_string(id), action},
                                {.home = m_folder});
    EXPECT_EQ(run.status, 0) << run.err;
}

} // namespace tasket::testing
