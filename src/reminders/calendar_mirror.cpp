#include "reminders/calendar_mirror.h"

#include "platform/atomic_file.h"
#include "platform/calendar.h"
#include "platform/clock.h"
#include "platform/uuid.h"
#include "rules/predicates.h"
#include "rules/texts.h"
#include "store/application_group.h"
#include "store/lookup.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <utility>

namespace tasket::reminders {

using platform::Calendar;
using platform::CalendarStore;
using platform::Date;
using platform::DueDateComponents;
using platform::Errc;
using platform::RecurrenceRule;
using rules::TK_CalendarType;
using rules::TK_RemindersDatabaseType;
using rules::TK_RepeatInterval;
using store::TK_Category;
using store::TK_Priority;
using store::TK_Task;

namespace {

Date wholeSeconds(Date date) {
    return {std::round(date.secondsSinceReference)};
}

TK_CalendarType calendarTypeOf(CalendarEntityType kind) {
    return kind == CalendarEntityType::reminder ? TK_CalendarType::reminder
                                                : TK_CalendarType::event;
}

// The task's repetition as a recurrence rule: only when it repeats, by a
// known interval other than none, every whole number (at least one, within
// 64 bits) of intervals.
std::optional<RecurrenceRule> recurrenceOf(const TK_Task& task) {
    using F = RecurrenceRule::Frequency;
    const auto interval = task.repeatIntervalTypeCase();
    if (!task.doesRemindRepeat() || !interval || *interval == TK_RepeatInterval::none ||
        static_cast<int>(*interval) > 6)
        return std::nullopt;
    const double count = std::trunc(task.repeatFrequency());
    // 2^63 is the first double past the 64-bit range.
    if (!std::isfinite(count) || count < 1 || count >= 9223372036854775808.0)
        return std::nullopt;
    static constexpr F kFrequencies[] = {F::daily,  F::daily,    F::weekly, F::monthly,
                                         F::yearly, F::minutely, F::hourly};
    return RecurrenceRule{kFrequencies[static_cast<int>(*interval)],
                          static_cast<std::int64_t>(count)};
}

// The repetition fields of a task from an item's first rule.
void setRepetition(TK_Task& task, const std::vector<RecurrenceRule>& rules) {
    if (rules.empty()) {
        task.setDoesRemindRepeat(false);
        task.setRepeatIntervalType(TK_RepeatInterval::none);
        return;
    }
    using F = RecurrenceRule::Frequency;
    static constexpr TK_RepeatInterval kIntervals[] = {
        TK_RepeatInterval::everyMinute, TK_RepeatInterval::hourly,  TK_RepeatInterval::daily,
        TK_RepeatInterval::weekly,      TK_RepeatInterval::monthly, TK_RepeatInterval::yearly};
    static_assert(static_cast<int>(F::yearly) == 5);
    task.setDoesRemindRepeat(true);
    task.setRepeatIntervalType(kIntervals[static_cast<int>(rules.front().frequency)]);
    task.setRepeatFrequency(static_cast<double>(rules.front().interval));
}

// Sets a task's day, moment and all-day flag for one of its dates.
struct DateFields {
    void (TK_Task::*day)(std::optional<Date>);
    void (TK_Task::*moment)(std::optional<Date>);
    void (TK_Task::*allDay)(bool);
};
constexpr DateFields kDue{&TK_Task::setDueDate, &TK_Task::setDueDateAndTime, &TK_Task::setIsAllDay};
constexpr DateFields kStart{&TK_Task::setStartDate, &TK_Task::setStartDateAndTime,
                            &TK_Task::setIsStartDateAllDay};

void setDate(TK_Task& task, const DateFields& fields, std::optional<Date> date, bool allDay,
             const Calendar& calendar) {
    (task.*fields.day)(date ? std::optional(calendar.startOfDay(*date)) : std::nullopt);
    (task.*fields.moment)(date);
    if (date)
        (task.*fields.allDay)(allDay);
}

// The instant of a due date; a day stands for its first instant in `local`.
std::optional<Date> instantOf(const DueDateComponents& due, const Calendar& local) {
    const bool isLocal = !due.hasTime || due.timeZone.empty() || due.timeZone == local.zoneID();
    const auto calendar = isLocal ? local : Calendar::inZone(due.timeZone).value_or(local);
    auto components = due.date;
    if (!due.hasTime)
        components.hour = components.minute = components.second = 0;
    return calendar.date(components);
}

// The priority of the store whose reminders index is `index`, or the nearest
// one of the same rank (1-4 high, 5 medium, 6-9 low); nullptr for none.
std::shared_ptr<TK_Priority> priorityFor(objectstore::ObjectContext& context, int index) {
    if (index <= 0)
        return nullptr;
    const auto rank = [](int i) { return i < 5 ? 0 : i == 5 ? 1 : 2; };
    auto all = context.fetch(TK_Priority::fetchRequest());
    std::shared_ptr<TK_Priority> best;
    int bestDistance = 10;
    for (const auto& object : all.value_or(std::vector<objectstore::ObjectPtr>{})) {
        auto priority = std::static_pointer_cast<TK_Priority>(object);
        const int candidate = priority->remindersPriorityIndex();
        const int distance = std::abs(candidate - index);
        if (candidate > 0 && rank(candidate) == rank(index) && distance < bestDistance) {
            best = priority;
            bestDistance = distance;
        }
    }
    return best;
}

// Reads what a person can edit of `item` into `task`.
void readItem(objectstore::ObjectContext& context, TK_Task& task, const CalendarItem& item,
              const Calendar& calendar) {
    task.setTitle(item.title.empty() ? std::string(rules::texts::kNewTask.translated())
                                     : item.title);
    task.setNote(item.notes.empty() ? std::nullopt : std::optional(item.notes));
    // A reminder holds a repetition only with a due date (see itemForTask):
    // without one, its lack of a rule says nothing of the task's.
    const bool heldRepetition = item.kind == CalendarEntityType::event || task.dueDateAndTime() ||
                                task.dueDate() || !item.recurrenceRules.empty();
    if (item.kind == CalendarEntityType::reminder) {
        task.setIsCompleted(item.completed);
        const auto due = item.dueDateComponents;
        setDate(task, kDue, due ? instantOf(*due, calendar) : std::nullopt, due && !due->hasTime,
                calendar);
        const int currentIndex =
            task.customPriority() ? task.customPriority()->remindersPriorityIndex() : 0;
        if (currentIndex != item.priority)
            if (auto priority = priorityFor(context, item.priority); priority || item.priority == 0)
                task.setCustomPriority(priority);
    } else {
        setDate(task, kStart, item.startDate, item.allDay, calendar);
        setDate(task, kDue, item.endDate, item.allDay, calendar);
    }
    if (heldRepetition)
        setRepetition(task, item.recurrenceRules);
}

void tally(const Result<>& done, int& count, CalendarMirror::SyncReport& report) {
    if (done) {
        ++count;
    } else {
        ++report.failed;
        report.errors.push_back(done.error().message);
    }
}

// ---- What a sync left in a calendar ----------------------------------------------------
//
// One file per calendar: a header line, the calendar's identifier, the mode,
// the zone, the store's history position, the calendar's change token, then
// one line per linked task: item identifier, tab, the task's store key, tab,
// the fingerprint of what the task held when its item was last made equal
// to it.

constexpr std::string_view kSyncStateHeader = "tasket calendar sync state 2";

bool isStateField(std::string_view text) {
    return !text.empty() && text.find_first_of(std::string_view("\t\r\n\0", 4)) == text.npos;
}

std::filesystem::path syncStateFile(const std::filesystem::path& folder,
                                    std::string_view calendarID) {
    std::uint64_t hash = 14695981039346656037ULL; // FNV-1a
    for (const unsigned char ch : calendarID) {
        hash ^= ch;
        hash *= 1099511628211ULL;
    }
    return folder / fmt::format("{:016x}.state", hash);
}

std::optional<SyncState> readSyncState(const std::filesystem::path& folder,
                                       std::string_view calendarID) {
    std::ifstream in(syncStateFile(folder, calendarID));
    std::string header, id, mode, history;
    SyncState state;
    if (!std::getline(in, header) || header != kSyncStateHeader || !std::getline(in, id) ||
        id != calendarID || !std::getline(in, mode) || !std::getline(in, state.zone) ||
        !std::getline(in, history) || !std::getline(in, state.token))
        return std::nullopt;
    state.mode = std::atoi(mode.c_str());
    state.history = std::atoll(history.c_str());
    for (std::string line; std::getline(in, line);) {
        const auto tab = line.find('\t');
        const auto second = tab == std::string::npos ? tab : line.find('\t', tab + 1);
        if (second == std::string::npos)
            return std::nullopt;
        state.items.emplace(
            line.substr(0, tab),
            SyncState::Entry{line.substr(second + 1), std::atoll(line.c_str() + tab + 1)});
    }
    return state;
}

// The text of a state file (see the file comment).
std::string syncStateText(std::string_view calendarID, const SyncState& state) {
    std::string text = fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n", kSyncStateHeader, calendarID,
                                   state.mode, state.zone, state.history, state.token);
    for (const auto& [id, entry] : state.items)
        text += fmt::format("{}\t{}\t{}\n", id,
                            entry.object ? entry.object->objectID().key : entry.task,
                            entry.fingerprint);
    return text;
}

std::string dayText(Date date, const Calendar& calendar) {
    const auto c = calendar.components(date);
    return fmt::format("{:04}-{:02}-{:02}", c.year, c.month, c.day);
}

std::string momentText(std::optional<Date> date, bool allDay, const Calendar& calendar) {
    if (!date)
        return "-";
    return allDay ? dayText(*date, calendar) : fmt::format("{}", std::llround(date->unixSeconds()));
}

} // namespace

