#include "tasket/task_fields.h"

#include "platform/date_text.h"
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

} // namespace

void TaskFields::addOptions(CLI::App& command, bool editing) {
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
}

platform::Result<void> TaskFields::apply(store::TK_Task& task, platform::Date now,
                                         const platform::Calendar& calendar) const {
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
    using T = store::TK_Task;
    if (m_due) {
        if (auto set = setDate(
                task,
                {&T::setIsRemindEnabled, &T::setDueDate, &T::setDueDateAndTime, &T::setIsAllDay},
                *m_due, m_allDay, now, calendar);
            !set)
            return set;
    }
    if (m_start) {
        if (auto set = setDate(task,
                               {&T::setIsStartDateRemindEnabled, &T::setStartDate,
                                &T::setStartDateAndTime, &T::setIsStartDateAllDay},
                               *m_start, m_allDay, now, calendar);
            !set)
            return set;
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
