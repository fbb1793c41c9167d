// The reminder requests a record produces, the per-record pass, the full
// reschedule over a real store, and the answers to a delivered reminder.
#include "platform/notifications/in_memory_user_notification_center.h"
#include "reminders/reminder_store.h"
#include "support/notification_ids.h"
#include "support/store_fixture.h"

#include <gtest/gtest.h>

namespace tasket::reminders {
namespace {

using platform::CalendarTrigger;
using platform::Date;
using platform::NotificationRequest;

const platform::Calendar kBerlin = *platform::Calendar::inZone("Europe/Berlin");

Date at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    return kBerlin.date({year, month, day, hour, minute, second});
}

TaskReminders task(std::string id) {
    TaskReminders t;
    t.task.id = std::move(id);
    t.task.title = "Pay rent";
    t.task.isDueDateReminderEnabled = true;
    t.task.dueDate = at(2030, 5, 6);
    t.task.dueDateAndTime = at(2030, 5, 6, 9, 30, 45);
    return t;
}

// The manager over an in-memory center; a real store for the passes over records.
class RemindersTest : public testing::StoreFixture {
  protected:
    platform::InMemoryUserNotificationCenter m_center;
    NotificationManager m_manager{m_center, kBerlin, [] { return settings::TimeOfDay{8, 15}; }};

