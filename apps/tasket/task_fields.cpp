#include "tasket/task_fields.h"

#include "platform/date_text.h"
#include "rules/enum_table.h"
#include "tasket/named_objects.h"

#include <CLI/CLI.hpp>

namespace tasket::apps {

namespace {

constexpr std::string_view kNone = "none";

// The fields of one date: its switch, day, moment and all-day flag.
struct DateSetters {
    void (store::TK_Task::*enable)(bool);
    void (store::TK_Task::*day)(std::optional<platform::Date>);
    void (store::TK_Task::*moment)(std::optional<platform::Date>);
    void (store::TK_Task::*allDay)(bool);
};

platform::Result<void> setDate(store::TK_Task& task, const DateSetters& fields,
                               const std::string& text, bool allDay, platform::Date now,
                               const platform::Calendar& calendar) {
    if (text == kNone) {
        (task.*fields.enable)(false);
        (task.*fields.day)(std::nullopt);
        (task.*fields.moment)(std::nullopt);
        return {};
    }
    auto when = platform::parseWhen(text, now, calendar);
    if (!when)
        return std::unexpected(when.error());
    (task.*fields.enable)(true);
    (task.*fields.day)(calendar.startOfDay(when->date));
    (task.*fields.moment)(when->date);
    (task.*fields.allDay)(allDay || !when->hasTime);
    return {};
}

// The names of E's cases, for an option that takes one.
template <class E> std::vector<std::string> caseNames() {
    std::vector<std::string> names;
    for (const auto& c : rules::caseTable<E>())
        names.emplace_back(c.name);
    return names;
}

} // namespace

void TaskFields::addOptions(CLI::App& command, bool editing) {
    m_editing = editing;
    command.add_option("--note", m_note, "The task's note")->type_name("TEXT");
    command.add_option("--url", m_url, "The task's link")->type_name("URL");
    command
        .add_option("--due", m_due,
                    "Due date: 2026-03-28, 2026-03-28T09:30, today, tomorrow, +3d, +2w, "
                    "friday; \"none\" clears it")
        ->type_name("WHEN");
    command.add_option("--start", m_start, "Start date, written as for --due")->type_name("WHEN");
    command.add_flag("--all-day", m_allDay, "The dates are whole days, whatever time is given");
    command.add_option("--tag", m_tags, "Add this tag (title or identifier); repeat for more")
        ->type_name("TAG");
    command.add_option("--priority", m_priority, "The priority (title or identifier)")
        ->type_name("PRIORITY");
    command.add_option("--status", m_status, "The status (title or identifier)")
        ->type_name("STATUS");
    auto* pin = command.add_flag("--pin", m_pin, "Pin the task");
    if (editing)
        command.add_flag("--unpin", m_unpin, "Unpin the task")->excludes(pin);

    auto* remind = command
                       .add_option("--remind", m_remind,
                                   "Due date, written as for --due, with its reminder on")
                       ->type_name("WHEN")
                       ->excludes("--due");
    auto* remindStart = command
                            .add_option("--remind-start", m_remindStart,
                                        "Start date, written as for --due, with its reminder on")
                            ->type_name("WHEN")
                            ->excludes("--start");
    command
        .add_option("--level", m_level,
                    "How a reminder may interrupt: passive, active or timeSensitive (the reminders "
                    "this command sets, else both)")
        ->type_name("LEVEL")
        ->check(CLI::IsMember(caseNames<rules::TK_ReminderInterruptionLevel>()));
    command
        .add_option("--repeat", m_repeat,
                    "Repeat the reminder: daily, weekly, monthly, yearly, hourly, everyMinute, "
                    "or none")
        ->type_name("INTERVAL")
        ->check(CLI::IsMember(caseNames<rules::TK_RepeatInterval>()));
    command.add_option("--every", m_every, "Repeat every N intervals (with --repeat)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000))
        ->needs("--repeat");
    command.add_flag("--no-remind", m_noRemind, "Switch both reminders off (the dates stay)")
        ->excludes(remind)
        ->excludes(remindStart);
}

platform::Result<void> TaskFields::apply(store::TK_Task& task, platform::Date now,
                                         const platform::Calendar& (&calendar)()) const {
    auto& context = *task.context();
    // Names first, so that a wrong one leaves the task untouched.
    std::vector<std::shared_ptr<store::TK_Tag>> tags;
    for (const auto& name : m_tags) {
        auto tag = findNamed<store::TK_Tag>(context, name);
        if (!tag)
            return std::unexpected(tag.error());
        tags.push_back(*tag);
    }
    std::shared_ptr<store::TK_Priority> priority;
    if (m_priority && *m_priority != kNone) {
        auto found = findNamed<store::TK_Priority>(context, *m_priority);
        if (!found)
            return std::unexpected(found.error());
        priority = *found;
    }
    std::shared_ptr<store::TK_Status> status;
    if (m_status && *m_status != kNone) {
        auto found = findNamed<store::TK_Status>(context, *m_status);
        if (!found)
            return std::unexpected(found.error());
        status = *found;
    }
    if ((m_remind && *m_remind == kNone) || (m_remindStart && *m_remindStart == kNone))
        return platform::fail(
            platform::Errc::invalidArgument,
            "--remind and --remind-start take a date; --no-remind switches reminders off");
    using T = store::TK_Task;
    const auto& due = m_remind ? m_remind : m_due;
    const auto& start = m_remindStart ? m_remindStart : m_start;
    if (due) {
        if (auto set = setDate(
                task,
                {&T::setIsRemindEnabled, &T::setDueDate, &T::setDueDateAndTime, &T::setIsAllDay},
                *due, m_allDay, now, calendar());
            !set)
            return set;
    }
    if (start) {
        if (auto set = setDate(task,
                               {&T::setIsStartDateRemindEnabled, &T::setStartDate,
                                &T::setStartDateAndTime, &T::setIsStartDateAllDay},
                               *start, m_allDay, now, calendar());
            !set)
            return set;
    }
    if (m_level || !m_editing) {
        // The stored default (0) is passive, which would never make a sound.
        const auto level = m_level
                               ? *rules::fromCaseName<rules::TK_ReminderInterruptionLevel>(*m_level)
                               : rules::TK_ReminderInterruptionLevel::active;
        if (due || !start || !m_level)
            task.setReminderInterruptionLevel(level);
        if (start || !due || !m_level)
            task.setStartDateReminderInterruptionLevel(level);
    }
    if (m_repeat) {
        const auto interval = *rules::fromCaseName<rules::TK_RepeatInterval>(*m_repeat);
        task.setDoesRemindRepeat(interval != rules::TK_RepeatInterval::none);
        task.setRepeatIntervalType(interval);
        task.setRepeatFrequency(m_every.value_or(1));
    }
    if (m_noRemind) {
        task.setIsRemindEnabled(false);
        task.setIsStartDateRemindEnabled(false);
    }
    if (m_note)
        task.setNote(m_note->empty() ? std::nullopt : std::optional(*m_note));
    if (m_url)
        task.setUrl(m_url->empty() ? std::nullopt : std::optional(*m_url));
    for (const auto& tag : tags)
        task.addToTags(tag);
    if (m_priority)
        task.setCustomPriority(priority);
    if (m_status)
        task.setCustomStatus(status);
    if (m_pin)
        task.setIsPinned(true);
    if (m_unpin)
        task.setIsPinned(false);
    return {};
}

} // namespace tasket::apps
