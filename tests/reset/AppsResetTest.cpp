// Apps reset (app and service kind) on a board without Android apps, end to end: the real tak-reset, the
// private bus, the stand-in daemon and the substitute common library.
#include <algorithm>
#include <random>
#include <sstream>

#include "ResetFixture.h"

using namespace reset_test;
using orvix::host::JsonLine;

namespace {

const char* const kFixedApps[] = {"3201903017943", "3201904018125", "3202001019917"};

// The substitute library's behaviour: every uninstall answers after 20 ms, app `id` as `key` says.
Json::Value ForApp(const std::string& id, const char* key, const Json::Value& value) {
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["delay_ms"] = 20;
    behaviour["uninstall"]["apps"][id][key] = value;
    return behaviour;
}

struct CallbackCase {
    const char* key;    // what the library does for the one app, "solo"
    const char* value;  // JSON
    size_t callbacks;   // callbacks the library makes
    size_t solo;        // callbacks the reset takes for "solo"
    size_t ghost;       // and for "ghost", an app it never asked for
    size_t results;
};

// Failure messages name the case instead of dumping its bytes.
void PrintTo(const CallbackCase& c, std::ostream* out) {
    *out << c.key;
}

}  // namespace

class AnAppsReset : public ResetFixture {};

class AResetOfEitherKind : public ResetFixture, public ::testing::WithParamInterface<bool> {
protected:
    const bool service = GetParam();
    const std::string kind = service ? "tak_service_reset" : "tak_app_reset", reset = "reset=" + kind,
                      result = kind + "_result";
};

TEST_P(AResetOfEitherKind, TreatsTheFixedAppsFactoryResetAndResultAsItsKindSays) {
    AddApps({{kFixedApps[0]}, {kFixedApps[1]}, {kFixedApps[2]}, {"plain"}});
    SetSetting("int", "db/tak/factory_reset", "1");
    RunToEnd({reset, "userdata=-7"}, result);

    // Apps are fetched in the order of their ids.
    EXPECT_EQ(Requested(),
              (service ? Lines{"plain"} : Lines{kFixedApps[0], kFixedApps[1], kFixedApps[2], "plain"}));
    EXPECT_EQ(Results(result), One(result, "-7"));
    // Neither kind owes the other's answer, not even when the process ends.
    EXPECT_TRUE(Results(service ? "tak_app_reset_result" : "tak_service_reset_result").empty());
    EXPECT_EQ(Setting("db/tak/factory_reset"), service ? "1" : "0");
}

