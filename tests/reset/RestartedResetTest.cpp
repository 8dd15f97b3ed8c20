// An apps reset restarted while its uninstall requests are still out: the library answers those requests
// all the same, but the answers belong to the stopped run. They must not end the new run early (before
// its own answers) nor a second time (found by a storm of launch requests).
#include "ResetFixture.h"

using namespace reset_test;

namespace {

// Every uninstall answers after `delayMs`.
Json::Value AnswerAfter(int delayMs) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["delay_ms"] = delayMs;
    for (const char* app : {"one", "two"}) {
        behaviour["uninstall"]["apps"][app]["fail"] = true;
        behaviour["uninstall"]["apps"][app]["delay_ms"] = delayMs;
    }
    return behaviour;
}

}  // namespace

class ARestartedAppsReset : public ResetFixture {
protected:
    // The library reads its behaviour file at every call: no need to install it again.
    void AnswerEveryUninstallAfter(int delayMs) const {
        std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
            << orvix::host::JsonLine(AnswerAfter(delayMs)) << "\n";
    }
};

TEST_F(ARestartedAppsReset, IgnoresTheAnswersToTheStoppedRunsRequestsAndReportsOnceAtItsOwnEnd) {
    AddApps({{"one"}, {"two"}});
    AnswerEveryUninstallAfter(3000);
    Start({"reset=tak_app_reset", "userdata=1"});
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", std::chrono::seconds(20), 2));
    // The second run asks later, so its answers come after the first run's.
    AnswerEveryUninstallAfter(4500);
    Start({"reset=tak_app_reset", "userdata=2"});
    ASSERT_TRUE(CallsOf("libtak_common", "UninstallAppAPI:callback").empty())
        << "the first run was answered before the second request came: nothing left to test";
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", std::chrono::seconds(20), 4));
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 2));
    // By the time the second run reports, every answer, its own last, has come.
    EXPECT_EQ(CallsOf("libtak_common", "UninstallAppAPI:callback").size(), 4u);
    EndProcess();

    // The stopped run answers through its fallback, the second at its end, each once.
    EXPECT_EQ(Results("tak_app_reset_result"),
              (Lines{R"(["tak_app_reset_result",1,"1",""])", R"(["tak_app_reset_result",1,"2",""])"}));
    EXPECT_EQ(CountInLog("answered a request of a stopped reset, callback ignored"), 2u);
    EXPECT_EQ(CountInLog("reset common path end"), 1u);
}
