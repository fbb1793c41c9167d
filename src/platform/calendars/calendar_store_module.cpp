#include "platform/calendars/calendar_store_module.h"

#include "platform/module_loader.h"

namespace tasket::platform {
namespace {

Result<const CalendarStoreFactories*> load(const ModuleLocation& location) {
    auto loaded = loadModuleTable(location, CalendarStoreFactories::kVersion);
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
    static const auto loaded = load({.inPrefix = TASKET_VDIR_MODULE_IN_PREFIX,
                                     .built = TASKET_VDIR_MODULE_BUILT,
                                     .entry = kCalendarStoreModuleEntry,
                                     .what = "the vdir calendar module"});
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->vdir(std::move(roots));
}

Result<std::shared_ptr<CalendarStore>> openCaldavCalendarStore(std::vector<std::string> urls) {
    static const auto loaded = load({.inPrefix = TASKET_CALDAV_MODULE_IN_PREFIX,
                                     .built = TASKET_CALDAV_MODULE_BUILT,
                                     .entry = kCalendarStoreModuleEntry,
                                     .what = "the CalDAV calendar module"});
    if (!loaded)
        return std::unexpected(loaded.error());
    return (*loaded)->caldav(std::move(urls));
}

} // namespace tasket::platform
