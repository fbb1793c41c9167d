// A calendar store held in memory, with the whole contract of the port
// (pending changes, commit and reset, validation). Tests and programs that
// want no files use it; its sources are fixed when it is made.
#pragma once

#include "platform/calendars/calendar_store.h"

#include <map>
#include <mutex>

namespace tasket::platform {

class InMemoryCalendarStore final : public CalendarStore {
  public:
    explicit InMemoryCalendarStore(std::vector<CalendarSource> sources);

    [[nodiscard]] std::vector<CalendarSource> sources() const override;
    [[nodiscard]] std::vector<CalendarInfo> calendars(CalendarEntityType type) const override;
    [[nodiscard]] std::optional<CalendarInfo>
    calendarWithIdentifier(std::string_view identifier) const override;
    [[nodiscard]] Result<> saveCalendar(CalendarInfo& calendar, bool commit) override;
    [[nodiscard]] Result<> removeCalendar(std::string_view identifier, bool commit) override;

    [[nodiscard]] Result<std::vector<CalendarItem>>
    items(CalendarEntityType kind, std::span<const std::string> calendarIdentifiers) const override;
    [[nodiscard]] std::optional<CalendarItem>
    itemWithIdentifier(std::string_view identifier) const override;
    [[nodiscard]] Result<> removeItem(std::string_view identifier, bool commit) override;

    [[nodiscard]] Result<> commit() override;
    void reset() override;

  private:
    struct State {
        std::vector<CalendarInfo> calendars;                    // in creation order
        std::map<std::string, CalendarItem, std::less<>> items; // by identifier
    };
    [[nodiscard]] Result<> storeItem(CalendarItem& item, bool commit) override;
    void commitIf(bool commit);

    const std::vector<CalendarSource> m_sources;
    mutable std::recursive_mutex m_mutex;
    State m_stored;
    State m_working; // m_stored with the pending changes
};

} // namespace tasket::platform