std::string contentFingerprint(const CalendarItem& item, const Calendar& calendar) {
    std::string text =
        fmt::format("{}\x1f{}\x1f{}", static_cast<int>(item.kind), item.title, item.notes);
    for (const auto& rule : item.recurrenceRules)
        text += fmt::format("\x1fr{}/{}", static_cast<int>(rule.frequency), rule.interval);
    if (item.kind == CalendarEntityType::reminder) {
        const auto& due = item.dueDateComponents;
        text +=
            fmt::format("\x1f{}\x1f{}\x1f{}", item.completed, item.priority,
                        due ? momentText(instantOf(*due, calendar), !due->hasTime, calendar) : "-");
    } else {
        text += fmt::format("\x1f{}\x1f{}\x1f{}", item.allDay,
                            momentText(item.startDate, item.allDay, calendar),
                            momentText(item.endDate, item.allDay, calendar));
    }
    std::uint64_t hash = 14695981039346656037ULL; // FNV-1a
    for (const unsigned char ch : text) {
        hash ^= ch;
        hash *= 1099511628211ULL;
    }
    return fmt::format("1:{:016x}", hash);
}

CalendarMirror::CalendarMirror(std::shared_ptr<CalendarStore> calendarStore,
                               std::shared_ptr<settings::CustomizationManager> customizationManager)
    : m_calendarStore(std::move(calendarStore)),
      m_customizationManager(std::move(customizationManager)) {}

