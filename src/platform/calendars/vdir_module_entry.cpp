// The vdir module's one exported function (see calendar_store_module.h).
#include "platform/calendars/calendar_store_module.h"
#include "platform/calendars/vdir_calendar_store.h"

namespace {

using namespace tasket::platform;

std::shared_ptr<CalendarStore> makeVdir(std::vector<std::filesystem::path> roots) {
    return std::make_shared<VdirCalendarStore>(std::move(roots));
}

constexpr CalendarStoreFactories kFactories{.version = CalendarStoreFactories::kVersion,
                                            .vdir = makeVdir};

} // namespace

extern "C" __attribute__((visibility("default"))) const CalendarStoreFactories*
tasket_calendar_store_factories() {
    return &kFactories;
}
