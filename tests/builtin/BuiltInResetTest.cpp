// Built-in app reset end to end: the real tak-reset, the private bus, the stand-in daemon, a manager
// client and the substitute common library acting out the library's list and its installs.
#include <chrono>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "../reset/ResetFixture.h"

using namespace reset_test;
using namespace std::chrono_literals;

class ABuiltInReset : public ResetFixture {
protected:
    // The library lists `listed` in that order and installs after 10 ms; each of `packaged` is a built-in
    // package.
    void Given(const Lines& packaged, const Lines& listed) {
        for (const std::string& appId : packaged) {
            AddBuiltIn(appId);
        }
        m_behaviour["builtin"]["install"]["delay_ms"] = 10;
        for (const std::string& appId : listed) {
            m_behaviour["builtin"]["list"].append(BuiltInEntry(appId));
        }
        SetLibTakBehaviour(m_behaviour);
    }

    void InstallBehaviour(const std::string& appId, const char* key, const Json::Value& value) {
        m_behaviour["builtin"]["install"]["apps"][appId][key] = value;
        SetLibTakBehaviour(m_behaviour);
    }

    void StartClient(const std::string& obj) const { ASSERT_EQ(Host({"client", obj}).status, 0) << obj; }

    static std::string Extra(const Json::Value& call, const std::string& key) {
        for (const auto& pair : call["args"][0]) {
            if (pair[0].asString() == key) {
                return pair[1].asString();
            }
        }
        return "<none>";
    }

    std::string Config(const std::string& key) const {
        orvix::test::RunResult got = Host({"config", "get", key});
        return got.status == 0 ? got.out.substr(0, got.out.find_last_not_of('\n') + 1) : "<" + got.err + ">";
    }

    Lines Progress(const std::string& obj) const {
        return ArgsOf("managerclient." + obj, "tak_builtin_app_service_reset_result");
    }

    Json::Value m_behaviour{Json::objectValue};
};

