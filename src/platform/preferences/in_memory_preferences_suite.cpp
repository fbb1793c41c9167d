#include "platform/preferences/in_memory_preferences_suite.h"

#include <fmt/core.h>

#include <map>
#include <vector>

namespace tasket::platform {

struct InMemoryPreferencesSuite::Observers {
    std::mutex mutex;
    std::uint64_t nextID = 1;
    std::map<std::uint64_t, std::shared_ptr<const std::function<void()>>> observers;

    std::uint64_t add(std::function<void()> changed) {
        const std::scoped_lock lock(mutex);
        observers.emplace(nextID,
                          std::make_shared<const std::function<void()>>(std::move(changed)));
        return nextID++;
    }
    void notify() {
        std::vector<std::shared_ptr<const std::function<void()>>> now;
        {
            const std::scoped_lock lock(mutex);
            for (const auto& [id, changed] : observers)
                now.push_back(changed);
        }
        for (const auto& changed : now)
            (*changed)();
    }
};

namespace {

class Observation final : public PreferencesObservation {
  public:
    template <class List>
    Observation(const std::shared_ptr<List>& list, std::uint64_t id)
        : m_remove([weak = std::weak_ptr<List>(list), id] {
              if (auto alive = weak.lock()) {
                  const std::scoped_lock lock(alive->mutex);
                  alive->observers.erase(id);
              }
          }) {}
    ~Observation() override { m_remove(); }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

  private:
    std::function<void()> m_remove;
};

} // namespace

InMemoryPreferencesSuite::InMemoryPreferencesSuite(std::string name, PreferenceDictionary initial)
    : m_name(std::move(name)), m_observers(std::make_shared<Observers>()),
      m_values(std::move(initial)) {}

bool InMemoryPreferencesSuite::isAvailable() const {
    std::lock_guard lock(m_mutex);
    return m_available;
}

std::optional<PreferenceValue> InMemoryPreferencesSuite::value(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    if (!m_available)
        return std::nullopt;
    if (auto it = m_values.find(key); it != m_values.end())
        return it->second;
    return std::nullopt;
}

PreferenceDictionary InMemoryPreferencesSuite::dictionaryRepresentation() const {
    std::lock_guard lock(m_mutex);
    return m_available ? m_values : PreferenceDictionary{};
}

Result<>
InMemoryPreferencesSuite::update(const std::function<void(PreferenceDictionary&)>& change) {
    std::unique_lock lock(m_mutex);
    if (!m_available)
        return fail(Errc::unavailable,
                    fmt::format("preferences suite \"{}\" is unavailable", m_name));
    PreferenceDictionary next = m_values;
    change(next);
    if (auto ok = validatePreferenceDictionary(next); !ok)
        return ok;
    m_values = std::move(next);
    ++m_writeCount;
    lock.unlock();
    m_observers->notify();
    return {};
}

Result<std::unique_ptr<PreferencesObservation>>
InMemoryPreferencesSuite::observeChanges(std::function<void()> changed) {
    return std::make_unique<Observation>(m_observers, m_observers->add(std::move(changed)));
}

void InMemoryPreferencesSuite::setAvailable(bool available) {
    std::lock_guard lock(m_mutex);
    m_available = available;
}

std::size_t InMemoryPreferencesSuite::writeCount() const {
    std::lock_guard lock(m_mutex);
    return m_writeCount;
}

} // namespace tasket::platform