std::optional<std::string> CalendarMirror::defaultSourceIdentifier() const {
    if (const auto calendar = m_calendarStore->defaultCalendarForNewReminders())
        return calendar->sourceIdentifier;
    const auto sources = m_calendarStore->sources();
    if (sources.empty())
        return std::nullopt;
    return sources.front().identifier;
}

Result<std::string> CalendarMirror::calendarOfList(TK_Category& list, CalendarEntityType kind) {
    const auto current = list.calendarIdentifier();
    if (current && m_calendarStore->calendarKind(*current) == kind)
        return *current;

    platform::CalendarInfo calendar;
    const auto title = list.title().value_or("");
    calendar.title = title.empty() ? std::string(rules::texts::kNewCategory.translated()) : title;
    calendar.entityType = kind;
    const auto sources = m_calendarStore->sources();
    const auto wanted = list.calendarSourceIdentifier();
    const bool known =
        wanted &&
        std::ranges::find(sources, *wanted, &platform::CalendarSource::identifier) != sources.end();
    calendar.sourceIdentifier = known ? *wanted : defaultSourceIdentifier().value_or("");
    if (auto saved = m_calendarStore->saveCalendar(calendar, true); !saved)
        return std::unexpected(saved.error());

    list.setCalendarIdentifier(calendar.identifier);
    if (!wanted)
        list.setCalendarSourceIdentifier(calendar.sourceIdentifier);
    auto kept = m_customizationManager->remindersLists();
    std::erase_if(kept, [&](const std::string& id) { return current && id == *current; });
    kept.push_back(calendar.identifier);
    m_customizationManager->setRemindersLists(kept);
    return calendar.identifier;
}

CalendarItem CalendarMirror::itemForTask(const TK_Task& task, CalendarEntityType kind,
                                         const Calendar& calendar) {
    CalendarItem item;
    item.kind = kind;
    const auto title = task.title().value_or("");
    item.title = title.empty() ? std::string(rules::texts::kNewTask.translated()) : title;
    item.notes = task.note().value_or("");
    const auto due = task.dueDateAndTime() ? task.dueDateAndTime() : task.dueDate();
    const auto rule = recurrenceOf(task);

    if (kind == CalendarEntityType::reminder) {
        item.completed = task.isCompleted();
        if (due) {
            auto components = calendar.components(wholeSeconds(*due));
            components.weekday = 0;
            item.dueDateComponents = DueDateComponents{components, !task.isAllDay(),
                                                       task.isAllDay() ? "" : calendar.zoneID()};
        }
        if (const auto priority = task.customPriority())
            item.priority = std::clamp<int>(priority->remindersPriorityIndex(), 0, 9);
        // A repetition needs a date to repeat from: without a due date, none.
        if (rule && due)
            item.recurrenceRules.push_back(*rule);
        return item;
    }
    item.allDay = task.isAllDay();
    auto start = task.startDateAndTime() ? task.startDateAndTime() : task.startDate();
    auto end = due;
    // An event needs both ends: a task with one date is an event at that date.
    if (!start)
        start = end;
    if (!end)
        end = start;
    if (start && end) {
        item.startDate = item.allDay ? calendar.startOfDay(*start) : wholeSeconds(*start);
        item.endDate = item.allDay ? calendar.startOfDay(*end) : wholeSeconds(*end);
    }
    if (rule)
        item.recurrenceRules.push_back(*rule);
    return item;
}

