// tasket lists, tasks and show through the real program, over a store
// seeded in a private data folder.
#include "platform/uuid.h"
#include "store/local_data_manager.h"
#include "store/records.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>

using tasket::store::LocalDataManager;
using tasket::store::TK_Attachment;
using tasket::store::TK_Category;
using tasket::store::TK_Task;

namespace {

class TasketCommandsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto group = dir / "group.QRX-Lumenforge.Tasket";
        std::filesystem::create_directories(group);
        std::filesystem::permissions(group, std::filesystem::perms::owner_all);
        auto data = LocalDataManager::make(group);
        auto& view = *data->viewContext();
        auto list = [&](const char* title, std::int16_t sortIndex) {
            auto category = TK_Category::insertNew(view);
            category->setCategoryID(tasket::platform::Uuid::generate().toString());
            category->setTitle(std::string(title));
            category->setSortIndex(sortIndex);
            return category;
        };
        double created = 0; // newest first: the later a task here, the earlier it is listed
        auto task = [&](const char* title, const std::shared_ptr<TK_Category>& in) {
            auto record = TK_Task::insertNew(view);
            record->setWhenCreated(tasket::platform::Date{++created});
            record->setTaskID(tasket::platform::Uuid::generate().toString());
            record->setTitle(std::string(title));
            record->setCategory(in);
            return record;
        };
        const auto work = list("Work", 1);
        const auto home = list("Home", 0);
        task("Write report", work);
        task("Water plants", home);
        const auto shared = task("Read article", home);
        shared->setUrl(std::string("https://example.com/article"));
        auto attachment = TK_Attachment::insertNew(view);
        attachment->setIdentifier(tasket::platform::Uuid::generate().toString());
        attachment->setTitle(std::string("notes"));
        attachment->setFileExtension(std::string("txt"));
        attachment->setType(tasket::rules::TK_AttachmentType::file);
        attachment->setContent(tasket::objectstore::Bytes(1234, 'x'));
        attachment->setTask(shared);
        sharedID = *shared->taskID();
        ASSERT_TRUE(view.save());
    }

    std::pair<int, std::string> tasket(const std::string& arguments) {
        const std::string command = "XDG_DATA_HOME='" + dir.path().string() +
                                    "' XDG_CONFIG_HOME='" + (dir / "config").string() +
                                    "' " TASKET_BINARY " " + arguments + " 2>&1";
        std::string output;
        FILE* pipe = ::popen(command.c_str(), "r");
        char buffer[512];
        while (std::fgets(buffer, sizeof buffer, pipe))
            output += buffer;
        const int status = ::pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
    }

    tasket::testing::TempDir dir;
    std::string sharedID;
};

} // namespace

TEST_F(TasketCommandsTest, PrintWhatTheStoreHolds) {
    struct Case {
        std::string arguments;
        int status;
        std::vector<std::string> expected; // in this order
        std::vector<std::string> absent;
    };
    const std::vector<Case> cases = {
        {"lists", 0, {"Home\t2 tasks", "Work\t1 tasks"}, {}},
        {"lists --json", 0, {"\"title\": \"Home\"", "\"tasks\": 2", "\"title\": \"Work\""}, {}},
        {"tasks --list Home", 0, {"Read article\tHome", "Water plants\tHome"}, {"Write report"}},
        {"tasks --search 'RE'", 0, {"Read article", "Write report"}, {"Water plants"}},
        {"tasks --list Elsewhere", 66, {"there is no list \"Elsewhere\""}, {}},
        {"show " + sharedID,
         0,
         {"Read article", "list:  Home", "link:  https://example.com/article",
          "attachment: notes.txt (file, 1234 bytes)"},
         {}},
        {"show " + sharedID + " --json",
         0,
         {"\"title\": \"Read article\"", "\"url\": \"https://example.com/article\"",
          "\"list\": \"Home\"", "\"fileExtension\": \"txt\"", "\"size\": 1234"},
         {}},
        {"show 00000000-0000-0000-0000-000000000000", 66, {"there is no task"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const auto [status, output] = tasket(c.arguments);
        EXPECT_EQ(status, c.status) << output;
        std::size_t at = 0;
        for (const auto& text : c.expected) {
            const std::size_t found = output.find(text, at);
            EXPECT_NE(found, std::string::npos) << text << " in\n" << output;
            at = found == std::string::npos ? at : found;
        }
        for (const auto& text : c.absent)
            EXPECT_EQ(output.find(text), std::string::npos) << output;
    }
}
