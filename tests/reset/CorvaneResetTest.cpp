// Home-screen (Corvane) reset on both kinds of board, and the apps reset on a board that runs Android
// apps (the binder wait, the Dangbei data, the general apps, the end event after a Corvane reset).
#include <algorithm>

#include "ResetFixture.h"

using namespace reset_test;

namespace {

const char kAndroidApps[] = "android_on_orvix.support";

}  // namespace

class ACorvaneReset : public ResetFixture {
protected:
    // Values a home screen in use would have, so that the reset visibly changes each of them.
    void SeedSettings() const {
        SetSetting("int", "memory/tak/app_group_list_ready", "1");
        SetSetting("int", "memory/tak/andrioid_group_list_ready", "1");
        SetSetting("string", "db/appinfoviewer/auto_update_off_applist", "a,b");
        SetSetting("string", "db/tak/btgid", "bt-1");
        SetSetting("string", "db/tak/app_canary_id_list", "c1");
        SetSetting("int", "db/tak/app_canary_internal_test", "1");
        SetSetting("int", "memory/tak/app_change", "0");
        SetSetting("int", "db/tak/app_sync_status", "1");
        SetSetting("int", "memory/tak/boot_status", "1");
    }

    void ExpectHomeScreenSettingsReset() const {
        EXPECT_EQ(Setting("memory/tak/app_group_list_ready"), "0");
        EXPECT_EQ(Setting("memory/tak/andrioid_group_list_ready"), "0");
        EXPECT_EQ(Setting("db/appinfoviewer/auto_update_off_applist"), "");
        EXPECT_EQ(Setting("db/tak/btgid"), "");
        EXPECT_EQ(Setting("db/tak/app_canary_id_list"), "");
        EXPECT_EQ(Setting("db/tak/app_canary_internal_test"), "0");
        EXPECT_EQ(Setting("memory/tak/app_change"), "1");
        EXPECT_EQ(Setting("db/tak/app_sync_status"), "0");
        EXPECT_EQ(Setting("memory/tak/boot_status"), "0");
    }

    void ExpectCorvaneDirectoriesEmptied() const {
        for (const char* sub : {"common", "appupdate"}) {
            EXPECT_TRUE(IsEmptyDir(ServiceDir(2, sub))) << sub;
        }
        for (const char* sub : {"preinstallrecovery", "system_app", "clone", "RM", "appupdate/package"}) {
            EXPECT_TRUE(IsEmptyDir(ServiceDir(27, sub))) << sub;
        }
        EXPECT_FALSE(Exists(ServiceDir(27, "bnr_backup/bnr_backup.json")));
        for (int variable = 66; variable <= 74; ++variable) {
            EXPECT_TRUE(IsEmptyDir(orvix::host::PathVariable(variable))) << variable;
        }
    }

    // Indexes of the inner server's calls by method, in the order they came.
    size_t FirstInnerCall(const std::string& method) const {
        auto methods = MethodsOf("innerserver");
        return std::find(methods.begin(), methods.end(), method) - methods.begin();
    }
};

