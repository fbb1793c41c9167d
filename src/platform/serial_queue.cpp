#include "platform/serial_queue.h"

#include <exception>
#include <future>

namespace tasket::platform {

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label)), m_thread([this] { loop(); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_cv.notify_all();
    if (m_thread.joinable()) {
        if (isCurrent())
            m_thread.detach(); // destroyed from its own task: let the loop finish
        else
            m_thread.join();
    }
}

void SerialQueue::async(Task task) {
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_cv.notify_one();
}

void SerialQueue::sync(const Task& task) {
    if (isCurrent()) {
        task();
        return;
    }
    std::promise<void> done;
    auto future = done.get_future();
    async([&] {
        try {
            task();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    future.get();
}

void SerialQueue::loop() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_cv.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
        if (m_tasks.empty() && m_stopping)
            return;
        Task task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

} // namespace tasket::platform
