// The clean-up of an apps reset: exactly the service's working directories and the owner's content
// directories are emptied; nothing outside them goes, not even through a symbolic link inside them.
#include <unistd.h>

#include "ResetFixture.h"

using namespace reset_test;

class TheAppsResetCleanUp : public ResetFixture {};

TEST_F(TheAppsResetCleanUp, EmptiesItsDirectoriesAndNothingElse) {
    const std::string outside = Root() + "/outside";
    Plant(outside + "/keep.txt");
    Plant(ServiceDir(2, "common/deep/er/file.dat"));
    Plant(ServiceDir(27, "RM/.hidden"));
    ASSERT_EQ(symlink(outside.c_str(), (ServiceDir(2, "common") + "/link-out").c_str()), 0);
    ASSERT_EQ(
        symlink((outside + "/keep.txt").c_str(), (orvix::host::PathVariable(66) + "/file-link").c_str()), 0);
    // The Corvane reset's own directory and the database backup are not the apps reset's business.
    Plant(ServiceDir(27, "system_app/special.dat"));
    Plant(ServiceDir(27, "takdb_backup/keep.db"));
    ASSERT_TRUE(Exists(ServiceDir(27, "bnr_backup/bnr_backup.json")));

    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result");

    ExpectEmptied(false);
    EXPECT_EQ(CallsOf("innerserver", "reset_app_user_data").size(), 1u);
    // The two caches go with their directories.
    EXPECT_FALSE(Exists(orvix::host::PathVariable(0) + "/owner/.cache/Apps/WebAppsCache"));
    EXPECT_FALSE(Exists(orvix::host::PathVariable(0) + "/owner/apps_rw/xwalk-service"));
    EXPECT_TRUE(Exists(outside + "/keep.txt"));
    EXPECT_TRUE(Exists(ServiceDir(27, "system_app/special.dat")));
    EXPECT_TRUE(Exists(ServiceDir(27, "takdb_backup/keep.db")));
    EXPECT_TRUE(Exists(ServiceDir(2, "log/tak_reset_history.log")));
}
