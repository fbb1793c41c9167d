#include "platform/extension/shared_file.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <tuple>

using namespace tasket::platform;
using tasket::testing::TempDir;

namespace {

// Directories, FIFOs, sockets, devices and files over the limit are refused
// through the real tasket-share (tests/apps); here is what that test cannot
// reach.
TEST(SharedFile, RefusesWhatCannotBecomeAnAttachment) {
    TempDir dir;
    std::filesystem::create_symlink(dir / "gone", dir / "dangling");
    std::ofstream(dir / "plain.txt") << "x";

    const std::tuple<std::filesystem::path, Errc, std::string> cases[] = {
        {dir / "plain.txt" / "x", Errc::notFound, "no such file"},
        {dir / "dangling", Errc::notFound, "no such file"},
    };
    for (const auto& [path, code, phrase] : cases) {
        SCOPED_TRACE(path);
        const std::string display = path.filename().string() + " (shown)";
        auto checked = checkSharedFile(path, display);
        ASSERT_FALSE(checked);
        EXPECT_EQ(checked.error().code, code);
        EXPECT_THAT(checked.error().message, ::testing::HasSubstr(display));
        EXPECT_THAT(checked.error().message, ::testing::HasSubstr(phrase));
        EXPECT_FALSE(readSharedFile(path, display));
    }
}

TEST(SharedFile, RefusesAnUnreadableFile) {
    TempDir dir;
    std::filesystem::permissions(dir.path(), std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
    std::ofstream(dir / "secret.txt") << "x";
    std::filesystem::permissions(dir / "secret.txt", std::filesystem::perms::none);
    // Root reads every file: the check runs as an unprivileged user.
    EXPECT_EQ(tasket::testing::asUnprivilegedUser([&] {
                  auto checked = checkSharedFile(dir / "secret.txt", "secret.txt");
                  return checked ? "read" : std::to_string(static_cast<int>(checked.error().code));
              }),
              std::to_string(static_cast<int>(Errc::permissionDenied)));

    auto checked = checkSharedFile(dir / "secret.txt", "secret.txt");
    if (!checked) {
        EXPECT_THAT(checked.error().message,
                    ::testing::HasSubstr("\"secret.txt\": permission to read it is denied"));
    }
}

TEST(SharedFile, EnforcesTheSizeLimitOnWhatIsRead) {
    TempDir dir;
    // Sparse files: the checks read sizes, not contents.
    for (const auto& [name, size] : {std::pair{"exact.bin", kMaxSharedFileSize},
                                     std::pair{"over.bin", kMaxSharedFileSize + 1}}) {
        std::ofstream(dir / name).close();
        std::filesystem::resize_file(dir / name, size);
    }
    EXPECT_EQ(checkSharedFile(dir / "exact.bin", "exact.bin"), kMaxSharedFileSize);
    auto over = checkSharedFile(dir / "over.bin", "over.bin");
    ASSERT_FALSE(over);
    EXPECT_EQ(over.error().code, Errc::invalidArgument);
    EXPECT_NE(over.error().message.find("\"over.bin\""), std::string::npos);
    EXPECT_THAT(over.error().message, ::testing::HasSubstr("64 MiB"));

    std::ofstream(dir / "data.bin") << std::string_view("a\0b", 3);
    EXPECT_EQ(readSharedFile(dir / "data.bin", "data.bin", 3), (Bytes{'a', 0, 'b'}));
    // /proc files claim a size of 0 and then hold more: bytes read count.
    EXPECT_FALSE(readSharedFile("/proc/self/status", "status", 16));
    std::istringstream in(std::string(5, 'z'));
    EXPECT_EQ(readSharedStream(in, "standard input", 5), Bytes(5, 'z'));
    std::istringstream tooMuch(std::string(6, 'z'));
    auto refused = readSharedStream(tooMuch, "standard input", 5);
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().message.find("standard input"), std::string::npos);
}

} // namespace