const std::string& CalendarMirror::taskFingerprint(const TK_Task& task, CalendarEntityType kind,
                                                   const Calendar& calendar) {
    auto [it, added] = m_fingerprints.try_emplace(task.objectID());
    if (added)
        it->second = contentFingerprint(itemForTask(task, kind, calendar), calendar);
    return it->second;
}

Result<> CalendarMirror::writeTask(TK_Task& task, CalendarEntityType kind, CalendarItem* existing,
                                   const Calendar& calendar) {
    const auto list = task.category();
    if (!list)
        return platform::fail(Errc::invalidArgument, "the task is in no list");
    const auto calendarID = calendarOfList(*list, kind);
    if (!calendarID)
        return std::unexpected(calendarID.error());

    CalendarItem item = itemForTask(task, kind, calendar);
    std::optional<CalendarItem> current;
    if (existing)
        current = *existing;
    else if (const auto id = task.calendarItemIdentifier(); id && !id->empty()) {
        auto found = m_calendarStore->itemToChange(*id);
        if (!found)
            return std::unexpected(found.error());
        current = std::move(*found);
    }
    if (current && current->kind == kind)
        item.identifier = current->identifier;
    item.calendarIdentifier = *calendarID;
    item.applicationData = contentFingerprint(item, calendar);
    const auto saved = kind == CalendarEntityType::reminder
                           ? m_calendarStore->saveReminder(item, true)
                           : m_calendarStore->saveEvent(item, platform::EventSpan::thisEvent, true);
    if (!saved)
        return saved;
    task.setCalendarItemIdentifier(item.identifier);
    task.setCalendarType(calendarTypeOf(kind));
    return {};
}

Result<> CalendarMirror::writeReminder(TK_Task& task) {
    return writeTask(task, CalendarEntityType::reminder, nullptr, Calendar::current());
}

Result<> CalendarMirror::writeEvent(TK_Task& task) {
    return writeTask(task, CalendarEntityType::event, nullptr, Calendar::current());
}

Result<> CalendarMirror::writeTasks(objectstore::ObjectContext& context,
                                    std::span<const std::string> identifiers) {
    const bool addOnly =
        m_customizationManager->database() == rules::TK_Database::tasketAndRemindersAddOnly ||
        m_customizationManager->isTasketAndRemindersAddOnlyDatabase();
    const auto calendar = Calendar::current();
    // A store that cannot tell what changed since a sync would have the
    // next one read the calendars written whole: their states move on with
    // these writes, when nothing else changed since (by each state's token).
    const bool moveStates = !m_stateFolder.empty() && !m_calendarStore->tellsChangesSince();
    std::map<std::string, std::optional<SyncState>> states; // by calendar; nullopt: left
    std::vector<std::pair<std::shared_ptr<TK_Task>, CalendarEntityType>> written;
    Result<> failure;
    for (const auto& identifier : identifiers) {
        auto task = store::findByIdentifier<TK_Task>(context, identifier);
        if (!task)
            continue; // a subtask, or deleted: the next sync settles it
        const auto list = (*task)->category();
        const auto type =
            list ? list->calendarTypeCase().value_or(TK_CalendarType::none) : TK_CalendarType::none;
        if (type == TK_CalendarType::none || (addOnly && (*task)->calendarItemIdentifier()))
            continue;
        const auto kind = type == TK_CalendarType::event ? CalendarEntityType::event
                                                         : CalendarEntityType::reminder;
        if (const auto id = list->calendarIdentifier(); moveStates && id && !states.contains(*id)) {
            auto state = readSyncState(m_stateFolder, *id);
            if (state && m_calendarStore->changeToken(*id) != state->token)
                state.reset();
            states.emplace(*id, std::move(state));
        }
        if (auto done = writeTask(**task, kind, nullptr, calendar))
            written.emplace_back(*task, kind);
        else if (failure)
            failure = std::move(done); // the others still go, and what they wrote is kept
    }
    // The identifiers of the items written, so that the next write updates
    // them instead of writing them again.
    if (!written.empty())
        if (auto saved = context.save(); !saved)
            return saved;
    for (auto& [calendarID, state] : states) {
        const auto token = state ? m_calendarStore->tokenAfterOwnWrites(calendarID) : std::nullopt;
        if (!token || !isStateField(*token))
            continue; // the next sync reads the calendar whole
        state->token = *token;
        for (const auto& [task, kind] : written)
            if (task->category() && task->category()->calendarIdentifier() == calendarID)
                state->items.insert_or_assign(
                    task->calendarItemIdentifier().value_or(""),
                    SyncState::Entry{
                        contentFingerprint(itemForTask(*task, kind, calendar), calendar),
                        task->objectID().key});
        if (!platform::replaceFile(syncStateFile(m_stateFolder, calendarID),
                                   syncStateText(calendarID, *state), 0600)) {
            std::error_code error;
            std::filesystem::remove(syncStateFile(m_stateFolder, calendarID), error);
        }
    }
    return failure;
}

