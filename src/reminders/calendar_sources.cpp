#include "reminders/calendar_sources.h"

#include "platform/calendars/calendar_store_module.h"
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
    std::vector<std::string> accounts;
    for (const auto& source : customization.value(settings::catalog::calendarSources)) {
        if (platform::isCaldavUrl(source))
            accounts.push_back(source);
        else if (source.find("://") != std::string::npos)
            return platform::fail(Errc::invalidArgument,
                                  fmt::format("the calendar source {} is neither a folder nor "
                                              "an http(s) CalDAV account",
                                              source));
        else
            roots.emplace_back(source);
    }
    if (!roots.empty() && !accounts.empty())
        return platform::fail(Errc::invalidArgument,
                              "the calendar sources mix folders and CalDAV accounts; use one or "
                              "the other");
    if (!accounts.empty())
        return platform::openCaldavCalendarStore(std::move(accounts));
    if (roots.empty())
        return platform::fail(Errc::invalidArgument,
                              "there are no calendar sources: name a vdir folder or a CalDAV "
                              "account with `tasket calendars sources FOLDER|URL`");
    return platform::openVdirCalendarStore(std::move(roots));
}

} // namespace tasket::reminders
