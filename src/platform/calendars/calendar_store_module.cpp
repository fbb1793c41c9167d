#include "platform/calendars/calendar_store_module.h"

#include "platform/module_loader.h"

namespace tasket::platform {
namespace {

Result<const CalendarStoreFactories*> factories() {
    static const auto loaded = loadModuleTable(
        {.inPrefix = TASKET_CALENDAR_MODULE_IN_PREFIX,
         .built = TASKET_CALENDAR_MODULE_BUILT,
         .entry = kCalendarStoreModuleEntry,
         .what = "the calendar store module"},
        CalendarStoreFactories::kVersion);
    if (!loaded)
        return std::unexpected(loaded.error());
    return static_cast<const CalendarStoreFactories*>(*loaded);
}

} // namespace

bool isCaldavUrl(std::string_view source) {
    return source.starts_with("http://") || source.starts_with("https://");
}

Result<std::shared_ptr<CalendarStore>>
openVdirCalendarStore(std::vector<std::filesystem::path> roots) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->vdir(std::move(roots));
}

Result<std::shared_ptr<CalendarStore>> openCaldavCalendarStore(std::vector<std::string> urls) {
    auto loaded = factories();
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->caldav(std::move(urls));
}

} // namespace tasket::platform