Result<std::vector<CalendarItem>> CalendarMirror::reminders(const TK_Category& list) const {
    const auto id = list.calendarIdentifier();
    if (!id || !m_calendarStore->calendarWithIdentifier(*id))
        return std::vector<CalendarItem>{};
    const std::vector<std::string> ids{*id};
    return m_calendarStore->items(CalendarEntityType::reminder, ids);
}

Result<> CalendarMirror::removeCalendar(TK_Category& list) {
    const auto id = list.calendarIdentifier();
    if (id && m_calendarStore->calendarWithIdentifier(*id))
        if (auto removed = m_calendarStore->removeCalendar(*id, true); !removed)
            return removed;
    list.setCalendarIdentifier(std::nullopt);
    for (const auto& task : list.tasks()) {
        task->setCalendarItemIdentifier(std::nullopt);
        task->setCalendarType(TK_CalendarType::none);
    }
    auto kept = m_customizationManager->remindersLists();
    std::erase_if(kept, [&](const std::string& each) { return id && each == *id; });
    m_customizationManager->setRemindersLists(kept);
    return {};
}

Result<CalendarMirror::SyncReport> CalendarMirror::sync(objectstore::ObjectContext& context) {
    SyncReport report;
    m_statesToKeep.clear();
    m_fingerprints.clear();
    const auto calendar = Calendar::current(); // one zone for the whole pass
    // Where history stands before anything is read: what is saved after it
    // is read again by the next pass.
    const auto started = context.store().currentHistoryToken();
    if (!started)
        return std::unexpected(started.error());
    const std::int64_t start = *started ? (*started)->value : 0;
    MirroredLists lists;
    for (const auto kind : {CalendarEntityType::reminder, CalendarEntityType::event}) {
        auto request = TK_Category::fetchRequest();
        request.predicate = rules::predicates::parsed("calendarType = %d",
                                                      {static_cast<int>(calendarTypeOf(kind))});
        auto found = context.fetch(request);
        if (!found)
            return std::unexpected(found.error());
        for (const auto& object : *found)
            lists.emplace_back(std::static_pointer_cast<TK_Category>(object), kind);
    }
    // Without history only reading every task finds what changed.
    auto fromHistory = m_stateFolder.empty() || !context.store().options().historyTracking
                           ? Result<bool>(false)
                           : syncFromHistory(context, lists, start, calendar, report);
    if (!fromHistory)
        return std::unexpected(fromHistory.error());
    if (!*fromHistory) {
        std::vector<objectstore::ObjectPtr> owners;
        for (const auto& [list, kind] : lists)
            owners.push_back(list);
        // One query for every task, not one each.
        if (auto prefetched = context.prefetchRelationships(owners, {"tasks"}); !prefetched)
            return std::unexpected(prefetched.error());
        // Items that a task of some mirrored list links: not orphans of another list.
        std::vector<std::string> linked;
        for (const auto& [list, kind] : lists)
            for (const auto& task : list->tasks())
                if (auto id = task->calendarItemIdentifier(); id && !id->empty())
                    linked.push_back(std::move(*id));
        std::ranges::sort(linked);
        for (const auto& [list, kind] : lists)
            if (auto synced = syncList(context, *list, kind, linked, calendar, report); !synced)
                return std::unexpected(synced.error());
    }
    std::vector<std::string> calendars;
    for (const auto& [list, kind] : lists) {
        ++report.lists;
        calendars.push_back(list->calendarIdentifier().value_or(""));
    }
    if (m_customizationManager->remindersLists() != calendars) // a write and two syncs
        m_customizationManager->setRemindersLists(calendars);
    // The state is kept only once the tasks it describes are saved.
    auto states = std::exchange(m_statesToKeep, {});
    m_fingerprints.clear(); // the tasks may change before the next pass
    const bool writes = context.hasChanges();
    auto saved = context.save();
    // Our own save need not be read again when nothing came between.
    std::int64_t history = start;
    if (const auto now = context.store().currentHistoryToken();
        saved && writes && now && *now && (*now)->value == start + 1)
        history = start + 1;
    const auto zone = calendar.zoneID();
    const auto mode = static_cast<int>(m_customizationManager->remindersDatabaseType());
    for (const auto& state : states) {
        const auto file = syncStateFile(m_stateFolder, state.calendarID);
        std::error_code error;
        bool kept = saved && state.token;
        if (kept) {
            std::filesystem::create_directories(file.parent_path(), error);
            kept =
                platform::replaceFile(file,
                                      syncStateText(state.calendarID, {mode, zone, history,
                                                                       *state.token, state.items}),
                                      0600)
                    .has_value();
        }
        if (!kept)
            std::filesystem::remove(file, error); // a cache: without it the next pass reads all
    }
    if (!saved)
        return std::unexpected(saved.error());
    return report;
}

