// The port to a named preferences suite: a persistent dictionary of typed
// values that several processes share. Adapters: FilePreferencesSuite (one
// JSON document under $XDG_CONFIG_HOME) and InMemoryPreferencesSuite (tests).
//
// Contract shared by every adapter:
// - A suite may be unavailable (its storage cannot be reached); then reads
//   find nothing and writes fail with Errc::unavailable.
// - Reads never fail: a missing key, an unreadable document or a value of
//   another type reads as nothing, and the caller uses its default.
// - A write is all-or-nothing and, once it returns, seen by every reader.
// - Values keep their type exactly; nothing is converted on the way.
#pragma once

#include "platform/error.h"
#include "platform/preferences/preference_value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tasket::platform {

/// Keeps an observation of a suite's changes alive; destroying it ends it.
class PreferencesObservation {
  public:
    virtual ~PreferencesObservation() = default;
};

class PreferencesSuite {
  public:
    virtual ~PreferencesSuite() = default;

    /// The suite's name, as given when it was opened.
    [[nodiscard]] virtual const std::string& name() const = 0;
    /// False when the suite's storage cannot be reached.
    [[nodiscard]] virtual bool isAvailable() const = 0;

    /// The value under `key`; nullopt when absent or the suite is unavailable.
    [[nodiscard]] virtual std::optional<PreferenceValue> value(std::string_view key) const = 0;
    /// Every stored value; empty when the suite is unavailable.
    [[nodiscard]] virtual PreferenceDictionary dictionaryRepresentation() const = 0;

    /// Applies `change` to the current contents and stores the result as one
    /// write: no other writer's change is lost in between. Fails with
    /// unavailable, invalidArgument (a value `validatePreferenceValue`
    /// refuses; nothing is written) or ioError.
    [[nodiscard]] virtual Result<>
    update(const std::function<void(PreferenceDictionary&)>& change) = 0;

    /// Calls `changed` whenever the contents may have changed, whoever wrote
    /// them (the file adapter watches its file, so another process's writes
    /// count). It runs on a thread of the suite's or inside update(), never
    /// with a lock of the suite held: an observer posts its work to where
    /// it belongs and reads the values afresh. Fails when the suite cannot
    /// be watched.
    [[nodiscard]] virtual Result<std::unique_ptr<PreferencesObservation>>
    observeChanges(std::function<void()> changed) = 0;

    // ---- Conveniences over the above ---------------------------------------------

    [[nodiscard]] Result<> setValue(std::string_view key, PreferenceValue value);
    [[nodiscard]] Result<> removeValue(std::string_view key);

    /// Typed reads: nullopt when absent or of another type.
    [[nodiscard]] std::optional<bool> boolValue(std::string_view key) const;
    [[nodiscard]] std::optional<std::int64_t> integerValue(std::string_view key) const;
    [[nodiscard]] std::optional<double> doubleValue(std::string_view key) const;
    [[nodiscard]] std::optional<std::string> stringValue(std::string_view key) const;
    [[nodiscard]] std::optional<Date> dateValue(std::string_view key) const;
    [[nodiscard]] std::optional<PreferenceData> dataValue(std::string_view key) const;
    [[nodiscard]] std::optional<PreferenceStringList> stringListValue(std::string_view key) const;
    [[nodiscard]] std::optional<PreferenceDictionary> dictionaryValue(std::string_view key) const;
};

} // namespace tasket::platform
