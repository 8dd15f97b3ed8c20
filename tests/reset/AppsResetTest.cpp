// Apps reset (app and service kind) on a board without Android apps, end to end: the real tak-reset, the
// private bus, the stand-in daemon and the substitute common library.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "ResetFixture.h"

using namespace reset_test;
using orvix::test::WaitUntil;

namespace {

const char* const kFixedApps[] = {"3201903017943", "3201904018125", "3202001019917"};

std::vector<std::string> Sorted(std::vector<std::string> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

Json::Value Uninstall(const Json::Value& apps, int delayMs = 20) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["delay_ms"] = delayMs;
    behaviour["uninstall"]["apps"] = apps;
    return behaviour;
}

bool IsSignedDecimal(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    size_t start = text[0] == '-' ? 1 : 0;
    return start < text.size() && text.find_first_not_of("0123456789", start) == std::string::npos;
}

}  // namespace

class AnAppsReset : public ResetFixture {};

TEST_F(AnAppsReset, OfTheAppKindUninstallsTheFixedAppsAndClearsFactoryReset) {
    AddApps({{kFixedApps[0]}, {kFixedApps[1]}, {kFixedApps[2]}, {"plain"}});
    SetSetting("int", "db/tak/factory_reset", "1");
    Start({"reset=tak_app_reset", "userdata=42"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();

    EXPECT_EQ(Sorted(Requested()), Sorted({kFixedApps[0], kFixedApps[1], kFixedApps[2], "plain"}));
    auto results = Results("tak_app_reset_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(results[0]["args"]), R"(["tak_app_reset_result",1,"42",""])");
    EXPECT_TRUE(Results("tak_service_reset_result").empty());
    EXPECT_EQ(Setting("db/tak/factory_reset"), "0");
    EXPECT_EQ(CountInLog("hard-coded for DF200715-00947"), 0u);
}

TEST_F(AnAppsReset, OfTheServiceKindKeepsTheFixedAppsAndLeavesFactoryReset) {
    AddApps({{kFixedApps[0]}, {kFixedApps[1]}, {kFixedApps[2]}, {"plain"}});
    SetSetting("int", "db/tak/factory_reset", "1");
    Start({"reset=tak_service_reset", "userdata=-7"});
    ASSERT_TRUE(WaitForResult("tak_service_reset_result"));
    EndProcess();

    EXPECT_EQ(Requested(), std::vector<std::string>{"plain"});
    for (const char* id : kFixedApps) {
        EXPECT_EQ(CountInLog(std::string("hard-coded for DF200715-00947, do not uninstall ") + id), 1u) << id;
    }
    auto results = Results("tak_service_reset_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(results[0]["args"]), R"(["tak_service_reset_result",1,"-7",""])");
    // A service reset owes no app-reset answer, not even when the process ends.
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
    EXPECT_EQ(Setting("db/tak/factory_reset"), "1");
}

TEST_F(AnAppsReset, SkipsDefaultListedAndDisabledAppsButNotGeneralAppsOfABoardWithoutAndroidApps) {
    AddApps({{"disabled", 1, true}, {"general"}, {"listed"}, {"native", 4}, {"plain"}});
    SetConfig("RESERVED_11", "listed:1,ghost:1");
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "1");
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();

    EXPECT_EQ(Requested(), (std::vector<std::string>{"general", "plain"}));
    EXPECT_EQ(CountInLog("native is default/native[4], continue to uninstall next apps"), 1u);
    EXPECT_EQ(CountInLog("listed is default/native[1], continue to uninstall next apps"), 1u);
    EXPECT_EQ(CountInLog("disabled is configured as disable reset, continue to uninstall next apps"), 1u);
    EXPECT_EQ(CountInLog("is general app["), 0u);
    // The reset flags of the listed and the disabled apps are put back before the walk.
    EXPECT_EQ(CountInLog("App [listed] set reset flag[false] to DB"), 1u);
    EXPECT_EQ(CountInLog("App [ghost] does not find in local"), 1u);
    EXPECT_EQ(CountInLog("App [disabled]disable reset,  set reset flag[false] to DB"), 1u);
}

TEST_F(AnAppsReset, RequestsFrontPlacedAppsFirstInReverseOfTheirFetchedOrder) {
    AddApps({{"a1"}, {"a2", 1, false, true}, {"a3"}, {"a4", 1, false, true}, {"a5"}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), (std::vector<std::string>{"a4", "a2", "a1", "a3", "a5"}));
}

TEST_F(AnAppsReset, SendsEveryRequestWithItsExtraDataAndTheReasonOfTheResetType) {
    const std::pair<const char*, const char*> reasons[] = {{"1", "9"}, {"2", "10"}, {"0", "2"}};
    size_t round = 0;
    for (const auto& [resetType, reason] : reasons) {
        SetConfig("RESET_TYPE", resetType);
        AddApps({{std::string("first") + resetType}, {std::string("second") + resetType}});
        Start({"reset=tak_app_reset"});
        ASSERT_TRUE(WaitForResult("tak_app_reset_result", ++round)) << "RESET_TYPE " << resetType;
        auto calls = CallsOf("libtak_common", "UninstallAppAPI");
        ASSERT_EQ(calls.size(), 2 * round);
        for (size_t i = calls.size() - 2; i < calls.size(); ++i) {
            const Json::Value& extras = calls[i]["args"][0];
            EXPECT_EQ(extras.size(), 6u) << orvix::host::JsonLine(extras);
            EXPECT_EQ(extras["keytype"].asString(), "0");
            EXPECT_EQ(extras["force_uninstall"].asString(), "1");
            EXPECT_EQ(extras["tak_uninstall_reason"].asString(), reason) << "RESET_TYPE " << resetType;
            EXPECT_TRUE(IsSignedDecimal(extras["callback"].asString())) << extras["callback"];
            EXPECT_TRUE(IsSignedDecimal(extras["userdata"].asString())) << extras["userdata"];
            EXPECT_NE(extras["callback"], extras["userdata"]);
            EXPECT_EQ(extras["callback"], calls[0]["args"][0]["callback"]);
            EXPECT_EQ(extras["userdata"], calls[0]["args"][0]["userdata"]);
        }
        EXPECT_EQ(calls[calls.size() - 2]["args"][0]["appkey"].asString(), std::string("first") + resetType);
    }
    EndProcess();
}

TEST_F(AnAppsReset, WithNoAppsEndsAtOnceAndReportsOne) {
    Start({"reset=tak_app_reset", "userdata=3"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_TRUE(Requested().empty());
    ASSERT_EQ(Results("tak_app_reset_result").size(), 1u);
    EXPECT_EQ(Results("tak_app_reset_result")[0]["args"][1].asInt(), 1);
    EXPECT_EQ(CountInLog("m_AppsList size 0"), 1u);
}

TEST_F(AnAppsReset, WhereEveryAppIsSkippedEndsAtOnceAndReportsOne) {
    AddApps({{"disabled", 1, true}, {"native", 4}, {kFixedApps[1]}});
    Start({"reset=tak_service_reset"});
    ASSERT_TRUE(WaitForResult("tak_service_reset_result"));
    EndProcess();
    EXPECT_TRUE(Requested().empty());
    ASSERT_EQ(Results("tak_service_reset_result").size(), 1u);
    EXPECT_EQ(CountInLog("m_AppsList size 0"), 1u);
}

// A callback that finds the list already empty posts the end again: the clean-up and the report run twice.
class ALateCallback : public ResetFixture, public ::testing::WithParamInterface<const char*> {};

TEST_P(ALateCallback, ForAnEmptyListRunsTheCleanUpAndTheReportAgain) {
    Json::Value app(Json::objectValue);
    if (std::string(GetParam()) == "twice") {
        app["twice"] = true;
    } else {
        app["also_for"] = "ghost";
    }
    Json::Value apps(Json::objectValue);
    apps["solo"] = app;
    SetLibTakBehaviour(Uninstall(apps));
    AddApps({{"solo"}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 2));
    EndProcess();

    EXPECT_EQ(Results("tak_app_reset_result").size(), 2u);
    std::string removed = std::string("removed appid ") + (app.isMember("twice") ? "solo" : "ghost") + " ";
    EXPECT_EQ(CountInLog(removed), std::string(GetParam()) == "twice" ? 2u : 1u);
    std::string history =
        orvix::test::ReadWholeFile(orvix::host::PathVariable(2) + "/vardell/log/tak_reset_history.log");
    size_t ends = 0;
    for (size_t at = history.find("[m_ClearDB][637]End"); at != std::string::npos;
         at = history.find("[m_ClearDB][637]End", at + 1)) {
        ++ends;
    }
    EXPECT_EQ(ends, 2u) << history;
}

INSTANTIATE_TEST_SUITE_P(TwiceOrForAnotherId, ALateCallback, ::testing::Values("twice", "also_for"));

TEST_F(AnAppsReset, IgnoresCallbacksWithStatesOtherThanTheTwoTerminalOnes) {
    Json::Value app(Json::objectValue);
    app["states"].append(120);
    app["states"].append(121);
    app["states"].append(160);
    Json::Value apps(Json::objectValue);
    apps["solo"] = app;
    SetLibTakBehaviour(Uninstall(apps));
    AddApps({{"solo"}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(CallsOf("libtak_common", "UninstallAppAPI:callback").size(), 4u);
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
    EXPECT_EQ(CountInLog("uninstall callback appid solo "), 1u);
}

TEST_F(AnAppsReset, LetsACallbackThatArrivesDuringTheWalkSeeOnlyTheFilteredList) {
    Json::Value early(Json::objectValue);
    early["during_walk"] = true;
    Json::Value apps(Json::objectValue);
    apps["a_early"] = early;
    Json::Value behaviour = Uninstall(apps);
    // Each request takes a while, so the walk is still busy with b_late when a_early's callback comes,
    // and z_native, which the walk skips only at its end, is still in the list then.
    behaviour["delay_ms"]["UninstallAppAPI"] = 300;
    SetLibTakBehaviour(behaviour);
    AddApps({{"a_early"}, {"b_late"}, {"z_native", 4}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();

    std::string log = TakResetLog();
    size_t walkEnd = log.find("m_AppsList size 2");
    size_t callback = log.find("uninstall callback appid a_early ");
    ASSERT_NE(walkEnd, std::string::npos);
    ASSERT_NE(callback, std::string::npos);
    EXPECT_LT(walkEnd, callback) << "the callback ran inside the walk";
    // The callback's size line: z_native was already gone, only b_late is left.
    size_t size = log.find("m_AppsList size ", callback);
    ASSERT_NE(size, std::string::npos);
    EXPECT_EQ(log.substr(size, 17), "m_AppsList size 1");
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
}

TEST_F(AnAppsReset, EndsOnceWhenManyCallbacksComeFromManyThreadsInAnyOrder) {
    const int kApps = 120;
    AddPlainApps("bulk", kApps);
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["threads"] = 4;
    std::mt19937 random(7);
    for (int i = 0; i < kApps; ++i) {
        char id[16];
        snprintf(id, sizeof(id), "bulk%03d", i);
        behaviour["uninstall"]["apps"][id]["delay_ms"] = static_cast<int>(random() % 40);
        behaviour["uninstall"]["apps"][id]["fail"] = i % 10 == 3;
    }
    SetLibTakBehaviour(behaviour);
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    // Every callback has been made once the last one is in the log; only then is "exactly one" meaningful.
    ASSERT_TRUE(WaitUntil([&] { return CountInLog("removed appid bulk") == static_cast<size_t>(kApps); },
                          std::chrono::seconds(60)));
    EndProcess();
    EXPECT_EQ(Requested().size(), static_cast<size_t>(kApps));
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
}

TEST_F(AnAppsReset, StoppedWhileUninstallsAreOutstandingSendsTheFallbackResultOnce) {
    Json::Value slow(Json::objectValue);
    slow["delay_ms"] = 1000;
    Json::Value behaviour = Uninstall(Json::Value(Json::objectValue));
    behaviour["uninstall"]["apps"]["slow1"] = slow;
    behaviour["uninstall"]["apps"]["slow2"] = slow;
    // The process lingers after its task has gone, so the slow callbacks arrive for a task that exited;
    // the last one empties the list and its end event finds no task to take it.
    behaviour["delay_ms"]["DestroyInstaller"] = 3000;
    SetLibTakBehaviour(behaviour);
    AddApps({{"slow1"}, {"slow2"}});
    Start({"reset=tak_app_reset", "userdata=5"});
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", std::chrono::seconds(30), 2));
    EndProcess();

    auto results = Results("tak_app_reset_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(results[0]["args"]), R"(["tak_app_reset_result",1,"5",""])");
    EXPECT_EQ(CountInLog("reset common path end"), 0u);
    size_t exited = LogPosition("CReset task exit!");
    size_t late = LogPosition("uninstall callback appid slow");
    ASSERT_NE(exited, std::string::npos);
    ASSERT_NE(late, std::string::npos) << "no callback arrived after the task had exited";
    EXPECT_LT(exited, late);
    EXPECT_GE(CountInLog("receiver is not created"), 1u);
}

TEST_F(AnAppsReset, StoppedWhileAnUninstallNeverAnswersExitsCleanly) {
    Json::Value silent(Json::objectValue);
    silent["silent"] = true;
    Json::Value apps(Json::objectValue);
    apps["mute"] = silent;
    SetLibTakBehaviour(Uninstall(apps));
    AddApps({{"mute"}, {"plain"}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForLog("removed appid plain "));
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
    EndProcess();
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
}

TEST_F(AnAppsReset, WithoutUninstallAppApiStopsAndOnlyTheFallbackReports) {
    Json::Value behaviour(Json::objectValue);
    behaviour["absent"].append("UninstallAppAPI");
    SetLibTakBehaviour(behaviour);
    AddApps({{"plain"}});
    Start({"reset=tak_app_reset", "userdata=11"});
    ASSERT_TRUE(WaitForLog("pfUninstallAppAPI is NULL."));
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
    EndProcess();

    auto results = Results("tak_app_reset_result");
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(orvix::host::JsonLine(results[0]["args"]), R"(["tak_app_reset_result",1,"11",""])");
    EXPECT_EQ(CountInLog("reset common path end"), 0u);
}

TEST_F(AnAppsReset, OfTheServiceKindWithoutUninstallAppApiReportsNothing) {
    Json::Value behaviour(Json::objectValue);
    behaviour["absent"].append("UninstallAppAPI");
    SetLibTakBehaviour(behaviour);
    AddApps({{"plain"}});
    Start({"reset=tak_service_reset"});
    ASSERT_TRUE(WaitForLog("pfUninstallAppAPI is NULL."));
    EndProcess();
    EXPECT_TRUE(Results("tak_service_reset_result").empty());
    EXPECT_TRUE(Results("tak_app_reset_result").empty());
}

TEST_F(AnAppsReset, FinishesWhenAnUninstallFailsAndLeavesThatAppInstalled) {
    Json::Value failing(Json::objectValue);
    failing["fail"] = true;
    Json::Value apps(Json::objectValue);
    apps["bad"] = failing;
    SetLibTakBehaviour(Uninstall(apps));
    AddApps({{"bad"}, {"good"}});
    for (const char* id : {"bad", "good"}) {
        auto added = Host({"pkg", "add", std::string("org.test.") + id, "--app", id, "--main", id});
        ASSERT_EQ(added.status, 0) << added.err;
    }
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();

    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
    auto removed = CallsOf("innerserver", "remove_app");
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_EQ(removed[0]["args"][0].asString(), "good");
    std::string packages = Host({"pkg", "list"}).out;
    EXPECT_NE(packages.find("org.test.bad"), std::string::npos) << packages;
    EXPECT_EQ(packages.find("org.test.good"), std::string::npos) << packages;
    EXPECT_EQ(CountInLog("uninstall callback appid bad "), 1u);
}

TEST_F(AnAppsReset, TakesAppIdsWithQuotesBlanksAndNonAsciiText) {
    const std::vector<std::string> ids = {"a \"quoted\" id", "with  blanks ", "тест-应用-✓", "back\\slash"};
    AddApps({{ids[0]}, {ids[1]}, {ids[2]}, {ids[3]}});
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Sorted(Requested()), Sorted(ids));
    std::vector<std::string> removed;
    for (const auto& call : CallsOf("innerserver", "remove_app")) {
        removed.push_back(call["args"][0].asString());
    }
    EXPECT_EQ(Sorted(removed), Sorted(ids));
    for (const auto& id : ids) {
        EXPECT_EQ(CountInLog("removed appid " + id + " "), 1u) << id;
    }
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
}
