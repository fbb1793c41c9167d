#include "platform/notification_center.h"

#include <mutex>
#include <utility>
#include <vector>

namespace tasket::platform {
namespace detail {

struct ObserverEntry {
    std::uint64_t id;
    std::string name;
    const void* sender;
    NotificationCenter::Handler handler;
    std::recursive_mutex deliveryMutex; // held while the handler runs
    bool active = true;                 // guarded by deliveryMutex
};

struct NotificationCenterState {
    std::mutex mutex;
    std::uint64_t nextId = 1;
    std::vector<std::shared_ptr<ObserverEntry>> entries;

    void remove(std::uint64_t id) {
        std::shared_ptr<ObserverEntry> entry;
        {
            std::lock_guard lock(mutex);
            for (auto it = entries.begin(); it != entries.end(); ++it) {
                if ((*it)->id == id) {
                    entry = *it;
                    entries.erase(it);
                    break;
                }
            }
        }
        if (entry) {
            std::lock_guard delivery(entry->deliveryMutex);
            entry->active = false;
        }
    }
};

} // namespace detail

ObserverToken::ObserverToken(ObserverToken&& other) noexcept
    : m_state(std::move(other.m_state)), m_id(std::exchange(other.m_id, 0)) {}

ObserverToken& ObserverToken::operator=(ObserverToken&& other) noexcept {
    if (this != &other) {
        reset();
        m_state = std::move(other.m_state);
        m_id = std::exchange(other.m_id, 0);
    }
    return *this;
}

ObserverToken::~ObserverToken() {
    reset();
}

void ObserverToken::reset() {
    if (m_id == 0)
        return;
    if (auto state = m_state.lock())
        state->remove(m_id);
    m_id = 0;
    m_state.reset();
}

NotificationCenter::NotificationCenter()
    : m_state(std::make_shared<detail::NotificationCenterState>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter* center = new NotificationCenter(); // never destroyed
    return *center;
}

ObserverToken NotificationCenter::addObserver(std::string name, const void* sender,
                                              Handler handler) {
    auto entry = std::make_shared<detail::ObserverEntry>();
    entry->name = std::move(name);
    entry->sender = sender;
    entry->handler = std::move(handler);
    std::lock_guard lock(m_state->mutex);
    entry->id = m_state->nextId++;
    m_state->entries.push_back(entry);
    return ObserverToken(m_state, entry->id);
}

void NotificationCenter::post(const Notification& notification) {
    std::vector<std::shared_ptr<detail::ObserverEntry>> matching;
    {
        std::lock_guard lock(m_state->mutex);
        for (const auto& e : m_state->entries) {
            if ((e->name.empty() || e->name == notification.name) &&
                (e->sender == nullptr || e->sender == notification.sender))
                matching.push_back(e);
        }
    }
    for (const auto& e : matching) {
        std::lock_guard delivery(e->deliveryMutex);
        if (e->active)
            e->handler(notification);
    }
}

void NotificationCenter::post(std::string name, const void* sender, std::any userInfo) {
    post(Notification{std::move(name), sender, std::move(userInfo)});
}

} // namespace tasket::platform
