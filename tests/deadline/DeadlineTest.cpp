// The opt-in deadline for install and uninstall callbacks: every reset kind with an app whose library
// never answers, or answers only after the deadline, still reaches its end with one result; the value of
// the setting is read defensively.
#include <vconf.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "../reset/ResetFixture.h"
#include "TAKUtil.h"
#include "TempDir.h"
#include "TestLog.h"

using namespace reset_test;
using namespace std::chrono_literals;

namespace {

const char kDeadlineKey[] = "db/tak/reset_callback_timeout_sec";

struct DeadlineCase {
    const char* name;
    std::string reset;  // the launch value; it reports "<reset>_result"
    bool late;          // the library answers, but only after the deadline; else it never does
    bool BuiltIn() const { return reset.rfind("biu_", 0) == 0; }
};

void PrintTo(const DeadlineCase& c, std::ostream* out) {
    *out << c.name;
}

}  // namespace

class ADeadline : public ResetFixture, public ::testing::WithParamInterface<DeadlineCase> {
protected:
    // "mute" is the app the library is slow or silent for; "fine" answers at once.
    void Prepare(const DeadlineCase& test) {
        Json::Value behaviour(Json::objectValue);
        Json::Value& calls = test.BuiltIn() ? behaviour["builtin"]["install"] : behaviour["uninstall"];
        Json::Value& mute = calls["apps"]["mute"];
        if (test.late) {
            // Two late answers: neither may end the reset again.
            mute["delay_ms"] = 2500;
            mute["twice"] = true;
        } else {
            mute["silent"] = true;
        }
        calls["delay_ms"] = 10;
        // Both as app records and as built-in packages: each reset kind finds the ones it works on.
        AddApps({{"mute"}, {"fine"}});
        for (const char* id : {"mute", "fine"}) {
            AddBuiltIn(id);
            behaviour["builtin"]["list"].append(BuiltInEntry(id));
        }
        SetSystemFlag("android_on_orvix.support", test.reset == "corvane_reset");
        SetLibTakBehaviour(behaviour);
        SetSetting("int", kDeadlineKey, "1");
    }
};

TEST_P(ADeadline, EndsTheAppThatNeverAnswersAsFailedAndTheResetStillEnds) {
    const DeadlineCase& test = GetParam();
    ASSERT_NO_FATAL_FAILURE(Prepare(test));
    ASSERT_EQ(Host({"client", "tv"}).status, 0);
    Start({"reset=" + test.reset, "userdata=12", "obj=tv", "method=m"});
    ASSERT_TRUE(WaitForResult(test.reset + "_result"));
    const std::string what = test.BuiltIn() ? "install" : "uninstall";
    if (test.late) {
        // The late answer comes, and changes nothing.
        ASSERT_TRUE(WaitForCall(
            "libtak_common", test.BuiltIn() ? "InstallAppAPI:callback" : "UninstallAppAPI:callback", 20s, 3));
        ASSERT_TRUE(!test.BuiltIn() || WaitForLog("mute is not in upgrade list"));
    }
    EndProcess();

    // One warning, for the app that never answered in time.
    EXPECT_EQ(CountWarnings(what + " of mute timed out after 1 s"), 1u);
    EXPECT_EQ(CountWarnings(" of "), 1u);
    EXPECT_EQ(Results(test.reset + "_result").size(), 1u);
    Lines requests = test.BuiltIn() ? Installed() : Requested();
    std::sort(requests.begin(), requests.end());
    EXPECT_EQ(requests, (Lines{"fine", "mute"}));
    std::string history = orvix::test::ReadWholeFile(ServiceDir(2, "log/tak_reset_history.log"));
    if (!test.BuiltIn()) {
        EXPECT_EQ(Count(history, "[mute] uninstall timed out after 1 s"), 1u) << history;
    }
    if (test.reset == "biu_service_reset") {
        EXPECT_EQ(ArgsOf("managerclient.tv", "tak_builtin_app_service_reset_result"),
                  (Lines{"[-1,500,2,0]", "[-1,501,1,0]", "[-1,501,2,0]", "[-1,502,0,0]"}));
        // The reports count the app that timed out as ended; the client shows it as failed.
        EXPECT_TRUE(orvix::test::WaitUntil([&] {
            return Count(orvix::test::ReadWholeFile(LogPath("managerclient.tv")),
                         "built-in reset: finished, 1/2 done, 1 failed in ") == 1u;
        })) << orvix::test::ReadWholeFile(LogPath("managerclient.tv"));
    }
}

