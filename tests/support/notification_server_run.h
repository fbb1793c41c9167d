// The test notification server (notification_server.cpp) in a private
// session bus of its own (dbus-run-session), started for one test and
// stopped with it. The test points at the bus through
// DBUS_SESSION_BUS_ADDRESS, reads what the server was shown, and clicks
// actions as a person would.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::testing {

class NotificationServerRun {
  public:
    /// Starts the server and waits until it serves (ADD_FAILURE when it does not).
    explicit NotificationServerRun(std::filesystem::path folder);
    ~NotificationServerRun();
    NotificationServerRun(const NotificationServerRun&) = delete;
    NotificationServerRun& operator=(const NotificationServerRun&) = delete;

    [[nodiscard]] const std::string& address() const { return m_address; }
    /// The log's lines of one kind ("notify", "close", "badge"), split at tabs.
    [[nodiscard]] std::vector<std::vector<std::string>> lines(std::string_view kind) const;
    /// The user clicking `action` on notification `id` (the server closes it too).
    void invoke(std::uint32_t id, const std::string& action) const;

  private:
    std::filesystem::path m_folder;
    std::string m_address;
    pid_t m_session = -1;
    pid_t m_server = -1;
};

} // namespace tasket::testing