    std::vector<std::string> pending() {
        return testing::identifiers(m_center.pendingNotificationRequests());
    }
    void update(std::vector<TaskReminders> tasks, bool alsoDelivered = false) {
        ASSERT_TRUE(m_manager.update(std::span<const TaskReminders>(tasks), alsoDelivered));
    }
    std::shared_ptr<store::TK_Task> add(objectstore::ObjectContext& context, std::string id,
                                        std::optional<Date> start, std::optional<Date> due) {
        auto t = store::TK_Task::insertNew(context);
        t->setTaskID(std::move(id));
        t->setIsStartDateRemindEnabled(start.has_value());
        t->setStartDate(start);
        t->setStartDateAndTime(start);
        t->setIsRemindEnabled(true);
        t->setDueDate(due);
        t->setDueDateAndTime(due);
        return t;
    }
};

TEST_F(RemindersTest, ARecordsRequestCarriesItsTextsFallbacksAndMinute) {
    struct Case {
        const char* name;
        std::string title;
        std::optional<ReminderOwner> list;
        bool allDay;
        std::string subtitle, body;
        std::map<std::string, std::string> userInfo;
        CalendarTrigger trigger;
    };
    const CalendarTrigger due{2030, 5, 6, 9, 30, false}; // 09:30:45 fires at 09:30
    const ReminderOwner untitled{"L1", std::nullopt}, home{"L2", "Home"};
    const CalendarTrigger atSettingTime{2030, 5, 6, 8, 15, false}; // the all-day time
    using Info = std::map<std::string, std::string>;
    const Info inL1{{"categoryIdentifier", "L1"}}, inL2{{"categoryIdentifier", "L2"}};
    const Case cases[] = {
        {"in no list", "Pay rent", {}, false, "", "Pay rent", {}, due},
        {"untitled, untitled list", "", untitled, false, "New Category", "New Task", inL1, due},
        {"in a list", "Pay rent", home, false, "Home", "Pay rent", inL2, due},
        {"all day", "Pay rent", {}, true, "", "Pay rent", {}, atSettingTime},
    };
    for (const auto& c : cases) {
        auto t = task("T");
        t.task.title = c.title;
        t.list = c.list;
        t.task.isDueDateAllDay = c.allDay;
        auto request = m_manager.request(t, ReminderKind::due);
        ASSERT_TRUE(request) << c.name;
        EXPECT_EQ(request->content.subtitle, c.subtitle) << c.name;
        EXPECT_EQ(request->content.body, c.body) << c.name;
        EXPECT_EQ(request->content.userInfo, c.userInfo) << c.name;
        EXPECT_EQ(request->trigger, c.trigger) << c.name;
        EXPECT_EQ(request->content.title, "Reminder");
        EXPECT_EQ(request->content.badge, 1);
        EXPECT_EQ(request->content.relevanceScore, 1.0);
    }

    SubtaskReminders s;
    s.subtask.id = "S";
    s.subtask.isDueDateReminderEnabled = true;
    s.subtask.dueDateAndTime = at(2030, 5, 6, 7, 0);
    s.task = ReminderOwner{"T", std::nullopt};
    auto request = m_manager.request(s, ReminderKind::due);
    EXPECT_EQ(request->content.body, "New Subtask");
    EXPECT_EQ(request->content.subtitle, "New Task");
}

TEST_F(RemindersTest, TheStartReminderHasItsOwnRequestAndSwitchingItOffRemovesOnlyThatOne) {
    auto t = task("T");
    t.task.isStartDateReminderEnabled = true;
    t.task.startDateAndTime = at(2030, 5, 5, 18, 0);
    t.task.startDateReminderInterruptionLevel = 2;
    update({t});
    EXPECT_EQ(pending(), (std::vector<std::string>{"T", "start.Date.T"}));
    EXPECT_EQ(m_center.pendingNotificationRequests()->back().content.interruptionLevel,
              platform::InterruptionLevel::timeSensitive);

    t.task.isStartDateReminderEnabled = false;
    update({t});
    EXPECT_EQ(pending(), (std::vector<std::string>{"T"}));
}

TEST_F(RemindersTest, CompletingOrArchivingRemovesBothRequestsAndWithDeliveredTheBadgeGoesToZero) {
    for (auto finish :
         {&transfer::TK_SharedTask::isCompleted, &transfer::TK_SharedTask::isArchived}) {
        auto t = task("T");
        t.task.isStartDateReminderEnabled = true;
        t.task.startDate = at(2030, 5, 5);
        update({t, task("U")});
        ASSERT_TRUE(m_center.deliver("start.Date.T", Date{1}));
        ASSERT_TRUE(m_center.setBadgeCount(1));

        t.task.*finish = true;
        update({t});
        EXPECT_EQ(pending(), (std::vector<std::string>{"U"}));
        EXPECT_EQ(m_center.deliveredNotifications()->size(), 1U)
            << "without the flag, delivered ones stay";
        EXPECT_EQ(*m_center.badgeCount(), 1);

        update({t}, true);
        EXPECT_TRUE(m_center.deliveredNotifications()->empty());
        EXPECT_EQ(*m_center.badgeCount(), 0);
    }
}

TEST_F(RemindersTest, TheCategoryIsRegisteredBeforeADueRequestWithItsActionsByteForByte) {
    update({task("T")});
    auto categories = *m_center.notificationCategories();
    ASSERT_EQ(categories.size(), 1U);
    EXPECT_EQ(categories[0].identifier,
              "Lumenforge.QRX.Tasket.Notification.Action.Calendar.Notification.Category");
    EXPECT_EQ(categories[0].options, 1U);
    const std::vector<platform::NotificationAction> expected{
        {"Lumenforge.QRX.Tasket.Notification.Action.markAsDone", "Mark as Done", 1,
         "checkmark.circle"},
        {"Lumenforge.QRX.Tasket.Notification.Action.Remind.In1.5Minutes", "Remind in 15 Minutes", 1,
         "bell"},
        {"Lumenforge.QRX.Tasket.Notification.Action.Remind.In.1Hour", "Remind in 1 Hour", 1,
         "bell"},
        {"Lumenforge.QRX.Tasket.Notification.Action.Remind.Tomorrow", "Remind Tomorrow", 1, "bell"},
    };
    EXPECT_EQ(categories[0].actions, expected);
    EXPECT_EQ(responseOfAction("Lumenforge.QRX.Tasket.Notification.Action.Remind.In1.5Minutes"),
              ReminderResponse::remindIn15Minutes);
    EXPECT_EQ(responseOfAction("Lumenforge.QRX.Tasket.Notification.Action.Remind.In15Minutes"),
              std::nullopt);
}

TEST_F(RemindersTest, TheFullPassLeavesOutAStartAfterTheDueDateAndEveryRecordMissingADate) {
    auto context = newContext();
    add(*context, "both", at(2030, 5, 5, 9), at(2030, 5, 6, 9));
    add(*context, "start-after-due", at(2030, 5, 7, 9), at(2030, 5, 6, 9));
    // A comparison with a missing date is false: a due date alone is not rescheduled.
    add(*context, "due-only", std::nullopt, at(2030, 5, 6, 9));
    add(*context, "no-dates", std::nullopt, std::nullopt);
    auto parent = add(*context, "parent", at(2030, 5, 1), at(2030, 5, 1));
    parent->setIsRemindEnabled(false);
    parent->setIsStartDateRemindEnabled(false);
    auto sub = store::TK_Subtask::insertNew(*context);
    sub->setSubtaskID("sub");
    sub->setIsRemindEnabled(true);
    sub->setStartDate(at(2030, 5, 2));
    sub->setDueDate(at(2030, 5, 2));
    sub->setTask(parent);
    ASSERT_TRUE(context->save());

    auto counts = rescheduleAll(m_manager, *context);
    ASSERT_TRUE(counts) << counts.error().message;
    EXPECT_EQ(counts->tasks, 1U);
    EXPECT_EQ(counts->subtasks, 1U);
    EXPECT_EQ(pending(), (std::vector<std::string>{"both", "start.Date.both", "sub"}));

    // The pass for named records takes them whatever their dates.
    const std::string named[] = {"due-only", "gone"};
    ASSERT_TRUE(updateReminders(m_manager, *context, named));
    EXPECT_EQ(pending(), (std::vector<std::string>{"both", "due-only", "start.Date.both", "sub"}));
}

TEST_F(RemindersTest, ASnoozeKeepsTheIdentifierAndAnAllDayOneRingsAtTheAllDayTime) {
    auto context = newContext();
    auto t = add(*context, "T", at(2030, 5, 5, 18, 40), at(2030, 5, 6, 9, 30));
    ASSERT_TRUE(context->save());
    ASSERT_TRUE(updateReminders(m_manager, *context, std::vector<std::string>{"T"}));
    auto requests = *m_center.pendingNotificationRequests();
    ASSERT_TRUE(m_center.deliver("start.Date.T", Date{1}));

    const Date now = at(2030, 5, 5, 18, 41, 30);
    ASSERT_TRUE(answer(m_manager, *context, requests[1], ReminderResponse::remindTomorrow, now));
    EXPECT_EQ(m_center.pendingNotificationRequests()->back().trigger,
              (CalendarTrigger{2030, 5, 6, 18, 40, false}));
    EXPECT_TRUE(m_center.deliveredNotifications()->empty());
    t->setIsStartDateAllDay(true);
    ASSERT_TRUE(answer(m_manager, *context, requests[1], ReminderResponse::remindTomorrow, now));
    EXPECT_EQ(m_center.pendingNotificationRequests()->back().trigger.hour, 8);
    // (Each answer from the desktop, and one to a deleted task, is the daemon's test.)
}

} // namespace
} // namespace tasket::reminders
