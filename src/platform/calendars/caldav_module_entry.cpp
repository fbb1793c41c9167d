// The CalDAV module's one exported function (see calendar_store_module.h).
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/calendars/calendar_store_module.h"

namespace {

using namespace tasket::platform;

std::shared_ptr<CalendarStore> makeCaldav(std::vector<std::string> urls) {
    return std::make_shared<CaldavCalendarStore>(std::move(urls));
}

constexpr CalendarStoreFactories kFactories{.version = CalendarStoreFactories::kVersion,
                                            .caldav = makeCaldav};

} // namespace

extern "C" __attribute__((visibility("default"))) const CalendarStoreFactories*
tasket_calendar_store_factories() {
    return &kFactories;
}