Result<> CalendarMirror::syncList(objectstore::ObjectContext& context, TK_Category& list,
                                  CalendarEntityType kind, const std::vector<std::string>& linked,
                                  const Calendar& calendar, SyncReport& report) {
    const auto mode = m_customizationManager->remindersDatabaseType();
    const auto before = list.calendarIdentifier();
    // The token before the items are read: a change made while this pass
    // runs is not taken as seen. Read first, it also tells whether the
    // calendar is still there.
    if (before)
        (void)m_calendarStore->changeToken(*before);
    const auto calendarID = calendarOfList(list, kind);
    if (!calendarID)
        return std::unexpected(calendarID.error());
    const bool replaced = before != *calendarID; // a new calendar holds none of the old items
    const int failedBefore = report.failed;
    if (replaced)
        (void)m_calendarStore->changeToken(*calendarID);
    const std::vector<std::string> ids{*calendarID};
    auto listed = m_calendarStore->items(kind, ids);
    if (!listed)
        return std::unexpected(listed.error());
    std::map<std::string, CalendarItem> items;
    for (auto& item : *listed)
        items.emplace(item.identifier, std::move(item));

    const auto failed = [&](const platform::Error& error) {
        ++report.failed;
        report.errors.push_back(error.message);
    };
    const auto write = [&](TK_Task& task, CalendarItem* existing, int& count) {
        if (auto written = writeTask(task, kind, existing, calendar))
            ++count;
        else
            failed(written.error());
    };
    std::set<std::string> seen;
    for (const auto& task : list.tasks()) {
        if (replaced)
            task->setCalendarItemIdentifier(std::nullopt);
        const auto id = task->calendarItemIdentifier().value_or("");
        const auto found = items.find(id);
        if (id.empty()) {
            write(*task, nullptr, report.created);
            continue;
        }
        if (found == items.end()) {
            // Gone from this calendar: moved here from another list, or deleted elsewhere.
            const auto elsewhere = m_calendarStore->findItem(id);
            if (!elsewhere) {
                failed(elsewhere.error()); // not known to be gone: left alone
            } else if (*elsewhere) {
                if (mode != TK_RemindersDatabaseType::addOnly)
                    write(*task, nullptr, report.updated);
            } else if (mode == TK_RemindersDatabaseType::exact) {
                context.deleteObject(task);
                ++report.deleted;
            } else if (mode == TK_RemindersDatabaseType::all) {
                task->setCalendarItemIdentifier(std::nullopt);
                write(*task, nullptr, report.created);
            }
            continue;
        }
        seen.insert(id);
        if (mode != TK_RemindersDatabaseType::addOnly)
            reconcile(context, *task, found->second, kind, calendar, report);
    }
    for (auto& [id, item] : items) {
        if (seen.contains(id) || std::ranges::binary_search(linked, id))
            continue;
        if (!item.applicationData.empty()) {
            // Written for a task that is gone.
            if (mode == TK_RemindersDatabaseType::exact) {
                if (auto removed = m_calendarStore->removeItem(id, true))
                    ++report.deleted;
                else
                    failed(removed.error());
            }
            continue;
        }
        auto task = TK_Task::insertNew(context);
        task->setTaskID(platform::Uuid::generate().toString());
        task->setWhenCreated(platform::Clock::shared().now());
        task->setCategory(std::static_pointer_cast<TK_Category>(list.shared_from_this()));
        readItem(context, *task, item, calendar);
        task->setCalendarType(calendarTypeOf(kind));
        task->setCalendarItemIdentifier(id);
        ++report.imported;
        if (mode != TK_RemindersDatabaseType::addOnly) {
            int rewritten = 0;
            write(*task, &item, rewritten);
        }
    }
    keepSyncState(*calendarID, itemsOfList(list, kind, calendar), report.failed == failedBefore);
    return {};
}

void CalendarMirror::reconcile(objectstore::ObjectContext& context, TK_Task& task,
                               CalendarItem& item, CalendarEntityType kind,
                               const Calendar& calendar, SyncReport& report) {
    const auto recorded = item.applicationData;
    const bool itemChanged = contentFingerprint(item, calendar) != recorded;
    const bool taskChanged = taskFingerprint(task, kind, calendar) != recorded;
    if (itemChanged && !taskChanged) {
        readItem(context, task, item, calendar);
        m_fingerprints.erase(task.objectID());
        ++report.readBack;
        int rewritten = 0; // keeps the fingerprint of what the task now holds
        tally(writeTask(task, kind, &item, calendar), rewritten, report);
    } else if (taskChanged) {
        tally(writeTask(task, kind, &item, calendar), report.updated, report);
    }
}

std::filesystem::path calendarSyncFolder() {
    return store::applicationGroupContainerURL() / "Calendar.Sync";
}

void CalendarMirror::keepSyncStateIn(std::filesystem::path folder) {
    m_stateFolder = std::move(folder);
    m_calendarStore->keepStateIn(m_stateFolder / "items");
}