const DeadlineCase kDeadlineCases[] = {{"AppsSilent", "tak_app_reset", false},
                                       {"AppsLate", "tak_app_reset", true},
                                       {"ServiceSilent", "tak_service_reset", false},
                                       {"CorvaneOnAndroidBoardSilent", "corvane_reset", false},
                                       {"CorvaneOnAndroidBoardLate", "corvane_reset", true},
                                       {"BuiltInAppSilent", "biu_app_reset", false},
                                       {"BuiltInAppLate", "biu_app_reset", true},
                                       {"BuiltInServiceSilent", "biu_service_reset", false}};
INSTANTIATE_TEST_SUITE_P(Kinds, ADeadline, ::testing::ValuesIn(kDeadlineCases),
                         [](const auto& info) { return std::string(info.param.name); });

// Each request has its own deadline: a library so slow to take a request that the walk outlasts the
// deadline must not cost the apps asked for at its end. "slow" is never answered and holds the walk up
// for longer than the deadline; "fresh", asked for after it, answers well within its own.
TEST_F(ADeadline, CountsFromEachRequestNotFromTheFirst) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["apps"]["slow"]["silent"] = true;
    behaviour["uninstall"]["apps"]["slow"]["call_ms"] = 3500;
    behaviour["uninstall"]["apps"]["fresh"]["delay_ms"] = 1000;
    AddApps({{"fresh"}, {"slow", 1, false, true}});  // "slow" goes first
    SetLibTakBehaviour(behaviour);
    SetSetting("int", kDeadlineKey, "3");
    RunToEnd({"reset=tak_app_reset", "userdata=3"}, "tak_app_reset_result");

    ASSERT_EQ(Requested(), (Lines{"slow", "fresh"}));
    EXPECT_EQ(CountInLog("slow: no final uninstall state within 3 s, taken as failed"), 1u);
    EXPECT_EQ(CountInLog("fresh: no final"), 0u);
    EXPECT_EQ(CountInLog("uninstall callback appid fresh "), 1u);
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "3"));
}

// "end" before the deadline: the stopped reset answers once and its timer never fires.
TEST_F(ADeadline, EndBeforeItExpiresAnswersOnceWithoutATimeOut) {
    Prepare({"", "biu_app_reset", false});
    SetSetting("int", kDeadlineKey, "30");
    Start({"reset=biu_app_reset", "userdata=5"});
    ASSERT_TRUE(WaitForCall("libtak_common", "InstallAppAPI"));
    EndProcess();
    EXPECT_EQ(Results("biu_app_reset_result"), One("biu_app_reset_result", "5"));
    EXPECT_EQ(CountInLog("taken as failed"), 0u);
}

// The setting is read with suspicion: anything but a sane number of seconds means no deadline (the sane
// values 1, 3 and 30 are read by the reset tests above).
TEST(TheDeadlineSetting, IsANumberOfSecondsOrNoDeadlineWithAReason) {
    std::string pattern = orvix::test::TempPattern("deadline-");
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    orvix::host::SetRoot(pattern);
    struct Case {
        const char* name;
        void (*set)();
        int seconds;
        const char* line;
    };
    const Case cases[] = {
        {"absent", [] {}, 0, ""},
        {"zero", [] { vconf_set_int(kDeadlineKey, 0); }, 0, ""},
        {"a day", [] { vconf_set_int(kDeadlineKey, 86400); }, 86400, ""},
        {"text", [] { vconf_set_str(kDeadlineKey, "ten"); }, 0, "holds text [ten], not a number"},
        {"negative", [] { vconf_set_int(kDeadlineKey, -5); }, 0, "= -5 is outside 0..86400: no deadline"},
        {"huge", [] { vconf_set_int(kDeadlineKey, 2000000000); }, 0, "= 2000000000 is outside 0..86400"},
        {"fraction", [] { vconf_set_dbl(kDeadlineKey, 2.5); }, 0, "= 2.5 is not a whole number"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        test.set();
        orvix::test::LogMark mark;
        EXPECT_EQ(CTAKUtil::GetCallbackTimeoutSec(), test.seconds);
        if (*test.line != '\0') {
            EXPECT_TRUE(mark.Contains(test.line)) << mark.Text();
        } else {
            // Absent or sane: nothing that reads as a failure in the reset's log.
            EXPECT_FALSE(mark.Contains("E/TAK")) << mark.Text();
        }
    }
    orvix::test::RunProgram({"/bin/rm", "-rf", pattern});
}
