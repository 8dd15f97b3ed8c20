// Home-screen (Corvane) reset on both kinds of board, and the apps reset on a board that runs Android
// apps (the binder wait, the Dangbei data, the general apps).
#include <algorithm>

#include "ResetFixture.h"

using namespace reset_test;

namespace {

const char kAndroidApps[] = "android_on_orvix.support";

struct HomeScreenSetting {
    const char* type;
    const char* key;
    const char* inUse;  // what a home screen in use has, so that the reset visibly changes it
    const char* afterReset;
};

const HomeScreenSetting kHomeScreen[] = {
    {"int", "memory/tak/app_group_list_ready", "1", "0"},
    {"int", "memory/tak/andrioid_group_list_ready", "1", "0"},
    {"string", "db/appinfoviewer/auto_update_off_applist", "a,b", ""},
    {"string", "db/tak/btgid", "bt-1", ""},
    {"string", "db/tak/app_canary_id_list", "c1", ""},
    {"int", "db/tak/app_canary_internal_test", "1", "0"},
    {"int", "memory/tak/app_change", "0", "1"},
    {"int", "db/tak/app_sync_status", "1", "0"},
    {"int", "memory/tak/boot_status", "1", "0"},
};

}  // namespace

class ACorvaneResetOnEitherBoard : public ResetFixture, public ::testing::WithParamInterface<bool> {};

TEST_P(ACorvaneResetOnEitherBoard, ResetsTheHomeScreenAndWipesEverything) {
    const bool android = GetParam();
    SetSystemFlag(kAndroidApps, android);
    AddApps({{"native", 4}, {"plain"}, {"general"}});
    SetConfig("RESERVED_3", "general");
    SetConfig("RESERVED_11", "native:1");
    for (const auto& setting : kHomeScreen) {
        SetSetting(setting.type, setting.key, setting.inUse);
    }
    RunToEnd({"reset=corvane_reset", "userdata=99"}, "corvane_reset_result");

    EXPECT_EQ(ArgsOf("launcher", "tak_terminate_allApps_internal"), Lines{R"(["TAK","corvane reset"])"});
    EXPECT_EQ(CallsOf("libtak_common", "DeleteAllInstallNotificationsAPI").size(), 1u);
    // No cookie is kept for a Corvane reset.
    EXPECT_EQ(Results("corvane_reset_result"), One("corvane_reset_result", "0"));
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
    EXPECT_EQ(CallsOf("innerserver", "reset_for_corvane_reset").size(), 1u);
    for (const auto& setting : kHomeScreen) {
        EXPECT_EQ(Setting(setting.key), setting.afterReset) << setting.key;
    }
    ExpectEmptied(true);
    // Every app is marked for reset once all are terminated, and the default apps are put back.
    EXPECT_EQ(CountInLog("App [native] set reset flag[false] to DB"), 1u);
    // General apps are kept by a Corvane reset whatever "db/tak/factory_reset" says.
    EXPECT_EQ(Requested(), android ? Lines{"plain"} : Lines{});
    EXPECT_EQ(ArgsOf("libtak_common", "ClearAndroidDataAPI"),
              android ? Lines{R"(["com.velorin.dangbeimarket"])"} : Lines{});
    EXPECT_EQ(ArgsOf("libtak_common", "SetPreloadStatusAPI"), android ? Lines{"[1]"} : Lines{});
    // at(method): where the inner server's first call of a method is among all its calls.
    auto methods = MethodsOf("innerserver");
    auto at = [&](const char* m) { return std::find(methods.begin(), methods.end(), m) - methods.begin(); };
    if (!android) {
        // Without Android apps the per-app state is reset at the end, after every app was terminated.
        EXPECT_LT(at("update_app_item"), at("reset_for_corvane_reset"));
        return;
    }
    // Here the per-app state is reset in the entry, before anything is terminated or uninstalled.
    EXPECT_LT(at("reset_for_corvane_reset"), at("remove_app"));
}

INSTANTIATE_TEST_SUITE_P(WithOrWithoutAndroidApps, ACorvaneResetOnEitherBoard, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "AndroidAppsBoard" : "PlainBoard"; });

class AnAppsResetOnAnAndroidBoard : public ResetFixture {};

// General apps are kept right after a factory reset ("db/tak/factory_reset" 1); the flag is cleared and the
// Dangbei data too.
TEST_F(AnAppsResetOnAnAndroidBoard, WaitsForTheBinderBeforeItUninstalls) {
    SetSystemFlag(kAndroidApps, true);
    // The binders are made only once the Android service is ready.
    SetSetting("int", "memory/setting-sync/aot_svc_ready", "0");
    AddApps({{"general"}, {"plain"}});
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "1");
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForLog("binder is not created yet, waiting..."));
    // A later request is handled on the same thread after the reset's entry: by then nothing has moved.
    Start({"reset=no_such_reset"}, true);
    ASSERT_TRUE(WaitForLog("no_such_reset"));
    EXPECT_TRUE(Requested().empty());
    EXPECT_EQ(CountInLog("event type: 100!"), 0u);

    SetSetting("int", "memory/setting-sync/aot_svc_ready", "2");
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), Lines{"plain"});
    EXPECT_LT(LogPosition("binder is not created yet, waiting..."),
              LogPosition("SetCommunicatorBinderCreated"));
    EXPECT_LT(LogPosition("SetCommunicatorBinderCreated"), LogPosition("event type: 100!"));
    EXPECT_EQ(CountInLog("event type: 100!"), 1u);
    EXPECT_EQ(CallsOf("libtak_common", "ClearAndroidDataAPI").size(), 1u);
    EXPECT_EQ(Setting("db/tak/factory_reset"), "0");
}

// Any other value of the flag means later: general apps go too.
TEST_F(AnAppsResetOnAnAndroidBoard, UninstallsGeneralAppsWhenNotRightAfterAFactoryReset) {
    SetSystemFlag(kAndroidApps, true);
    AddApps({{"general"}, {"plain"}});
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "2");
    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result");
    EXPECT_EQ(Requested(), (Lines{"general", "plain"}));
}
