// A preferences suite held in memory, with the same contract as the file
// adapter (typed values, validation, all-or-nothing updates, availability).
// Tests use it in place of the file; setAvailable(false) simulates a suite
// that cannot be opened.
#pragma once

#include "platform/preferences/preferences_suite.h"

#include <memory>
#include <mutex>

namespace tasket::platform {

class InMemoryPreferencesSuite final : public PreferencesSuite {
  public:
    explicit InMemoryPreferencesSuite(std::string name, PreferenceDictionary initial = {});

    [[nodiscard]] const std::string& name() const override { return m_name; }
    [[nodiscard]] bool isAvailable() const override;
    [[nodiscard]] std::optional<PreferenceValue> value(std::string_view key) const override;
    [[nodiscard]] PreferenceDictionary dictionaryRepresentation() const override;
    [[nodiscard]] Result<>
    update(const std::function<void(PreferenceDictionary&)>& change) override;

    [[nodiscard]] Result<std::unique_ptr<PreferencesObservation>>
    observeChanges(std::function<void()> changed) override;

    /// Makes the suite reachable or not; the values are kept either way.
    void setAvailable(bool available);
    /// How many updates have been stored (a test's view of "was anything written").
    [[nodiscard]] std::size_t writeCount() const;

  private:
    struct Observers; // shared with the observations, which may outlive the suite
    const std::string m_name;
    std::shared_ptr<Observers> m_observers;
    mutable std::mutex m_mutex;
    PreferenceDictionary m_values;
    bool m_available = true;
    std::size_t m_writeCount = 0;
};

} // namespace tasket::platform
