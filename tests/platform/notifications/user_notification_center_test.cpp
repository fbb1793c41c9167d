// One contract, two adapters: the in-memory notification center and the
// SQLite queue the daemon delivers from; then what only the queue does.
#include "platform/clock.h"
#include "platform/notifications/in_memory_user_notification_center.h"
#include "platform/notifications/notification_queue.h"
#include "support/notification_ids.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace tasket::platform {
namespace {

using testing::identifiers;
using testing::TempDir;

NotificationRequest request(std::string identifier, CalendarTrigger trigger = {2030, 5, 6, 9, 30}) {
    NotificationRequest r;
    r.identifier = std::move(identifier);
    r.content.title = "Reminder";
    r.content.body = "Pay rent";
    r.trigger = trigger;
    return r;
}

// An adapter under test and the way it delivers a pending request.
struct Adapter {
    std::unique_ptr<UserNotificationCenter> center;
    std::function<void(const std::string&, Date)> deliver;
};

struct AdapterMaker {
    const char* name;
    std::function<Adapter(const TempDir&)> make;
};

const AdapterMaker kAdapters[] = {
    {"InMemory",
     [](const TempDir&) {
         auto center = std::make_unique<InMemoryUserNotificationCenter>();
         auto* raw = center.get();
         return Adapter{std::move(center), [raw](const std::string& id, Date at) {
                            ASSERT_TRUE(raw->deliver(id, at));
                        }};
     }},
    {"Queue",
     [](const TempDir& dir) {
         auto queue = NotificationQueue::open(dir / NotificationQueue::kFileName);
         EXPECT_TRUE(queue) << queue.error().message;
         auto* raw = queue->get();
         return Adapter{std::move(*queue), [raw](const std::string& id, Date at) {
                            auto queued = raw->queued();
                            for (const auto& q : *queued) {
                                if (q.request.identifier == id) {
                                    ASSERT_TRUE(*raw->recordDelivery(q.revision, 7, at));
                                }
                            }
                        }};
     }},
};

class UserNotificationCenterContract : public ::testing::TestWithParam<AdapterMaker> {
  protected:
    TempDir m_dir;
    Adapter m_adapter = GetParam().make(m_dir);
    UserNotificationCenter& center() { return *m_adapter.center; }

