// Reports to a caller that gave no method are not even attempted, and report texts are made valid UTF-8.
#include <gtest/gtest.h>

#include "ProcessDbus.h"
#include "ProcessTest.h"
#include "ResetDbus.h"
#include "TestLog.h"

using orvix::test::LogMark;

TEST(AReportWithoutABus, SkipsACallerWithoutAMethodAndAMonitoringEventWithoutItsRecord) {
    _CLIENT_INFO_T client;
    client.obj = "caller";
    LogMark mark;
    EXPECT_FALSE(CResetDbus::BuiltInProgressMethodCall(client, "app", 500, 3));
    EXPECT_FALSE(CProcessDbus::ActionMethodCall(client, "app", 1, 2, 3));
    CProcessDbus::MonitoredInstallEvent("app", static_cast<TAK_EVENT_STATE_E>(1), 50, 0, "", &client);
    CProcessDbus::MonitoredInstallEvent("app", TAK_EVENT_STATE_MONITOR_CANCELLED, 0, 0, "", nullptr);
    EXPECT_TRUE(mark.Contains("app app state 500 result 3"));
    EXPECT_TRUE(mark.Contains("[client object:caller] app app state 1 data 2 result 3 (method )"));
    EXPECT_TRUE(mark.Contains("key app state 1 progress 50 result 0"));
    EXPECT_TRUE(mark.Contains("pvUserData is NULL!!"));
    EXPECT_FALSE(mark.Contains("MethodCall :")) << mark.Text();
}

TEST(AReportText, IsMadeValidUtf8) {
    EXPECT_EQ(CProcessDbus::ValidUtf8("plain"), "plain");
    std::string fixed = CProcessDbus::ValidUtf8(
        "a\xff\xfe"
        "b");
    EXPECT_TRUE(g_utf8_validate(fixed.c_str(), -1, nullptr));
    EXPECT_EQ(fixed.front(), 'a');
    EXPECT_EQ(fixed.back(), 'b');
}
