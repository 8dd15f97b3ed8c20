// The plan's whole text for each reset kind on a small fixed root, and what it says on roots it can
// only partly read.
#include <unistd.h>

#include <fstream>
#include <functional>

#include "PlanFixture.h"

using namespace plan_test;

namespace {

const char kAndroidApps[] = "android_on_orvix.support";

struct OutputCase {
    const char* name;
    bool androidApps;
    std::vector<std::string> args;
    const char* expected;            // the whole text; nullptr: a near-copy of another case, and
    std::vector<std::string> lines;  // the lines where it differs, found in this order
};

// Test lists name a case by its name, not by its bytes.
void PrintTo(const OutputCase& test, std::ostream* out) {
    *out << test.name;
}

// The whole text when `expected` is given, and `lines` found in this order.
void ExpectPlan(const PlanRun& run, const char* expected, const std::vector<std::string>& lines,
                const std::string& err = "") {
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, err);
    if (expected != nullptr) {
        EXPECT_EQ(run.out, expected);
    }
    size_t at = 0;
    for (const std::string& line : lines) {
        at = run.out.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << "\nin:\n" << run.out;
    }
}

}  // namespace

// Eight seeded apps: every keep rule but the fixed ids of a service reset shows among them.
class APlanOfAnAppsReset : public PlanFixture, public ::testing::WithParamInterface<OutputCase> {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "8", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }
};

