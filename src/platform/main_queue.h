// The process's main run loop. Work that must run "on the main actor" is
// posted here. Programs either run() it, hand it to another event loop
// through setWakeUp(), or (in tests) pump() it by hand.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tasket::platform {

class MainQueue {
  public:
    using Task = std::function<void()>;

    /// The process-wide queue. Its main thread is the first thread that
    /// asked for it, unless claimCurrentThread() says otherwise.
    static MainQueue& shared();

    /// Queues `task`; thread-safe. Tasks run in posting order.
    void post(Task task);

    /// Runs queued tasks (including those they post) until none is left.
    /// Returns how many ran. Call on the main thread.
    std::size_t pump();

    /// Runs tasks until quit() is called.
    void run();
    void quit();

    /// Pumps until `done()` holds or `timeout` passes; true if it held.
    [[nodiscard]] bool runUntil(const std::function<bool()>& done,
                                std::chrono::milliseconds timeout = std::chrono::seconds(10));

    /// Called (from any thread) after a post, so a foreign event loop can
    /// schedule a pump.
    void setWakeUp(std::function<void()> wakeUp);

    void claimCurrentThread();
    [[nodiscard]] bool isMainThread() const;

  private:
    MainQueue();
    [[nodiscard]] bool runOne(std::unique_lock<std::mutex>& lock);

    mutable std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<Task> m_tasks;
    std::function<void()> m_wakeUp;
    std::thread::id m_mainThread;
    bool m_quit = false;
};

} // namespace tasket::platform
