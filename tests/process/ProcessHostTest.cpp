// The real tak-reset process on a private bus with the stand-in daemon, manager clients and the
// substitute common library, in a temporary root. Assertions are on the calls the peers recorded and
// on the process's log; the fixture prints both when a test fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "../reset/ResetFixture.h"

using reset_test::Lines;
using namespace std::chrono_literals;

// The process with the seeded apps and built-in list of a default root.
class ResetProcess : public reset_test::ResetFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {}; }
};

// Monitoring and recovery requests reach the library only, whatever "reset" they carry; an unknown reset
// value or bad input gets no reply at all; an empty method suppresses every manager client report.
TEST_F(ResetProcess, RoutesMonitoringAndRecoveryToTheLibraryAndAnswersOnlyWhereAsked) {
    for (const char* client : {"mon1", "quiet", "loud"}) {
        ASSERT_EQ(Host({"client", client}).status, 0);
    }
    Start({"monitor_event=monitor_install", "reset=biu_app_reset", "appkey=app.one", "caller_pid=77",
           "method=on_progress", "obj=mon1", "thread_id=3", "event_index=4", "deprecated=1"});
    // The library's default monitoring reports four progress states to the manager client.
    ASSERT_TRUE(WaitForCall("managerclient.mon1", "tak_install_result", 20s, 4));
    Json::Value args = CallsOf("managerclient.mon1", "tak_install_result").front()["args"];
    args[2] = args[3] = args[4] = 0;  // state, progress and result of the library's first step
    EXPECT_EQ(orvix::host::JsonLine(args), R"([3,"app.one",0,0,0,4,"on_progress",1,""])");
    EXPECT_EQ(ArgsOf("libtak_common", "MonitorAppInstallStatusAPI"), Lines{R"(["app.one",77])"});
    Start({"monitor_event=monitor_install", "appkey=app.q", "caller_pid=5", "obj=quiet", "method="});
    ASSERT_TRUE(WaitForCall("libtak_common", "MonitorAppInstallStatusAPI:callback", 20s, 8));
    Start({"recovery_action=changed", "reset=biu_service_reset"});
    ASSERT_TRUE(WaitForCall("libtak_common", "NotifyRecoveryActionChangedAPI"));
    Start({"reset=TAK_APP_RESET", "userdata=5", "method=m", "obj=mon1"}, true);
    Start({"reset=", "userdata=not-a-number", "thread_id=x", "method=m", "obj=mon1"}, true);
    Start({"reset=\xff\xfe", "obj=\xc3", "method=\xff"}, true);
    // Cancelling ends the monitoring with state 160, which frees the record and reaches nobody.
    Start({"monitor_event=cancel_monitor_install", "appkey=app.one", "caller_pid=77", "reset=tak_app_reset"});
    Start({"monitor_event=cancel_monitor_install", "appkey=app.q", "caller_pid=5"});
    ASSERT_TRUE(WaitForLog("app.q is cancelled"));
    EXPECT_EQ(CountInLog("app.one is cancelled"), 1u);
    Start({"reset=biu_service_reset", "userdata=7", "obj=quiet", "method=", "thread_id=1"});
    // This one ends the first built-in reset, which reports; it is refused, as the first one marked a
    // built-in reset in process, and answers this caller, who gave a method, all the same.
    Start(
        {"reset=biu_service_reset", "userdata=8", "obj=loud", "method=done", "thread_id=2", "event_index=9"});
    EndProcess();
    EXPECT_EQ(CallsOf("managerclient.mon1").size(), 4u) << "a cancelled monitoring or a bad request reported";
    EXPECT_EQ(CallsOf("libtak_common", "CancelMonitorAppInstallStatusAPI").size(), 2u);
    EXPECT_EQ(
        CountInLog("has key[reset] value[biu_app_reset]") + CountInLog("has key[reset] value[tak_app_reset]"),
        0u);
    EXPECT_EQ(CountInLog("has key[userdata] value[0]"), 1u);
    EXPECT_TRUE(CallsOf("managerclient.quiet").empty());
    EXPECT_EQ(ArgsOf("innerserver", "process_result"), (Lines{R"(["biu_service_reset_result",1,"7",""])",
                                                              R"(["biu_service_reset_result",1,"8",""])"}));
    EXPECT_EQ(ArgsOf("managerclient.loud", "tak_builtin_app_service_reset_result"),
              (Lines{"[2,500,0,9]", "[2,502,0,9]"}));
    EXPECT_EQ(CallsOf("managerclient.loud").at(0)["signature"].asString(), "iiii");
}

// A second built-in request stops the first task: it gets EVENT_EXIT and is waited for, and as it ends it
// answers its requester. Neither a missing common library nor a client record that makes no valid bus
// name stops the reports to the inner server.
TEST_F(ResetProcess, ASecondRequestOfTheSameKindStopsTheFirstTaskAndWaitsForIt) {
    Json::Value behaviour;
    behaviour["library"] = "missing";
    SetLibTakBehaviour(behaviour);
    Start({"reset=biu_service_reset", "userdata=-42", "obj=no/such-client", "method=\xff\xfe"});
    ASSERT_TRUE(WaitForLog("m_CheckCondition"));
    Start({"reset=biu_app_reset"});
    ASSERT_TRUE(WaitForCall("innerserver", "process_result"));
    EndProcess();
    std::string log = TakResetLog();
    size_t secondStart = log.find("BuiltIn Reset Start", log.find("BuiltIn Reset Start") + 1);
    ASSERT_NE(secondStart, std::string::npos);
    size_t taskExit = log.find("CBuiltInAppReset task exit!", secondStart);
    size_t secondCheck = log.find("m_CheckCondition", secondStart);
    ASSERT_NE(secondCheck, std::string::npos);
    EXPECT_LT(log.find("Send CTAKTaskBase::EVENT_EXIT to m_BuiltInAppReset!", secondStart), taskExit);
    EXPECT_LT(taskExit, secondCheck) << "the new task ran before the old one had ended";
    // A negative cookie keeps its sign; an absent one is "0".
    EXPECT_EQ(ArgsOf("innerserver", "process_result"),
              (Lines{R"(["biu_service_reset_result",1,"-42",""])", R"(["biu_app_reset_result",1,"0",""])"}));
    EXPECT_EQ(CallsOf("innerserver", "process_result").at(0)["signature"].asString(), "siss");
    EXPECT_TRUE(MethodsOf("libtak_common").empty());
    // The progress report cannot be addressed and fails with its log line.
    EXPECT_GE(CountInLog("method call false.org.freedesktop.DBus.Error.InvalidArgs"), 1u);
}

