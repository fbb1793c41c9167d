// A serial work queue: one worker thread running tasks in the order they
// were submitted. Background object contexts each own one.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace tasket::platform {

class SerialQueue {
  public:
    using Task = std::function<void()>;

    explicit SerialQueue(std::string label);
    /// Runs what is already queued, then stops the worker.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Queues `task` and returns at once.
    void async(Task task);
    /// Runs `task` on the queue and waits for it. On the queue's own thread
    /// it runs inline (no deadlock).
    void sync(const Task& task);

    [[nodiscard]] bool isCurrent() const { return std::this_thread::get_id() == m_thread.get_id(); }
    [[nodiscard]] const std::string& label() const { return m_label; }

  private:
    // Shared with the worker, so a queue destroyed by one of its own tasks
    // leaves the worker a live state to finish with.
    struct State {
        std::mutex mutex;
        std::condition_variable cv;
        std::deque<Task> tasks;
        bool stopping = false;
    };
    static void loop(const std::shared_ptr<State>& state);

    std::string m_label;
    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

} // namespace tasket::platform
