#include "platform/paths.h"
#include "platform/uuid.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

using namespace tasket::platform;

// (Replacing the shared clock and the fatal handler is in the tests that
// rely on it: share_flow_test, context_test.)

TEST(Uuid, GeneratesUniqueUpperCaseV4TextAndParsesEitherCase) {
    std::set<std::string> seen;
    const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    for (int i = 0; i < 1000; ++i) {
        const auto text = Uuid::generate().toString();
        EXPECT_TRUE(std::regex_match(text, form)) << text;
        EXPECT_TRUE(seen.insert(text).second) << text;
    }
    EXPECT_EQ(Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f")->toString(),
              "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    for (const char* bad :
         {"", "E621E1F8", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
          "Z621E1F8-C36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5FF"})
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    EXPECT_TRUE(Uuid().isNil());
}

TEST(Paths, FollowXdgVariablesAndIgnoreRelativeOnes) {
    tasket::testing::TempDir dir;
    {
        tasket::testing::ScopedEnv data("XDG_DATA_HOME", dir / "data");
        tasket::testing::ScopedEnv config("XDG_CONFIG_HOME", dir / "config");
        EXPECT_EQ(xdgDataHome(), dir / "data");
        EXPECT_EQ(xdgConfigHome(), dir / "config");
    }
    tasket::testing::ScopedEnv home("HOME", dir.path());
    tasket::testing::ScopedEnv relative("XDG_DATA_HOME", "relative/path");
    EXPECT_EQ(xdgDataHome(), dir / ".local/share");
}
