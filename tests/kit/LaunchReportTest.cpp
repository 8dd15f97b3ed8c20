// What `orvix-host launch` tells its user, against the kit's test app (tests/kit/app) in place of
// tak-reset.
#include <gtest/gtest.h>

#include "HostFixture.h"

namespace {

using orvix::test::RunResult;

class TheKitApp : public orvix::test::HostFixture {
protected:
    static void SetUpTestSuite() { setenv("ORVIX_TAK_RESET", KIT_APP_PATH, 1); }
    static void TearDownTestSuite() { unsetenv("ORVIX_TAK_RESET"); }

    pid_t RunningPid() const {
        orvix::host::ProcessId id;
        return orvix::host::ReadPidFile(orvix::host::LaunchPidPath(AppName()), id) ? id.pid : 0;
    }
};

TEST_F(TheKitApp, LaunchSaysWhetherItStartedOrQueuedWithThePidAndTheLog) {
    RunResult first = Launch({"n=1"});
    ASSERT_EQ(first.status, 0) << first.err;
    pid_t pid = RunningPid();
    ASSERT_NE(pid, 0);
    std::string tail = " (pid " + std::to_string(pid) + ")";
    std::string log = "; its log: " + LogPath(AppName()) + "\n";
    EXPECT_EQ(first.out, "started " + AppName() + tail + " with the request" + log);
    RunResult second = Launch({"n=2"});
    ASSERT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(second.out, "queued to the running " + AppName() + tail + log);
    // The instance that is asked to end is named too, though it may be gone by the time launch prints.
    RunResult ended = Launch({"exit=1"});
    ASSERT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "queued to the running " + AppName() + tail + log);
    EXPECT_EQ(first.err + second.err + ended.err, "");
}

}  // namespace