// With both entry points of each boost pair the process is boosted while the update marker exists, from
// start on, and the terminate callback lowers it; with one entry point of a pair missing it calls neither,
// and what it looks up after the missing one is found all the same. The binders are made once only, when
// the Android service first becomes ready (that they wait for it is an apps reset's test).
class TheUpdateMarker : public ResetProcess, public ::testing::WithParamInterface<bool> {};

TEST_P(TheUpdateMarker, RaisesAndLowersTheBoostInPairsOnlyWhenBothEntryPointsExist) {
    Json::Value behaviour(Json::objectValue);
    if (!GetParam()) {
        behaviour["absent"].append("StartBoostAppFWAPI");
        behaviour["absent"].append("StopBoostAppFWAPI");
    }
    SetLibTakBehaviour(behaviour);
    SetSystemFlag("android_on_orvix.support", true);
    SetSystemFlag("dangbei_store.support", true);
    std::string marker = Root() + "/run/tak_update_app";
    std::ofstream(marker) << "";
    Start({"reset=none"}, true);
    ASSERT_TRUE(WaitForLog("has key[reset] value[none]"));
    ASSERT_TRUE(std::filesystem::remove(marker));
    ASSERT_TRUE(WaitForLog("tak_update_app is deleted"));
    std::ofstream(marker) << "";
    ASSERT_TRUE(WaitForLog("tak_update_app is created"));
    for (const char* ready : {"2", "3", "2"}) {
        SetSetting("int", "memory/setting-sync/aot_svc_ready", ready);
        ASSERT_TRUE(WaitForCall("libtak_common", "CreateAppFWBinderAPI"));
    }
    EndProcess();
    std::string boosts,
        pair = "StartBoostOwnProcessAPI StartBoostAppFWAPI StopBoostOwnProcessAPI StopBoostAppFWAPI ";
    Lines methods = MethodsOf("libtak_common");
    for (const auto& method : methods) {
        boosts += method.find("Boost") != std::string::npos ? method + " " : "";
    }
    EXPECT_EQ(boosts, GetParam() ? pair + pair : "");
    EXPECT_EQ(CallsOf("libtak_common", "CreateCommunicatorBinderAPI").size(), 1u);
    EXPECT_EQ(CallsOf("libtak_common", "CreateAppFWBinderAPI").size(), 1u);
    auto at = [&](const char* m) { return std::find(methods.begin(), methods.end(), m) - methods.begin(); };
    EXPECT_LT(at("DestroyCommunicatorBinderAPI"), at("DestroyAppFWBinderAPI"));
    EXPECT_LT(at("QXCurlSSLUnLock"), static_cast<long>(methods.size()));
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutPartners, TheUpdateMarker, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "BothOfEachPair" : "AppFWPairMissing"; });

// No bus at all: every report fails, the process goes on. Without a task, "end" destroys the library
// objects in order, and the terminate callback runs before the main loop returns.
class ResetProcessWithoutBus : public ResetProcess {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(ResetProcessWithoutBus, EndsCleanlyAndLogsEveryFailedReportAndStillExitsZero) {
    // In the foreground with one request on its command line; a sanitizer build writes its reports (leaks
    // at exit among them) to its log, which EndProcess checks.
    auto run = [this](std::vector<std::string> argv) {
        argv.insert(argv.begin(), TakResetPath());
        return orvix::test::RunProgram(
            orvix::test::DeviceArgv(argv),
            {{"DBUS_SYSTEM_BUS_ADDRESS", BusAddress()}, {"ORVIX_LOG_FILE", LogPath(AppName())}});
    };
    orvix::test::RunResult ran = run({"reset=end"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(MethodsOf("libtak_common"), (Lines{"QXCurlSSLLock", "CreateConnector", "CreateInstaller",
                                                 "DestroyInstaller", "DestroyConnector", "QXCurlSSLUnLock"}));
    EXPECT_EQ(CountInLog("process_result"), 0u);
    EXPECT_LT(LogPosition("**************Reset EXIT***********"), LogPosition("EXEC finish"));

    std::thread process([&] { ran = run({"reset=biu_service_reset", "userdata=1", "obj=c", "method=m"}); });
    bool started = WaitForLog("m_CheckCondition");
    auto ended = Launch({"reset=end"});
    process.join();
    ASSERT_TRUE(started);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(
        CountInLog("MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]"),
        1u);
    // The progress report and the result both fail for want of a connection.
    EXPECT_GE(CountInLog("get sync system bus error "), 2u);
    EXPECT_EQ(CountInLog("Sanitizer") + CountInLog("runtime error:"), 0u);
}
