// tasket-share through the real program, headless, with private XDG
// folders: what each kind of shared thing becomes in the store, what is
// refused and why, that Cancel and refusals write nothing, and that a kill
// in the middle of Done leaves either the whole task or none of it.
#include "common/version.h"
#include "platform/preferences/file_preferences_suite.h"
#include "settings/settings_keys.h"
#include "store/local_data_manager.h"
#include "store/records.h"
#include "support/program_run.h"
#include "support/sql.h"
#include "support/temp_dir.h"

#include <QBuffer>
#include <QImage>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

namespace keys = tasket::settings::keys;
using tasket::store::LocalDataManager;
using tasket::store::TK_Category;
using tasket::store::TK_Task;
using namespace tasket::testing;

namespace {

class TasketShareTest : public ::testing::Test {
  protected:
    std::filesystem::path storeFile() const { return groupFolder(dir.path()) / "TK_Data.sqlite"; }

    /// No display, so the terminal prompt asks, unless `offscreen` lets the
    /// form draw off screen. Runs in the test folder.
    ProgramOptions options() const {
        ProgramOptions o{.home = dir.path()};
        if (offscreen)
            o.environment.push_back("QT_QPA_PLATFORM=offscreen");
        return o;
    }
    ProgramRun share(const std::vector<std::string>& arguments,
                     std::optional<std::string> input = std::nullopt) {
        auto o = options();
        o.input = std::move(input);
        return runProgram(TASKET_SHARE_BINARY, arguments, o);
    }

    void buyPaidTier() {
        tasket::platform::FilePreferencesSuite suite(dir / "config",
                                                     std::string(keys::kAppGroupSuite));
        ASSERT_TRUE(suite.setValue(keys::kIsSuccessfulPurchase, true));
    }

    /// The stored tasks, read by a fresh owner of the store.
    std::vector<std::shared_ptr<TK_Task>> storedTasks() {
        if (!std::filesystem::exists(storeFile()))
            return {};
        readers.push_back(LocalDataManager::make(storeFile().parent_path()));
        const auto fetched = readers.back()->viewContext()->fetch(TK_Task::fetchRequest());
        EXPECT_TRUE(fetched);
        std::vector<std::shared_ptr<TK_Task>> tasks;
        for (const auto& object : *fetched)
            tasks.push_back(std::static_pointer_cast<TK_Task>(object));
        return tasks;
    }

    std::shared_ptr<TK_Task> onlyTask() {
        auto tasks = storedTasks();
        EXPECT_EQ(tasks.size(), 1u);
        return tasks.empty() ? nullptr : tasks.front();
    }

    TempDir dir;
    bool offscreen = false;
    std::vector<std::shared_ptr<LocalDataManager>> readers;
};

} // namespace

