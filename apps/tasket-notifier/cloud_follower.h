// The daemon's side of cloud sync: while sync is on and a connection is
// recorded, keeps the store in step with the cloud database. It syncs once
// at start, again when a push arrives on the connection (pushSocket() goes
// into the daemon's poll loop), after the store's changes (coalesced into
// one pass on the main queue) and when a deferred retry falls due (the
// daemon arms its one timer for nextWake()). A database it cannot reach is
// reported once and tried again later; the reminders never wait for it.
#pragma once

#include "cloud/cloud_sync.h"
#include "platform/cloud/postgres_cloud_module.h"
#include "platform/date.h"
#include "platform/notifications/wake_timer.h"
#include "store/local_data_manager.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace tasket::apps {

class CloudFollower {
  public:
    struct Options {
        std::shared_ptr<store::LocalDataManager> store;
        std::filesystem::path groupContainer;
        platform::WakeTimer& timer;
        std::ostream& log;
        /// How long after a failed connection the next try comes.
        double reconnectDelaySeconds = 30;
        /// Called after each pass or try, for the daemon to arm its timer again.
        std::function<void()> rearm;
    };

    /// Null when sync is off or no connection is recorded (read once, at start).
    [[nodiscard]] static std::unique_ptr<CloudFollower> make(Options options);

    /// Connects and runs the first pass.
    void start();
    /// The descriptor to poll for pushes; -1 while not connected.
    [[nodiscard]] int pushSocket() const;
    /// The push descriptor became readable.
    void pushReadable();
    /// The store changed: one pass soon, on the main queue.
    void storeChanged();
    /// The daemon's timer woke: a due retry or reconnection runs now.
    void wake();
    /// When the timer must wake for a retry or a reconnection.
    [[nodiscard]] std::optional<platform::Date> nextWake() const;

  private:
    CloudFollower(Options options, std::string connection)
        : m_options(std::move(options)), m_connection(std::move(connection)) {}
    [[nodiscard]] bool connect();
    void sync();
    /// One pass and those the pushes it heard ask for.
    void pass();
    void say(const std::string& problem);
    void disconnect(const std::string& problem);

    Options m_options;
    std::string m_connection;
    std::shared_ptr<platform::ServerCloudContainer> m_container;
    std::unique_ptr<cloud::CloudSync> m_sync;
    std::optional<platform::Date> m_reconnectAt;
    std::string m_lastProblem;
    bool m_passPosted = false;
};

} // namespace tasket::apps
