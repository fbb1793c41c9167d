// An observable value: the state a manager shows to its views. Reading is
// immediate; every set() tells the subscribers later, on the main queue,
// with the value as it was set, so an observer never runs inside set() and
// always runs on the main thread. A subscription is a move-only token that
// unsubscribes when destroyed; once it is gone its callback never runs again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tasket::platform {

namespace detail {
class SubscriberList;
}

/// Keeps one subscription alive; destroying or resetting it unsubscribes.
class Subscription {
  public:
    Subscription() = default;
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription();

    /// Unsubscribes now; a delivery already queued skips this subscriber.
    void reset();
    [[nodiscard]] bool isActive() const { return m_id != 0; }

  private:
    template <class T> friend class Published;
    Subscription(std::weak_ptr<detail::SubscriberList> list, std::uint64_t id)
        : m_list(std::move(list)), m_id(id) {}

    std::weak_ptr<detail::SubscriberList> m_list;
    std::uint64_t m_id = 0;
};

namespace detail {

/// The subscribers of one published value, type-erased: a delivery hands
/// each of them a pointer to the value, which only the owning Published<T>
/// makes and only its own typed callbacks read. Thread-safe.
class SubscriberList {
  public:
    using Deliver = std::function<void(const void* value)>;

    [[nodiscard]] std::uint64_t add(Deliver deliver);
    void remove(std::uint64_t id);
    /// Posts a delivery of `value` to the main queue for the subscribers
    /// present now. When it runs, each of them that is still subscribed is
    /// called, in subscription order; nothing runs if the list is gone.
    static void post(const std::shared_ptr<SubscriberList>& list,
                     std::shared_ptr<const void> value);

  private:
    // Shared so a delivery can call them outside the lock.
    using Entry = std::pair<std::uint64_t, std::shared_ptr<const Deliver>>;
    [[nodiscard]] bool contains(std::uint64_t id) const;

    mutable std::mutex m_mutex;
    std::uint64_t m_nextID = 1;
    std::vector<Entry> m_subscribers;
};

} // namespace detail

template <class T> class Published {
  public:
    using Observer = std::function<void(const T&)>;

    Published() : m_value() {}
    explicit Published(T initial) : m_value(std::move(initial)) {}
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    /// The current value. Use on the main queue.
    [[nodiscard]] const T& value() const { return m_value; }

    /// Replaces the value and queues one notification of it for every
    /// subscriber. Use on the main queue.
    void set(T newValue) {
        m_value = std::move(newValue);
        detail::SubscriberList::post(m_subscribers, std::make_shared<const T>(m_value));
    }

    /// Calls `observer` with each value set from now on, on the main queue,
    /// until the returned subscription is destroyed.
    [[nodiscard]] Subscription subscribe(Observer observer) const {
        const auto id = m_subscribers->add([observer = std::move(observer)](const void* value) {
            observer(*static_cast<const T*>(value));
        });
        return Subscription(m_subscribers, id);
    }

  private:
    T m_value;
    std::shared_ptr<detail::SubscriberList> m_subscribers =
        std::make_shared<detail::SubscriberList>();
};

} // namespace tasket::platform