    std::vector<std::string> pendingIdentifiers() {
        return identifiers(center().pendingNotificationRequests());
    }
    std::vector<std::string> deliveredIdentifiers() {
        return identifiers(center().deliveredNotifications());
    }
};

TEST_P(UserNotificationCenterContract, RequestsComeBackAsAddedAndAnIdentifierAddedAgainReplaces) {
    auto full = request("b");
    const std::map<std::string, std::string> info{{"categoryIdentifier", "L1"}, {"x", "\"/\\é"}};
    full.content = {"Reminder", "Home", "Pay rent", true, 1, "cat", info};
    full.content.interruptionLevel = InterruptionLevel::timeSensitive;
    full.content.relevanceScore = 1.0;
    auto bare = request("a", {2031, 12, 31, 23, 59, false});
    bare.content.interruptionLevel = InterruptionLevel::passive;
    ASSERT_TRUE(center().addNotificationRequest(full));
    ASSERT_TRUE(center().addNotificationRequest(bare));
    EXPECT_EQ(*center().pendingNotificationRequests(), (std::vector{bare, full}));

    auto moved = request("b", {2030, 5, 7, 8, 0});
    ASSERT_TRUE(center().addNotificationRequest(moved));
    EXPECT_EQ(*center().pendingNotificationRequests(), (std::vector{bare, moved}));
}

TEST_P(UserNotificationCenterContract, RemovalsTouchOnlyTheirOwnList) {
    for (const char* id : {"a", "b", "c"}) {
        ASSERT_TRUE(center().addNotificationRequest(request(id)));
    }
    m_adapter.deliver("a", Date{100});
    m_adapter.deliver("b", Date{100});
    ASSERT_TRUE(
        center().addNotificationRequest(request("a"))); // snoozed: pending and delivered at once
    EXPECT_EQ(pendingIdentifiers(), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(deliveredIdentifiers(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(center().deliveredNotifications()->front().deliveredAt, Date{100});

    std::vector<std::string> ids{"a", "unknown"};
    ASSERT_TRUE(center().removePendingNotificationRequests(ids));
    EXPECT_EQ(pendingIdentifiers(), (std::vector<std::string>{"c"}));
    EXPECT_EQ(deliveredIdentifiers(), (std::vector<std::string>{"a", "b"}));
    ASSERT_TRUE(center().removeDeliveredNotifications(ids));
    EXPECT_EQ(deliveredIdentifiers(), (std::vector<std::string>{"b"}));
}

TEST_P(UserNotificationCenterContract, CategoriesAreReplacedAsAWholeSetWithActionsInOrder) {
    NotificationCategory one{
        "one",
        {{"z", "Zed", kActionAuthenticationRequired, "bell"}, {"a", "Ay", 0, ""}},
        {"intent"},
        kCategoryCustomDismissAction};
    ASSERT_TRUE(center().setNotificationCategories({one, {"two", {}, {}, 0}}));
    EXPECT_EQ(center().notificationCategories()->size(), 2U);
    ASSERT_TRUE(center().setNotificationCategories({one}));
    EXPECT_EQ(*center().notificationCategories(), std::vector{one});
}

TEST_P(UserNotificationCenterContract, BadgeCountIsKeptAndNeverNegative) {
    EXPECT_EQ(*center().badgeCount(), 0);
    ASSERT_TRUE(center().setBadgeCount(3));
    EXPECT_EQ(center().setBadgeCount(-1).error().code, Errc::invalidArgument);
    EXPECT_EQ(*center().badgeCount(), 3);
}

INSTANTIATE_TEST_SUITE_P(Adapters, UserNotificationCenterContract, ::testing::ValuesIn(kAdapters),
                         [](const auto& adapter) { return std::string(adapter.param.name); });

// ---- The queue alone -------------------------------------------------------------------

class NotificationQueueTest : public ::testing::Test {
  protected:
    NotificationQueueTest() { Clock::setShared(&m_clock); }
    ~NotificationQueueTest() override { Clock::setShared(nullptr); }

    TempDir m_dir;
    Calendar m_berlin = *Calendar::inZone("Europe/Berlin");
    ManualClock m_clock{m_berlin.date({2030, 3, 31, 1, 0})};
    std::unique_ptr<NotificationQueue> m_queue = *NotificationQueue::open(m_dir / "q.sqlite");

    std::vector<std::string> due(DateComponents at) {
        return identifiers(m_queue->takeDue(m_berlin.date(at), m_berlin));
    }
};

TEST_F(NotificationQueueTest, DueRequestsFireInOrderAfterASleepButNeverWhenPastOnAdding) {
    ASSERT_TRUE(m_queue->addNotificationRequest(request("late", {2030, 3, 31, 9, 0})));
    ASSERT_TRUE(m_queue->addNotificationRequest(
        request("gap", {2030, 3, 31, 2, 30}))); // clocks jump 02:00 -> 03:00
    ASSERT_TRUE(m_queue->addNotificationRequest(request("past", {2030, 3, 31, 0, 59})));
    ASSERT_TRUE(m_queue->addNotificationRequest(request("this minute", {2030, 3, 31, 1, 0})));

    EXPECT_EQ(*m_queue->nextFireDate(m_clock.now(), m_berlin), m_berlin.date({2030, 3, 31, 3, 0}));
    // After the sleep a reschedule pass adds "late" again, unchanged: still due.
    m_clock.set(m_berlin.date({2030, 3, 31, 10, 0}));
    ASSERT_TRUE(m_queue->addNotificationRequest(request("late", {2030, 3, 31, 9, 0})));
    EXPECT_EQ(due({2030, 3, 31, 10, 0}), (std::vector<std::string>{"this minute", "gap", "late"}));
    EXPECT_EQ(m_queue->queued()->size(), 3U)
        << "the one past when added is gone; the due ones stay until delivered";
}

TEST_F(NotificationQueueTest,
       ADeliveryOfAReplacedRequestChangesNothingAndServerNumbersFindTheirNotification) {
    ASSERT_TRUE(m_queue->addNotificationRequest(request("a")));
    auto old = m_queue->queued()->front().revision;
    ASSERT_TRUE(m_queue->addNotificationRequest(request("a", {2030, 6, 1, 8, 0})));
    EXPECT_FALSE(*m_queue->recordDelivery(old, 41, Date{5}));
    EXPECT_TRUE(m_queue->deliveredNotifications()->empty());

    ASSERT_TRUE(*m_queue->recordDelivery(m_queue->queued()->front().revision, 42, Date{5}));
    EXPECT_TRUE(m_queue->queued()->empty());
    EXPECT_EQ((*m_queue->deliveredWithServerID(42))->notification.request.trigger.month, 6);
    EXPECT_EQ((*m_queue->delivered("a"))->serverID, 42U);
    EXPECT_FALSE(*m_queue->deliveredWithServerID(41));
}

TEST_F(NotificationQueueTest, AnotherConnectionSeesCommitsAndAFailedTransactionLeavesNothing) {
    auto other = *NotificationQueue::open(m_dir / "q.sqlite");
    auto before = *other->dataVersion();
    auto failed = m_queue->transaction([&]() -> Result<> {
        EXPECT_TRUE(m_queue->addNotificationRequest(request("a")));
        return fail(Errc::cancelled, "no");
    });
    EXPECT_FALSE(failed);
    ASSERT_TRUE(m_queue->addNotificationRequest(request("b")));
    EXPECT_GT(*other->dataVersion(), before);
    ASSERT_EQ(other->pendingNotificationRequests()->size(), 1U);

    // Installing the same set again still writes when another connection changed it meanwhile.
    const NotificationCategory mine{"mine", {}, {}, 0};
    ASSERT_TRUE(m_queue->setNotificationCategories({mine}));
    ASSERT_TRUE(other->setNotificationCategories({{"theirs", {}, {}, 0}}));
    ASSERT_TRUE(m_queue->setNotificationCategories({mine}));
    EXPECT_EQ(*other->notificationCategories(), std::vector{mine});
    EXPECT_EQ(other->pendingNotificationRequests()->front().identifier, "b");
}

} // namespace
} // namespace tasket::platform
