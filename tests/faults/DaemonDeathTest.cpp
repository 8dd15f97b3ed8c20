// The stand-in service daemon killed in the middle of a reset: every report the reset can no longer
// deliver fails with its own log line, the reset still goes to its end, and once the daemon is back the
// next request is reported as usual.
#include "FaultFixture.h"

using namespace fault_test;

namespace {

const char kUndelivered[] = "method call false.org.freedesktop.DBus.Error.ServiceUnknown";

}  // namespace

class AStandInDaemonKilledMidReset : public FaultFixture {};

TEST_F(AStandInDaemonKilledMidReset, CostsTheUndeliverableReportsButNotTheResetAndTheNextIsReported) {
    AddApps({{"app.one"}, {"app.two"}});
    FillEveryResetDirectory();
    FailEveryUninstallAfter(2500);
    Start({"reset=tak_app_reset", "userdata=61"});
    // Both requests are out and the reset waits for their answers, with no bus call on the way.
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", 30s, 2));
    Kill(InnerServer());
    ASSERT_TRUE(orvix::test::WaitUntil([&] { return CountInLog(kUndelivered) >= 2; }, 30s));
    const std::string history = ServiceDir(2, "log/tak_reset_history.log");
    ASSERT_TRUE(orvix::test::WaitUntil(
        [&] { return reset_test::Count(orvix::test::ReadWholeFile(history), "[m_ClearDB][637]End") > 0; }));
    // Each report that went nowhere has its line, right after the call it belongs to (an absent call is
    // found at npos, after either); there are two in all, as the end shows.
    std::string log = TakResetLog();
    EXPECT_LT(log.find("MethodName:[reset_app_user_data]"), log.find(kUndelivered));
    EXPECT_LT(log.find("MethodName:[process_result]"), log.find(kUndelivered, log.find(kUndelivered) + 1));
    ExpectEmptied(false);
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
    EXPECT_NE(TakReset().pid, 0) << "tak-reset did not survive the daemon";

    ASSERT_EQ(Host({"up"}).status, 0);
    FailEveryUninstallAfter(20);
    RunToEnd({"reset=tak_app_reset", "userdata=62"}, "tak_app_reset_result");
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "62"));
    EXPECT_EQ(CountInLog(kUndelivered), 2u);
}
