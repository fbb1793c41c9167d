// The calendar store of the user's "Calendar.Sources" setting: the vdir
// folders it names, or its CalDAV accounts (their credentials from the
// Secret Service, else the netrc file), not both at once.
#pragma once

#include "platform/calendars/calendar_store.h"
#include "platform/error.h"
#include "settings/customization_manager.h"

#include <memory>

namespace tasket::reminders {

/// Fails with invalidArgument when no source is set, when a source is
/// neither a folder nor an http(s) URL, or when the two kinds are mixed.
[[nodiscard]] platform::Result<std::shared_ptr<platform::CalendarStore>>
openCalendarStore(const settings::CustomizationManager& customization);

} // namespace tasket::reminders
