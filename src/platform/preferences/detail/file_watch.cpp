#include "platform/preferences/detail/file_watch.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tasket::platform::detail {

Result<std::unique_ptr<FileWatch>> FileWatch::start(std::filesystem::path file,
                                                    std::function<void()> changed) {
    std::unique_ptr<FileWatch> watch(new FileWatch());
    watch->m_fileName = file.filename().string();
    watch->m_changed = std::move(changed);
    watch->m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    watch->m_stopEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const auto folder =
        file.parent_path().empty() ? std::filesystem::path(".") : file.parent_path();
    if (watch->m_inotify < 0 || watch->m_stopEvent < 0 ||
        inotify_add_watch(watch->m_inotify, folder.c_str(),
                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE) < 0)
        return fail(Errc::ioError, fmt::format("cannot watch {} for changes: {}", file.string(),
                                               std::strerror(errno)));
    watch->m_thread = std::thread([raw = watch.get()] { raw->loop(); });
    return watch;
}

FileWatch::~FileWatch() {
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

void FileWatch::loop() {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;
        bool changed = false;
        for (ssize_t n; (n = ::read(m_inotify, buffer, sizeof buffer)) > 0;) {
            for (ssize_t off = 0; off < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + off);
                changed = changed || (event->len > 0 && m_fileName == event->name);
                off += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        if (changed)
            m_changed();
    }
}

} // namespace tasket::platform::detail
