#include "platform/main_queue.h"

namespace tasket::platform {

MainQueue::MainQueue() : m_mainThread(std::this_thread::get_id()) {}

MainQueue& MainQueue::shared() {
    static MainQueue* queue = new MainQueue(); // never destroyed: posts may outlive main()
    return *queue;
}

void MainQueue::post(Task task) {
    std::function<void()> wake;
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
        wake = m_wakeUp;
    }
    m_cv.notify_all();
    if (wake)
        wake();
}

bool MainQueue::runOne(std::unique_lock<std::mutex>& lock) {
    if (m_tasks.empty())
        return false;
    Task task = std::move(m_tasks.front());
    m_tasks.pop_front();
    lock.unlock();
    task();
    lock.lock();
    return true;
}

std::size_t MainQueue::pump() {
    std::size_t count = 0;
    std::unique_lock lock(m_mutex);
    while (runOne(lock))
        ++count;
    return count;
}

void MainQueue::run() {
    std::unique_lock lock(m_mutex);
    m_quit = false;
    while (!m_quit) {
        if (!runOne(lock))
            m_cv.wait(lock, [this] { return m_quit || !m_tasks.empty(); });
    }
}

void MainQueue::quit() {
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
    }
    m_cv.notify_all();
}

bool MainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(m_mutex);
    for (;;) {
        while (runOne(lock)) {
            lock.unlock();
            const bool finished = done();
            lock.lock();
            if (finished)
                return true;
        }
        lock.unlock();
        if (done())
            return true;
        lock.lock();
        if (!m_cv.wait_until(lock, deadline, [this] { return !m_tasks.empty(); }))
            break;
    }
    lock.unlock();
    return done();
}

void MainQueue::setWakeUp(std::function<void()> wakeUp) {
    std::lock_guard lock(m_mutex);
    m_wakeUp = std::move(wakeUp);
}

void MainQueue::claimCurrentThread() {
    std::lock_guard lock(m_mutex);
    m_mainThread = std::this_thread::get_id();
}

bool MainQueue::isMainThread() const {
    std::lock_guard lock(m_mutex);
    return m_mainThread == std::this_thread::get_id();
}

} // namespace tasket::platform
