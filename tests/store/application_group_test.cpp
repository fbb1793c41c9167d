#include "store/application_group.h"
#include "store/local_data_manager.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>

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
    struct Case {
        const char* name;
        std::function<fs::path(const TempDir&)> setUp; // returns the data home
        std::string failure;                           // empty: succeeds
        fs::perms mode = fs::perms::owner_all;
        mode_t umask = 022;
    };
    const std::string group = "group.QRX-Lumenforge.Tasket";
    const Case cases[] = {
        {"missing, with missing parents made private under any umask",
         [](const TempDir& d) { return d / "a/b"; }, "", fs::perms::owner_all, 0},
        {"missing, under a umask that takes owner bits",
         [](const TempDir& d) {
             fs::create_directories(d / "home");
             return d / "home";
         },
         "", fs::perms::owner_all, 0277},
        {"existing, kept as it is",
         [&](const TempDir& d) {
             fs::create_directories(d / "home" / group);
             fs::permissions(d / "home" / group, fs::perms(0755));
             return d / "home";
         },
         "", fs::perms(0755)},
        {"data home is a file",
         [](const TempDir& d) {
             writeFile(d / "home");
             return d / "home";
         },
         "Not a directory"},
        {"group folder is a file",
         [&](const TempDir& d) {
             fs::create_directories(d / "home");
             writeFile(d / "home" / group);
             return d / "home";
         },
         "it is not a directory"},
        {"group folder is a link to a folder elsewhere",
         [&](const TempDir& d) {
             fs::create_directories(d / "home");
             fs::create_directories(d / "elsewhere");
             fs::create_directory_symlink(d / "elsewhere", d / "home" / group);
             return d / "home";
         },
         "it is a symbolic link"},
        {"group folder belongs to another user",
         [&](const TempDir& d) {
             fs::create_directories(d / "home" / group);
             if (::geteuid() == 0 && ::chown((d / "home" / group).c_str(), 65534, 65534) != 0)
                 ADD_FAILURE() << "chown failed";
             return d / "home";
         },
         ::geteuid() == 0 ? "it belongs to another user" : ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const fs::path home = c.setUp(dir);
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
