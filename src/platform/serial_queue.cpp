#include "platform/serial_queue.h"

#include <exception>
#include <future>

namespace tasket::platform {

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label)), m_state(std::make_shared<State>()),
      m_thread([state = m_state] { loop(state); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->cv.notify_all();
    if (m_thread.joinable()) {
        if (isCurrent())
            m_thread.detach(); // destroyed from its own task: let the loop finish
        else
            m_thread.join();
    }
}

void SerialQueue::async(Task task) {
    {
        std::lock_guard lock(m_state->mutex);
        m_state->tasks.push_back(std::move(task));
    }
    m_state->cv.notify_one();
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

void SerialQueue::loop(const std::shared_ptr<State>& state) {
    std::unique_lock lock(state->mutex);
    for (;;) {
        state->cv.wait(lock, [&] { return state->stopping || !state->tasks.empty(); });
        if (state->tasks.empty() && state->stopping)
            return;
        Task task = std::move(state->tasks.front());
        state->tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

} // namespace tasket::platform
