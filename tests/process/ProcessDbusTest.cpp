// Reports without a bus: every one fails with its log line and never takes the process down; reports
// to a caller that gave no method are not even attempted.
#include <gtest/gtest.h>

#include "ProcessDbus.h"
#include "ProcessTestEnv.h"
#include "ResetDbus.h"

using process_test::LogSince;
using process_test::ReadLog;

TEST(AReportWithoutABus, FailsWithItsLogLines) {
    size_t mark = ReadLog().size();
    EXPECT_FALSE(CProcessDbus::ProcessResult("tak_app_reset_result", 1, nullptr, ""));
    std::string log = LogSince(mark);
    EXPECT_NE(
        log.find("MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]"),
        std::string::npos);
    EXPECT_NE(log.find("get sync system bus error "), std::string::npos);
    EXPECT_NE(log.find("Connection is NULL."), std::string::npos);
    EXPECT_FALSE(CResetDbus::ResetConfigTable());
    EXPECT_FALSE(CResetDbus::ResetAppsUserData());
}

TEST(AReportWithoutABus, SkipsACallerWithoutAMethod) {
    _CLIENT_INFO_T client;
    client.obj = "caller";
    size_t mark = ReadLog().size();
    EXPECT_FALSE(CResetDbus::BuiltInProgressMethodCall(client, "app", 500, 3));
    EXPECT_FALSE(CProcessDbus::ActionMethodCall(client, "app", 1, 2, 3));
    CProcessDbus::MonitoredInstallEvent("app", static_cast<TAK_EVENT_STATE_E>(1), 50, 0, "", &client);
    std::string log = LogSince(mark);
    EXPECT_NE(log.find("app app state 500 result 3"), std::string::npos);
    EXPECT_NE(log.find("[client object:caller] app app state 1 data 2 result 3 (method )"),
              std::string::npos);
    EXPECT_NE(log.find("key app state 1 progress 50 result 0"), std::string::npos);
    EXPECT_EQ(log.find("MethodCall :"), std::string::npos) << log;
}

TEST(AReportWithoutABus, RefusesAMonitoringEventWithoutItsRecord) {
    size_t mark = ReadLog().size();
    CProcessDbus::MonitoredInstallEvent("app", TAK_EVENT_STATE_MONITOR_CANCELLED, 0, 0, "", nullptr);
    EXPECT_NE(LogSince(mark).find("pvUserData is NULL!!"), std::string::npos);
}

TEST(AReportText, IsMadeValidUtf8) {
    EXPECT_EQ(CProcessDbus::ValidUtf8("plain"), "plain");
    std::string fixed =
        CProcessDbus::ValidUtf8(std::string("a\xff\xfe"
                                            "b"));
    EXPECT_TRUE(g_utf8_validate(fixed.c_str(), -1, nullptr));
    EXPECT_EQ(fixed.front(), 'a');
    EXPECT_EQ(fixed.back(), 'b');
}
