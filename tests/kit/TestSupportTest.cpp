// What the test support promises every test program: a GLib warning or critical in the test program
// ends it, and the host fixture fails a test whose kit processes logged a GLib critical (these only print
// it and go on).
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <fstream>

#include "HostFixture.h"

namespace {

TEST(ATestProgram, EndsAtAGlibWarningOrCritical) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(g_warning("a warning in a test"), "a warning in a test");
    EXPECT_DEATH(g_critical("a critical in a test"), "a critical in a test");
    // What GLib's own checks report, as a misused object would.
    EXPECT_DEATH(g_object_unref(nullptr), "G_IS_OBJECT");
}

class TheHostFixture : public orvix::test::HostFixture {
protected:
    static void SetUpTestSuite() { setenv("ORVIX_TAK_RESET", KIT_APP_PATH, 1); }
    static void TearDownTestSuite() { unsetenv("ORVIX_TAK_RESET"); }
};

TEST_F(TheHostFixture, FailsATestWhoseProcessLoggedAGlibCritical) {
    ASSERT_EQ(Launch({"critical=1"}).status, 0);
    ASSERT_TRUE(WaitForCall("kit-app", "done"));
    EXPECT_NONFATAL_FAILURE(ExpectNoCriticalsLogged(), "kit-app was asked for a critical");
    // The line is gone again, so that this test's own tear-down passes.
    std::ofstream(LogPath(AppName()), std::ios::trunc).flush();
    ExpectNoCriticalsLogged();
}

}  // namespace