TEST_F(ABuiltInReset, OfTheServiceKindReinstallsInRequirementOrderWithProgressToTheCaller) {
    AddBuiltIn("upper", "2.0.0", "true", "TRUE");
    AddBuiltIn("fixed", "2.0.0", "false");
    Given({"alpha", "beta"}, {"beta", "upper", "fixed", "gone", "alpha"});
    m_behaviour["builtin"]["list"][0] = BuiltInEntry("beta", {{"alpha", "1.0"}});
    m_behaviour["builtin"]["list"][0]["resetMode"] = "anytime";
    std::istringstream(
        R"({"url": "http://store/alpha.tpk?a=1&b=<2>", "fileSize": 1024, "removable": true})") >>
        m_behaviour["builtin"]["dld"]["alpha"];
    SetLibTakBehaviour(m_behaviour);
    StartClient("tv");

    RunToEnd({"reset=biu_service_reset", "userdata=5", "obj=tv", "method=m", "thread_id=3", "event_index=4",
              "caller_process_name=settings"},
             "biu_service_reset_result");

    EXPECT_EQ(Installed(), (Lines{"alpha", "beta"}));
    EXPECT_EQ(Results("biu_service_reset_result"), One("biu_service_reset_result", "5"));
    EXPECT_EQ(Progress("tv"), (Lines{"[3,500,2,4]", "[3,501,1,4]", "[3,501,2,4]", "[3,502,0,4]"}));
    EXPECT_EQ(Setting("db/built-in-app-upgrader/reset"), "1");
    EXPECT_EQ(Config("RESERVED_17"), "alpha,beta");

    // What each install request carried, read by the library during the call.
    auto calls = CallsOf("libtak_common", "InstallAppAPI");
    ASSERT_EQ(calls.size(), 2u);
    Lines keys;
    for (const auto& pair : calls[0]["args"][0]) {
        keys.push_back(pair[0].asString());
    }
    EXPECT_EQ(keys, (Lines{"appkey", "keytype", "callback", "userdata", "biu_reset", "biu_uninstall_reason",
                           "app_dld_info", "biu_kpi_info"}));
    EXPECT_EQ(Extra(calls[0], "keytype"), "0");
    EXPECT_EQ(Extra(calls[0], "biu_reset"), "1");
    EXPECT_EQ(Extra(calls[0], "biu_uninstall_reason"), "0");
    EXPECT_EQ(Extra(calls[0], "userdata"), Extra(calls[1], "userdata"));
    // The library records the extras as [key, value] pairs, then the download-info record and the
    // statistics record it found at their addresses.
    const Json::Value& dld = calls[0]["args"][1];
    EXPECT_EQ(dld["url"].asString(), "http://store/alpha.tpk?a=1&b=<2>");
    EXPECT_EQ(dld["fileSize"].asInt64(), 1024);
    EXPECT_EQ(dld["platform"].asString(), "ORVIX");
    EXPECT_EQ(calls[1]["args"][1]["url"].asString(), "");
    EXPECT_EQ(orvix::host::JsonLine(calls[0]["args"][2]), R"(["pkg.alpha","","","","","","inactive"])");
    // "anytime" is sent as "inactive".
    EXPECT_EQ(orvix::host::JsonLine(calls[1]["args"][2]), R"(["pkg.beta","","","","","","inactive"])");
    EXPECT_EQ(CallsOf("libtak_common", "GetBuiltInAppListAPI").at(0)["args"][0].asString(), "settings");
}

// The library's list and the package records may hold an id that is not UTF-8; the reset installs it once
// and tells the caller its progress (a bus string of it is made valid), without a GLib critical anywhere.
TEST_F(ABuiltInReset, ReinstallsAnAppWhoseIdIsNotUtf8Once) {
    const std::string odd = "bi\xff\xfe;,'id";
    Given({"placeholder", "plain"}, {odd, "plain"});
    // The kit's command line takes only UTF-8, so the record is renamed in its file.
    const std::string records = orvix::host::UnderRoot("var/lib/pkgmgr/packages.json");
    std::string text = orvix::test::ReadWholeFile(records);
    for (size_t at; (at = text.find("placeholder")) != std::string::npos;) {
        text.replace(at, strlen("placeholder"), odd);
    }
    ASSERT_TRUE(orvix::host::WriteFileAtomically(records, text));
    StartClient("tv");
    RunToEnd({"reset=biu_service_reset", "obj=tv", "method=m"}, "biu_service_reset_result");
    EXPECT_EQ(Installed(), (Lines{odd, "plain"}));
    EXPECT_EQ(Progress("tv").size(), 4u);  // 500, 501 twice, 502
}

struct RefusalCase {
    const char* name;
    const char* key;
    const char* type;
    const char* value;
    const char* resetAfter;  // nothing is written back: the marker belongs to whoever set it
};

class ABuiltInResetThatMayNotRun : public ABuiltInReset, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(ABuiltInResetThatMayNotRun, IsRefusedWithItsNoticeAndStillAnswers) {
    const RefusalCase& test = GetParam();
    SetSetting(test.type, test.key, test.value);
    StartClient("tv");
    RunToEnd({"reset=biu_service_reset", "userdata=1", "obj=tv", "method=m"}, "biu_service_reset_result");
    EXPECT_TRUE(CallsOf("libtak_common", "GetBuiltInAppListAPI").empty());
    EXPECT_EQ(Progress("tv"), (Lines{"[-1,500,0,0]", "[-1,502,0,0]"}));
    EXPECT_EQ(Results("biu_service_reset_result"), One("biu_service_reset_result", "1"));
    EXPECT_EQ(Setting("db/built-in-app-upgrader/reset"), test.resetAfter);
}

INSTANTIATE_TEST_SUITE_P(Refusals, ABuiltInResetThatMayNotRun,
                         ::testing::ValuesIn(std::vector<RefusalCase>{
                             {"AnotherResetInProcess", "db/built-in-app-upgrader/reset", "int", "2", "2"},
                             {"UpgraderOff", "db/built-in-app-upgrader/server_upgrade", "bool", "false",
                              "0"}}),
                         [](const auto& info) { return std::string(info.param.name); });

// How the library's callbacks move the reset: which ones end an app, which only touch the test list.
// The second app always ends with 103, which leaves the test list alone.
struct CallbackCase {
    const char* name;
    const char* behaviour;  // the first app's install behaviour, JSON
    const char* testListBefore;
    const char* testListAfter;
    size_t oneFailed;  // warnings that the first app's install failed
};

class ABuiltInResetCallback : public ABuiltInReset, public ::testing::WithParamInterface<CallbackCase> {};

TEST_P(ABuiltInResetCallback, AdvancesOnlyOnTheEndStatesOfTheHeadApp) {
    const CallbackCase& test = GetParam();
    Given({"one", "two"}, {"one", "two"});
    std::istringstream(test.behaviour) >> m_behaviour["builtin"]["install"]["apps"]["one"];
    InstallBehaviour("two", "terminal", 103);
    SetConfig("RESERVED_16", test.testListBefore);
    StartClient("tv");
    RunToEnd({"reset=biu_service_reset", "userdata=2", "obj=tv", "method=m"}, "biu_service_reset_result");
    EXPECT_EQ(Installed(), (Lines{"one", "two"}));
    EXPECT_EQ(Progress("tv"), (Lines{"[-1,500,2,0]", "[-1,501,1,0]", "[-1,501,2,0]", "[-1,502,0,0]"}));
    EXPECT_EQ(Results("biu_service_reset_result"), One("biu_service_reset_result", "2"));
    EXPECT_EQ(Config("RESERVED_16"), test.testListAfter);
    EXPECT_EQ(Config("RESERVED_17"), "one,two");
    EXPECT_EQ(CountWarnings("install of two failed (state 103)"), 1u);
    EXPECT_EQ(CountWarnings("install of one failed"), test.oneFailed);
    // The reports count every ended install; the client tells the failed ones from the done.
    std::string shown = "built-in reset: finished, " + std::to_string(1 - test.oneFailed) + "/2 done, " +
                        std::to_string(1 + test.oneFailed) + " failed in ";
    EXPECT_TRUE(orvix::test::WaitUntil([&] {
        return Count(orvix::test::ReadWholeFile(LogPath("managerclient.tv")), shown) == 1u;
    })) << orvix::test::ReadWholeFile(LogPath("managerclient.tv"));
}

INSTANTIATE_TEST_SUITE_P(
    States, ABuiltInResetCallback,
    ::testing::ValuesIn(std::vector<CallbackCase>{
        {"End110RecordsTheTestApp", R"({"terminal": 110})", "", "one,pkg.one", 0},
        {"End111", R"({"terminal": 111})", "", "", 1},
        {"TwiceEndsOnce", R"({"terminal": 110, "twice": true})", "", "one,pkg.one", 0},
        {"UnknownAppIgnored", R"({"terminal": 110, "also_for": "ghost"})", "", "one,pkg.one", 0},
        {"UninstallStatesOnlyTouchTheTestList",
         R"({"terminal": 103, "states": [[101, 10, 0], [122, 0, 0], [50, 0, 0], [123, 0, 1]]})",
         "one,pkg.one;keep,pkg.keep", "keep,pkg.keep", 1}}),
    [](const auto& info) { return std::string(info.param.name); });

// The app kind marks itself with 2 and sends no progress; it waits for a background update of an app it
// reinstalls until the setting says the update ended.
TEST_F(ABuiltInReset, OfTheAppKindWaitsForABackgroundUpdateUntilTheSettingSaysItEnded) {
    Given({"busy"}, {"busy"});
    SetSetting("string", "memory/tak/biu_updating_app",
               R"({"pkgname":"pkg.busy","status":"update","value":"start"})");
    StartClient("tv");
    Start({"reset=biu_app_reset", "userdata=-9", "obj=tv", "method=m"});
    ASSERT_TRUE(WaitForCall("libtak_common", "RegisterVconfChangeCBAPI"));
    EXPECT_TRUE(Installed().empty());
    // Another process reports the update's end through the settings store.
    SetSetting("string", "memory/tak/biu_updating_app",
               R"({"pkgname":"pkg.busy","status":"update","value":"end"})");
    ASSERT_TRUE(WaitForResult("biu_app_reset_result"));
    EndProcess();
    EXPECT_EQ(Installed(), Lines{"busy"});
    EXPECT_EQ(CallsOf("libtak_common", "UnregisterVconfChangeCBAPI").size(), 1u);
    EXPECT_EQ(Results("biu_app_reset_result"), One("biu_app_reset_result", "-9"));
    EXPECT_TRUE(Results("biu_service_reset_result").empty());
    EXPECT_TRUE(Progress("tv").empty());
    EXPECT_EQ(Setting("db/built-in-app-upgrader/reset"), "2");
}