Result<bool> CalendarMirror::syncFromHistory(objectstore::ObjectContext& context,
                                             const MirroredLists& lists, std::int64_t start,
                                             const Calendar& calendar, SyncReport& report) {
    // Every list's calendar as the last pass left it, from the same position.
    const auto mode = m_customizationManager->remindersDatabaseType();
    const auto zone = calendar.zoneID();
    // Beyond this many changed tasks or items, reading every task at once is quicker.
    constexpr std::size_t kMostChanges = 512;
    std::vector<SyncState> states;
    std::vector<platform::CalendarChanges> elsewhere; // what others changed, by list
    for (const auto& [list, kind] : lists) {
        const auto calendarID = list->calendarIdentifier().value_or("");
        auto state = calendarID.empty() ? std::nullopt : readSyncState(m_stateFolder, calendarID);
        if (!state || state->mode != static_cast<int>(mode) || state->zone != zone ||
            (!states.empty() && state->history != states.front().history))
            return false;
        // What changed elsewhere since, when the calendar can tell (which
        // also tells that it is still there); else whether anything did.
        // A removal, an item the state does not hold (below) or many
        // changes take the full pass.
        auto changes = m_calendarStore->changesSince(calendarID, state->token);
        if (!changes) {
            if (m_calendarStore->changeToken(calendarID) != state->token)
                return false;
            changes.emplace();
        }
        // A calendar of the other kind is replaced, which the full pass does.
        if (changes->removed > 0 || changes->changed.size() > kMostChanges ||
            m_calendarStore->calendarKind(calendarID) != kind)
            return false;
        std::erase_if(changes->changed,
                      [&](const CalendarItem& item) { return item.kind != kind; });
        states.push_back(std::move(*state));
        elsewhere.push_back(std::move(*changes));
    }
    if (states.empty())
        return false;

    // The tasks saved since, then those changed here and not yet saved.
    const auto& taskEntity = *context.model().entity("TK_Task");
    std::set<std::int64_t> keys;
    if (const std::int64_t from = states.front().history; from != start) {
        const auto transactions = context.store().historyAfter(objectstore::HistoryToken{from});
        if (!transactions)
            return std::unexpected(transactions.error());
        // Tokens follow one another: a gap is history purged before we read it.
        std::int64_t expected = from + 1;
        for (const auto& transaction : *transactions) {
            if (!transaction.changes.token || transaction.changes.token->value != expected++)
                return false;
            const auto add = [&](objectstore::ObjectID id) {
                if (id.entity == taskEntity.index)
                    keys.insert(id.key);
            };
            std::ranges::for_each(transaction.changes.inserted, add);
            std::ranges::for_each(transaction.changes.deleted, add);
            for (const auto& updated : transaction.changes.updated)
                add(updated.id);
        }
        if (expected <= start)
            return false;
    }
    if (keys.size() > kMostChanges)
        return false;
    std::vector<std::shared_ptr<TK_Task>> tasks;
    std::set<std::int64_t> gone;
    for (const auto key : keys) {
        auto object = context.existingObject({taskEntity.index, key});
        if (object)
            tasks.push_back(std::static_pointer_cast<TK_Task>(*object));
        else if (object.error().code == Errc::notFound)
            gone.insert(key);
        else
            return std::unexpected(object.error());
    }
    for (const auto& changed :
         {context.insertedObjects(), context.updatedObjects(), context.deletedObjects()})
        for (const auto& object : changed)
            if (object->objectID().entity == taskEntity.index &&
                std::ranges::find(tasks, object) == tasks.end())
                tasks.push_back(std::static_pointer_cast<TK_Task>(object));
    const auto inList = [](const TK_Task& task, const TK_Category& list) {
        const auto category = task.category();
        return !task.isDeleted() && category && category->objectID() == list.objectID();
    };

    // A task whose item the state does not hold came from another list,
    // unless the item was written into this list's calendar since (by
    // another program after its save): only the full pass looks for it.
    // `written[i]`: such tasks of list i, by item.
    std::vector<std::map<std::string, std::shared_ptr<TK_Task>>> written(lists.size());
    for (std::size_t i = 0; i < lists.size(); ++i)
        for (const auto& task : tasks)
            if (const auto id = task->calendarItemIdentifier().value_or("");
                !id.empty() && inList(*task, *lists[i].first)) {
                const auto found = states[i].items.find(id);
                if (found != states[i].items.end() && found->second.task == task->objectID().key)
                    continue;
                if (found != states[i].items.end() ||
                    std::ranges::find(elsewhere[i].changed, id, &CalendarItem::identifier) ==
                        elsewhere[i].changed.end())
                    return false;
                written[i].emplace(id, task);
            }

    // Each item changed elsewhere with the task the state says (or that was
    // just written) it mirrors, which must still be in its list.
    std::vector<std::vector<std::pair<std::shared_ptr<TK_Task>, CalendarItem*>>> changedItems(
        lists.size());
    for (std::size_t i = 0; i < lists.size(); ++i)
        for (auto& item : elsewhere[i].changed) {
            if (const auto just = written[i].find(item.identifier); just != written[i].end()) {
                changedItems[i].emplace_back(just->second, &item);
                continue;
            }
            const auto entry = states[i].items.find(item.identifier);
            if (entry == states[i].items.end())
                return false; // made elsewhere, or moved here: the full pass imports it
            auto object = context.existingObject({taskEntity.index, entry->second.task});
            if (!object && object.error().code != Errc::notFound)
                return std::unexpected(object.error());
            auto task = object ? std::static_pointer_cast<TK_Task>(*object) : nullptr;
            if (!task || !inList(*task, *lists[i].first) ||
                task->calendarItemIdentifier() != item.identifier)
                return false;
            changedItems[i].emplace_back(std::move(task), &item);
        }

    for (std::size_t i = 0; i < lists.size(); ++i) {
        const auto& [list, kind] = lists[i];
        auto& items = states[i].items;
        const int failedBefore = report.failed;
        std::set<objectstore::ObjectID> reconciled;
        for (const auto& [task, item] : changedItems[i]) {
            if (mode != TK_RemindersDatabaseType::addOnly)
                reconcile(context, *task, *item, kind, calendar, report);
            items.insert_or_assign(item->identifier,
                                   SyncState::Entry{taskFingerprint(*task, kind, calendar),
                                                    task->objectID().key, task});
            reconciled.insert(task->objectID());
        }
        std::map<std::int64_t, std::string> itemOfTask;
        for (const auto& [id, entry] : items)
            itemOfTask.emplace(entry.task, id);
        std::vector<std::string> left; // items whose task left this list
        for (const auto& task : tasks) {
            if (reconciled.contains(task->objectID()))
                continue;
            if (!inList(*task, *list)) {
                if (const auto found = itemOfTask.find(task->objectID().key);
                    found != itemOfTask.end())
                    left.push_back(found->second);
                continue;
            }
            const auto id = task->calendarItemIdentifier().value_or("");
            if (id.empty()) {
                tally(writeTask(*task, kind, nullptr, calendar), report.created, report);
            } else if (mode != TK_RemindersDatabaseType::addOnly &&
                       taskFingerprint(*task, kind, calendar) !=
                           items.find(id)->second.fingerprint) {
                // The calendar holds the item as the last pass left it: its
                // token has not moved since.
                CalendarItem known;
                known.identifier = id;
                known.kind = kind;
                tally(writeTask(*task, kind, &known, calendar), report.updated, report);
            }
            if (const auto now = task->calendarItemIdentifier().value_or(""); isStateField(now))
                items.insert_or_assign(now, SyncState::Entry{taskFingerprint(*task, kind, calendar),
                                                             task->objectID().key, task});
        }
        for (const auto key : gone)
            if (const auto found = itemOfTask.find(key); found != itemOfTask.end())
                left.push_back(found->second);
        for (const auto& id : left) {
            items.erase(id);
            if (mode != TK_RemindersDatabaseType::exact)
                continue;
            const auto linked = isLinked(context, lists, id);
            if (!linked)
                return std::unexpected(linked.error());
            if (!*linked)
                tally(m_calendarStore->removeItem(id, true), report.deleted, report);
        }
        keepSyncState(*list->calendarIdentifier(), std::move(items), report.failed == failedBefore);
    }
    return true;
}

