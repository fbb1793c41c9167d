// The share flow over a loaded controller: Done and Cancel, the preselected
// list, the picker, and the task text's limits. (A share finished without
// the form, and its paid-tier notice, are checked through tasket-share.)
#include "platform/clock.h"
#include "share/dismiss_notification.h"
#include "share/headless_share.h"
#include "share/shared_task.h"
#include "share_test_support.h"

using namespace tasket::testing;
using namespace tasket::share;
using tasket::platform::Date;
using tasket::platform::Errc;
using tasket::platform::MainQueue;
using tasket::platform::ManualClock;
using tasket::store::LocalDataManager;
using tasket::store::TK_Task;
using Outcome = ShareToolbarModel::DoneOutcome;
namespace keys = tasket::settings::keys;

namespace {

class ShareFlowTest : public ShareFixture {
  protected:
    void SetUp() override { tasket::platform::Clock::setShared(&clock); }
    void TearDown() override {
        ShareFixture::TearDown();
        tasket::platform::Clock::setShared(nullptr);
    }

    ManualClock clock{Date{700'000'000}};
};

} // namespace

TEST_F(ShareFlowTest, DoneDismissesAtOnceAndTheSaveThatFollowsWritesTheWholeTask) {
    addList("Inbox");
    ASSERT_TRUE(group->setValue(keys::kIsSuccessfulPurchase, true));
    ASSERT_TRUE(group->setValue(keys::kIsDueDateAllDay, false));
    writeFile(dir / "list.txt", "eggs\nmilk\n");
    auto& share = open({webLink("https://shop.example/milk"), fileLink(dir / "list.txt")});
    share.shareManager()->setText("Buy milk 🥛 \u05e9\u05dc\u05d5\u05dd");

    EXPECT_EQ(share.toolbar().done(), Outcome::saveStarted);
    // Dismissed and completed before the save has run.
    EXPECT_EQ(completions, 1);
    EXPECT_FALSE(share.pendingSaves()->isIdle());
    EXPECT_TRUE(storedTasks().empty());
    // A second press while the form goes away saves nothing more.
    EXPECT_EQ(share.toolbar().done(), Outcome::saveStarted);

    MainQueue::shared().pump();
    ASSERT_TRUE(share.pendingSaves()->isIdle());
    ASSERT_EQ(share.pendingSaves()->outcomes().size(), 1u);
    ASSERT_TRUE(share.pendingSaves()->outcomes().front());
    const auto tasks = storedTasks();
    ASSERT_EQ(tasks.size(), 1u);
    const auto& task = tasks.front();
    EXPECT_EQ(task->taskID(), *share.pendingSaves()->outcomes().front());
    EXPECT_EQ(task->title(), "Buy milk 🥛 \u05e9\u05dc\u05d5\u05dd");
    EXPECT_EQ(task->whenCreated(), clock.now());
    EXPECT_FALSE(task->isAllDay());
    EXPECT_TRUE(task->isStartDateAllDay());
    ASSERT_EQ(task->attachmentsArray().size(), 1u);
    const auto attachment = task->attachmentsArray().front();
    EXPECT_EQ(attachment->content(), bytesOf("eggs\nmilk\n"));
    EXPECT_EQ(attachment->creationDate(), clock.now());
    EXPECT_EQ(attachment->typeCase(), tasket::rules::TK_AttachmentType::file);
}

// (Cancel is the form's test: Esc and closing the window.)
TEST_F(ShareFlowTest, DoneWithoutAListOnlyDismissesAndTheRequestCompletesOnce) {
    addList("Inbox");
    auto& share = open({webLink("https://example.com")});
    share.toolbar().setCategory(nullptr);
    EXPECT_EQ(share.toolbar().done(), Outcome::dismissedWithoutList);
    postDismissNotification();
    MainQueue::shared().pump();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(share.pendingSaves()->outcomes().empty());
    EXPECT_TRUE(storedTasks().empty());
}

// The form's focus follows the stored one as another program changes it.
TEST_F(ShareFlowTest, TheFocusFollowsTheStoredOne) {
    auto& share = open({webLink("https://example.com")});
    share.followStoredFocus();
    const std::vector<std::string> work = {"2B1F6C1E-0000-4000-8000-000000000001"};
    ASSERT_TRUE(group->setValue(tasket::settings::keys::kFocusFilterCategories, work));
    EXPECT_TRUE(MainQueue::shared().runUntil(
        [&] { return share.focusManager()->categories().value() == work; }));
    ASSERT_TRUE(group->removeValue(tasket::settings::keys::kFocusFilterCategories));
    EXPECT_TRUE(
        MainQueue::shared().runUntil([&] { return !share.focusManager()->isFocused().value(); }));
}

