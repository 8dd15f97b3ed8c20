// tak-reset killed with SIGKILL in the middle of a reset (what a power cut looks like from inside), then
// the same request launched again: the second run must finish what the first left, report once, and the
// database must come out as the killed process found it, since the process only ever reads it.
#include "FaultFixture.h"

using namespace fault_test;

namespace {

struct KillCase {
    const char* name;
    bool corvane;  // a Corvane reset (on a board with Android apps, the one where it uninstalls), or an apps
                   // reset
    bool inCleanUp;  // killed half-way through emptying the directories, or while uninstalls are pending
};

}  // namespace

class ATakResetKilledMidReset : public FaultFixture, public ::testing::WithParamInterface<KillCase> {
protected:
    const KillCase& test = GetParam();
    const std::string kind = test.corvane ? "corvane_reset" : "tak_app_reset";
    const std::vector<std::string> request = {"reset=" + kind, "userdata=41"};
    const std::string result = kind + "_result";
    const std::string cookie = test.corvane ? "0" : "41";  // a Corvane reset keeps no cookie
};

TEST_P(ATakResetKilledMidReset, FinishesOnTheSameRequestAgainAndReportsOnce) {
    SetSystemFlag("android_on_orvix.support", test.corvane);
    AddApps({{"app.one"}, {"app.two"}});
    FillEveryResetDirectory();
    FailEveryUninstallAfter(test.inCleanUp ? 2500 : 600000);
    Start(request);
    // Both uninstall requests are out: every bus call before the clean-up's first one has been answered.
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", 30s, 2));
    orvix::host::ProcessId first = TakReset();
    orvix::host::ProcessId daemon = InnerServer();
    if (test.inCleanUp) {
        // Held still, the daemon stops the clean-up at its first bus call, some directories emptied and
        // the rest not yet.
        ASSERT_EQ(kill(daemon.pid, SIGSTOP), 0);
        ASSERT_TRUE(WaitForLog("MethodName:[reset_app_user_data]", 30s));
    }
    KillWhileReadingTheDatabase(first);
    if (test.inCleanUp) {
        ASSERT_EQ(kill(daemon.pid, SIGCONT), 0);
    }
    EXPECT_EQ(DatabaseState(), "ok, 2 apps");
    EXPECT_TRUE(Results(result).empty());
    EXPECT_EQ(IsEmptyDir(ServiceDir(2, "common")), test.inCleanUp);
    EXPECT_EQ(IsEmptyDir(ServiceDir(27, "preinstallrecovery")), test.inCleanUp);
    EXPECT_FALSE(IsEmptyDir(ServiceDir(27, "clone")));
    EXPECT_FALSE(IsEmptyDir(orvix::host::PathVariable(66)));

    FailEveryUninstallAfter(20);
    RunToEnd(request, result);
    EXPECT_EQ(Results(result), One(result, cookie));
    EXPECT_EQ(Requested(), (Lines{"app.one", "app.two", "app.one", "app.two"}));
    ExpectEmptied(test.corvane);
    EXPECT_EQ(DatabaseState(), "ok, 2 apps");
}

INSTANTIATE_TEST_SUITE_P(AppsOrCorvaneWaitingOrCleaning, ATakResetKilledMidReset,
                         ::testing::Values(KillCase{"AppsResetWaitingForUninstalls", false, false},
                                           KillCase{"AppsResetInTheCleanUp", false, true},
                                           KillCase{"CorvaneResetWaitingForUninstalls", true, false},
                                           KillCase{"CorvaneResetInTheCleanUp", true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

class ATakResetKilledMidBuiltInReset : public FaultFixture {
protected:
    std::string Version(const std::string& pkgId) const {
        std::istringstream list(Host({"pkg", "list"}).out);
        for (std::string line; std::getline(list, line);) {
            Json::Value record;
            std::istringstream(line) >> record;
            if (record["pkgid"].asString() == pkgId) {
                return record["version"].asString();
            }
        }
        return "<absent>";
    }
};

// The reset marks itself in "db/built-in-app-upgrader/reset" and never clears the mark (the upgrader
// does), so after a kill the same request is refused, and answered, until the mark is cleared.
TEST_F(ATakResetKilledMidBuiltInReset, IsRefusedAndAnsweredOnceUntilItsMarkIsClearedThenFinishes) {
    Json::Value behaviour(Json::objectValue);
    for (const char* appId : {"alpha", "beta"}) {
        AddBuiltIn(appId);
        behaviour["builtin"]["list"].append(BuiltInEntry(appId));
    }
    behaviour["builtin"]["install"]["apps"]["alpha"]["silent"] = true;
    SetLibTakBehaviour(behaviour);
    const std::vector<std::string> request = {"reset=biu_app_reset", "userdata=51"};
    Start(request);
    ASSERT_TRUE(WaitForCall("libtak_common", "InstallAppAPI"));
    KillWhileReadingTheDatabase(TakReset());
    EXPECT_TRUE(Results("biu_app_reset_result").empty());
    EXPECT_EQ(Setting("db/built-in-app-upgrader/reset"), "2");
    EXPECT_EQ(Version("pkg.alpha"), "2.0.0");

    behaviour["builtin"]["install"]["apps"].clear();
    SetLibTakBehaviour(behaviour);
    RunToEnd(request, "biu_app_reset_result");
    EXPECT_EQ(Results("biu_app_reset_result"), One("biu_app_reset_result", "51"));
    EXPECT_EQ(Installed(), Lines{"alpha"});

    SetSetting("int", "db/built-in-app-upgrader/reset", "0");
    RunToEnd(request, "biu_app_reset_result", 2);
    EXPECT_EQ(Results("biu_app_reset_result").size(), 2u);
    EXPECT_EQ(Installed(), (Lines{"alpha", "alpha", "beta"}));
    EXPECT_EQ(Version("pkg.alpha"), "1.0.0");
    EXPECT_EQ(Version("pkg.beta"), "1.0.0");
    EXPECT_EQ(DatabaseState(), "ok, 0 apps");
}
