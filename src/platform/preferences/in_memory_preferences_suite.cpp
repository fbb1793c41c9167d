#include "platform/preferences/in_memory_preferences_suite.h"

#include <fmt/core.h>

namespace tasket::platform {

InMemoryPreferencesSuite::InMemoryPreferencesSuite(std::string name, PreferenceDictionary initial)
    : m_name(std::move(name)), m_values(std::move(initial)) {}

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
    std::lock_guard lock(m_mutex);
    if (!m_available)
        return fail(Errc::unavailable,
                    fmt::format("preferences suite \"{}\" is unavailable", m_name));
    PreferenceDictionary next = m_values;
    change(next);
    if (auto ok = validatePreferenceDictionary(next); !ok)
        return ok;
    m_values = std::move(next);
    ++m_writeCount;
    return {};
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