TEST_F(ACorvaneReset, OnABoardWithoutAndroidAppsUninstallsNothingAndWipesEverything) {
    AddApps({{"plain"}});
    SeedSettings();
    Start({"reset=corvane_reset", "userdata=99"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    EndProcess();

    EXPECT_TRUE(Requested().empty());
    EXPECT_TRUE(CallsOf("libtak_common", "ClearAndroidDataAPI").empty());
    auto terminate = CallsOf("launcher", "tak_terminate_allApps_internal");
    ASSERT_EQ(terminate.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(terminate[0]["args"]), R"(["TAK","corvane reset"])");
    EXPECT_EQ(CallsOf("libtak_common", "DeleteAllInstallNotificationsAPI").size(), 1u);
    EXPECT_EQ(CountInLog("delete all install noti end"), 1u);
    auto results = Results("corvane_reset_result");
    ASSERT_EQ(results.size(), 1u);
    // No cookie is kept for a Corvane reset.
    EXPECT_EQ(orvix::host::JsonLine(results[0]["args"]), R"(["corvane_reset_result",1,"0",""])");
    // Without Android apps the per-app state is reset at the end, after every app was terminated.
    EXPECT_EQ(CallsOf("innerserver", "reset_for_corvane_reset").size(), 1u);
    EXPECT_LT(FirstInnerCall("update_app_item"), FirstInnerCall("reset_for_corvane_reset"));
    EXPECT_EQ(CountInLog("reset all special app end"), 1u);
    ExpectHomeScreenSettingsReset();
    ExpectCorvaneDirectoriesEmptied();
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
}

TEST_F(ACorvaneReset, IsRefusedWhileTheProcessHasAlreadyRunOne) {
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForLog("corvane reset still doing, no need to perform it again"));
    EndProcess();
    EXPECT_EQ(Results("corvane_reset_result").size(), 1u);
    EXPECT_EQ(CallsOf("launcher", "tak_terminate_allApps_internal").size(), 1u);
}

TEST_F(ACorvaneReset, WithoutTheNotificationsEntryPointStillReports) {
    Json::Value behaviour(Json::objectValue);
    behaviour["absent"].append("DeleteAllInstallNotificationsAPI");
    SetLibTakBehaviour(behaviour);
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    EndProcess();
    EXPECT_EQ(CountInLog("delete all install noti end"), 0u);
    EXPECT_EQ(Results("corvane_reset_result").size(), 1u);
}

TEST_F(ACorvaneReset, OnABoardWithAndroidAppsUninstallsDownloadedAppsFirst) {
    SetSystemFlag(kAndroidApps, true);
    AddApps({{"native", 4}, {"plain"}, {"general"}});
    SetConfig("RESERVED_3", "general");
    SeedSettings();
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    EndProcess();

    // General apps are kept by a Corvane reset whatever "db/tak/factory_reset" says.
    EXPECT_EQ(Requested(), std::vector<std::string>{"plain"});
    EXPECT_EQ(CountInLog("general is general app[1], continue to uninstall next apps"), 1u);
    auto clear = CallsOf("libtak_common", "ClearAndroidDataAPI");
    ASSERT_EQ(clear.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(clear[0]["args"]), R"(["com.velorin.dangbeimarket"])");
    auto preload = CallsOf("libtak_common", "SetPreloadStatusAPI");
    ASSERT_EQ(preload.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(preload[0]["args"]), "[1]");
    EXPECT_EQ(CallsOf("launcher", "tak_terminate_allApps_internal").size(), 1u);
    // Here the per-app state is reset in the entry, before anything is terminated or uninstalled.
    EXPECT_EQ(CallsOf("innerserver", "reset_for_corvane_reset").size(), 1u);
    EXPECT_LT(FirstInnerCall("reset_for_corvane_reset"), FirstInnerCall("remove_app"));
    EXPECT_EQ(CallsOf("libtak_common", "DeleteAllInstallNotificationsAPI").size(), 1u);
    EXPECT_EQ(Results("corvane_reset_result").size(), 1u);
    ExpectHomeScreenSettingsReset();
    ExpectCorvaneDirectoriesEmptied();
}

TEST_F(ACorvaneReset, OnABoardWithAndroidAppsAndNothingToUninstallGoesStraightToTheCleanUp) {
    SetSystemFlag(kAndroidApps, true);
    AddApps({{"native", 4}});
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    EndProcess();
    EXPECT_TRUE(Requested().empty());
    EXPECT_EQ(CountInLog("m_AppsList size 0"), 1u);
    EXPECT_EQ(Results("corvane_reset_result").size(), 1u);
}

class AnAppsResetOnAnAndroidBoard : public ResetFixture {
protected:
    void SetUp() override {
        ResetFixture::SetUp();
        SetSystemFlag(kAndroidApps, true);
    }
};

TEST_F(AnAppsResetOnAnAndroidBoard, WaitsForTheBinderBeforeItUninstalls) {
    // The binders are made only once the Android service is ready.
    SetSetting("int", "memory/setting-sync/aot_svc_ready", "0");
    AddApps({{"plain"}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForLog("binder is not created yet, waiting..."));
    // A later request is handled on the same thread after the reset's entry: by then nothing has moved.
    Start({"reset=no_such_reset"});
    ASSERT_TRUE(WaitForLog("no_such_reset"));
    EXPECT_TRUE(Requested().empty());
    EXPECT_EQ(CountInLog("event type: 100!"), 0u);

    SetSetting("int", "memory/setting-sync/aot_svc_ready", "2");
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), std::vector<std::string>{"plain"});
    EXPECT_LT(LogPosition("binder is not created yet, waiting..."),
              LogPosition("SetCommunicatorBinderCreated"));
    EXPECT_LT(LogPosition("SetCommunicatorBinderCreated"), LogPosition("event type: 100!"));
    EXPECT_EQ(CountInLog("event type: 100!"), 1u);
}

TEST_F(AnAppsResetOnAnAndroidBoard, KeepsGeneralAppsRightAfterAFactoryReset) {
    AddApps({{"general"}, {"plain"}});
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "1");
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), std::vector<std::string>{"plain"});
    EXPECT_EQ(CountInLog("general is general app[1], continue to uninstall next apps"), 1u);
    EXPECT_EQ(CountInLog("clear userdata for dangbei"), 1u);
    EXPECT_EQ(CallsOf("libtak_common", "ClearAndroidDataAPI").size(), 1u);
    EXPECT_EQ(Setting("db/tak/factory_reset"), "0");
}

TEST_F(AnAppsResetOnAnAndroidBoard, UninstallsGeneralAppsOtherwise) {
    AddApps({{"general"}, {"plain"}});
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "2");
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), (std::vector<std::string>{"general", "plain"}));
    EXPECT_EQ(Setting("db/tak/factory_reset"), "0");
}

TEST_F(AnAppsResetOnAnAndroidBoard, AfterACorvaneResetEndsWithTheCorvaneCleanUp) {
    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    AddApps({{"later"}});
    Start({"reset=tak_app_reset", "userdata=8"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result", 2));
    EndProcess();
    EXPECT_EQ(Requested(), std::vector<std::string>{"later"});
    EXPECT_EQ(CountInLog("event type: 202!"), 2u);
    EXPECT_EQ(CountInLog("event type: 101!"), 0u);
    // The Corvane flag stays set for the process's life, so not even the fallback answers the app reset.
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
}
