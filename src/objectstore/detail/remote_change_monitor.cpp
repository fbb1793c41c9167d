#include "objectstore/detail/remote_change_monitor.h"

#include "objectstore/persistent_store.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tasket::objectstore::detail {

using platform::Errc;

namespace {
// A burst ends after this long without another write to the store files.
constexpr int kQuietMilliseconds = 25;
} // namespace

platform::Result<std::unique_ptr<RemoteChangeMonitor>>
RemoteChangeMonitor::start(PersistentStore& store) {
    std::unique_ptr<RemoteChangeMonitor> m(new RemoteChangeMonitor());
    m->m_store = &store;
    m->m_fileName = store.path().filename().string();
    m->m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    m->m_stopEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m->m_inotify < 0 || m->m_stopEvent < 0)
        return platform::fail(Errc::ioError,
                              fmt::format("cannot watch for changes: {}", std::strerror(errno)));
    auto folder = store.path().parent_path();
    if (folder.empty())
        folder = ".";
    if (inotify_add_watch(m->m_inotify, folder.c_str(),
                          IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE) < 0)
        return platform::fail(Errc::ioError, fmt::format("cannot watch {} for changes: {}",
                                                         folder.string(), std::strerror(errno)));
    m->m_thread = std::thread([raw = m.get()] { raw->loop(); });
    return m;
}

RemoteChangeMonitor::~RemoteChangeMonitor() {
    if (m_thread.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(m_stopEvent, &one, sizeof one);
        m_thread.join();
    }
    if (m_inotify >= 0)
        ::close(m_inotify);
    if (m_stopEvent >= 0)
        ::close(m_stopEvent);
}

void RemoteChangeMonitor::loop() {
    alignas(inotify_event) char buffer[4096];
    bool pending = false;
    for (;;) {
        pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
        const int ready = ::poll(fds, 2, pending ? kQuietMilliseconds : -1);
        if (ready < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;
        if (ready == 0 && pending) {
            pending = false;
            m_store->checkRemoteChange();
            continue;
        }
        if (!(fds[0].revents & POLLIN))
            continue;
        for (;;) {
            const ssize_t n = ::read(m_inotify, buffer, sizeof buffer);
            if (n <= 0)
                break;
            for (ssize_t off = 0; off < n;) {
                const auto* ev = reinterpret_cast<const inotify_event*>(buffer + off);
                if (ev->len > 0) {
                    const std::string_view name(ev->name);
                    if (name == m_fileName || name == m_fileName + "-wal")
                        pending = true;
                }
                off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
            }
        }
    }
}

} // namespace tasket::objectstore::detail
