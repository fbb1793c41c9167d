// The share form: its model's wording without widgets, and the real window
// driven from the keyboard under Qt's offscreen platform over a controller
// on a store in a temporary folder. Each case reads the outcome back from
// the store file through a fresh owner, as the next program would.
#include "cloud/persistent_history_processor.h"
#include "platform/auth/in_memory_authenticator.h"
#include "platform/preferences/in_memory_preferences_suite.h"
#include "settings/settings_keys.h"
#include "share/share_test_support.h"
#include "share/shared_task.h"
#include "support/program_run.h"
#include "tasket-share/locked_screen.h"
#include "tasket-share/share_form_model.h"
#include "tasket-share/share_form_window.h"

#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

using namespace tasket::testing;
using tasket::apps::describeSize;
using tasket::apps::ShareFormModel;
using tasket::apps::ShareFormWindow;
using tasket::platform::MainQueue;
using tasket::store::LocalDataManager;
using tasket::store::TK_Category;
using tasket::store::TK_Task;

namespace {

// One QApplication for the whole run, on the offscreen platform.
class QtEnvironment final : public ::testing::Environment {
  public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application = std::make_unique<QApplication>(m_argc, m_argv.data());
    }
    void TearDown() override { m_application.reset(); }

  private:
    std::string m_name = "share_form_test";
    int m_argc = 1;
    std::array<char*, 2> m_argv{m_name.data(), nullptr};
    std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] const auto* const kQt = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

class ShareFormTest : public ShareFixture {
  protected:
    void TearDown() override {
        window.reset();
        model.reset();
        ShareFixture::TearDown();
    }

    /// A list holding `taskCount` tasks.
    std::shared_ptr<TK_Category> addList(const std::string& title, std::int16_t sortIndex,
                                         int taskCount = 0) {
        auto list = ShareFixture::addList(title, sortIndex);
        for (int i = 0; i < taskCount; ++i) {
            tasket::share::NewSharedTask task;
            task.taskID = title + std::to_string(i);
            task.title = "old";
            tasket::share::insertSharedTask(std::move(task), list);
        }
        EXPECT_TRUE(data->viewContext()->save());
        return list;
    }

    /// The window over a loaded controller for `providers`, shown, focus in the text.
    void open(std::vector<std::shared_ptr<const ItemProvider>> providers = {}) {
        ShareFixture::open(std::move(providers));
        model = std::make_unique<ShareFormModel>(*controller);
        window = std::make_unique<ShareFormWindow>(*model);
        window->show();
        QApplication::setActiveWindow(window.get());
        settle();
    }

    /// Lets both loops run until neither has anything left to do.
    void settle() {
        for (int i = 0; i < 4; ++i) {
            QApplication::processEvents();
            MainQueue::shared().pump();
        }
    }

    /// Waits for the save Done started (if any) to commit.
    void waitForSaves() {
        ASSERT_TRUE(
            MainQueue::shared().runUntil([&] { return controller->pendingSaves()->isIdle(); }));
        settle();
    }

    template <class T> T* child(const char* name) {
        T* found = window->findChild<T*>(QString::fromLatin1(name));
        EXPECT_TRUE(found) << name;
        return found;
    }

    QStringList listLabels() {
        QStringList labels;
        auto* lists = child<QComboBox>("lists");
        for (int i = 0; i < lists->count(); ++i)
            labels.append(lists->itemText(i));
        return labels;
    }

    /// The stored tasks titled `title`.
    std::vector<std::shared_ptr<TK_Task>> storedTasks(const std::string& title) {
        auto tasks = ShareFixture::storedTasks();
        std::erase_if(tasks, [&](const auto& task) { return task->title() != title; });
        return tasks;
    }

    std::unique_ptr<ShareFormModel> model;
    std::unique_ptr<ShareFormWindow> window;
};

} // namespace

