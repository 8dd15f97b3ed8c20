// The real tak-reset process on a private bus with the stand-in daemon, manager clients and the
// substitute common library, in a temporary root. Assertions are on the calls the peers recorded and
// on the process's log; the fixture prints both when a test fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "HostFixture.h"

using orvix::test::HostFixture;
using orvix::test::RunResult;
using orvix::test::WaitUntil;
using namespace std::chrono_literals;

namespace {

class ResetProcess : public HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {}; }

    void LaunchOk(const std::vector<std::string>& extras) const {
        RunResult launched = Launch(extras);
        ASSERT_EQ(launched.status, 0) << launched.err;
    }

    // Asks the running process to end and waits until it has left.
    void End() const {
        LaunchOk({"reset=end"});
        ASSERT_TRUE(WaitForAppExit()) << "tak-reset did not exit after reset=end";
        ExpectNoSanitizerReport();
    }

    // A sanitizer build of tak-reset writes its reports (leaks at exit among them) to its log.
    void ExpectNoSanitizerReport() const {
        std::string log = TakResetLog();
        for (const char* report : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                   "runtime error:", "WARNING: ThreadSanitizer"}) {
            EXPECT_EQ(log.find(report), std::string::npos) << report;
        }
    }

    // Runs tak-reset in the foreground with one request on its command line; its exit status.
    RunResult RunReset(const std::vector<std::string>& extras) const {
        std::vector<std::string> argv = {TakResetPath()};
        argv.insert(argv.end(), extras.begin(), extras.end());
        return orvix::test::RunProgram(argv, {{"ORVIX_HOST_ROOT", Root()},
                                              {"DBUS_SYSTEM_BUS_ADDRESS", BusAddress()},
                                              {"ORVIX_LOG_FILE", LogPath(AppName())}});
    }

    void StartClient(const std::string& obj) const {
        RunResult started = Host({"client", obj});
        ASSERT_EQ(started.status, 0) << started.err;
    }

    std::vector<std::string> LibraryMethods() const { return MethodsOf("libtak_common"); }

    size_t CountOf(const std::string& who, const std::string& method) const {
        return CallsOf(who, method).size();
    }

    // Position of `text` in the log at or after `from`; npos when absent.
    size_t LogFind(const std::string& text, size_t from = 0) const { return TakResetLog().find(text, from); }
};

}  // namespace

TEST_F(ResetProcess, EndWithNoTaskDestroysTheLibraryObjectsInOrderAndExitsZero) {
    RunResult run = RunReset({"reset=end"});
    EXPECT_EQ(run.status, 0) << run.err;
    ExpectNoSanitizerReport();
    std::vector<std::string> expected = {"QXCurlSSLLock",    "CreateConnector",  "CreateInstaller",
                                         "DestroyInstaller", "DestroyConnector", "QXCurlSSLUnLock"};
    EXPECT_EQ(LibraryMethods(), expected);
    EXPECT_TRUE(CallsOf("innerserver").empty());
    std::string log = TakResetLog();
    EXPECT_NE(log.find("**************Reset EXIT***********"), std::string::npos);
    EXPECT_LT(log.find("**************Reset EXIT***********"), log.find("EXEC finish"));
}

