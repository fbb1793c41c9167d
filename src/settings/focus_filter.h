// The focus filter as the group suite keeps it: "Focus.Filter.Categories"
// holds the identifiers (categoryID) of the lists the active focus selects,
// and is absent while no focus is active. Whoever writes it (`tasket focus`,
// a desktop's focus mode), every FocusManager that follows the suite, in
// any process, follows the change.
#pragma once

#include "platform/preferences/preferences_suite.h"
#include "settings/focus_manager.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tasket::settings {

/// The lists of the stored focus; nullopt when no focus is active (or the
/// suite is unavailable, or the key holds something else).
[[nodiscard]] std::optional<std::vector<std::string>>
storedFocus(const platform::PreferencesSuite& suite);

/// Stores a focus on `categoryIDs`, or ends the focus (nullopt). Fails when
/// the suite cannot be written.
[[nodiscard]] platform::Result<>
storeFocus(platform::PreferencesSuite& suite,
           const std::optional<std::vector<std::string>>& categoryIDs);

/// Makes `manager` follow the stored focus of `suite`: applies it now (call
/// on the main queue) and again on the main queue after every change of the
/// suite, until the returned observation is destroyed. Fails when the suite
/// cannot be watched; the focus is applied once all the same.
[[nodiscard]] platform::Result<std::unique_ptr<platform::PreferencesObservation>>
followStoredFocus(const std::shared_ptr<FocusManager>& manager,
                  const std::shared_ptr<platform::PreferencesSuite>& suite);

} // namespace tasket::settings