TEST_P(APlanOfAnAppsReset, PrintsTheExpectedText) {
    const OutputCase& test = GetParam();
    SetSystemFlag(kAndroidApps, test.androidApps);
    SetSetting("int", "db/tak/factory_reset", "1");
    Plant(ServiceDir(27, "clone/extra/two.bin"));
    ASSERT_EQ(orvix::test::RunProgram({"/bin/rm", "-rf", ServiceDir(27, "RM")}).status, 0);
    ExpectPlan(Plan(test.args), test.expected, test.lines);
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, APlanOfAnAppsReset,
    ::testing::ValuesIn(std::vector<OutputCase>{
        {"AppReset",
         false,
         {"reset=tak_app_reset", "userdata=7"},
         R"(Plan of tak_app_reset (nothing has been changed)
Board: runs Android apps: no; robot product: no

Apps in uninstall order: 8 (6 uninstall, 2 keep)
      #  action     rule               app id
      1  uninstall                     3202110000222
      2  uninstall                     3201903017943
      3  uninstall                     3201904018125
      4  uninstall                     3202001019917
      5  keep       default/native     3202110000111
      6  keep       disable reset      3202110000185
      7  uninstall                     3202110000259
      8  uninstall                     f5C2q1.KidsCartoons

Clean-up in order:
  action                  files         bytes  path
  empty                       2            13  <root>/opt/usr/data/vardell/common/
  empty                       2            13  <root>/opt/usr/share/vardell/preinstallrecovery/
  reset app user data         -             -  inner server "reset_app_user_data"
  empty                       3            21  <root>/opt/usr/share/vardell/clone/
  empty                  absent                <root>/opt/usr/share/vardell/RM/
  empty                       2            13  <root>/opt/usr/data/vardell/appupdate/
  empty                       2            13  <root>/opt/usr/share/vardell/appupdate/package/
  remove                      2            13  <root>/home/owner/.cache/Apps/WebAppsCache/
  remove                      2            13  <root>/home/owner/apps_rw/xwalk-service/
  remove file                 1             3  <root>/opt/usr/share/vardell/bnr_backup/bnr_backup.json
  empty                       2            13  <root>/home/owner/content/Documents
  empty                       2            13  <root>/home/owner/content/Downloads
  empty                       2            13  <root>/home/owner/content/Images
  empty                       2            13  <root>/home/owner/content/Sounds
  empty                       2            13  <root>/home/owner/content/Videos
  empty                       2            13  <root>/home/owner/content/Camera
  empty                       2            13  <root>/home/owner/content/Games
  empty                       2            13  <root>/home/owner/content/Others
  empty                       2            13  <root>/home/owner/content/Cache

Settings written (old -> new):
  db/tak/app_sync_status  1 -> 0
  memory/tak/boot_status  1 -> 0
  memory/tak/app_change   0 -> 1
  db/tak/factory_reset    1 -> 0

Result: "tak_app_reset_result" 1, user data 7, when the reset ends
)",
         {}},
        {"ServiceResetOnAnAndroidBoard",
         true,
         {"reset=tak_service_reset", "userdata=-3", "reset_reason=test"},
         nullptr,
         // The app reset's text but for these lines.
         {"Plan of tak_service_reset", "Board: runs Android apps: yes",
          "Apps in uninstall order: 8 (2 uninstall, 6 keep)",
          "      2  keep       fixed id           3201903017943",
          "      3  keep       fixed id           3201904018125",
          "      4  keep       fixed id           3202001019917",
          "      7  keep       general app        3202110000259",
          "  memory/tak/app_change   0 -> 1\n\nResult: \"tak_service_reset_result\" 1, user data -3",
          "Notes:\n  - the board runs Android apps: the uninstalls wait until the service's binder "
          "exists\n"}},
        {"CorvaneReset",
         false,
         {"reset=corvane_reset", "userdata=5"},
         nullptr,
         // The app reset's text without the apps and with these lines.
         {"Plan of corvane_reset", "Board: runs Android apps: no; robot product: no\n\nClean-up in order:",
          "<root>/opt/usr/share/vardell/preinstallrecovery/\n"
          "  empty                       2            13  <root>/opt/usr/share/vardell/system_app/\n",
          "<root>/home/owner/content/Cache\n"
          "  remove file                 1             3  "
          "<root>/opt/usr/share/vardell/bnr_backup/bnr_backup.json\n"
          "  delete notifications        -             -  DeleteAllInstallNotificationsAPI\n",
          "  memory/tak/app_group_list_ready           1 -> 0\n"
          "  memory/tak/andrioid_group_list_ready      1 -> 0\n"
          "  db/appinfoviewer/auto_update_off_applist  \"\" -> \"\"\n"
          "  db/tak/btgid                              \"\" -> \"\"\n"
          "  db/tak/app_canary_id_list                 \"\" -> \"\"\n"
          "  db/tak/app_canary_internal_test           0 -> 0\n"
          "  db/tak/app_sync_status                    1 -> 0\n"
          "  memory/tak/boot_status                    1 -> 0\n"
          "  memory/tak/app_change                     0 -> 1\n\n"
          "Result: \"corvane_reset_result\" 1, no user data, when the reset ends\n\n"
          "Notes:\n  - the board runs no Android apps: no app is uninstalled\n"}},
        {"CorvaneResetOnAnAndroidBoard",
         true,
         {"reset=corvane_reset"},
         nullptr,
         // The Corvane text with the apps listed and the record writes first.
         {"Board: runs Android apps: yes", "Apps in uninstall order: 8 (5 uninstall, 3 keep)",
          "      4  uninstall                     3202001019917",
          "      7  keep       general app        3202110000259",
          "  empty                       2            13  <root>/opt/usr/data/vardell/common/",
          "  db/tak/app_canary_internal_test           0 -> 0\n"
          "  memory/tak/app_change                     0 -> 1\n"
          "  db/tak/app_sync_status                    1 -> 0\n"
          "  memory/tak/boot_status                    1 -> 0\n",
          "Notes:\n  - the board runs Android apps: the uninstalls wait until the service's binder "
          "exists\n"}},
    }),
    [](const auto& info) { return std::string(info.param.name); });

// A built-in list that exercises every decision: a Home base package and an app that needs a newer one,
// a Home test candidate, a requirement listed later, apps skipped for each reason, a background update.
class APlanOfABuiltInReset : public PlanFixture, public ::testing::WithParamInterface<OutputCase> {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }

    void SetUp() override {
        PlanFixture::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        const char* const packages[][4] = {
            // package, version, removable, instant-reset metadata
            {"alpha", "2.0.0", "true", "true"}, {"beta", "2.0.0", "true", "true"},
            {"upper", "2.0.0", "true", "TRUE"}, {"fixed", "2.0.0", "false", "true"},
            {"busy", "2.0.0", "true", "true"},  {"home", "4.9", "true", "true"},
        };
        for (const auto& package : packages) {
            AddPackage({std::string("pkg.") + package[0], "--builtin", "--version", package[1], "--removable",
                        package[2], "--app", package[0], "--main", package[0], "--meta",
                        std::string("http://orvix.com/tv/metadata/prefer_instant_reset=") + package[3]});
        }
        Json::Value behaviour(Json::objectValue);
        for (const char* appId :
             {"beta", "home", "needs", "cand", "upper", "fixed", "gone", "busy", "alpha"}) {
            Json::Value entry(Json::objectValue);
            entry["appId"] = appId;
            entry["pkgId"] = std::string("pkg.") + appId;
            behaviour["builtin"]["list"].append(entry);
        }
        behaviour["builtin"]["list"][0]["requires"]["alpha"]["version"] = "1.0";
        behaviour["builtin"]["list"][0]["requires"]["alpha"]["pkgid"] = "pkg.alpha";
        behaviour["builtin"]["list"][2]["requires"]["home"]["version"] = "5.0";
        behaviour["builtin"]["list"][2]["requires"]["home"]["pkgid"] = "pkg.home";
        SetLibTakBehaviour(behaviour);
        SetSetting("string", "db/home/homeversion_pkg_id", "pkg.home");
        SetSetting("string", "memory/tak/biu_updating_app",
                   R"({"status": "update", "value": "start", "pkgname": "pkg.busy"})");
        std::ofstream(ServiceDir(27, "built_in_app/group_install/p0testcandidate.xml"))
            << "cand,pkg.cand,1.0,group,tag,install;";
    }
};

