#include "tasket-notifier/cloud_follower.h"

#include "cloud/cloud_data_manager.h"
#include "cloud/history_readers.h"
#include "platform/main_queue.h"
#include "platform/preferences/file_preferences_suite.h"
#include "settings/settings_keys.h"

#include <fmt/format.h>

#include <fstream>

namespace tasket::apps {
namespace {

namespace keys = settings::keys;

// A pass's own upload comes back as a push; more than this many passes in
// a row means someone keeps writing, and the next push picks it up.
constexpr int kMaxPassesInARow = 4;
// Names the sync's history token file.
constexpr std::string_view kProgram = "notifier-sync";

} // namespace

std::unique_ptr<CloudFollower> CloudFollower::make(Options options) {
    const auto suite =
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite));
    const auto connection = suite->stringValue(keys::kCloudDatabaseConnection).value_or("");
    if (connection.empty() || !suite->boolValue(keys::kIsCloudSyncEnabled).value_or(false))
        return nullptr;
    // Until the first pass that finds local saves writes a position, an empty
    // token file keeps the daemon's own history reader from purging them.
    const auto token = cloud::tokenFilePath(options.groupContainer, kProgram);
    std::error_code ec;
    if (!std::filesystem::exists(token, ec)) {
        std::filesystem::create_directories(token.parent_path(), ec);
        std::ofstream{token};
    }
    return std::unique_ptr<CloudFollower>(new CloudFollower(std::move(options), connection));
}

void CloudFollower::say(const std::string& problem) {
    if (problem != m_lastProblem)
        m_options.log << fmt::format("tasket-notifier: cloud sync: {}\n", problem);
    m_lastProblem = problem;
}

bool CloudFollower::connect() {
    if (m_sync)
        return true;
    if (m_reconnectAt && m_options.timer.now() < *m_reconnectAt)
        return false;
    auto container = platform::openPostgresCloudContainer({.connection = m_connection});
    if (!container) {
        say(fmt::format("cannot reach the cloud database ({}): {}; trying again later",
                        m_connection, container.error().message));
        m_reconnectAt = m_options.timer.now().addingSeconds(m_options.reconnectDelaySeconds);
        return false;
    }
    m_reconnectAt.reset();
    m_container = std::move(*container);
    auto manager = std::make_shared<cloud::CloudDataManager>(
        m_container,
        platform::FilePreferencesSuite::inConfigHome(std::string(keys::kAppGroupSuite)));
    m_sync = std::make_unique<cloud::CloudSync>(
        m_options.store, std::move(manager), m_options.groupContainer,
        cloud::CloudSync::Options{.program = std::string(kProgram)});
    return true;
}

void CloudFollower::start() {
    sync();
}

int CloudFollower::pushSocket() const {
    return m_container ? m_container->pushSocket() : -1;
}

void CloudFollower::disconnect(const std::string& problem) {
    say(fmt::format("{}; trying again later", problem));
    m_sync.reset();
    m_container.reset();
    m_reconnectAt = m_options.timer.now().addingSeconds(m_options.reconnectDelaySeconds);
}

void CloudFollower::sync() {
    pass();
    if (m_options.rearm)
        m_options.rearm();
}

void CloudFollower::pass() {
    if (!connect())
        return;
    for (int pass = 0; pass < kMaxPassesInARow; ++pass) {
        auto report = m_sync->syncNow();
        if (!report) {
            say(fmt::format("{} ({})", report.error().message,
                            platform::cloudErrorName(report.error().code)));
            return;
        }
        if (report->deferredUntil)
            return;
        m_lastProblem.clear();
        // Pushes that came in during the pass were read with its replies.
        auto pushes = m_container->takePushes();
        if (!pushes || pushes->empty())
            return;
    }
}

void CloudFollower::pushReadable() {
    auto pushes = m_container ? m_container->takePushes()
                              : platform::CloudResult<std::vector<platform::CloudPush>>{};
    if (!pushes) {
        // A broken connection stays readable: poll it no more until it is back.
        disconnect(pushes.error().message);
        if (m_options.rearm)
            m_options.rearm();
        return;
    }
    if (!pushes->empty())
        sync();
}

void CloudFollower::storeChanged() {
    if (m_passPosted)
        return;
    m_passPosted = true;
    platform::MainQueue::shared().post([this] {
        m_passPosted = false;
        sync();
    });
}

void CloudFollower::wake() {
    const auto due = nextWake();
    if (due && *due <= m_options.timer.now())
        sync();
}

std::optional<platform::Date> CloudFollower::nextWake() const {
    if (!m_sync)
        return m_reconnectAt;
    return m_sync->retryAt();
}

} // namespace tasket::apps
