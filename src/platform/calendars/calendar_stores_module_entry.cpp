// The calendar store module's one exported function: the factories of the
// vdir and CalDAV stores (see calendar_store_module.h).
#include "platform/calendars/caldav_calendar_store.h"
#include "platform/calendars/calendar_store_module.h"
#include "platform/calendars/vdir_calendar_store.h"

namespace {

using namespace tasket::platform;

std::shared_ptr<CalendarStore> makeVdir(std::vector<std::filesystem::path> roots) {
    return std::make_shared<VdirCalendarStore>(std::move(roots));
}

std::shared_ptr<CalendarStore> makeCaldav(std::vector<std::string> urls) {
    return std::make_shared<CaldavCalendarStore>(std::move(urls));
}

constexpr CalendarStoreFactories kFactories{
    .version = CalendarStoreFactories::kVersion, .vdir = makeVdir, .caldav = makeCaldav};

} // namespace

extern "C" __attribute__((visibility("default"))) const CalendarStoreFactories*
tasket_calendar_store_factories() {
    return &kFactories;
}
