// A calendar store that keeps saves and removals pending until commit, as
// the vdir and CalDAV stores do: the pending changes, and the parts of the
// contract that only touch them, written once. An adapter says how a
// committed item is found (itemWithIdentifier) and how the pending changes
// are written out (commitLocked).
#pragma once

#include "platform/calendars/calendar_store.h"

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace tasket::platform {

class StagedCalendarStore : public CalendarStore {
  public:
    [[nodiscard]] Result<> removeItem(std::string_view identifier, bool commit) override;
    [[nodiscard]] Result<> commit() override;
    void reset() override;

  protected:
    using Lock = std::lock_guard<std::recursive_mutex>;

    /// Validates `item` (as its iCalendar form), gives a new one an
    /// identifier and stamps it; pending until commit.
    [[nodiscard]] Result<> storeItem(CalendarItem& item, bool commit) override;
    /// Writes the pending changes out; m_mutex is held.
    [[nodiscard]] virtual Result<> commitLocked() = 0;
    /// Forgets what the adapter keeps beside the pending changes; m_mutex is held.
    virtual void resetLocked() {}
    [[nodiscard]] Result<> commitIf(bool commit);
    [[nodiscard]] static Date now();

    mutable std::recursive_mutex m_mutex;
    // Pending changes by identifier; nullopt: removed.
    std::map<std::string, std::optional<CalendarInfo>, std::less<>> m_pendingCalendars;
    std::map<std::string, std::optional<CalendarItem>, std::less<>> m_pendingItems;
    std::set<std::string, std::less<>> m_newItems; // pending items never written yet
};

} // namespace tasket::platform
