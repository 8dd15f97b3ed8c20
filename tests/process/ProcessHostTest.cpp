// The real tak-reset process on a private bus with the stand-in daemon, manager clients and the
// substitute common library, in a temporary root. Assertions are on the calls the peers recorded and
// on the process's log; the fixture prints both when a test fails.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <thread>

#include "../reset/ResetFixture.h"

using orvix::host::JsonLine;
using orvix::test::RunResult;
using reset_test::Lines;
using namespace std::chrono_literals;

const char kAndroidServiceReady[] = "memory/setting-sync/aot_svc_ready";

namespace {

// The process with the seeded apps and built-in list of a default root.
class ResetProcess : public reset_test::ResetFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {}; }

    // A sanitizer build of tak-reset writes its reports (leaks at exit among them) to its log.
    void ExpectNoSanitizerReport() const {
        EXPECT_FALSE(InLog("Sanitizer"));
        EXPECT_FALSE(InLog("runtime error:"));
    }

    // Runs tak-reset in the foreground with one request on its command line; its exit status.
    RunResult RunReset(const std::vector<std::string>& extras) const {
        std::vector<std::string> argv = {TakResetPath()};
        argv.insert(argv.end(), extras.begin(), extras.end());
        return orvix::test::RunProgram(argv, {{"ORVIX_HOST_ROOT", Root()},
                                              {"DBUS_SYSTEM_BUS_ADDRESS", BusAddress()},
                                              {"ORVIX_LOG_FILE", LogPath(AppName())}});
    }

    void StartClient(const std::string& obj) const { ASSERT_EQ(Host({"client", obj}).status, 0) << obj; }

    void SetAndroidServiceReady(const char* value) const {
        ASSERT_EQ(Host({"settings", "set", "-t", "int", kAndroidServiceReady, value}).status, 0) << value;
    }

    Lines Boosts() const {
        Lines methods = MethodsOf("libtak_common"), boosts;
        auto boost = [](const std::string& method) { return method.find("Boost") != std::string::npos; };
        std::copy_if(methods.begin(), methods.end(), std::back_inserter(boosts), boost);
        return boosts;
    }

    bool InLog(const std::string& text) const { return TakResetLog().find(text) != std::string::npos; }
};

}  // namespace

TEST_F(ResetProcess, EndWithNoTaskDestroysTheLibraryObjectsInOrderAndExitsZero) {
    RunResult run = RunReset({"reset=end"});
    EXPECT_EQ(run.status, 0) << run.err;
    ExpectNoSanitizerReport();
    EXPECT_EQ(MethodsOf("libtak_common"), (Lines{"QXCurlSSLLock", "CreateConnector", "CreateInstaller",
                                                 "DestroyInstaller", "DestroyConnector", "QXCurlSSLUnLock"}));
    EXPECT_TRUE(CallsOf("innerserver").empty());
    // The terminate callback has run before the main loop returns.
    std::string log = TakResetLog();
    EXPECT_LT(log.find("**************Reset EXIT***********"), log.find("EXEC finish"));
}

// Neither reaches the dispatcher, whatever "reset" it carries.
TEST_F(ResetProcess, MonitoringAndRecoveryRequestsOnlyReachTheLibrary) {
    StartClient("mon1");
    Start({"monitor_event=monitor_install", "reset=biu_app_reset", "appkey=app.one", "caller_pid=77",
              "method=on_progress", "obj=mon1", "thread_id=3", "event_index=4", "deprecated=1"});
    // The library's default monitoring reports four progress states to the manager client.
    ASSERT_TRUE(WaitForCall("managerclient.mon1", "tak_install_result", 20s, 4));
    Json::Value args = CallsOf("managerclient.mon1", "tak_install_result").front()["args"];
    args[2] = args[3] = args[4] = 0;  // state, progress and result of the library's first step
    EXPECT_EQ(JsonLine(args), R"([3,"app.one",0,0,0,4,"on_progress",1,""])");
    EXPECT_EQ(ArgsOf("libtak_common", "MonitorAppInstallStatusAPI"), Lines{R"(["app.one",77])"});
    Start({"recovery_action=changed", "reset=biu_service_reset"});
    ASSERT_TRUE(WaitForCall("libtak_common", "NotifyRecoveryActionChangedAPI"));

    // Cancelling ends the monitoring with state 160, which frees the record and reaches nobody.
    Start(
        {"monitor_event=cancel_monitor_install", "appkey=app.one", "caller_pid=77", "reset=tak_app_reset"});
    ASSERT_TRUE(WaitForLog("app.one is cancelled"));
    EndProcess();
    EXPECT_EQ(CallsOf("managerclient.mon1").size(), 4u) << "a cancelled monitoring reported to the client";
    EXPECT_EQ(CallsOf("libtak_common", "CancelMonitorAppInstallStatusAPI").size(), 1u);
    for (const char* text : {"has key[reset] value[biu_app_reset]", "has key[reset] value[tak_app_reset]",
                             "BuiltIn Reset Start", "App Reset Start"}) {
        EXPECT_FALSE(InLog(text)) << text;
    }
    EXPECT_TRUE(CallsOf("innerserver").empty());
}

