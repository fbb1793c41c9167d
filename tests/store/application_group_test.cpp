#include "store/application_group.h"
#include "store/local_data_manager.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

using namespace tasket::store;
using tasket::testing::ScopedEnv;
using tasket::testing::TempDir;
namespace fs = std::filesystem;

namespace {

fs::perms permissions(const fs::path& p) {
    return fs::status(p).permissions() & fs::perms::mask;
}

void writeFile(const fs::path& p) {
    std::ofstream(p) << "x";
}

class ScopedUmask {
  public:
    explicit ScopedUmask(mode_t mask) : m_old(::umask(mask)) {}
    ~ScopedUmask() { ::umask(m_old); }

  private:
    mode_t m_old;
};

} // namespace

TEST(ApplicationGroup, PreparesAPrivateFolderOrSaysWhyItCannot) {
    enum class Home { missing, folder, file };
    enum class Group { missing, folder0755, file, link, foreign };
    struct Case {
        const char* name;
        Home home;
        Group group;
        std::string failure; // empty: succeeds
        fs::perms mode = fs::perms::owner_all;
        mode_t umask = 022;
    };
    const std::string group = "group.QRX-Lumenforge.Tasket";
    const bool root = ::geteuid() == 0;
    const Case cases[] = {
        {"missing, missing parents made private under any umask", Home::missing, Group::missing, "",
         fs::perms::owner_all, 0},
        {"missing, under a umask that takes owner bits", Home::folder, Group::missing, "",
         fs::perms::owner_all, 0277},
        {"existing, kept as it is", Home::folder, Group::folder0755, "", fs::perms(0755)},
        {"data home is a file", Home::file, Group::missing, "Not a directory"},
        {"group folder is a file", Home::folder, Group::file, "it is not a directory"},
        {"group folder is a link elsewhere", Home::folder, Group::link, "it is a symbolic link"},
        {"group folder belongs to another user", Home::folder, Group::foreign,
         root ? "it belongs to another user" : ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const fs::path home = c.home == Home::missing ? dir / "a/b" : dir / "home";
        if (c.home == Home::folder)
            fs::create_directory(home);
        if (c.home == Home::file)
            writeFile(home);
        switch (c.group) {
        case Group::missing: break;
        case Group::folder0755:
            fs::create_directory(home / group);
            fs::permissions(home / group, fs::perms(0755));
            break;
        case Group::file: writeFile(home / group); break;
        case Group::link:
            fs::create_directory(dir / "elsewhere");
            fs::create_directory_symlink(dir / "elsewhere", home / group);
            break;
        case Group::foreign:
            fs::create_directory(home / group);
            ASSERT_TRUE(!root || ::chown((home / group).c_str(), 65534, 65534) == 0);
            break;
        }
        auto folder = [&] {
            ScopedUmask mask(c.umask);
            return prepareApplicationGroupContainer(home);
        }();
        if (c.failure.empty()) {
            ASSERT_TRUE(folder) << folder.error().message;
            EXPECT_EQ(*folder, home / group);
            EXPECT_EQ(permissions(*folder), c.mode);
            if (c.umask == 0) {
                for (auto p = home; p != dir.path(); p = p.parent_path()) {
                    EXPECT_EQ(permissions(p), fs::perms::owner_all) << p;
                }
            }
        } else {
            ASSERT_FALSE(folder);
            EXPECT_EQ(folder.error().message, "The application group container " +
                                                  (home / group).string() +
                                                  " cannot be used: " + c.failure + ".");
        }
    }
}

TEST(ApplicationGroup, RefusesAFolderItCannotWrite) {
    TempDir dir;
    const auto folder = dir / "home/group.QRX-Lumenforge.Tasket";
    fs::create_directories(folder);
    fs::permissions(dir.path(), fs::perms(0755));
    fs::permissions(dir / "home", fs::perms(0755));
    fs::permissions(folder, fs::perms(0555));
    // Permission bits do not bind root: the attempt runs as the folder's
    // owner, without privileges.
    ASSERT_TRUE(::geteuid() != 0 || ::chown(folder.c_str(), 65534, 65534) == 0);
    const std::string message = tasket::testing::asUnprivilegedUser([&] {
        auto prepared = prepareApplicationGroupContainer(dir / "home");
        return prepared ? std::string("prepared") : prepared.error().message;
    });
    EXPECT_NE(message.find("Permission denied"), std::string::npos) << message;
    EXPECT_NE(message.find(folder.string()), std::string::npos) << message;
}

// The process-wide container is fixed at the first use, under the data
// home of that moment, and the process stops when there is none; each runs
// in a child process of its own.
TEST(ApplicationGroupDeathTest, IsFoundOncePerProcessUnderTheDataHomeOrStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto firstUseFixesIt = [] {
        TempDir first;
        TempDir second;
        ScopedEnv home("XDG_DATA_HOME", first.path());
        const fs::path url = applicationGroupContainerURL();
        ScopedEnv moved("XDG_DATA_HOME", second.path());
        auto manager = LocalDataManager::make();
        return url == first / "group.QRX-Lumenforge.Tasket" &&
               permissions(url) == fs::perms::owner_all &&
               manager->storeURL() == url / "TK_Data.sqlite" &&
               applicationGroupContainerURL() == url && fs::is_empty(second.path());
    };
    EXPECT_EXIT(std::exit(firstUseFixesIt() ? 0 : 1), ::testing::ExitedWithCode(0), "");
    ScopedEnv home("XDG_DATA_HOME", "/dev/null/data");
    EXPECT_EXIT(LocalDataManager::make(), ::testing::ExitedWithCode(70),
                "The application group container /dev/null/data/group.QRX-Lumenforge.Tasket cannot "
                "be used: Not a directory.");
}