TEST_F(ResetProcess, AMonitoringRequestNeverReachesTheDispatcher) {
    StartClient("mon1");
    LaunchOk({"monitor_event=monitor_install", "reset=biu_app_reset", "appkey=app.one", "caller_pid=77",
              "method=on_progress", "obj=mon1", "thread_id=3", "event_index=4", "deprecated=1"});
    // The library's default monitoring reports four progress states to the manager client.
    ASSERT_TRUE(WaitForCall("managerclient.mon1", "tak_install_result", 20s, 4));
    Json::Value args = CallsOf("managerclient.mon1", "tak_install_result").front()["args"];
    ASSERT_EQ(args.size(), 9u);
    EXPECT_EQ(args[0].asInt(), 3);
    EXPECT_EQ(args[1].asString(), "app.one");
    EXPECT_EQ(args[5].asInt(), 4);
    EXPECT_EQ(args[6].asString(), "on_progress");
    EXPECT_EQ(args[7].asInt(), 1);
    EXPECT_EQ(args[8].asString(), "");
    Json::Value monitor = CallsOf("libtak_common", "MonitorAppInstallStatusAPI").front()["args"];
    EXPECT_EQ(monitor[0].asString(), "app.one");
    EXPECT_EQ(monitor[1].asInt(), 77);

    // Cancelling ends the monitoring with state 160, which frees the record and reaches nobody.
    LaunchOk(
        {"monitor_event=cancel_monitor_install", "appkey=app.one", "caller_pid=77", "reset=tak_app_reset"});
    ASSERT_TRUE(WaitForLog("app.one is cancelled"));
    End();
    for (const auto& call : CallsOf("managerclient.mon1")) {
        EXPECT_NE(call["args"][2].asInt(), 160) << "a cancelled monitoring reported to the client";
    }
    EXPECT_EQ(CountOf("managerclient.mon1", "tak_install_result"), 4u);
    EXPECT_EQ(LogFind("has key[reset] value[biu_app_reset]"), std::string::npos)
        << "a monitoring request reached OnReset";
    EXPECT_EQ(LogFind("has key[reset] value[tak_app_reset]"), std::string::npos);
    EXPECT_EQ(LogFind("BuiltIn Reset Start"), std::string::npos);
    EXPECT_EQ(LogFind("App Reset Start"), std::string::npos);
    EXPECT_EQ(CountOf("libtak_common", "CancelMonitorAppInstallStatusAPI"), 1u);
}

TEST_F(ResetProcess, ARecoveryRequestOnlyNotifiesTheLibrary) {
    LaunchOk({"recovery_action=changed", "reset=biu_app_reset"});
    ASSERT_TRUE(WaitForCall("libtak_common", "NotifyRecoveryActionChangedAPI"));
    End();
    EXPECT_EQ(LogFind("BuiltIn Reset Start"), std::string::npos);
    EXPECT_TRUE(CallsOf("innerserver").empty());
}

TEST_F(ResetProcess, AnUnknownResetValueOrBadInputGetsNoReply) {
    StartClient("bad1");
    LaunchOk({"reset=TAK_APP_RESET", "userdata=5", "method=m", "obj=bad1"});
    LaunchOk({"reset=", "userdata=not-a-number", "thread_id=x", "method=m", "obj=bad1"});
    LaunchOk({"reset=\xff\xfe", "obj=\xc3", "method=\xff"});
    std::string big(1 << 20, 'v');
    std::string bigFile = Root() + "/big-value";
    std::ofstream(bigFile) << big;
    RunResult launched =
        Host({"launch", "--extra-file", "reset=" + bigFile, "--extra-file", "obj=" + bigFile});
    ASSERT_EQ(launched.status, 0) << launched.err;
    End();
    EXPECT_TRUE(CallsOf("innerserver").empty());
    EXPECT_TRUE(CallsOf("managerclient.bad1").empty());
    EXPECT_NE(LogFind("has key[userdata] value[0]"), std::string::npos);
}

TEST_F(ResetProcess, SurvivesAClientRecordThatMakesNoValidBusName) {
    LaunchOk({"reset=biu_service_reset", "userdata=9", "obj=no/such-client", "method=\xff\xfe"});
    ASSERT_TRUE(WaitForLog("m_CheckCondition"));
    End();
    // The progress report cannot be addressed and fails with its log line; the inner server still
    // gets the result.
    EXPECT_NE(LogFind("method call false.org.freedesktop.DBus.Error.InvalidArgs"), std::string::npos);
    std::vector<Json::Value> results = CallsOf("innerserver", "process_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0]["args"][0].asString(), "biu_service_reset_result");
    EXPECT_EQ(results[0]["args"][2].asString(), "9");
}

TEST_F(ResetProcess, ReportsTheCookieAsSentAndZeroWhenAbsent) {
    LaunchOk({"reset=biu_app_reset", "userdata=-42"});
    // The built-in task answers its requester when it ends, here by the next request of its kind.
    LaunchOk({"reset=biu_app_reset"});
    ASSERT_TRUE(WaitForCall("innerserver", "process_result"));
    End();
    std::vector<Json::Value> results = CallsOf("innerserver", "process_result");
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0]["signature"].asString(), "siss");
    EXPECT_EQ(results[0]["args"][0].asString(), "biu_app_reset_result");
    EXPECT_EQ(results[0]["args"][1].asInt(), 1);
    EXPECT_EQ(results[0]["args"][2].asString(), "-42");
    EXPECT_EQ(results[0]["args"][3].asString(), "");
    EXPECT_EQ(results[1]["args"][2].asString(), "0");
}

