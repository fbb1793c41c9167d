// `tasket demo` through the real program, in a private data folder: the
// store appears in the application-group folder and each run adds a task
// that a fresh read finds.
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

namespace {

std::pair<int, std::string> run(const std::filesystem::path& dataHome,
                                const std::string& arguments) {
    const std::string command =
        "XDG_DATA_HOME='" + dataHome.string() + "' " TASKET_BINARY " " + arguments + " 2>&1";
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe))
        output += buffer;
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

} // namespace

TEST(TasketDemo, CreatesTheStoreInTheGroupFolderAndReadsEachTaskBack) {
    tasket::testing::TempDir dir;
    const auto group = dir / "group.QRX-Lumenforge.Tasket";
    auto [status, output] = run(dir.path(), "demo --json");
    ASSERT_EQ(status, 0) << output;
    EXPECT_NE(output.find("\"tasksInList\": 1"), std::string::npos) << output;
    EXPECT_TRUE(std::filesystem::exists(group / "TK_Data.sqlite"));
    struct stat info {};
    ASSERT_EQ(::stat(group.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    std::tie(status, output) = run(dir.path(), "demo --title 'Zweite Aufgabe ✓'");
    ASSERT_EQ(status, 0) << output;
    EXPECT_NE(output.find("Saved \"Zweite Aufgabe ✓\" in the list \"Demo\" (2 tasks there now)"),
              std::string::npos)
        << output;
}

TEST(TasketDemo, AStoreThatIsNotADatabaseStopsWithTheMessageAndStaysUntouched) {
    tasket::testing::TempDir dir;
    const auto group = dir / "group.QRX-Lumenforge.Tasket";
    std::filesystem::create_directories(group);
    const std::string junk = "not a store\n";
    {
        std::FILE* f = std::fopen((group / "TK_Data.sqlite").c_str(), "w");
        std::fputs(junk.c_str(), f);
        std::fclose(f);
    }
    const auto [status, output] = run(dir.path(), "demo");
    EXPECT_NE(status, 0);
    EXPECT_EQ(output.rfind("There was an error loading the persistent store: ", 0), 0u) << output;
    EXPECT_NE(output.find("file is not a database"), std::string::npos) << output;
    EXPECT_EQ(std::filesystem::file_size(group / "TK_Data.sqlite"), junk.size());
}
