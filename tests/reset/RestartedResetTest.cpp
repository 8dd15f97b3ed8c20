// A reset that takes over from one whose uninstall requests are still out. The library answers those
// requests all the same, and the task cannot tell which run an answer is for: an answer counts for the
// run that waits for that app, and what a stopped run left unanswered changes nothing after that. The
// runs that follow must end, each exactly once (found by a storm of launch requests, then by restarts
// with a library that never answers the first run).
#include "ResetFixture.h"

using namespace reset_test;

namespace {

const char kAndroidApps[] = "android_on_orvix.support";

struct TakeOverCase {
    const char* name;
    std::string first;   // the reset left waiting for "one"
    std::string second;  // the reset that takes over: it reports "<second>_result", with cookie "2" (a
                         // Corvane reset keeps none: "0")
    bool androidBoard;
    bool deadline;   // the first run ends through the deadline before the second starts
    size_t results;  // results of that name in all, the first run's included
};

void PrintTo(const TakeOverCase& c, std::ostream* out) {
    *out << c.name;
}

}  // namespace

class ARestartedAppsReset : public ResetFixture {
protected:
    // Every uninstall answers (a failure: the app stays put) after `delayMs`; `silent` ones never do.
    static Json::Value Answering(int delayMs, const Lines& silent = {}) {
        return FailingUninstalls(delayMs, {"one", "two"}, silent);
    }
};

class ATakeOver : public ARestartedAppsReset, public ::testing::WithParamInterface<TakeOverCase> {};

TEST_P(ATakeOver, EndsOnceTheLibraryAnswersItsOwnRequests) {
    const TakeOverCase& c = GetParam();
    SetSystemFlag(kAndroidApps, c.androidBoard);
    AddApps({{"one"}, {"two"}});
    if (c.deadline) {
        SetSetting("int", "db/tak/reset_callback_timeout_sec", "1");
    }
    ChangeLibTakBehaviour(Answering(0, {"one"}));
    Start({"reset=" + c.first, "userdata=1"});
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI:callback"));
    if (c.deadline) {
        ASSERT_TRUE(WaitForLog("taken as failed"));
    }
    ChangeLibTakBehaviour(Answering(0));
    Start({"reset=" + c.second, "userdata=2"});
    const std::string result = c.second + "_result";
    ASSERT_TRUE(WaitForResult(result, c.results)) << "the reset that took over never reported";
    EndProcess();

    const std::string cookie = c.second == "corvane_reset" ? "0" : "2";
    Lines own;
    for (const auto& line : Results(result)) {
        if (line.find(",\"" + cookie + "\",") != std::string::npos) {
            own.push_back(line);
        }
    }
    EXPECT_EQ(own, One(result, cookie));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ATakeOver,
    ::testing::Values(
        // A stopped app reset answers through its fallback; a stopped service reset does not answer.
        TakeOverCase{"AppsResetOfAnAppsReset", "tak_app_reset", "tak_app_reset", false, false, 2},
        TakeOverCase{"ServiceResetOfAServiceReset", "tak_service_reset", "tak_service_reset", false, false,
                     1},
        TakeOverCase{"CorvaneResetOnAnAndroidBoard", "tak_app_reset", "corvane_reset", true, false, 1},
        TakeOverCase{"AppsResetAfterADeadline", "tak_app_reset", "tak_app_reset", false, true, 2}),
    [](const auto& info) { return std::string(info.param.name); });

// The stopped run's answers come first and end the new run; the new run's own answers come later and,
// as answers to requests nobody waits for any more, change nothing: one clean-up, one result each.
TEST_F(ARestartedAppsReset, CountsTheFirstAnswersAndIgnoresTheSurplusOnes) {
    AddApps({{"one"}, {"two"}});
    ChangeLibTakBehaviour(Answering(3000));
    Start({"reset=tak_app_reset", "userdata=1"});
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", std::chrono::seconds(20), 2));
    ChangeLibTakBehaviour(Answering(4500));
    Start({"reset=tak_app_reset", "userdata=2"});
    ASSERT_TRUE(CallsOf("libtak_common", "UninstallAppAPI:callback").empty())
        << "the first run was answered before the second request came: nothing left to test";
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI:callback", std::chrono::seconds(30), 4));
    EndProcess();

    EXPECT_EQ(Results("tak_app_reset_result"),
              (Lines{R"(["tak_app_reset_result",1,"1",""])", R"(["tak_app_reset_result",1,"2",""])"}));
    EXPECT_EQ(CountInLog("answered a request of a stopped reset, callback ignored"), 2u);
    EXPECT_EQ(CountInLog("reset common path end"), 1u);
}
