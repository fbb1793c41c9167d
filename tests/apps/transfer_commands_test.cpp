// tasket export and tasket import as programs, over a seeded store: a file
// moved to an empty store exports the same, one list exports alone, and bad
// files and command lines stop with the right status and nothing imported.
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace tasket::testing;

namespace {

ProgramRun tasket(const TempDir& home, std::vector<std::string> arguments) {
    return runProgram(TASKET_BINARY, arguments, {.home = home.path()});
}

TEST(TransferCommands, ExportImportAndWhatTheyRefuse) {
    TempDir dir;
    std::ofstream(dir / "notes.txt") << "some notes";
    seedStore(groupFolder(dir.path()),
              {"--list", "Home", "--task", "Water plants", "--attach", "notes.txt", "--list",
               "Work", "--task", "Write report"},
              dir.path());
    const ProgramRun all = tasket(dir, {"export", "--all"});
    ASSERT_EQ(all.status, 0) << all.err;
    EXPECT_NE(all.out.find("\"kind\":\"TK_SharedAttachment\""), std::string::npos);
    std::ofstream(dir / "all.jsonl") << all.out;

    const ProgramRun home = tasket(dir, {"export", "--list", "Home"});
    EXPECT_NE(home.out.find("Water plants"), std::string::npos);
    EXPECT_EQ(home.out.find("Write report"), std::string::npos);

    TempDir empty;
    const ProgramRun moved = tasket(empty, {"import", (dir / "all.jsonl").string()});
    ASSERT_EQ(moved.status, 0) << moved.err;
    EXPECT_EQ(tasket(empty, {"export"}).out, all.out);
    const ProgramRun again = tasket(empty, {"import", (dir / "all.jsonl").string(), "--dry-run"});
    EXPECT_NE(again.out.find("would create 0 objects"), std::string::npos) << again.out;

    std::ofstream(dir / "bad.jsonl") << all.out.substr(0, all.out.find('\n') + 1)
                                     << R"({"kind":"TK_SharedTask","record":{"id":"T","title":1}})";
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"import", (dir / "bad.jsonl").string()}, 65, "line 2: TK_SharedTask \"T\": \"title\""},
        {{"import", "--from-taskwarrior", (dir / "all.jsonl").string()}, 65, "not valid JSON"},
        {{"import", (dir / "missing.jsonl").string()}, 66, "cannot read"},
        {{"export", "--list", "Home", "--all"}, 64, "excludes"},
        {{"export", "--list", "Nowhere"}, 66, "Nowhere"},
    };
    for (const auto& c : cases) {
        const ProgramRun run = tasket(empty, c.arguments);
        EXPECT_EQ(run.status, c.status) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    }
    EXPECT_EQ(tasket(empty, {"export"}).out, all.out); // nothing of the bad files came in
}

} // namespace