INSTANTIATE_TEST_SUITE_P(AppOrService, AResetOfEitherKind, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Service" : "App"; });

// A library without one of its entry points: the reset stops where it needs it, and only "end" answers it,
// as its kind promises (a service reset stays silent); without InstallAppAPI a built-in reset ends at once.
// None gets as far as the apps reset's clean-up.
struct EntryPointCase {
    const char* name;
    std::string reset;  // it reports "<reset>_result"
    const char* absent;
    const char* stopsAt;  // the log line where it stops; nullptr: it ends and reports
    bool answers;         // once the process ends
};

class AResetWithoutAnEntryPoint : public ResetFixture,
                                  public ::testing::WithParamInterface<EntryPointCase> {};

TEST_P(AResetWithoutAnEntryPoint, StopsThereAndAnswersOnlyAsItsKindPromises) {
    const EntryPointCase& test = GetParam();
    const std::string result = test.reset + "_result";
    Json::Value behaviour(Json::objectValue);
    behaviour["absent"].append(test.absent);
    behaviour["builtin"]["list"].append(BuiltInEntry("plain"));
    AddBuiltIn("plain");
    AddApps({{"plain"}});
    SetLibTakBehaviour(behaviour);
    Start({"reset=" + test.reset, "userdata=4"});
    ASSERT_TRUE(test.stopsAt != nullptr ? WaitForLog(test.stopsAt) : WaitForResult(result));
    EXPECT_EQ(Results(result).size(), test.stopsAt != nullptr ? 0u : 1u);
    EndProcess();
    // No other kind's result either.
    EXPECT_EQ(ArgsOf("innerserver", "process_result"), test.answers ? One(result, "4") : Lines{});
    EXPECT_TRUE(Installed().empty());
    EXPECT_EQ(CountInLog("reset common path end"), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    EntryPoints, AResetWithoutAnEntryPoint,
    ::testing::Values(
        EntryPointCase{"AppResetWithoutUninstallAppApi", "tak_app_reset", "UninstallAppAPI",
                       "pfUninstallAppAPI is NULL.", true},
        EntryPointCase{"ServiceResetWithoutUninstallAppApi", "tak_service_reset", "UninstallAppAPI",
                       "pfUninstallAppAPI is NULL.", false},
        EntryPointCase{"BuiltInResetWithoutGetBuiltInAppListApi", "biu_app_reset", "GetBuiltInAppListAPI",
                       "get symbol address of GetBuiltInAppListAPI", true},
        EntryPointCase{"BuiltInResetWithoutInstallAppApi", "biu_app_reset", "InstallAppAPI", nullptr, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AnAppsReset, SkipsDefaultListedAndDisabledAppsButNotGeneralAppsOfABoardWithoutAndroidApps) {
    AddApps({{"disabled", 1, true}, {"general"}, {"listed"}, {"native", 4}, {"plain"}});
    SetConfig("RESERVED_11", "listed:1,ghost:1");
    SetConfig("RESERVED_3", "general");
    SetSetting("int", "db/tak/factory_reset", "1");
    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result");

    EXPECT_EQ(Requested(), (Lines{"general", "plain"}));
    EXPECT_EQ(CallsOf("innerserver", "reset_app_user_data").size(), 1u);
    // The reset flags of the listed and the disabled apps are put back before the walk.
    // Which rule keeps which app is logged as the plan tests check; here only what the walk adds.
    for (const char* line : {"App [listed] set reset flag[false] to DB", "App [ghost] does not find in local",
                             "App [disabled]disable reset,  set reset flag[false] to DB"}) {
        EXPECT_EQ(CountInLog(line), 1u) << line;
    }
}

// App ids that would break a pasted statement, a list or a bus string, or are just unusual text: each is
// asked for once, front-placed apps first in reverse of their fetched order, and nothing the reset keeps
// goes (each answer is matched to its request, or the reset would never end). No row is deleted by a text
// that could match another: the store refuses to paste an id with a quote, and a bus string cannot name an id
// that is not UTF-8, so those two rows stay.
TEST_F(AnAppsReset, AsksForOddIdsOnceAndDeletesNothingItKeeps) {
    struct OddId {
        std::string id;
        bool rowStays, front;
    };
    // In the order the apps are fetched (by id).
    const OddId odd[] = {{"a \"quoted\" id", false, false},
                         {"back\\slash", false, true},
                         {"bad\xff\xfe utf-8", true, false},
                         {"com,ma", false, false},
                         {"new\nline", false, false},
                         {"semi;colon; delete from widgetinfo", false, false},
                         {"with  blanks ", false, false},
                         {"x' or '1'='1", true, false},
                         {"x5", false, true},
                         {"тест-应用-✓", false, false},
                         {std::string(4096, 'L'), false, false}};
    const std::string placeholder = "placeholder";  // the bus cannot carry the id that is not UTF-8
    std::vector<TestApp> apps = {{"kept", 1, true}, {"native", 4}};
    for (const OddId& app : odd) {
        apps.push_back({g_utf8_validate(app.id.data(), app.id.size(), nullptr) ? app.id : placeholder, 1,
                        false, app.front});
    }
    AddApps(apps);
    // The bytes of odd[2]: only a statement of the test's own can write them.
    Rows(
        "update widgetinfo set id = cast(x'626164fffe207574662d38' as text) where id = '" + placeholder + "'",
        true);

    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result");
    Lines requested = Requested(), expected, rows = {"kept", "native"};
    EXPECT_EQ(Lines(requested.begin(), requested.begin() + 2), (Lines{"x5", "back\\slash"}));
    for (const OddId& app : odd) {
        expected.push_back(app.id);
        if (app.rowStays) {
            rows.push_back(app.id);
        }
    }
    for (Lines* lines : {&requested, &expected, &rows}) {
        std::sort(lines->begin(), lines->end());
    }
    EXPECT_EQ(requested, expected);
    EXPECT_EQ(Rows("select id from widgetinfo order by id"), rows);
}

// The reason follows RESET_TYPE (its mapping is checked in the data-store tests); the extras of every
// request carry the same callback and userdata words, as decimal numbers.
TEST_F(AnAppsReset, SendsEveryRequestWithItsExtraDataAndTheReasonOfTheResetType) {
    SetConfig("RESET_TYPE", "2");
    AddApps({{"first"}, {"second"}});
    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result");
    auto calls = CallsOf("libtak_common", "UninstallAppAPI");
    ASSERT_EQ(calls.size(), 2u);
    for (size_t i = 0; i < calls.size(); ++i) {
        Json::Value extras = calls[i]["args"][0];
        EXPECT_NE(extras["callback"], extras["userdata"]);
        for (const char* key : {"callback", "userdata"}) {
            // stoll throws on anything but a number; to_string gives back only a plain decimal one.
            EXPECT_EQ(std::to_string(std::stoll(extras[key].asString())), extras[key].asString()) << key;
            EXPECT_EQ(extras[key], calls[0]["args"][0][key]) << key << " differs between requests";
            extras.removeMember(key);
        }
        EXPECT_EQ(JsonLine(extras),
                  R"({"appkey":")" + std::string(i == 0 ? "first" : "second") +
                      R"(","force_uninstall":"1","keytype":"0","tak_uninstall_reason":"10"})");
    }
}

// A callback that finds the list already empty posts the end again, so the clean-up and the report run
// twice; a state other than the two terminal ones is ignored.
class TheCallbacks : public ResetFixture, public ::testing::WithParamInterface<CallbackCase> {};

TEST_P(TheCallbacks, OfOneAppEndTheResetAsOftenAsTheyFindTheListEmpty) {
    Json::Value value;
    std::istringstream(GetParam().value) >> value;
    SetLibTakBehaviour(ForApp("solo", GetParam().key, value));
    AddApps({{"solo"}});
    RunToEnd({"reset=tak_app_reset"}, "tak_app_reset_result", GetParam().results);

    EXPECT_EQ(CallsOf("libtak_common", "UninstallAppAPI:callback").size(), GetParam().callbacks);
    EXPECT_EQ(CountInLog("uninstall callback appid solo "), GetParam().solo);
    EXPECT_EQ(CountInLog("uninstall callback appid ghost "), GetParam().ghost);
    EXPECT_EQ(Results("tak_app_reset_result").size(), GetParam().results);
    std::string history = orvix::test::ReadWholeFile(ServiceDir(2, "log/tak_reset_history.log"));
    EXPECT_EQ(Count(history, "[m_ClearDB][637]End"), GetParam().results) << history;
}

INSTANTIATE_TEST_SUITE_P(TwiceForAnotherIdOrNotTerminal, TheCallbacks,
                         ::testing::Values(CallbackCase{"twice", "true", 2, 2, 0, 2},
                                           CallbackCase{"also_for", "\"ghost\"", 2, 1, 1, 2},
                                           CallbackCase{"states", "[120, 121, 160]", 4, 1, 0, 1}),
                         [](const auto& info) { return std::string(info.param.key); });

// Every tenth uninstall fails: those apps stay installed, and the reset still ends exactly once.
TEST_F(AnAppsReset, EndsOnceWhenManyCallbacksSomeFailingComeFromManyThreadsInAnyOrder) {
    const int kApps = 120;
    std::vector<TestApp> apps;
    Json::Value behaviour(Json::objectValue);
    behaviour["uninstall"]["threads"] = 4;
    std::mt19937 random(7);
    for (int i = 0; i < kApps; ++i) {
        std::string id = "bulk" + std::to_string(1000 + i);
        apps.push_back({id});
        behaviour["uninstall"]["apps"][id]["delay_ms"] = static_cast<int>(random() % 40);
        behaviour["uninstall"]["apps"][id]["fail"] = i % 10 == 3;
    }
    AddApps(apps);
    for (const char* id : {"bulk1003", "bulk1004"}) {  // failing, and not
        ASSERT_EQ(Host({"pkg", "add", std::string("org.test.") + id, "--app", id, "--main", id}).status, 0);
    }
    SetLibTakBehaviour(behaviour);
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    // Every callback has been made once the last one is in the log; only then is "exactly one" meaningful.
    ASSERT_TRUE(orvix::test::WaitUntil([&] { return CountInLog("removed appid bulk") == size_t{kApps}; },
                                       std::chrono::seconds(60)));
    EndProcess();
    EXPECT_EQ(Requested().size(), size_t{kApps});
    EXPECT_EQ(Results("tak_app_reset_result").size(), 1u);
    EXPECT_EQ(CallsOf("innerserver", "remove_app").size(), size_t{kApps - kApps / 10});
    std::string packages = Host({"pkg", "list"}).out;
    EXPECT_NE(packages.find("org.test.bulk1003"), std::string::npos) << packages;
    EXPECT_EQ(packages.find("org.test.bulk1004"), std::string::npos) << packages;
    EXPECT_EQ(CountWarnings("uninstall of bulk"), size_t{kApps / 10});
    EXPECT_EQ(CountWarnings("uninstall of bulk1003 failed"), 1u);
}

TEST_F(AnAppsReset, StoppedWhileUninstallsAreOutstandingSendsTheFallbackResultOnce) {
    Json::Value behaviour = ForApp("slow1", "delay_ms", 1000);
    behaviour["uninstall"]["apps"]["slow2"]["delay_ms"] = 1000;
    // The process lingers after its task has gone, so the slow callbacks arrive for a task that exited;
    // they answer requests of a stopped run and change nothing.
    behaviour["delay_ms"]["DestroyInstaller"] = 3000;
    SetLibTakBehaviour(behaviour);
    AddApps({{"slow1"}, {"slow2"}});
    Start({"reset=tak_app_reset", "userdata=5"});
    ASSERT_TRUE(WaitForCall("libtak_common", "UninstallAppAPI", std::chrono::seconds(30), 2));
    EndProcess();

    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "5"));
    EXPECT_EQ(CountInLog("reset common path end"), 0u);
    size_t late = LogPosition("answered a request of a stopped reset, callback ignored");
    ASSERT_NE(late, std::string::npos);
    EXPECT_LT(LogPosition("CReset task exit!"), late) << "no callback arrived after the task had exited";
}

// An app whose request cannot be made ends at once, as a failed uninstall would: nothing is left to wait
// for a callback that cannot come.
TEST_F(AnAppsReset, TakesAnAppWhoseRequestCannotBeMadeOffTheList) {
    AddApps({{"stuck"}, {"plain"}});
    orvix::test::RunResult launched =
        Host({"launch", "--", "reset=tak_app_reset", "userdata=3"}, {{"ORVIX_APP_CONTROL_REFUSE", "stuck"}});
    ASSERT_EQ(launched.status, 0) << launched.err;
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Requested(), Lines{"plain"});
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "3"));
}
