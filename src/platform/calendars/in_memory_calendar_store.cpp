#include "platform/calendars/in_memory_calendar_store.h"

#include "platform/uuid.h"

#include <algorithm>

namespace tasket::platform {

using Lock = std::lock_guard<std::recursive_mutex>;

InMemoryCalendarStore::InMemoryCalendarStore(std::vector<CalendarSource> sources)
    : m_sources(std::move(sources)) {}

std::vector<CalendarSource> InMemoryCalendarStore::sources() const {
    return m_sources;
}

std::vector<CalendarInfo> InMemoryCalendarStore::calendars(CalendarEntityType type) const {
    Lock lock(m_mutex);
    std::vector<CalendarInfo> found;
    std::ranges::copy_if(m_working.calendars, std::back_inserter(found),
                         [type](const CalendarInfo& c) { return c.entityType == type; });
    return found;
}

std::optional<CalendarInfo>
InMemoryCalendarStore::calendarWithIdentifier(std::string_view identifier) const {
    Lock lock(m_mutex);
    const auto found =
        std::ranges::find(m_working.calendars, identifier, &CalendarInfo::identifier);
    if (identifier.empty() || found == m_working.calendars.end())
        return std::nullopt;
    return *found;
}

Result<> InMemoryCalendarStore::saveCalendar(CalendarInfo& calendar, bool commit) {
    Lock lock(m_mutex);
    CalendarInfo saved = calendar;
    if (saved.sourceIdentifier.empty()) {
        const auto fallback = defaultCalendarForNewReminders();
        if (fallback)
            saved.sourceIdentifier = fallback->sourceIdentifier;
        else if (!m_sources.empty())
            saved.sourceIdentifier = m_sources.front().identifier;
    }
    if (std::ranges::find(m_sources, saved.sourceIdentifier, &CalendarSource::identifier) ==
        m_sources.end())
        return fail(Errc::notFound,
                    "there is no calendar source \"" + saved.sourceIdentifier + "\"");
    auto& all = m_working.calendars;
    if (saved.identifier.empty()) {
        saved.identifier = Uuid::generate().toString();
        all.push_back(saved);
    } else {
        const auto found = std::ranges::find(all, saved.identifier, &CalendarInfo::identifier);
        if (found == all.end())
            return fail(Errc::notFound, "there is no calendar \"" + saved.identifier + "\"");
        if (found->entityType != saved.entityType ||
            found->sourceIdentifier != saved.sourceIdentifier)
            return fail(Errc::invalidArgument, "a calendar keeps its kind and its source");
        *found = saved;
    }
    calendar = saved;
    commitIf(commit);
    return {};
}

Result<> InMemoryCalendarStore::removeCalendar(std::string_view identifier, bool commit) {
    Lock lock(m_mutex);
    auto& all = m_working.calendars;
    const auto found = std::ranges::find(all, identifier, &CalendarInfo::identifier);
    if (identifier.empty() || found == all.end())
        return fail(Errc::notFound, "there is no calendar \"" + std::string(identifier) + "\"");
    all.erase(found);
    std::erase_if(m_working.items, [identifier](const auto& entry) {
        return entry.second.calendarIdentifier == identifier;
    });
    commitIf(commit);
    return {};
}

Result<std::vector<CalendarItem>>
InMemoryCalendarStore::items(CalendarEntityType kind,
                             std::span<const std::string> calendarIdentifiers) const {
    Lock lock(m_mutex);
    for (const auto& id : calendarIdentifiers)
        if (!calendarWithIdentifier(id))
            return fail(Errc::notFound, "there is no calendar \"" + id + "\"");
    std::vector<CalendarItem> found;
    for (const auto& [id, item] : m_working.items)
        if (item.kind == kind && (calendarIdentifiers.empty() ||
                                  std::ranges::find(calendarIdentifiers, item.calendarIdentifier) !=
                                      calendarIdentifiers.end()))
            found.push_back(item);
    return found;
}

std::optional<CalendarItem>
InMemoryCalendarStore::itemWithIdentifier(std::string_view identifier) const {
    Lock lock(m_mutex);
    const auto found = m_working.items.find(identifier);
    if (found == m_working.items.end())
        return std::nullopt;
    return found->second;
}

Result<> InMemoryCalendarStore::storeItem(CalendarItem& item, bool commit) {
    Lock lock(m_mutex);
    CalendarItem saved = item;
    if (saved.identifier.empty())
        saved.identifier = Uuid::generate().toString();
    saved.lastModified = Date::fromSystem(std::chrono::system_clock::now());
    m_working.items.insert_or_assign(saved.identifier, saved);
    item = std::move(saved);
    commitIf(commit);
    return {};
}

Result<> InMemoryCalendarStore::removeItem(std::string_view identifier, bool commit) {
    Lock lock(m_mutex);
    const auto found = m_working.items.find(identifier);
    if (found == m_working.items.end())
        return fail(Errc::notFound,
                    "there is no calendar item \"" + std::string(identifier) + "\"");
    m_working.items.erase(found);
    commitIf(commit);
    return {};
}

Result<> InMemoryCalendarStore::commit() {
    Lock lock(m_mutex);
    m_stored = m_working;
    return {};
}

void InMemoryCalendarStore::reset() {
    Lock lock(m_mutex);
    m_working = m_stored;
}

void InMemoryCalendarStore::commitIf(bool commit) {
    if (commit)
        m_stored = m_working;
}

} // namespace tasket::platform