// Without the paid tier the file is left out, with the notice.
TEST_F(TasketShareTest, AWebLinkBecomesTheTasksLinkAndAFileWithoutThePaidTierIsLeftOut) {
    writeFile(dir / "notes.txt", "notes");
    const ProgramRun run = share(
        {"--yes", "--json", "--text", "Read later", "notes.txt", "https://example.com/a%20b?x=1"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.out.contains("\"url\": \"https://example.com/a%20b?x=1\"")) << run.out;
    EXPECT_TRUE(run.out.contains("\"isAddingAttachmentsWithoutPremium\": true")) << run.out;
    EXPECT_TRUE(run.err.contains("Tasket Premium is Required")) << run.err;
    const auto task = onlyTask();
    ASSERT_TRUE(task);
    EXPECT_EQ(task->url(), "https://example.com/a%20b?x=1");
    EXPECT_EQ(task->title(), "Read later");
    EXPECT_TRUE(task->attachmentsArray().empty());
    EXPECT_EQ(task->category()->title(), "New Category");
}

// Only the first item counts: the second one's link and file are left out.
// (What a file becomes is the shared input's own test.)
TEST_F(TasketShareTest, WithThePaidTierTheFirstItemsFilesAreAttached) {
    buyPaidTier();
    writeFile(dir / "Report 2024.final.pdf", "pdf");
    writeFile(dir / "Makefile", "all:\n");
    writeFile(dir / "second.txt", "second");
    const ProgramRun run = share({"--yes", "--text", "Files", "Report 2024.final.pdf",
                                  "file://" + (dir / "Makefile").string(), "https://first.example/",
                                  "--item", "https://second.example/", "second.txt"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto task = onlyTask();
    ASSERT_TRUE(task);
    EXPECT_EQ(task->url(), "https://first.example/");
    std::vector<std::string> names;
    for (const auto& attachment : task->attachmentsArray())
        names.push_back(*attachment->title() + "|" + *attachment->fileExtension());
    std::ranges::sort(names);
    EXPECT_EQ(names, (std::vector<std::string>{"Makefile|", "Report 2024.final|pdf"}));
}

TEST_F(TasketShareTest, APictureFromStandardInputIsStoredAsPNG) {
    buyPaidTier();
    QImage picture(16, 9, QImage::Format_RGB32);
    picture.fill(qRgb(200, 30, 60));
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    ASSERT_TRUE(picture.save(&buffer, "JPEG"));

    const ProgramRun run =
        share({"--yes", "--text", "Photo", "--image", "-"},
              std::string(jpeg.constData(), static_cast<std::size_t>(jpeg.size())));
    ASSERT_EQ(run.status, 0) << run.err;
    const auto task = onlyTask();
    ASSERT_TRUE(task);
    ASSERT_EQ(task->attachmentsArray().size(), 1u);
    const auto attachment = task->attachmentsArray().front();
    EXPECT_EQ(attachment->fileExtension(), "png");
    EXPECT_EQ(attachment->typeCase(), tasket::rules::TK_AttachmentType::image);
    const auto png = attachment->content().value_or(tasket::objectstore::Bytes{});
    const QImage decoded = QImage::fromData(png.data(), static_cast<int>(png.size()), "PNG");
    EXPECT_EQ(decoded.size(), QSize(16, 9));
}

TEST_F(TasketShareTest, ThePromptAsksForTheTextAndTheListAndCancelWritesNothing) {
    const ProgramRun cancelled = share({"https://example.com"}, "Some text\n\nn\n");
    EXPECT_EQ(cancelled.status, 1) << cancelled.err;
    EXPECT_TRUE(cancelled.err.contains("nothing was saved")) << cancelled.err;
    // Nor the list that was made for the empty store.
    EXPECT_TRUE(storedTasks().empty());
    readers.push_back(LocalDataManager::make(storeFile().parent_path()));
    EXPECT_EQ(*readers.back()->viewContext()->count(TK_Category::fetchRequest()), 0u);

    ASSERT_EQ(share({"--yes", "--text", "seed", "https://a.example"}).status, 0);
    const ProgramRun run = share({"https://b.example"}, "Typed 🙂 text\n1\ny\n");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.contains("1. New Category (1 tasks)")) << run.err;
    bool found = false;
    for (const auto& task : storedTasks())
        found = found || (task->title() == "Typed 🙂 text" && task->url() == "https://b.example");
    EXPECT_TRUE(found);
}

TEST_F(TasketShareTest, BadInputIsRefusedNamingItAndNothingIsWrittenWhenNothingIsLeft) {
    buyPaidTier();
    std::filesystem::create_directory(dir / "folder");
    // A sparse file one byte over the limit.
    { std::ofstream((dir / "huge.bin").string()); }
    std::filesystem::resize_file(dir / "huge.bin", 64ull * 1024 * 1024 + 1);
    writeFile(dir / "junk.gif", "GIF89a but nothing after it");

    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> messages;
        int status = 0; // 0: any failure
    };
    const std::vector<Case> cases = {
        {{"missing.txt"}, {"cannot share \"missing.txt\": no such file", "nothing was written"}},
        {{"folder"}, {"\"folder\": it is a directory", "nothing was written"}},
        {{"huge.bin"}, {"larger than the 64 MiB", "nothing was written"}},
        {{"--image", "junk.gif"}, {"cannot be decoded", "nothing was written"}},
        {{"--list", "Nowhere", "https://example.com"}, {"there is no list \"Nowhere\""}, 66},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.back());
        std::vector<std::string> arguments{"--yes"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ProgramRun run = share(arguments);
        EXPECT_NE(run.status, 0);
        EXPECT_TRUE(c.status == 0 || run.status == c.status) << run.status;
        for (const auto& message : c.messages)
            EXPECT_TRUE(run.err.contains(message)) << run.err;
        EXPECT_TRUE(storedTasks().empty());
    }

    // With text, the rest is saved and the bad item is skipped.
    const ProgramRun run = share({"--yes", "--text", "Kept", "missing.txt", "https://ok.example"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.contains("missing.txt"));
    const auto task = onlyTask();
    ASSERT_TRUE(task);
    EXPECT_EQ(task->url(), "https://ok.example");
}

TEST_F(TasketShareTest, AnInvalidLinkBecomesTextNeverALinkAndUnicodeSurvives) {
    const std::string text = "مرحبا 👋🏽 \u202eRTL\u202c";
    const ProgramRun run = share({"--yes", "--text", text, "https://exa mple.com/"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto task = onlyTask();
    ASSERT_TRUE(task);
    EXPECT_EQ(task->title(), text + " https://exa mple.com/");
    EXPECT_FALSE(task->url().has_value());

    const ProgramRun refused = share({"https://example.com"}, std::string("a\0b\n", 4));
    EXPECT_NE(refused.status, 0);
    EXPECT_TRUE(refused.err.contains("NUL byte")) << refused.err;
    EXPECT_EQ(storedTasks().size(), 1u);
}

TEST_F(TasketShareTest, AScreenshotDrawsTheFormIntoAPNGAndWritesNothing) {
    ASSERT_EQ(share({"--yes", "--text", "seed", "https://a.example"}).status, 0);
    writeFile(dir / "notes.txt", "notes");
    const std::filesystem::path png = dir / "form.png";
    const std::vector<std::string> arguments = {"--screenshot", png.string(),
                                                "https://example.org/article", "notes.txt"};

    // No form to draw: no display, or --yes.
    for (const auto& [yes, message] :
         {std::pair{false, "--screenshot needs the form"}, {true, "which --yes leaves out"}}) {
        offscreen = yes;
        std::vector<std::string> refusedArguments = arguments;
        if (yes)
            refusedArguments.insert(refusedArguments.begin(), "--yes");
        const ProgramRun refused = share(refusedArguments);
        EXPECT_EQ(refused.status, 64);
        EXPECT_TRUE(refused.err.contains(message)) << refused.err;
        EXPECT_FALSE(std::filesystem::exists(png));
    }

    offscreen = true;
    const ProgramRun run = share(arguments);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    const QImage shot(QString::fromStdString(png.string()), "PNG");
    ASSERT_FALSE(shot.isNull());
    EXPECT_GE(shot.width(), 300);
    EXPECT_GE(shot.height(), 150);
    ASSERT_EQ(storedTasks().size(), 1u);
    EXPECT_EQ(storedTasks().front()->title(), "seed");

    // Nothing shared at all: the form opens empty; without one it is refused.
    std::filesystem::remove(png);
    const ProgramRun empty = share({"--screenshot", png.string()});
    EXPECT_EQ(empty.status, 0) << empty.err;
    EXPECT_TRUE(std::filesystem::exists(png));
    offscreen = false;
    const ProgramRun nothing = share({});
    EXPECT_EQ(nothing.status, 64);
    EXPECT_TRUE(nothing.err.contains("nothing to share")) << nothing.err;
}

TEST_F(TasketShareTest, AKillDuringDoneNeverLeavesAHalfTask) {
    buyPaidTier();
    const std::size_t size = 24u * 1024 * 1024;
    writeFile(dir / "big.bin", std::string(size, 'x'));
    const std::vector<std::string> arguments = {"--yes", "--text", "Big", "big.bin"};
    for (const int delayMs : {0, 20, 40, 60, 90, 120, 160, 220, 300, 400, 600}) {
        const pid_t child = startProgram(TASKET_SHARE_BINARY, arguments, options());
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
    }
    if (std::filesystem::exists(storeFile())) {
        EXPECT_EQ(sqlRows(storeFile(), "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    }
    for (const auto& task : storedTasks()) {
        EXPECT_EQ(task->title(), "Big");
        ASSERT_TRUE(task->category());
        ASSERT_EQ(task->attachmentsArray().size(), 1u);
        EXPECT_EQ(task->attachmentsArray().front()->content()->size(), size);
    }
    // An uninterrupted run still saves the whole task.
    const std::size_t before = storedTasks().size();
    const ProgramRun run = share(arguments);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(storedTasks().size(), before + 1);
}

// A save the store refuses is reported, with a failing status, and leaves
// nothing behind.
TEST_F(TasketShareTest, VersionIsPrintedAndNothingWritten) {
    const ProgramRun run = share({"--version"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, std::string(tasket::apps::kTasketVersion) + "\n");
    EXPECT_TRUE(storedTasks().empty());
}

TEST_F(TasketShareTest, AFailedSaveIsReportedAndExitsNonZero) {
    ASSERT_EQ(share({"--yes", "--text", "First", "https://example.org/1"}).status, 0);
    sqlRows(storeFile(), "CREATE TRIGGER refuse BEFORE INSERT ON TK_Task "
                         "BEGIN SELECT RAISE(ABORT, 'the disk said no'); END");
    const ProgramRun run = share({"--yes", "--text", "Second", "https://example.org/2"});
    EXPECT_NE(run.status, 0);
    EXPECT_TRUE(run.err.contains("the task could not be saved")) << run.err;
    EXPECT_TRUE(run.err.contains("the disk said no")) << run.err;
    EXPECT_FALSE(run.out.contains("Saved")) << run.out;
    EXPECT_EQ(storedTasks().size(), 1u);
}

// Picture bytes are never read from a terminal: the user would be left
// typing into a program that waits for a file.
TEST_F(TasketShareTest, APictureFromAStandardInputThatIsATerminalIsRefused) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    auto o = options();
    o.inputFile = ::ptsname(master);
    const ProgramRun run = runProgram(TASKET_SHARE_BINARY, {"--yes", "--image", "-"}, o);
    ::close(master);
    EXPECT_EQ(run.status, 64) << run.err;
    EXPECT_TRUE(run.err.contains("refusing to read picture bytes from a terminal")) << run.err;
    EXPECT_FALSE(std::filesystem::exists(storeFile()));
}

// While the app lock is on a share may still be saved, but nothing printed
// names a list of the store, the prompt that would list them is refused,
// and the form draws only the locked screen.
TEST_F(TasketShareTest, ALockedShareSavesButNamesNoList) {
    seedStore(groupFolder(dir.path()), {"--list", "Home", "--list", "Work"}, dir.path());
    tasket::platform::FilePreferencesSuite suite(dir / "config", std::string(keys::kAppGroupSuite));
    ASSERT_TRUE(suite.setValue(keys::kIsAuthenticationEnabled, true));
    const std::filesystem::path png = dir / "locked.png";
    struct Case {
        std::vector<std::string> arguments;
        std::optional<std::string> input;
        bool offscreen;
        int status;
        std::size_t tasksAfter;
    };
    const Case cases[] = {
        {{"--yes", "--list", "Work", "--text", "Blind", "https://a.example"}, {}, false, 0, 1},
        {{"--yes", "--json", "--text", "Default list", "https://b.example"}, {}, false, 0, 2},
        {{"--yes", "--list", "Nowhere", "https://c.example"}, {}, false, 66, 2},
        {{"https://d.example"}, "Typed\n1\ny\n", false, 79, 2},
        {{"--screenshot", png.string(), "https://e.example"}, {}, true, 0, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.arguments));
        offscreen = c.offscreen;
        const ProgramRun run = share(c.arguments, c.input);
        EXPECT_EQ(run.status, c.status) << run.err;
        for (const char* list : {"Home", "Work"})
            EXPECT_FALSE((run.out + run.err).contains(list)) << run.out << run.err;
        EXPECT_EQ(storedTasks().size(), c.tasksAfter);
    }
    const QImage shot(QString::fromStdString(png.string()), "PNG");
    EXPECT_FALSE(shot.isNull());
}