TEST_F(ResetProcess, AnUnknownResetValueOrBadInputGetsNoReply) {
    StartClient("bad1");
    Start({"reset=TAK_APP_RESET", "userdata=5", "method=m", "obj=bad1"});
    Start({"reset=", "userdata=not-a-number", "thread_id=x", "method=m", "obj=bad1"});
    Start({"reset=\xff\xfe", "obj=\xc3", "method=\xff"});
    EndProcess();
    EXPECT_TRUE(CallsOf("innerserver").empty());
    EXPECT_TRUE(CallsOf("managerclient.bad1").empty());
    EXPECT_TRUE(InLog("has key[userdata] value[0]"));
}

// Neither stops the report to the inner server.
TEST_F(ResetProcess, RunsWithoutTheCommonLibraryAndWithAClientRecordThatMakesNoValidBusName) {
    Json::Value behaviour;
    behaviour["library"] = "missing";
    SetLibTakBehaviour(behaviour);
    Start({"reset=biu_service_reset", "userdata=9", "obj=no/such-client", "method=\xff\xfe"});
    ASSERT_TRUE(WaitForLog("m_CheckCondition"));
    EndProcess();
    EXPECT_TRUE(MethodsOf("libtak_common").empty());
    EXPECT_TRUE(InLog("open library end, handler 0"));
    // The progress report cannot be addressed and fails with its log line.
    EXPECT_TRUE(InLog("method call false.org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_EQ(ArgsOf("innerserver", "process_result"), Lines{R"(["biu_service_reset_result",1,"9",""])"});
}

// The first task gets EVENT_EXIT and is waited for; as it ends it answers its requester.
TEST_F(ResetProcess, ASecondRequestOfTheSameKindStopsTheFirstTaskAndWaitsForIt) {
    Start({"reset=biu_app_reset", "userdata=-42"});
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
              (Lines{R"(["biu_app_reset_result",1,"-42",""])", R"(["biu_app_reset_result",1,"0",""])"}));
    EXPECT_EQ(CallsOf("innerserver", "process_result").at(0)["signature"].asString(), "siss");
}

TEST_F(ResetProcess, AnEmptyMethodSuppressesEveryManagerClientReport) {
    StartClient("quiet");
    StartClient("loud");
    Start({"reset=biu_service_reset", "userdata=7", "obj=quiet", "method=", "thread_id=1"});
    Start({"monitor_event=monitor_install", "appkey=app.q", "caller_pid=5", "obj=quiet", "method="});
    ASSERT_TRUE(WaitForCall("libtak_common", "MonitorAppInstallStatusAPI:callback", 20s, 4));
    Start({"monitor_event=cancel_monitor_install", "appkey=app.q", "caller_pid=5"});
    ASSERT_TRUE(WaitForLog("app.q is cancelled"));
    // The next built-in request ends the first one, which reports; it is refused, as the first one
    // marked a built-in reset in process, and answers this caller, who gave a method, all the same.
    Start(
        {"reset=biu_service_reset", "userdata=8", "obj=loud", "method=done", "thread_id=2", "event_index=9"});
    EndProcess();
    EXPECT_TRUE(CallsOf("managerclient.quiet").empty());
    EXPECT_EQ(ArgsOf("innerserver", "process_result"), (Lines{R"(["biu_service_reset_result",1,"7",""])",
                                                              R"(["biu_service_reset_result",1,"8",""])"}));
    EXPECT_EQ(ArgsOf("managerclient.loud", "tak_builtin_app_service_reset_result"),
              (Lines{"[2,500,0,9]", "[2,502,0,9]"}));
    EXPECT_EQ(CallsOf("managerclient.loud").at(0)["signature"].asString(), "iiii");
}

// With both entry points of each boost pair the process is boosted while the update marker exists, from
// start on, and the terminate callback lowers it; with one entry point of a pair missing it calls neither.
class TheUpdateMarker : public ResetProcess, public ::testing::WithParamInterface<bool> {};

TEST_P(TheUpdateMarker, RaisesAndLowersTheBoostInPairsOnlyWhenBothEntryPointsExist) {
    const bool pairs = GetParam();
    Json::Value behaviour(Json::objectValue);
    if (!pairs) {
        behaviour["absent"].append("StartBoostAppFWAPI");
        behaviour["absent"].append("StopBoostAppFWAPI");
    }
    SetLibTakBehaviour(behaviour);
    std::string marker = Root() + "/run/tak_update_app";
    std::ofstream(marker) << "";
    Start({"reset=none"});
    ASSERT_TRUE(WaitForLog("has key[reset] value[none]"));
    ASSERT_EQ(::unlink(marker.c_str()), 0);
    ASSERT_TRUE(WaitForLog("tak_update_app is deleted"));
    std::ofstream(marker) << "";
    ASSERT_TRUE(WaitForLog("tak_update_app is created"));
    EndProcess();
    Lines once = {"StartBoostOwnProcessAPI", "StartBoostAppFWAPI", "StopBoostOwnProcessAPI",
                  "StopBoostAppFWAPI"};
    Lines twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(Boosts(), pairs ? twice : Lines{});
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutPartners, TheUpdateMarker, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "BothOfEachPair" : "AppFWPairMissing"; });

