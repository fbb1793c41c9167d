#include "tasket-notifier/notifier_program.h"

#include "common/command_line_docs.h"
#include "common/exit_code.h"
#include "common/version.h"
#include "platform/main_queue.h"
#include "platform/notifications/desktop_notifications.h"
#include "platform/notifications/wake_timer.h"
#include "tasket-notifier/notifier_daemon.h"
#include "tasket-notifier/reminder_actions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <vector>

namespace tasket::apps {
namespace {

constexpr std::string_view kDescription =
    "Delivers Tasket's reminders as desktop notifications when they fall due, answers their "
    "actions (Mark as Done and the snoozes) and keeps the application's badge. One runs per "
    "session; it sleeps until the next reminder and follows every program's changes to the "
    "store. It is started by the session (systemd user service or autostart), not by hand.";

struct NotifierOptions {
    std::string application = "tasket";
};

std::optional<int> parse(std::span<const std::string> arguments, NotifierOptions& options,
                         std::ostream& out, std::ostream& err) {
    CLI::App app(std::string(kDescription), "tasket-notifier");
    app.set_version_flag("--version", std::string(kTasketVersion));
    app.add_option("--application", options.application,
                   "The desktop file (without .desktop) whose launcher shows the badge and "
                   "whose icon and name the notifications carry")
        ->type_name("NAME")
        ->capture_default_str();
    if (const auto status = writeCommandLineDocs(
            arguments, app, {"tasket-notifier", "deliver Tasket's reminders", kTasketVersion}, out,
            err))
        return *status;
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::Success& done) {
        return app.exit(done, out, err);
    } catch (const CLI::ParseError& error) {
        err << fmt::format("tasket-notifier: {}\n", error.what());
        return kExitUsage;
    }
    return std::nullopt;
}

// Raises a file descriptor that poll() sees whenever work is posted to the
// main queue from another thread (history merges, the queue's watch).
class MainQueueWakeUp {
  public:
    MainQueueWakeUp() : m_fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        platform::MainQueue::shared().claimCurrentThread();
        platform::MainQueue::shared().setWakeUp([fd = m_fd] {
            const std::uint64_t one = 1;
            [[maybe_unused]] const auto written = ::write(fd, &one, sizeof one);
        });
    }
    ~MainQueueWakeUp() {
        platform::MainQueue::shared().setWakeUp(nullptr);
        ::close(m_fd);
    }
    MainQueueWakeUp(const MainQueueWakeUp&) = delete;
    MainQueueWakeUp& operator=(const MainQueueWakeUp&) = delete;
    [[nodiscard]] int fd() const { return m_fd; }
    void drain() const {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto read = ::read(m_fd, &count, sizeof count);
    }

  private:
    int m_fd;
};

} // namespace

int runNotifierProgram(std::span<const std::string> arguments, std::ostream& out,
                       std::ostream& err) {
    NotifierOptions options;
    if (auto status = parse(arguments, options, out, err))
        return *status;

    // Blocked before any thread starts, so only the signal fd hears them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGHUP);
    ::sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
    const int signals = ::signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC);

    const MainQueueWakeUp mainQueue;
    NotifierDaemon* daemonPointer = nullptr;
    auto timer = platform::RealtimeWakeTimer::make([&daemonPointer](platform::WakeReason reason) {
        if (daemonPointer)
            daemonPointer->wake(reason);
    });
    if (!timer) {
        err << fmt::format("tasket-notifier: {}\n", timer.error().message);
        return kExitUnavailable;
    }

    auto daemon = NotifierDaemon::make(
        {.timer = **timer, .application = options.application, .log = err}, makeReminderActions);
    if (!daemon) {
        err << fmt::format("tasket-notifier: {}\n", daemon.error().message);
        return daemon.error().code == platform::Errc::conflict ? kExitTemporary
                                                               : exitCodeFor(daemon.error().code);
    }
    daemonPointer = daemon->get();
    (*daemon)->start();

    for (;;) {
        platform::MainQueue::shared().pump();
        auto* bus = (*daemon)->bus();
        // A bus that goes away ends the session; the next one starts a new daemon.
        if (bus)
            if (auto processed = bus->process(); !processed) {
                err << fmt::format("tasket-notifier: {}\n", processed.error().message);
                return kExitUnavailable;
            }
        std::vector<pollfd> fds{{signals, POLLIN, 0},
                                {mainQueue.fd(), POLLIN, 0},
                                {(*timer)->fd(), POLLIN, 0},
                                {(*timer)->zoneFd(), POLLIN, 0}};
        auto* unlockWatch = (*daemon)->unlockWatch();
        fds.push_back({unlockWatch ? unlockWatch->fd() : -1, POLLIN, 0});
        fds.push_back({bus ? bus->fd() : -1, POLLIN, 0});
        fds.push_back({(*daemon)->cloudSocket(), POLLIN, 0});
        if (::poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR)
            break;
        if (fds[0].revents & POLLIN)
            break;
        if (fds[1].revents & POLLIN)
            mainQueue.drain();
        if (fds[2].revents & POLLIN)
            (*timer)->handleReadable();
        if (fds[3].revents & POLLIN)
            (*timer)->handleZoneReadable();
        if (unlockWatch && (fds[4].revents & POLLIN))
            unlockWatch->process();
        if (fds[6].revents & (POLLIN | POLLHUP | POLLERR))
            (*daemon)->cloudReadable();
    }
    daemonPointer = nullptr;
    ::close(signals);
    return kExitSuccess;
}

} // namespace tasket::apps
