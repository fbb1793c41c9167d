#include "platform/calendars/staged_calendar_store.h"

#include "platform/calendars/detail/ical_codec.h"
#include "platform/uuid.h"

#include <chrono>

namespace tasket::platform {

Date StagedCalendarStore::now() {
    return Date::fromSystem(std::chrono::system_clock::now());
}

Result<> StagedCalendarStore::storeItem(CalendarItem& item, bool commit) {
    Lock lock(m_mutex);
    CalendarItem saved = item;
    if (saved.identifier.empty()) {
        saved.identifier = Uuid::generate().toString();
        m_newItems.insert(saved.identifier);
    }
    saved.lastModified = now();
    if (auto text = detail::formatCalendarItem(saved, {}, *saved.lastModified); !text)
        return std::unexpected(text.error());
    m_pendingItems.insert_or_assign(saved.identifier, saved);
    item = std::move(saved);
    return commitIf(commit);
}

Result<> StagedCalendarStore::removeItem(std::string_view identifier, bool commit) {
    Lock lock(m_mutex);
    const auto existing = canChange(identifier);
    if (!existing)
        return std::unexpected(existing.error());
    if (!*existing)
        return fail(Errc::notFound,
                    "there is no calendar item \"" + std::string(identifier) + "\"");
    m_pendingItems.insert_or_assign(std::string(identifier), std::nullopt);
    return commitIf(commit);
}

Result<> StagedCalendarStore::commit() {
    Lock lock(m_mutex);
    return commitLocked();
}

Result<> StagedCalendarStore::commitIf(bool commit) {
    return commit ? commitLocked() : Result<>{};
}

void StagedCalendarStore::reset() {
    Lock lock(m_mutex);
    m_pendingCalendars.clear();
    m_pendingItems.clear();
    m_newItems.clear();
    resetLocked();
}

} // namespace tasket::platform
