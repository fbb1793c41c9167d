#include "platform/notification_center.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tasket::platform {
namespace detail {

struct ObserverEntry {
    explicit ObserverEntry(std::type_index type) : payload(type) {}
    std::uint64_t id = 0;
    std::string name;
    std::type_index payload; // observers meet only posts of their payload type
    const void* sender = nullptr;
    ErasedHandler handler;
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

ObserverToken NotificationCenter::add(std::string_view name, std::type_index payload,
                                      const void* sender, detail::ErasedHandler handler) {
    auto entry = std::make_shared<detail::ObserverEntry>(payload);
    entry->name = name;
    entry->sender = sender;
    entry->handler = std::move(handler);
    std::lock_guard lock(m_state->mutex);
    entry->id = m_state->nextId++;
    m_state->entries.push_back(entry);
    return ObserverToken(m_state, entry->id);
}

void NotificationCenter::deliver(std::string_view name, std::type_index payloadType,
                                 const void* sender, const void* payload) {
    std::vector<std::shared_ptr<detail::ObserverEntry>> matching;
    {
        std::lock_guard lock(m_state->mutex);
        for (const auto& e : m_state->entries) {
            if (e->name == name && e->payload == payloadType &&
                (e->sender == nullptr || e->sender == sender))
                matching.push_back(e);
        }
    }
    for (const auto& e : matching) {
        std::lock_guard delivery(e->deliveryMutex);
        if (e->active)
            e->handler(payload, sender);
    }
}

} // namespace tasket::platform