TEST_F(ResetProcess, AnEmptyMethodSuppressesEveryManagerClientReport) {
    StartClient("quiet");
    StartClient("loud");
    LaunchOk({"reset=biu_service_reset", "userdata=7", "obj=quiet", "method=", "thread_id=1"});
    LaunchOk({"monitor_event=monitor_install", "appkey=app.q", "caller_pid=5", "obj=quiet", "method="});
    ASSERT_TRUE(WaitForCall("libtak_common", "MonitorAppInstallStatusAPI:callback", 20s, 4));
    LaunchOk({"monitor_event=cancel_monitor_install", "appkey=app.q", "caller_pid=5"});
    ASSERT_TRUE(WaitForLog("app.q is cancelled"));
    // The next built-in request ends the first one, which reports; this caller gave a method.
    LaunchOk(
        {"reset=biu_service_reset", "userdata=8", "obj=loud", "method=done", "thread_id=2", "event_index=9"});
    End();
    EXPECT_TRUE(CallsOf("managerclient.quiet").empty());
    std::vector<Json::Value> results = CallsOf("innerserver", "process_result");
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0]["args"][0].asString(), "biu_service_reset_result");
    EXPECT_EQ(results[0]["args"][2].asString(), "7");
    EXPECT_EQ(results[1]["args"][2].asString(), "8");
    std::vector<Json::Value> progress = CallsOf("managerclient.loud", "tak_builtin_app_service_reset_result");
    ASSERT_EQ(progress.size(), 1u);
    EXPECT_EQ(progress[0]["signature"].asString(), "iiii");
    EXPECT_EQ(progress[0]["args"][0].asInt(), 2);
    EXPECT_EQ(progress[0]["args"][1].asInt(), 502);
    EXPECT_EQ(progress[0]["args"][2].asInt(), 0);
    EXPECT_EQ(progress[0]["args"][3].asInt(), 9);
}

TEST_F(ResetProcess, ASecondRequestOfTheSameKindStopsTheFirstTaskAndWaitsForIt) {
    LaunchOk({"reset=biu_app_reset", "userdata=11"});
    ASSERT_TRUE(WaitForLog("m_CheckCondition"));
    LaunchOk({"reset=biu_app_reset", "userdata=22"});
    ASSERT_TRUE(WaitForCall("innerserver", "process_result"));
    End();
    std::string log = TakResetLog();
    size_t secondStart = log.find("BuiltIn Reset Start", log.find("BuiltIn Reset Start") + 1);
    ASSERT_NE(secondStart, std::string::npos);
    size_t exitSent = log.find("Send CTAKTaskBase::EVENT_EXIT to m_BuiltInAppReset!", secondStart);
    size_t taskExit = log.find("CBuiltInAppReset task exit!", secondStart);
    size_t secondCheck = log.find("m_CheckCondition", secondStart);
    ASSERT_NE(exitSent, std::string::npos);
    ASSERT_NE(taskExit, std::string::npos);
    ASSERT_NE(secondCheck, std::string::npos);
    EXPECT_LT(exitSent, taskExit);
    EXPECT_LT(taskExit, secondCheck) << "the new task ran before the old one had ended";
    std::vector<Json::Value> results = CallsOf("innerserver", "process_result");
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0]["args"][2].asString(), "11");
    EXPECT_EQ(results[1]["args"][2].asString(), "22");
}

TEST_F(ResetProcess, FollowsTheUpdateMarkerWithBoostPairs) {
    LaunchOk({"reset=none"});
    ASSERT_TRUE(WaitForLog("has key[reset] value[none]"));
    std::string marker = Root() + "/run/tak_update_app";
    std::ofstream(marker) << "";
    ASSERT_TRUE(WaitForCall("libtak_common", "StartBoostAppFWAPI"));
    ASSERT_EQ(::unlink(marker.c_str()), 0);
    ASSERT_TRUE(WaitForCall("libtak_common", "StopBoostAppFWAPI"));
    std::ofstream(marker) << "";
    ASSERT_TRUE(WaitForCall("libtak_common", "StartBoostAppFWAPI", 20s, 2));
    // Still boosted at the end: the terminate callback lowers it.
    End();
    std::vector<std::string> boosts;
    for (const auto& method : LibraryMethods()) {
        if (method.find("Boost") != std::string::npos) {
            boosts.push_back(method);
        }
    }
    std::vector<std::string> expected = {
        "StartBoostOwnProcessAPI", "StartBoostAppFWAPI", "StopBoostOwnProcessAPI", "StopBoostAppFWAPI",
        "StartBoostOwnProcessAPI", "StartBoostAppFWAPI", "StopBoostOwnProcessAPI", "StopBoostAppFWAPI"};
    EXPECT_EQ(boosts, expected);
}

