#include "platform/file_watch.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace tasket::platform {

namespace {

std::uint32_t inotifyMask(unsigned events) {
    std::uint32_t mask = 0;
    if (events & FileWatch::closedAfterWriting)
        mask |= IN_CLOSE_WRITE;
    if (events & FileWatch::movedIn)
        mask |= IN_MOVED_TO;
    if (events & FileWatch::modified)
        mask |= IN_MODIFY;
    if (events & FileWatch::created)
        mask |= IN_CREATE;
    if (events & FileWatch::removed)
        mask |= IN_DELETE;
    return mask;
}

} // namespace

Result<std::unique_ptr<FileWatch>> FileWatch::start(Options options,
                                                    std::function<void()> changed) {
    std::unique_ptr<FileWatch> watch(new FileWatch());
    const auto fileName = options.file.filename().string();
    for (const auto& suffix : options.suffixes)
        watch->m_names.push_back(fileName + suffix);
    watch->m_quietPeriod = options.quietPeriod;
    watch->m_changed = std::move(changed);
    watch->m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    watch->m_stopEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const auto folder = options.file.parent_path().empty() ? std::filesystem::path(".")
                                                           : options.file.parent_path();
    if (watch->m_inotify < 0 || watch->m_stopEvent < 0 ||
        inotify_add_watch(watch->m_inotify, folder.c_str(), inotifyMask(options.events)) < 0)
        return fail(Errc::ioError, fmt::format("cannot watch {} for changes: {}",
                                               options.file.string(), std::strerror(errno)));
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

// Drains the queued events; true when one of them names a watched file.
bool FileWatch::readChanges() {
    alignas(inotify_event) char buffer[4096];
    bool changed = false;
    for (ssize_t n; (n = ::read(m_inotify, buffer, sizeof buffer)) > 0;) {
        for (ssize_t off = 0; off < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + off);
            // An overflowed queue dropped events: any of them may have been ours.
            if ((event->mask & IN_Q_OVERFLOW) ||
                (event->len > 0 &&
                 std::ranges::find(m_names, std::string_view(event->name)) != m_names.end()))
                changed = true;
            off += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return changed;
}

void FileWatch::loop() {
    const bool debounce = m_quietPeriod.count() > 0;
    bool pending = false;
    for (;;) {
        pollfd fds[2] = {{m_inotify, POLLIN, 0}, {m_stopEvent, POLLIN, 0}};
        const int ready = ::poll(fds, 2, pending ? static_cast<int>(m_quietPeriod.count()) : -1);
        if (ready < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;
        if (ready == 0 && pending) {
            pending = false;
            m_changed();
            continue;
        }
        if (!(fds[0].revents & POLLIN))
            continue;
        if (readChanges()) {
            if (debounce)
                pending = true;
            else
                m_changed();
        }
    }
}

} // namespace tasket::platform
