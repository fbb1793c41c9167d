#include "reminders/reminder_store.h"

#include "store/application_group.h"
#include "store/lookup.h"

#include <unordered_set>

namespace tasket::reminders {

namespace {

using platform::NotificationRequest;

template <class R, class Record> void copyReminderFields(R& out, const Record& in) {
    out.title = in.title();
    out.isCompleted = in.isCompleted();
    out.isArchived = in.isArchived();
    out.isStartDateReminderEnabled = in.isStartDateRemindEnabled();
    out.startDate = in.startDate();
    out.startTime = in.startTime();
    out.startDateAndTime = in.startDateAndTime();
    out.isStartDateAllDay = in.isStartDateAllDay();
    out.isDueDateReminderEnabled = in.isRemindEnabled();
    out.dueDate = in.dueDate();
    out.dueTime = in.dueTime();
    out.dueDateAndTime = in.dueDateAndTime();
    out.isDueDateAllDay = in.isAllDay();
    out.doesRemindRepeat = in.doesRemindRepeat();
    out.repeatFrequency = in.repeatFrequency();
    out.repeatIntervalType = in.repeatIntervalType();
    out.isRecurringSinceLastCompletion = in.isRecurringSinceLastCompletion();
    out.startDateReminderInterruptionLevel = in.startDateReminderInterruptionLevel();
    out.dueDateReminderInterruptionLevel = in.reminderInterruptionLevel();
}

objectstore::FetchRequest fetchOf(std::string entity,
                                  std::vector<objectstore::Predicate> conditions) {
    objectstore::FetchRequest request(std::move(entity));
    request.predicate = objectstore::andPredicate(std::move(conditions));
    // No order: the table is read front to back, where an order by creation
    // would look every row up through the index, one page read each.
    return request;
}

objectstore::Predicate parsed(std::string_view text) {
    return objectstore::Predicate::parse(text).value(); // constant texts of this file
}

template <class Record, class Snapshot>
Result<std::size_t> passOver(NotificationManager& manager, objectstore::ObjectContext& context,
                             const objectstore::FetchRequest& request,
                             Snapshot (*snapshot)(const Record&), bool alsoDelivered) {
    auto found = context.fetch(request);
    if (!found)
        return std::unexpected(found.error());
    std::vector<Snapshot> snapshots;
    snapshots.reserve(found->size());
    for (const auto& object : *found)
        snapshots.push_back(snapshot(static_cast<const Record&>(*object)));
    if (auto done = manager.update(std::span<const Snapshot>(snapshots), alsoDelivered); !done)
        return std::unexpected(done.error());
    return snapshots.size();
}

} // namespace

TaskReminders taskReminders(const store::TK_Task& task) {
    TaskReminders out;
    out.task.id = task.taskID().value_or("");
    copyReminderFields(out.task, task);
    if (auto list = task.category()) {
        out.list = ReminderOwner{list->categoryID().value_or(""), list->title()};
        out.task.category = out.list->identifier;
    }
    return out;
}

SubtaskReminders subtaskReminders(const store::TK_Subtask& subtask) {
    SubtaskReminders out;
    out.subtask.id = subtask.subtaskID().value_or("");
    copyReminderFields(out.subtask, subtask);
    if (auto task = subtask.task()) {
        out.task = ReminderOwner{task->taskID().value_or(""), task->title()};
        out.subtask.task = out.task->identifier;
    }
    return out;
}

NotificationManager notificationManager(platform::UserNotificationCenter& center,
                                        platform::Calendar calendar,
                                        std::shared_ptr<settings::CustomizationManager> settings) {
    return NotificationManager(center, std::move(calendar), [settings = std::move(settings)] {
        return settings->allDayReminderTime();
    });
}

Result<ReminderQueue> openReminderQueue(platform::Calendar calendar,
                                        std::shared_ptr<settings::CustomizationManager> settings) {
    auto queue = platform::NotificationQueue::open(store::applicationGroupContainerURL() /
                                                   platform::NotificationQueue::kFileName);
    if (!queue)
        return std::unexpected(queue.error());
    auto manager = std::make_unique<NotificationManager>(
        notificationManager(**queue, std::move(calendar), std::move(settings)));
    return ReminderQueue{std::move(*queue), std::move(manager)};
}

objectstore::FetchRequest rescheduleTasksRequest() {
    return fetchOf("TK_Task", {parsed(kReschedulePredicate)});
}

objectstore::FetchRequest rescheduleSubtasksRequest() {
    // The same conditions, joined by AND into one compound predicate.
    return fetchOf("TK_Subtask",
                   {parsed("isStartDateRemindEnabled = true OR isRemindEnabled = true"),
                    parsed("startDate <= dueDate")});
}

Result<PassCounts> rescheduleAll(NotificationManager& manager,
                                 objectstore::ObjectContext& context) {
    PassCounts counts;
    auto tasks = passOver(manager, context, rescheduleTasksRequest(), &taskReminders, false);
    if (!tasks)
        return std::unexpected(tasks.error());
    counts.tasks = *tasks;
    auto subtasks =
        passOver(manager, context, rescheduleSubtasksRequest(), &subtaskReminders, false);
    if (!subtasks)
        return std::unexpected(subtasks.error());
    counts.subtasks = *subtasks;
    return counts;
}

Result<std::vector<std::string>> withReminderSwitchedOn(objectstore::ObjectContext& context,
                                                        std::span<const std::string> identifiers) {
    std::vector<std::string> switchedOn;
    auto keepIfOn = [&](const std::string& identifier, const auto& found) -> Result<bool> {
        if (!found)
            return found.error().code == platform::Errc::notFound ? Result<bool>(false)
                                                                  : std::unexpected(found.error());
        if ((*found)->isRemindEnabled() || (*found)->isStartDateRemindEnabled())
            switchedOn.push_back(identifier);
        return true;
    };
    for (const auto& identifier : identifiers) {
        auto task =
            keepIfOn(identifier, store::findByIdentifier<store::TK_Task>(context, identifier));
        if (!task)
            return std::unexpected(task.error());
        if (*task)
            continue;
        if (auto subtask = keepIfOn(
                identifier, store::findByIdentifier<store::TK_Subtask>(context, identifier));
            !subtask)
            return std::unexpected(subtask.error());
    }
    return switchedOn;
}

Result<PassCounts> updateReminders(NotificationManager& manager,
                                   objectstore::ObjectContext& context,
                                   std::span<const std::string> identifiers, bool alsoDelivered) {
    PassCounts counts;
    std::vector<TaskReminders> tasks;
    std::vector<SubtaskReminders> subtasks;
    for (const auto& identifier : identifiers) {
        if (auto task = store::findByIdentifier<store::TK_Task>(context, identifier)) {
            tasks.push_back(taskReminders(**task));
            continue;
        } else if (task.error().code != platform::Errc::notFound) {
            return std::unexpected(task.error());
        }
        if (auto subtask = store::findByIdentifier<store::TK_Subtask>(context, identifier)) {
            subtasks.push_back(subtaskReminders(**subtask));
            continue;
        } else if (subtask.error().code != platform::Errc::notFound) {
            return std::unexpected(subtask.error());
        }
        const std::string gone[] = {requestIdentifier(identifier, ReminderKind::start),
                                    requestIdentifier(identifier, ReminderKind::due)};
        if (auto removed = manager.removeReminders(gone, alsoDelivered); !removed)
            return std::unexpected(removed.error());
    }
    if (auto done = manager.update(std::span<const TaskReminders>(tasks), alsoDelivered); !done)
        return std::unexpected(done.error());
    if (auto done = manager.update(std::span<const SubtaskReminders>(subtasks), alsoDelivered);
        !done)
        return std::unexpected(done.error());
    counts.tasks = tasks.size();
    counts.subtasks = subtasks.size();
    return counts;
}

Result<PassCounts> refreshAll(NotificationManager& manager, objectstore::ObjectContext& context) {
    std::vector<std::string> identifiers;
    std::unordered_set<std::string> seen;
    auto pending = manager.center().pendingNotificationRequests();
    if (!pending)
        return std::unexpected(pending.error());
    for (const auto& request : *pending)
        if (auto id = recordOfRequest(request.identifier).first; seen.insert(id).second)
            identifiers.push_back(std::move(id));
    for (std::string entity : {"TK_Task", "TK_Subtask"}) {
        auto found = context.fetch(
            fetchOf(entity, {parsed("isStartDateRemindEnabled = true OR isRemindEnabled = true")}));
        if (!found)
            return std::unexpected(found.error());
        for (const auto& object : *found) {
            auto id = entity == "TK_Task"
                          ? static_cast<const store::TK_Task&>(*object).taskID()
                          : static_cast<const store::TK_Subtask&>(*object).subtaskID();
            if (id && seen.insert(*id).second)
                identifiers.push_back(std::move(*id));
        }
    }
    return updateReminders(manager, context, identifiers);
}

// ---- Answering a delivered reminder ----------------------------------------------------

std::optional<ReminderResponse> responseOfAction(std::string_view actionIdentifier) {
    if (actionIdentifier == kMarkAsDoneAction)
        return ReminderResponse::markAsDone;
    if (actionIdentifier == kRemindIn15MinutesAction)
        return ReminderResponse::remindIn15Minutes;
    if (actionIdentifier == kRemindIn1HourAction)
        return ReminderResponse::remindIn1Hour;
    if (actionIdentifier == kRemindTomorrowAction)
        return ReminderResponse::remindTomorrow;
    return std::nullopt;
}

NotificationRequest snoozed(const NotificationRequest& request, ReminderResponse response,
                            platform::Date now, const platform::Calendar& calendar,
                            std::optional<settings::TimeOfDay> allDayTime) {
    NotificationRequest out = request;
    platform::DateComponents at;
    switch (response) {
    case ReminderResponse::remindIn15Minutes:
        at = calendar.components(now.addingSeconds(15 * 60));
        break;
    case ReminderResponse::remindIn1Hour:
        at = calendar.components(now.addingSeconds(60 * 60));
        break;
    case ReminderResponse::remindTomorrow:
    case ReminderResponse::markAsDone: // not a snooze; read as tomorrow
        at = calendar.components(calendar.addingDays(now, 1));
        at.hour = allDayTime ? allDayTime->hour : request.trigger.hour;
        at.minute = allDayTime ? allDayTime->minute : request.trigger.minute;
        break;
    }
    out.trigger = {at.year, at.month, at.day, at.hour, at.minute, false};
    return out;
}

Result<> answer(NotificationManager& manager, objectstore::ObjectContext& context,
                const NotificationRequest& request, ReminderResponse response, platform::Date now) {
    const auto [recordID, kind] = recordOfRequest(request.identifier);
    std::shared_ptr<store::TK_Task> task;
    std::shared_ptr<store::TK_Subtask> subtask;
    if (auto found = store::findByIdentifier<store::TK_Task>(context, recordID))
        task = *found;
    else if (found.error().code != platform::Errc::notFound)
        return std::unexpected(found.error());
    else if (auto foundSubtask = store::findByIdentifier<store::TK_Subtask>(context, recordID))
        subtask = *foundSubtask;
    else if (foundSubtask.error().code != platform::Errc::notFound)
        return std::unexpected(foundSubtask.error());

    if (response == ReminderResponse::markAsDone) {
        if (task)
            task->setIsCompleted(true);
        if (subtask)
            subtask->setIsCompleted(true);
        if (auto saved = context.save(); !saved)
            return saved;
        const std::string identifiers[] = {recordID};
        auto done = updateReminders(manager, context, identifiers, true);
        return done ? Result<>{} : std::unexpected(done.error());
    }

    if (!task && !subtask) // deleted meanwhile: nothing to remind of again
        return platform::fail(platform::Errc::notFound,
                              "there is no task or subtask \"" + std::string(recordID) + "\"");
    std::optional<settings::TimeOfDay> allDayTime;
    const bool allDay =
        kind == ReminderKind::start
            ? (task ? task->isStartDateAllDay() : subtask && subtask->isStartDateAllDay())
            : (task ? task->isAllDay() : subtask && subtask->isAllDay());
    if (allDay)
        allDayTime = manager.allDayReminderTime();
    if (auto added = manager.center().addNotificationRequest(
            snoozed(request, response, now, manager.calendar(), allDayTime));
        !added)
        return added;
    const std::string identifiers[] = {request.identifier};
    return manager.center().removeDeliveredNotifications(identifiers);
}

} // namespace tasket::reminders
