#include "platform/published.h"

#include "platform/main_queue.h"

#include <algorithm>

namespace tasket::platform {

Subscription::Subscription(Subscription&& other) noexcept
    : m_list(std::move(other.m_list)), m_id(std::exchange(other.m_id, 0)) {}

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    if (this != &other) {
        reset();
        m_list = std::move(other.m_list);
        m_id = std::exchange(other.m_id, 0);
    }
    return *this;
}

Subscription::~Subscription() {
    reset();
}

void Subscription::reset() {
    if (m_id == 0)
        return;
    if (auto list = m_list.lock())
        list->remove(m_id);
    m_list.reset();
    m_id = 0;
}

namespace detail {

std::uint64_t SubscriberList::add(Deliver deliver) {
    std::lock_guard lock(m_mutex);
    const std::uint64_t id = m_nextID++;
    m_subscribers.emplace_back(id, std::make_shared<const Deliver>(std::move(deliver)));
    return id;
}

void SubscriberList::remove(std::uint64_t id) {
    std::lock_guard lock(m_mutex);
    std::erase_if(m_subscribers, [id](const auto& entry) { return entry.first == id; });
}

bool SubscriberList::contains(std::uint64_t id) const {
    std::lock_guard lock(m_mutex);
    return std::any_of(m_subscribers.begin(), m_subscribers.end(),
                       [id](const Entry& entry) { return entry.first == id; });
}

void SubscriberList::post(const std::shared_ptr<SubscriberList>& list,
                          std::shared_ptr<const void> value) {
    std::vector<Entry> present;
    {
        std::lock_guard lock(list->m_mutex);
        if (list->m_subscribers.empty())
            return;
        present = list->m_subscribers;
    }
    MainQueue::shared().post([weak = std::weak_ptr<SubscriberList>(list),
                              present = std::move(present), value = std::move(value)] {
        for (const auto& [id, deliver] : present) {
            // A subscriber that left since (perhaps in an earlier callback of
            // this delivery) is not told; the list going away ends it all.
            auto alive = weak.lock();
            if (!alive || !alive->contains(id))
                continue;
            (*deliver)(value.get());
        }
    });
}

} // namespace detail

} // namespace tasket::platform