Result<bool> CalendarMirror::isLinked(objectstore::ObjectContext& context,
                                      const MirroredLists& lists, const std::string& item) const {
    auto request = TK_Task::fetchRequest();
    request.predicate = rules::predicates::parsed("calendarItemIdentifier = %@", {item});
    const auto found = context.fetch(request);
    if (!found)
        return std::unexpected(found.error());
    return std::ranges::any_of(*found, [&](const objectstore::ObjectPtr& object) {
        const auto category = std::static_pointer_cast<TK_Task>(object)->category();
        return !object->isDeleted() && category &&
               std::ranges::any_of(lists, [&](const auto& mirrored) {
                   return mirrored.first->objectID() == category->objectID();
               });
    });
}

SyncState::Items CalendarMirror::itemsOfList(const TK_Category& list, CalendarEntityType kind,
                                             const Calendar& calendar) {
    SyncState::Items items;
    for (const auto& task : list.tasks())
        if (auto id = task->calendarItemIdentifier().value_or("");
            !task->isDeleted() && isStateField(id))
            items.insert_or_assign(std::move(id),
                                   SyncState::Entry{taskFingerprint(*task, kind, calendar),
                                                    task->objectID().key, task});
    return items;
}

void CalendarMirror::keepSyncState(const std::string& calendarID, SyncState::Items items,
                                   bool complete) {
    if (m_stateFolder.empty())
        return;
    auto token = complete ? m_calendarStore->tokenAfterOwnWrites(calendarID) : std::nullopt;
    if (!token || !isStateField(*token) || !isStateField(calendarID))
        token.reset();
    m_statesToKeep.push_back({calendarID, std::move(token), std::move(items)});
}

} // namespace tasket::reminders
