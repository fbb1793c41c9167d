// What the file adapter adds to the contract: sharing between processes,
// permissions, and keeping an unreadable file instead of destroying it.
#include "platform/clock.h"
#include "platform/preferences/file_preferences_suite.h"
#include "support/temp_dir.h"

#include <fmt/core.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace tasket::platform;
using tasket::testing::readFile;
using tasket::testing::TempDir;
using tasket::testing::writeFile;

// One owner-only document named after the suite, and two suites over it:
// each write, even one that leaves the size unchanged a moment after the
// last, is seen at the other's next read.
TEST(FilePreferencesSuite, WritesOneOwnerOnlyDocumentThatAnotherReaderSeesChange) {
    TempDir dir;
    const mode_t umaskBefore = ::umask(0); // owner-only whatever the umask
    FilePreferencesSuite writer(dir / "config", "group.QRX-Lumenforge.Tasket");
    FilePreferencesSuite reader(dir / "config", "group.QRX-Lumenforge.Tasket");
    EXPECT_FALSE(reader.value("k"));
    ASSERT_TRUE(writer.setValue("k", true));
    EXPECT_EQ(writer.path(), dir / "config" / "group.QRX-Lumenforge.Tasket.json");
    struct stat st {};
    ASSERT_EQ(::stat(writer.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat((dir / "config").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ::umask(umaskBefore);
    EXPECT_EQ(readFile(writer.path()), "{\n  \"k\": true\n}\n");
    EXPECT_TRUE(std::ranges::none_of(
        std::filesystem::directory_iterator(dir / "config"),
        [](const auto& entry) { return entry.path().string().contains(".tmp-"); }))
        << "a temporary file was left";
    for (int i = 10; i < 100; ++i) {
        ASSERT_TRUE(writer.setValue("n", i));
        ASSERT_EQ(reader.integerValue("n"), i);
    }
    // A key this program would never write (an empty one) does not stop
    // its writes, and survives them.
    writeFile(writer.path(), R"({"": "theirs", "n": 1})");
    ASSERT_TRUE(writer.setValue("n", 2));
    EXPECT_EQ(reader.stringValue(""), "theirs");
    ASSERT_TRUE(std::filesystem::remove(writer.path()));
    EXPECT_FALSE(reader.value("n"));

    tasket::testing::ScopedEnv config("XDG_CONFIG_HOME", dir / "xdg");
    EXPECT_EQ(FilePreferencesSuite::inConfigHome("Lumenforge.QRX.Tasket")->path(),
              dir / "xdg" / "Lumenforge.QRX.Tasket.json");
}

TEST(FilePreferencesSuite, AnUnreadableFileReadsAsEmptyAndIsMovedAsideBeforeTheNextWrite) {
    TempDir dir;
    ManualClock clock(Date::fromUnix(1735787045)); // 2025-01-02 03:04:05 UTC
    Clock::setShared(&clock);
    FilePreferencesSuite suite(dir.path(), "s");
    { std::ofstream(suite.path()) << "{\"k\": tru"; }

    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(suite.value("k"));
    EXPECT_FALSE(suite.value("k")); // warned once, not on every read
    const std::string readWarning = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(readWarning.find("s.json"), std::string::npos) << readWarning;
    EXPECT_EQ(readWarning.find('\n'), readWarning.size() - 1) << readWarning;

    // Twice in the same second: the second file aside does not replace the first.
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(suite.setValue("k", true));
    { std::ofstream(suite.path()) << "second"; }
    ASSERT_TRUE(suite.setValue("k", true));
    const std::string moveWarning = ::testing::internal::GetCapturedStderr();
    Clock::setShared(nullptr);

    const auto aside = dir / "s.json.corrupt-20250102T030405Z";
    EXPECT_EQ(readFile(aside), "{\"k\": tru");
    EXPECT_EQ(readFile(dir / "s.json.corrupt-20250102T030405Z-2"), "second");
    EXPECT_NE(moveWarning.find(aside.string()), std::string::npos) << moveWarning;
    EXPECT_EQ(suite.boolValue("k"), true);
}

// Two processes each write 1,000 keys of their own into one suite at the
// same time; every write reads the file afresh under the lock, so none of
// the 2,000 keys is lost.
TEST(FilePreferencesSuite, TwoProcessesWritingTheSameSuiteLoseNoKey) {
    TempDir dir;
    constexpr int kWrites = 1000;
    auto writeKeys = [&](const char* prefix) {
        FilePreferencesSuite suite(dir.path(), "shared");
        for (int i = 0; i < kWrites; ++i)
            if (!suite.setValue(fmt::format("{}.{}", prefix, i), i))
                return false;
        return true;
    };
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        ::_exit(writeKeys("child") ? 0 : 1);
    const bool parentWrote = writeKeys("parent");
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_TRUE(parentWrote);

    FilePreferencesSuite check(dir.path(), "shared");
    const auto values = check.dictionaryRepresentation();
    EXPECT_EQ(values.size(), 2u * kWrites);
    for (const char* prefix : {"child", "parent"})
        for (int i = 0; i < kWrites; ++i)
            EXPECT_EQ(check.integerValue(fmt::format("{}.{}", prefix, i)), i) << prefix << i;
}