TEST(ShareFormModel, SizesReadAsFileManagersShowThem) {
    const std::vector<std::pair<std::uintmax_t, std::string>> cases = {
        {0, "0 bytes"},
        {1, "1 byte"},
        {999, "999 bytes"},
        {1000, "1.0 kB"},
        {1049, "1.0 kB"},
        {1050, "1.1 kB"},
        {999'949, "999.9 kB"},
        {999'950, "1.0 MB"},
        {64ull << 20, "67.1 MB"},
        {5'000'000'000, "5.0 GB"},
        {UINTMAX_MAX, "18446.7 PB"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(describeSize(bytes), expected) << bytes;
}

TEST_F(ShareFormTest, TypedTextGoesIntoTheListPickedByKeyboardOnEnter) {
    addList("Errands", 0);
    addList("Work", 1, 1);
    open({webLink("https://example.org/article")});
    EXPECT_EQ(window->windowTitle(), "Share to Tasket");
    EXPECT_EQ(listLabels(), QStringList({"Errands (0 tasks)", "Work (1 task)", "New List…"}));
    EXPECT_EQ(child<QComboBox>("lists")->currentIndex(), 0);
    EXPECT_EQ(child<QLabel>("link")->text(), "https://example.org/article");
    EXPECT_TRUE(child<QLabel>("files")->isHidden());

    auto* text = child<QPlainTextEdit>("text");
    EXPECT_TRUE(text->hasFocus());
    QTest::keyClicks(text, "Call Bob");
    QTest::keyClick(text, Qt::Key_Tab);
    auto* lists = child<QComboBox>("lists");
    EXPECT_TRUE(lists->hasFocus());
    QTest::keyClick(lists, Qt::Key_Down);
    QTest::keyClick(lists, Qt::Key_Return);
    EXPECT_FALSE(child<QPushButton>("done")->isEnabled());
    waitForSaves();

    EXPECT_EQ(completions, 1);
    const auto tasks = storedTasks("Call Bob");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(tasks.front()->category()->title(), "Work");
    EXPECT_EQ(tasks.front()->url(), "https://example.org/article");
}

TEST_F(ShareFormTest, EscapeAndClosingTheWindowCancelAndWriteNothing) {
    for (const bool byEscape : {true, false}) {
        SCOPED_TRACE(byEscape ? "Esc" : "window closed");
        completions = 0;
        open({webLink("https://example.org/")});
        QTest::keyClicks(child<QPlainTextEdit>("text"), "Not wanted");
        if (byEscape)
            QTest::keyClick(child<QPlainTextEdit>("text"), Qt::Key_Escape);
        else
            window->close();
        waitForSaves();
        EXPECT_EQ(completions, 1);
        EXPECT_TRUE(controller->pendingSaves()->outcomes().empty());
        EXPECT_TRUE(window->isVisible()); // until the program quits
        EXPECT_TRUE(ShareFixture::storedTasks().empty());
        EXPECT_EQ(*readers.back()->viewContext()->count(TK_Category::fetchRequest()), 0u);
        window.reset();
        model.reset();
    }
}

TEST_F(ShareFormTest, TheNewListSheetMakesTheListOrKeepsTheOneChosenBefore) {
    struct Case {
        const char* name;
        const char* typed; // into the sheet's title field
        bool pressOK;      // else Esc
        const char* listOfTask;
    };
    const std::vector<Case> cases = {
        {"a title, OK", "  Groceries ", true, "Groceries"},
        {"Esc", "Groceries", false, "Errands"},
        {"a blank title cannot be confirmed", "   ", true, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir caseDir;
        data = LocalDataManager::make(caseDir.path());
        addList("Errands", 0);
        open();
        QTest::keyClicks(child<QPlainTextEdit>("text"), "Buy milk");
        auto* lists = child<QComboBox>("lists");
        QTest::keyClick(lists, Qt::Key_End); // "New List…"
        settle();
        auto* sheet = window->findChild<QDialog*>("newListSheet");
        ASSERT_TRUE(sheet && sheet->isVisible());
        auto* title = sheet->findChild<QLineEdit*>("title");
        EXPECT_TRUE(title->hasFocus());
        QTest::keyClicks(title, c.typed);
        QTest::keyClick(title, c.pressOK ? Qt::Key_Return : Qt::Key_Escape);
        settle();
        if (!c.listOfTask) {
            EXPECT_TRUE(sheet->isVisible());
            QTest::keyClick(title, Qt::Key_Escape);
            settle();
        }
        EXPECT_FALSE(window->findChild<QDialog*>("newListSheet"));
        EXPECT_EQ(lists->currentText().toStdString(),
                  std::string(c.listOfTask ? c.listOfTask : "Errands") + " (0 tasks)");
        QTest::keyClick(lists, Qt::Key_Return);
        waitForSaves();
        const auto tasks = storedTasks("Buy milk");
        ASSERT_EQ(tasks.size(), 1u);
        EXPECT_EQ(tasks.front()->category()->title(), c.listOfTask ? c.listOfTask : "Errands");
        window.reset();
        model.reset();
    }
}

TEST_F(ShareFormTest, FilesWithoutThePaidTierShowTheNoticeThenSaveWithoutThem) {
    addList("Errands", 0);
    writeFile(dir / "notes.txt", "notes");
    open({fileLink(dir / "notes.txt")});
    EXPECT_EQ(child<QLabel>("files")->text(),
              QString::fromUtf8(tasket::rules::texts::kFilesNeedPremium.english));

    auto* text = child<QPlainTextEdit>("text");
    QTest::keyClicks(text, "With notes");
    QTest::keyClick(text, Qt::Key_Return, Qt::ControlModifier);
    settle();
    auto* notice = window->findChild<QMessageBox*>("premiumRequiredSheet");
    ASSERT_TRUE(notice && notice->isVisible());
    EXPECT_EQ(notice->windowTitle(), "Tasket Premium is Required");
    EXPECT_EQ(notice->text(), "Tasket Premium is Required");
    EXPECT_EQ(notice->informativeText(), "Please purchase Tasket Premium to access this feature.");
    EXPECT_EQ(text->toPlainText(), "With notes"); // Ctrl+Enter added no line
    EXPECT_TRUE(controller->pendingSaves()->outcomes().empty());

    QTest::keyClick(notice, Qt::Key_Escape);
    settle();
    EXPECT_FALSE(controller->toolbar().isDonePremiumRequiredPresented().value());
    EXPECT_TRUE(child<QPushButton>("done")->isEnabled());
    QTest::keyClick(text, Qt::Key_Return, Qt::ControlModifier);
    waitForSaves();
    const auto tasks = storedTasks("With notes");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_TRUE(tasks.front()->attachmentsArray().empty());
}

TEST_F(ShareFormTest, WithThePaidTierTheFilesAreListedAndAttached) {
    ASSERT_TRUE(group->setValue(tasket::settings::keys::kIsSuccessfulPurchase, true));
    writeFile(dir / "notes.txt", "notes");
    writeFile(dir / "Makefile", std::string(1500, 'x'));
    // Named with their extension, or as a picture when held in memory; a
    // file that cannot be read is shown as left out, with the reason.
    open({fileLink(dir / "notes.txt"), fileLink(dir / "Makefile"), fileLink(dir / "gone.txt"),
          pictureInMemory(pngBytes(), "public.png")});
    EXPECT_EQ(child<QLabel>("files")->text().toStdString(),
              "notes.txt (5 bytes)\nMakefile (1.5 kB)\nPicture.png (33 bytes)\n"
              "Not attached: cannot share \"" +
                  (dir / "gone.txt").string() + "\": no such file or directory");
    // An empty store: the task goes into a list made for it.
    EXPECT_EQ(listLabels(), QStringList({"New Category (0 tasks)", "New List…"}));
    QTest::keyClicks(child<QPlainTextEdit>("text"), "Two files");
    QTest::mouseClick(child<QPushButton>("done"), Qt::LeftButton);
    waitForSaves();
    const auto tasks = storedTasks("Two files");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(tasks.front()->attachmentsArray().size(), 3u);
}

TEST_F(ShareFormTest, TheListsFollowAnotherProgramAndDoneExplainsAChosenListItDeleted) {
    addList("Errands", 0);
    addList("Work", 1);
    open({webLink("https://example.org/")});
    tasket::cloud::installHistoryProcessing(*data, "share_form_test", nullptr);
    QTest::keyClicks(child<QPlainTextEdit>("text"), "Read later");
    // seed_store changes the lists in another process; the picker follows.
    for (const auto& [change, labels] : {std::pair{"--list=Home", "Errands,Home,Work"},
                                         {"--rename=Work=Office", "Errands,Home,Office"},
                                         {"--delete=Errands", "Home,Office"}}) {
        const auto option = QString(change).section('=', 0, 0).toStdString();
        const auto value = QString(change).section('=', 1).toStdString();
        seedStore(dir.path(), {option, value}, dir.path());
        QStringList expected =
            QString(labels).split(',').replaceInStrings(QRegularExpression("$"), " (0 tasks)");
        expected.append("New List…");
        EXPECT_TRUE(MainQueue::shared().runUntil([&] {
            QApplication::processEvents();
            return listLabels() == expected;
        })) << listLabels().join(", ").toStdString();
    }
    // Errands was the chosen list: Done explains and the form stays open.
    QTest::mouseClick(child<QPushButton>("done"), Qt::LeftButton);
    settle();
    EXPECT_TRUE(child<QLabel>("problem")->text().contains("deleted in another program"));
    EXPECT_TRUE(child<QPushButton>("done")->isEnabled());
    EXPECT_EQ(completions, 0);
    model->chooseRow(1);
    QTest::mouseClick(child<QPushButton>("done"), Qt::LeftButton);
    waitForSaves();
    const auto tasks = storedTasks("Read later");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(tasks.front()->category()->title(), "Office");
}

// The locked screen asks through the password dialog; a cancelled or wrong
// answer keeps it locked and says why, the right one opens the form.
TEST(LockedScreen, UnlocksOnlyWithTheRightPassword) {
    auto group = std::make_shared<tasket::platform::InMemoryPreferencesSuite>("group");
    ASSERT_TRUE(group->setValue(tasket::settings::keys::kIsAuthenticationEnabled, true));
    tasket::services::AuthenticationManager lock(
        std::make_shared<tasket::settings::CustomizationManager>(
            group, std::make_shared<tasket::platform::InMemoryPreferencesSuite>("standard")),
        std::make_shared<tasket::platform::InMemoryAuthenticator>("pw"));
    int unlocked = 0;
    int cancelled = 0;
    tasket::apps::LockedScreen screen(
        lock, [&] { ++unlocked; }, [&] { ++cancelled; });
    screen.show();
    struct Case {
        std::optional<QString> answer; // nullopt: the dialog is closed
        std::string problem;
        int unlockedAfter;
    };
    const Case cases[] = {
        {std::nullopt, "authentication was cancelled", 0},
        {QStringLiteral("PW"), "authentication failed", 0},
        {QStringLiteral("pw"), "", 1},
    };
    for (const auto& c : cases) {
        QTimer::singleShot(0, [&] {
            auto* dialog = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            EXPECT_EQ(dialog->windowTitle(), "Enter your password");
            EXPECT_EQ(dialog->textEchoMode(), QLineEdit::Password);
            if (c.answer) {
                dialog->setTextValue(*c.answer);
                dialog->accept();
            } else {
                dialog->reject();
            }
        });
        QTest::mouseClick(screen.findChild<QPushButton*>(), Qt::LeftButton);
        EXPECT_EQ(unlocked, c.unlockedAfter);
        EXPECT_EQ(lock.isLocked(), c.unlockedAfter == 0);
        const std::string shown = screen.findChildren<QLabel*>().back()->text().toStdString();
        EXPECT_NE(shown.find(c.problem), std::string::npos) << shown;
    }
    EXPECT_EQ(cancelled, 0);
}
