#include "reminders/notification_manager.h"

#include "rules/texts.h"

namespace tasket::reminders {

namespace {

using platform::InterruptionLevel;
using platform::NotificationRequest;
namespace texts = rules::texts;

bool isSet(const std::optional<std::string>& text) {
    return text && !text->empty();
}

InterruptionLevel interruptionLevel(const std::optional<std::int64_t>& stored) {
    switch (stored.value_or(1)) {
    case 0: return InterruptionLevel::passive;
    case 2: return InterruptionLevel::timeSensitive;
    default: return InterruptionLevel::active;
    }
}

/// The fields of one of a record's two reminders.
struct ReminderFields {
    bool enabled;
    bool allDay;
    std::optional<platform::Date> day;    // the date as a day
    std::optional<platform::Date> moment; // the date with its time
    std::optional<std::int64_t> level;
};

template <class R> ReminderFields fieldsOf(const R& record, ReminderKind kind) {
    if (kind == ReminderKind::start)
        return {record.isStartDateReminderEnabled.value_or(false),
                record.isStartDateAllDay.value_or(false), record.startDate, record.startDateAndTime,
                record.startDateReminderInterruptionLevel};
    return {record.isDueDateReminderEnabled.value_or(false), record.isDueDateAllDay.value_or(false),
            record.dueDate, record.dueDateAndTime, record.dueDateReminderInterruptionLevel};
}

} // namespace

std::string requestIdentifier(std::string_view recordID, ReminderKind kind) {
    return kind == ReminderKind::start ? std::string(kStartDateRequestPrefix).append(recordID)
                                       : std::string(recordID);
}

std::pair<std::string, ReminderKind> recordOfRequest(std::string_view requestIdentifier) {
    if (requestIdentifier.starts_with(kStartDateRequestPrefix))
        return {std::string(requestIdentifier.substr(kStartDateRequestPrefix.size())),
                ReminderKind::start};
    return {std::string(requestIdentifier), ReminderKind::due};
}

const std::array<ReminderAction, 4>& NotificationManager::reminderActions() {
    static constexpr std::array<ReminderAction, 4> kActions{{
        {kMarkAsDoneAction, texts::kMarkAsDone, "checkmark.circle"},
        {kRemindIn15MinutesAction, texts::kRemindIn15Minutes, "bell"},
        {kRemindIn1HourAction, texts::kRemindIn1Hour, "bell"},
        {kRemindTomorrowAction, texts::kRemindTomorrow, "bell"},
    }};
    return kActions;
}

NotificationManager::NotificationManager(platform::UserNotificationCenter& center,
                                         platform::Calendar calendar,
                                         std::function<settings::TimeOfDay()> allDayReminderTime)
    : m_center(&center), m_calendar(std::move(calendar)),
      m_allDayReminderTime(std::move(allDayReminderTime)) {}

Result<> NotificationManager::registerCategories() {
    platform::NotificationCategory category;
    category.identifier = calendarNotificationCategoryIdentifier;
    category.options = platform::kCategoryCustomDismissAction;
    for (const auto& action : reminderActions())
        category.actions.push_back(
            {std::string(action.identifier), std::string(action.title.translated()),
             platform::kActionAuthenticationRequired, std::string(action.iconName)});
    return m_center->setNotificationCategories({std::move(category)});
}

// ---- One request ----------------------------------------------------------------------------

template <class R>
std::optional<NotificationRequest>
NotificationManager::buildRequest(const R& record, const std::optional<ReminderOwner>& owner,
                                  std::string_view ownerFallback, std::string_view bodyFallback,
                                  ReminderKind kind) const {
    const auto fields = fieldsOf(record, kind);
    platform::CalendarTrigger trigger;
    if (fields.allDay && (fields.day || fields.moment)) {
        const auto day = m_calendar.components(fields.day ? *fields.day : *fields.moment);
        const auto time = m_allDayReminderTime();
        trigger = {day.year, day.month, day.day, time.hour, time.minute, false};
    } else if (fields.moment || fields.day) {
        const auto at = m_calendar.components(fields.moment ? *fields.moment : *fields.day);
        trigger = {at.year, at.month, at.day, at.hour, at.minute, false}; // seconds dropped
    } else {
        return std::nullopt;
    }

    NotificationRequest request;
    request.identifier = requestIdentifier(record.id, kind);
    request.trigger = trigger;
    auto& content = request.content;
    content.title = texts::kReminder.translated();
    content.body = isSet(record.title) ? *record.title : std::string(bodyFallback);
    content.defaultSound = true;
    content.badge = 1;
    content.categoryIdentifier = calendarNotificationCategoryIdentifier;
    content.interruptionLevel = interruptionLevel(fields.level);
    content.relevanceScore = 1.0;
    if (owner)
        content.subtitle = isSet(owner->title) ? *owner->title : std::string(ownerFallback);
    return request;
}

std::optional<NotificationRequest> NotificationManager::request(const TaskReminders& task,
                                                                ReminderKind kind) const {
    auto built = buildRequest(task.task, task.list, texts::kNewCategory.translated(),
                              texts::kNewTask.translated(), kind);
    if (built && task.list)
        built->content.userInfo = {{"categoryIdentifier", task.list->identifier}};
    return built;
}

std::optional<NotificationRequest> NotificationManager::request(const SubtaskReminders& subtask,
                                                                ReminderKind kind) const {
    return buildRequest(subtask.subtask, subtask.task, texts::kNewTask.translated(),
                        texts::kNewSubtask.translated(), kind);
}

template <class Reminders>
Result<std::optional<NotificationRequest>>
NotificationManager::scheduleOne(const Reminders& record, ReminderKind kind, bool submitNow) {
    auto built = request(record, kind);
    if (!built || !submitNow)
        return built;
    if (kind == ReminderKind::due)
        if (auto registered = registerCategories(); !registered)
            return std::unexpected(registered.error());
    if (auto added = m_center->addNotificationRequest(*built); !added)
        return std::unexpected(added.error());
    return built;
}

Result<std::optional<NotificationRequest>>
NotificationManager::schedule(const TaskReminders& task, ReminderKind kind, bool submitNow) {
    return scheduleOne(task, kind, submitNow);
}

Result<std::optional<NotificationRequest>>
NotificationManager::schedule(const SubtaskReminders& subtask, ReminderKind kind, bool submitNow) {
    return scheduleOne(subtask, kind, submitNow);
}

Result<> NotificationManager::removeReminders(std::span<const std::string> identifiers,
                                              bool alsoDelivered) {
    if (auto removed = m_center->removePendingNotificationRequests(identifiers); !removed)
        return removed;
    if (!alsoDelivered)
        return {};
    if (auto removed = m_center->removeDeliveredNotifications(identifiers); !removed)
        return removed;
    return m_center->setBadgeCount(0);
}

// ---- The per-record pass --------------------------------------------------------------------

namespace {

const auto& recordOf(const TaskReminders& r) {
    return r.task;
}
const auto& recordOf(const SubtaskReminders& r) {
    return r.subtask;
}

} // namespace

template <class Reminders>
Result<> NotificationManager::updateAll(std::span<const Reminders> records, bool alsoDelivered) {
    for (const auto& reminders : records) {
        const auto& record = recordOf(reminders);
        if (record.id.empty())
            continue; // nothing could name its requests
        const bool finished =
            record.isCompleted.value_or(false) || record.isArchived.value_or(false);
        for (auto kind : {ReminderKind::start, ReminderKind::due}) {
            const bool wanted = !finished && fieldsOf(record, kind).enabled;
            std::optional<NotificationRequest> scheduled;
            if (wanted) {
                auto done = scheduleOne(reminders, kind, true);
                if (!done)
                    return std::unexpected(done.error());
                scheduled = std::move(*done);
            }
            // A reminder that is off, or on without a date, has no request.
            if (!scheduled) {
                const std::string identifier[] = {requestIdentifier(record.id, kind)};
                if (auto removed = removeReminders(identifier, alsoDelivered); !removed)
                    return removed;
            }
        }
    }
    return {};
}

Result<> NotificationManager::update(std::span<const TaskReminders> tasks, bool alsoDelivered) {
    return updateAll(tasks, alsoDelivered);
}

Result<> NotificationManager::update(std::span<const SubtaskReminders> subtasks,
                                     bool alsoDelivered) {
    return updateAll(subtasks, alsoDelivered);
}

} // namespace tasket::reminders