TEST_F(ResetProcess, CallsNoBoostEntryPointWhenItsPartnerIsMissing) {
    Json::Value behaviour;
    behaviour["absent"].append("StartBoostAppFWAPI");
    behaviour["absent"].append("StopBoostAppFWAPI");
    SetLibTakBehaviour(behaviour);
    std::string marker = Root() + "/run/tak_update_app";
    std::ofstream(marker) << "";
    LaunchOk({"reset=none"});
    ASSERT_TRUE(WaitForLog("has key[reset] value[none]"));
    ASSERT_EQ(::unlink(marker.c_str()), 0);
    ASSERT_TRUE(WaitForLog("tak_update_app is deleted"));
    End();
    for (const auto& method : LibraryMethods()) {
        EXPECT_EQ(method.find("Boost"), std::string::npos) << method;
    }
}

TEST_F(ResetProcess, CreatesTheBindersOnceWhenTheAndroidServiceBecomesReady) {
    SetSystemFlag("android_on_orvix.support", true);
    SetSystemFlag("dangbei_store.support", true);
    ASSERT_EQ(Host({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "0"}).status, 0);
    LaunchOk({"reset=none"});
    ASSERT_TRUE(WaitForLog("memory/setting-sync/aot_svc_ready is not 2, waiting..."));
    EXPECT_EQ(CountOf("libtak_common", "CreateAppFWBinderAPI"), 0u);

    ASSERT_EQ(Host({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "1"}).status, 0);
    ASSERT_TRUE(WaitUntil([&] {
        std::string log = TakResetLog();
        size_t first = log.find("aot_svc_ready is not 2, waiting...");
        return first != std::string::npos &&
               log.find("aot_svc_ready is not 2, waiting...", first + 1) != std::string::npos;
    }));
    ASSERT_EQ(Host({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "2"}).status, 0);
    ASSERT_TRUE(WaitForCall("libtak_common", "CreateAppFWBinderAPI"));
    // The communicator binder announces itself from the library's thread; the apps task hears of it.
    ASSERT_TRUE(WaitForLog("SetCommunicatorBinderCreated"));
    ASSERT_EQ(Host({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "3"}).status, 0);
    ASSERT_EQ(Host({"settings", "set", "-t", "int", "memory/setting-sync/aot_svc_ready", "2"}).status, 0);
    End();
    EXPECT_EQ(CountOf("libtak_common", "CreateCommunicatorBinderAPI"), 1u);
    EXPECT_EQ(CountOf("libtak_common", "CreateAppFWBinderAPI"), 1u);
    std::vector<std::string> methods = LibraryMethods();
    auto destroyCommunicator = std::find(methods.begin(), methods.end(), "DestroyCommunicatorBinderAPI");
    auto destroyAppFW = std::find(methods.begin(), methods.end(), "DestroyAppFWBinderAPI");
    ASSERT_NE(destroyCommunicator, methods.end());
    EXPECT_LT(destroyCommunicator, destroyAppFW);
}

TEST_F(ResetProcess, RunsWithoutTheCommonLibrary) {
    Json::Value behaviour;
    behaviour["library"] = "missing";
    SetLibTakBehaviour(behaviour);
    LaunchOk({"reset=biu_app_reset", "userdata=3"});
    ASSERT_TRUE(WaitForLog("m_CheckCondition"));
    End();
    EXPECT_TRUE(LibraryMethods().empty());
    EXPECT_NE(LogFind("open library end, handler 0"), std::string::npos);
    std::vector<Json::Value> results = CallsOf("innerserver", "process_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0]["args"][2].asString(), "3");
}

namespace {

// No bus at all: every report fails, the process goes on.
class ResetProcessWithoutBus : public ResetProcess {
protected:
    bool StartsBus() const override { return false; }
};

}  // namespace

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
    size_t first = log.find("get sync system bus error ");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(log.find("get sync system bus error ", first + 1), std::string::npos)
        << "progress and result both fail";
    EXPECT_NE(log.find("Connection is NULL."), std::string::npos);
    EXPECT_NE(log.find("EXEC finish"), std::string::npos);
}
