#include "reminders/calendar_sources.h"

#include "platform/calendars/vdir_calendar_store.h"
#include "settings/settings_catalog.h"

#include <fmt/format.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tasket::reminders {

using platform::Errc;

platform::Result<std::shared_ptr<platform::CalendarStore>>
openCalendarStore(const settings::CustomizationManager& customization) {
    std::vector<std::filesystem::path> roots;
    for (const auto& source : customization.value(settings::catalog::calendarSources)) {
        if (source.find("://") != std::string::npos)
            return platform::fail(Errc::unavailable,
                                  fmt::format("the calendar source {} is a server; only vdir "
                                              "folders can be used so far",
                                              source));
        roots.emplace_back(source);
    }
    if (roots.empty())
        return platform::fail(Errc::invalidArgument,
                              "there are no calendar sources: name a vdir folder with "
                              "`tasket calendars sources FOLDER`");
    return std::make_shared<platform::VdirCalendarStore>(std::move(roots));
}

} // namespace tasket::reminders