TEST_P(APlanOfABuiltInReset, PrintsTheExpectedText) {
    ExpectPlan(Plan(GetParam().args), GetParam().expected, GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, APlanOfABuiltInReset,
    ::testing::ValuesIn(std::vector<OutputCase>{
        {"AppReset",
         false,
         {"reset=biu_app_reset", "userdata=12", "caller_process_name=settings"},
         R"(Plan of biu_app_reset (nothing has been changed)

Condition: passes (db/built-in-app-upgrader/server_upgrade true, db/built-in-app-upgrader/reset 0)

Library list for caller "settings": 9
      1  beta [pkg.beta]  requires alpha [pkg.alpha >= 1.0]
      2  home [pkg.home]
      3  needs [pkg.needs]  requires home [pkg.home >= 5.0]
      4  cand [pkg.cand]
      5  upper [pkg.upper]
      6  fixed [pkg.fixed]
      7  gone [pkg.gone]
      8  busy [pkg.busy]
      9  alpha [pkg.alpha]

Home packages checked:
  base            "pkg.home"
  candidate       "pkg.cand"

Removed: 3
  home [pkg.home]: is the Home package pkg.home
  needs [pkg.needs]: requires pkg.home >= 5.0, installed 4.9
  cand [pkg.cand]: is the Home package pkg.cand

Moves: 1
  add require app alpha before app beta

Reset order: 6 (3 install, 3 keep)
      #  action   rule                        app id [package]
      1  install                              alpha [pkg.alpha]
      2  install                              beta [pkg.beta]
      3  keep     no instant reset ("TRUE")   upper [pkg.upper]
      4  keep     not removable               fixed [pkg.fixed]
      5  keep     not installed               gone [pkg.gone]
      6  install                              busy [pkg.busy] (updating in the background)

Waiting list: pkg.busy

Settings written (old -> new):
  db/built-in-app-upgrader/reset  0 -> 2
  db/tak/btgid                    "" -> ""

Result: "biu_app_reset_result" 1, user data 12, when the reset ends

Notes:
  - the installs start once the background update of pkg.busy has ended
)",
         {}},
        {"ServiceReset",
         false,
         {"reset=biu_service_reset", "obj=tv", "method=m"},
         nullptr,
         // The app reset's text but for these lines.
         {"Plan of biu_service_reset", "Library list for caller \"\": 9",
          "Waiting list: pkg.busy\n\nProgress to managerclient.tv, method \"m\": 500 with 3, "
          "501 after each install, 502 at the end\n",
          "  db/built-in-app-upgrader/reset  0 -> 1",
          "Result: \"biu_service_reset_result\" 1, user data 0, when the reset ends"}},
    }),
    [](const auto& info) { return std::string(info.param.name); });

// Roots the plan can only partly read: it names what it could not read on standard error and in the
// plan, plans with the rest, and fails only when it could read nothing at all.
class APlanOfAPartlyReadableRoot : public PlanFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "3", "--builtin", "2"}; }
    bool StartsBus() const override { return false; }
};