TEST_F(ShareFlowTest, PreselectsTheDefaultListElseTheFirstInTheUsersOrderElseANewOne) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, std::int16_t>> lists; // title, sortIndex
        std::string defaultTitle;                                // whose id the setting holds
        std::string expected;
        bool expectedIsNew;
    };
    const std::vector<Case> cases = {
        {"no lists: a new one", {}, "", "New Category", true},
        {"the first in the user's order", {{"Later", 1}, {"First", 0}}, "", "First", false},
        {"the default list", {{"Later", 1}, {"First", 0}}, "Later", "Later", false},
        {"a default that names no list", {{"Later", 1}, {"First", 0}}, "gone", "First", false},
        {"untitled lists are passed over", {{"", 0}, {"Titled", 1}}, "", "Titled", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir caseDir;
        data = LocalDataManager::make(caseDir.path());
        ASSERT_TRUE(group->removeValue(keys::kDefaultCategory));
        for (const auto& [title, sortIndex] : c.lists) {
            auto list = addList(title, sortIndex);
            if (title == c.defaultTitle) {
                ASSERT_TRUE(group->setValue(keys::kDefaultCategory, *list->categoryID()));
            }
        }
        if (c.defaultTitle == "gone") {
            ASSERT_TRUE(
                group->setValue(keys::kDefaultCategory, "00000000-0000-0000-0000-000000000000"));
        }
        auto& share = open();
        ASSERT_NE(share.category(), nullptr);
        EXPECT_EQ(share.category()->title(), c.expected);
        EXPECT_EQ(share.category()->isInserted(), c.expectedIsNew);
        EXPECT_EQ(share.toolbar().category().value(), share.category());
        controller.reset();
        MainQueue::shared().pump();
    }
}

TEST_F(ShareFlowTest, PickerCountsOpenTasksWhenCompletedOnesAreExcludedAndRefusesAnUntitledList) {
    auto inbox = addList("Inbox");
    for (const bool completed : {true, false, false}) {
        auto task = TK_Task::insertNew(*data->viewContext());
        task->setTaskID(tasket::platform::Uuid::generate().toString());
        task->setIsCompleted(completed);
        task->setCategory(inbox);
    }
    ASSERT_TRUE(data->viewContext()->save());
    for (const bool excluding : {false, true}) {
        customization->setIsExcludingCompletedTasks(excluding);
        auto& share = open();
        ASSERT_EQ(share.picker().categories().size(), 1u);
        EXPECT_EQ(share.picker().numberOfTasks(*inbox), excluding ? 2u : 3u);
        EXPECT_FALSE(share.picker().createCategory(""));
        controller.reset();
    }
}

// Finished without the form, text the store cannot carry, or nothing left
// but a file that is gone, is refused with its reason and nothing is
// written. (The rest of that path is checked through tasket-share.)
TEST_F(ShareFlowTest, DoneWithoutAskingRefusesWhatCannotBeSaved) {
    const std::pair<std::shared_ptr<const ItemProvider>, Errc> cases[] = {
        {webLink("https://example.com"), Errc::invalidArgument},
        {fileLink(dir / "gone.txt"), Errc::notFound}};
    ASSERT_TRUE(group->setValue(keys::kIsSuccessfulPurchase, true));
    for (const auto& [provider, code] : cases) {
        auto& share = open({provider});
        share.shareManager()->setText(code == Errc::notFound ? "" : std::string("a\0b", 3));
        const auto done = doneWithoutAsking(share, nullptr);
        ASSERT_FALSE(done);
        EXPECT_EQ(done.error().code, code) << done.error().message;
        MainQueue::shared().pump();
        EXPECT_TRUE(storedTasks().empty());
    }
}

TEST(SharedTaskText, KeepsAnyUnicodeAndRefusesWhatTheStoreCannotCarry) {
    struct Case {
        std::string text;
        bool accepted;
    };
    const std::vector<Case> cases = {
        {"", true},
        {"Plain", true},
        {"Emoji 👩‍👩‍👧 and flags 🇩🇪", true},
        {"\u05e2\u05d1\u05e8\u05d9\u05ea \u202bRTL\u202c mixed", true},
        {std::string("a\0b", 3), false},
        {"bad \xc3\x28 sequence", false},
        {"overlong \xc0\xaf", false},
        {"cut off \xe2\x82", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const auto checked = checkTaskText(c.text);
        EXPECT_EQ(checked.has_value(), c.accepted);
        if (!checked) {
            EXPECT_NE(checked.error().message.find("at byte"), std::string::npos);
        }
    }
}
