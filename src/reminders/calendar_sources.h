// The calendar store of the user's "Calendar.Sources" setting: the vdir
// folders it names.
#pragma once

#include "platform/calendars/calendar_store.h"
#include "platform/error.h"
#include "settings/customization_manager.h"

#include <memory>

namespace tasket::reminders {

/// Fails with invalidArgument when no source is set, and with unavailable
/// for a source this build cannot reach.
[[nodiscard]] platform::Result<std::shared_ptr<platform::CalendarStore>>
openCalendarStore(const settings::CustomizationManager& customization);

} // namespace tasket::reminders