TEST_F(ResetProcess, CreatesTheBindersOnceWhenTheAndroidServiceBecomesReady) {
    SetSystemFlag("android_on_orvix.support", true);
    SetSystemFlag("dangbei_store.support", true);
    SetAndroidServiceReady("0");
    Start({"reset=none"});
    ASSERT_TRUE(WaitForLog(std::string(kAndroidServiceReady) + " is not 2, waiting..."));
    EXPECT_TRUE(CallsOf("libtak_common", "CreateAppFWBinderAPI").empty());
    SetAndroidServiceReady("2");
    ASSERT_TRUE(WaitForCall("libtak_common", "CreateAppFWBinderAPI"));
    // The communicator binder announces itself from the library's thread; the apps task hears of it.
    ASSERT_TRUE(WaitForLog("SetCommunicatorBinderCreated"));
    SetAndroidServiceReady("3");
    SetAndroidServiceReady("2");
    EndProcess();
    EXPECT_EQ(CallsOf("libtak_common", "CreateCommunicatorBinderAPI").size(), 1u);
    EXPECT_EQ(CallsOf("libtak_common", "CreateAppFWBinderAPI").size(), 1u);
    Lines methods = MethodsOf("libtak_common");
    auto at = [&](const char* m) { return std::find(methods.begin(), methods.end(), m) - methods.begin(); };
    EXPECT_LT(at("DestroyCommunicatorBinderAPI"), at("DestroyAppFWBinderAPI"));
}

// No bus at all: every report fails, the process goes on.
class ResetProcessWithoutBus : public ResetProcess {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(ResetProcessWithoutBus, LogsEveryFailedReportAndStillExitsZero) {
    RunResult run;
    std::thread process([&] {
        run = RunReset({"reset=biu_service_reset", "userdata=1", "obj=c", "method=m"});
    });
    bool started = WaitForLog("m_CheckCondition");
    RunResult ended = Launch({"reset=end"});
    process.join();
    ASSERT_TRUE(started);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(run.status, 0) << run.err;
    ExpectNoSanitizerReport();
    std::string log = TakResetLog();
    EXPECT_TRUE(
        InLog("MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]"));
    // The progress report and the result both fail.
    EXPECT_NE(log.find("get sync system bus error "), log.rfind("get sync system bus error "));
    EXPECT_TRUE(InLog("Connection is NULL."));
    EXPECT_TRUE(InLog("EXEC finish"));
}
