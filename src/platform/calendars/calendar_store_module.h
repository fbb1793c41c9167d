// The vdir and CalDAV calendar stores are built as two modules that a
// program loads the first time it opens a store of that kind (see
// platform/module_loader.h): the vdir one brings the iCalendar library, the
// CalDAV one HTTP, TLS and XML besides, some fifty shared objects.
#pragma once

#include "platform/calendars/calendar_store.h"
#include "platform/error.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tasket::platform {

/// Whether `source` names a CalDAV account ("http://" or "https://").
[[nodiscard]] bool isCaldavUrl(std::string_view source);

/// A vdir store over the roots `roots`. Fails with `unavailable`, saying
/// why, when the module cannot be loaded.
[[nodiscard]] Result<std::shared_ptr<CalendarStore>>
openVdirCalendarStore(std::vector<std::filesystem::path> roots);
/// A CalDAV store over the accounts at `urls`, as openVdirCalendarStore.
[[nodiscard]] Result<std::shared_ptr<CalendarStore>>
openCaldavCalendarStore(std::vector<std::string> urls);

/// What a module hands over through its one exported function,
/// kCalendarStoreModuleEntry, which returns a pointer to it: the factory of
/// its own kind, the other one null. The version comes first, where the
/// loader reads it.
struct CalendarStoreFactories {
    static constexpr int kVersion = 2;
    int version = kVersion;
    std::shared_ptr<CalendarStore> (*vdir)(std::vector<std::filesystem::path> roots) = nullptr;
    std::shared_ptr<CalendarStore> (*caldav)(std::vector<std::string> urls) = nullptr;
};

inline constexpr const char* kCalendarStoreModuleEntry = "tasket_calendar_store_factories";

} // namespace tasket::platform