TEST_F(APlanOfAPartlyReadableRoot, SaysWhatItCouldNotReadAndPlansWithTheRest) {
    struct Case {
        const char* name;
        std::function<void()> damage;
        std::vector<std::string> args;
        std::vector<std::string> out;  // lines of the plan, in this order
        std::string err;
    };
    const std::string database = orvix::host::PathVariable(24) + "/.vardell.db";
    const std::string library = Root() + "/usr/lib64/libtak_common.so";
    auto setLibrary = [this](const char* library) {
        Json::Value behaviour(Json::objectValue);
        behaviour["library"] = library;
        SetLibTakBehaviour(behaviour);
    };
    const Case cases[] = {
        {"no database",
         [&] { ASSERT_EQ(unlink(database.c_str()), 0); },
         {"reset=tak_app_reset"},
         {"Apps in uninstall order: 0 (0 uninstall, 0 keep)",
          "Could not read:", "  - there is no app database at <root>/home/owner/.vardell.db"},
         "tak-reset-plan: there is no app database at " + database + "\n"},
        {"corrupt database",
         [&] { std::ofstream(database, std::ios::trunc) << std::string(4096, '\x5a'); },
         {"reset=corvane_reset"},
         {"Clean-up in order:",
          "  - the app database <root>/home/owner/.vardell.db cannot be read: file is not a "
          "database"},
         "tak-reset-plan: the app database " + database + " cannot be read: file is not a database\n"},
        {"no library for an apps reset",
         [&] { setLibrary("missing"); },
         {"reset=tak_app_reset"},
         {"  keep       no UninstallAppAPI",
          "Result: \"tak_app_reset_result\" 1, user data 0, only when its task is ended (a later request or "
          "reset=end)",
          "  - the common library has no UninstallAppAPI: the reset stops before its first uninstall "
          "request; nothing is uninstalled or cleaned up",
          "  - the common library <root>/usr/lib64/libtak_common.so could not be loaded"},
         "tak-reset-plan: the common library " + library + " could not be loaded\n"},
        {"a broken library for a built-in reset",
         [&] { setLibrary("broken"); },
         {"reset=biu_service_reset", "obj=tv", "method=m"},
         {"Condition: passes", "Progress to managerclient.tv, method \"m\": 502 only when its task is ended",
          "db/built-in-app-upgrader/reset  0 -> 1", "only when its task is ended",
          "  - the common library has no GetBuiltInAppListAPI: the reset stops after its condition check"},
         "tak-reset-plan: the common library " + library + " could not be loaded\n"},
        {"no package records",
         [&] { ASSERT_EQ(unlink((Root() + "/var/lib/pkgmgr/packages.json").c_str()), 0); },
         {"reset=biu_app_reset"},
         {"Library list for caller \"\": 0", "Reset order: 0 (0 install, 0 keep)"},
         ""},
        {"a built-in reset in process",
         [&] { SetSetting("int", "db/built-in-app-upgrader/reset", "2"); },
         {"reset=biu_service_reset", "method=m", "obj=tv"},
         {"Condition: fails, the reset is skipped (db/built-in-app-upgrader/server_upgrade true, "
          "db/built-in-app-upgrader/reset 2)",
          "Progress to managerclient.tv, method \"m\": 500 with 0, then 502",
          "Result: \"biu_service_reset_result\" 1, user data 0, when the reset ends",
          "  - the server upgrade is not allowed or a built-in reset is in process: this reset is skipped"},
         ""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ASSERT_EQ(Host({"init", "--apps", "3", "--builtin", "2"}).status, 0);
        test.damage();
        ExpectPlan(Plan(test.args), nullptr, test.out, test.err);
    }
}

// Bad arguments: one line and status 2; a root with nothing to read: status 1.
TEST_F(APlanOfAPartlyReadableRoot, RefusesBadArgumentsAndFailsOnlyWhenItCouldReadNothing) {
    const std::vector<std::string> bad[] = {
        {},
        {"reset=tak_app_reset", "userdata=seven"},
        {"--colour", "reset=tak_app_reset"},
    };
    for (const auto& args : bad) {
        PlanRun run = Plan(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.rfind("tak-reset-plan: ", 0), 0u) << run.err;
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    }
    orvix::test::RunResult run =
        orvix::test::RunProgram({PlanPath(), "reset=tak_app_reset"},
                                {{"ORVIX_HOST_ROOT", Root() + "/nowhere"}, {"ORVIX_LOG_LEVEL", "E"}});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("tak-reset-plan: nothing could be read, so there is no plan\n"), std::string::npos)
        << run.err;
}
