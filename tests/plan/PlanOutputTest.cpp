// The plan's whole text for each reset kind on a small fixed root, and what it says on roots it can
// only partly read: it names what it could not read on standard error and in the plan, plans with the
// rest, and fails only when it could read nothing at all.
#include <unistd.h>

#include <fstream>

#include "PlanFixture.h"

using namespace plan_test;

struct OutputCase {
    const char* name;
    std::string root;  // "apps" or "android apps" (eight), "built-ins", else a damaged small root
    std::vector<std::string> args;
    const char* expected;            // the whole text; nullptr: a near-copy of another case, and
    std::vector<std::string> lines;  // the lines where it differs, found in this order
    std::string unread = "";         // what it could not read, on standard error and in the plan
};

// Test lists name a case by its name, not by its bytes.
void PrintTo(const OutputCase& test, std::ostream* out) {
    *out << test.name;
}

class APlan : public PlanFixture, public ::testing::WithParamInterface<OutputCase> {
protected:
    std::vector<std::string> InitArguments() const override {
        const std::string& root = GetParam().root;
        if (root == "built-ins") {
            return {"--apps", "0", "--builtin", "0"};
        }
        return {"--apps", root.find("apps") != std::string::npos ? "8" : "3", "--builtin", "2"};
    }
    bool StartsBus() const override { return false; }

    void Given(const std::string& root) {
        const std::string database = orvix::host::PathVariable(24) + "/.vardell.db";
        Json::Value behaviour(Json::objectValue);
        if (root.find("apps") != std::string::npos) {
            // The eight seeded apps show every keep rule but the fixed ids of a service reset.
            SetSystemFlag("android_on_orvix.support", root == "android apps");
            SetSetting("int", "db/tak/factory_reset", "1");
            Plant(ServiceDir(27, "clone/extra/two.bin"));
            ASSERT_EQ(orvix::test::RunProgram({"/bin/rm", "-rf", ServiceDir(27, "RM")}).status, 0);
        } else if (root == "built-ins") {
            // A built-in list that exercises every decision: a Home base package and an app that needs a
            // newer one, a Home test candidate, a requirement listed later, apps skipped for each reason, a
            // background update.
            for (const char* appId : {"alpha", "beta", "busy"}) {
                AddBuiltIn(appId, "2.0.0");
            }
            AddBuiltIn("upper", "2.0.0", "true", "TRUE");
            AddBuiltIn("fixed", "2.0.0", "false");
            AddBuiltIn("home", "4.9");
            for (const auto& entry :
                 {BuiltInEntry("beta", {{"alpha", "1.0"}}), BuiltInEntry("home"),
                  BuiltInEntry("needs", {{"home", "5.0"}}), BuiltInEntry("cand"), BuiltInEntry("upper"),
                  BuiltInEntry("fixed"), BuiltInEntry("gone"), BuiltInEntry("busy"), BuiltInEntry("alpha")}) {
                behaviour["builtin"]["list"].append(entry);
            }
            SetLibTakBehaviour(behaviour);
            SetSetting("string", "db/home/homeversion_pkg_id", "pkg.home");
            SetSetting("string", "memory/tak/biu_updating_app",
                       R"({"status": "update", "value": "start", "pkgname": "pkg.busy"})");
            std::ofstream(ServiceDir(27, "built_in_app/group_install/p0testcandidate.xml"))
                << "cand,pkg.cand,1.0,group,tag,install;";
        } else if (root == "no database") {
            ASSERT_EQ(unlink(database.c_str()), 0);
        } else if (root == "corrupt database") {
            std::ofstream(database, std::ios::trunc) << std::string(4096, '\x5a');
        } else if (root == "missing library" || root == "broken library") {
            behaviour["library"] = root.substr(0, root.find(' '));
            SetLibTakBehaviour(behaviour);
        } else if (root == "no package records") {
            ASSERT_EQ(unlink((Root() + "/var/lib/pkgmgr/packages.json").c_str()), 0);
        } else if (root == "built-in reset in process") {
            SetSetting("int", "db/built-in-app-upgrader/reset", "2");
        }
    }
};

TEST_P(APlan, PrintsTheExpectedText) {
    const OutputCase& test = GetParam();
    Given(test.root);
    ASSERT_FALSE(HasFatalFailure());
    orvix::test::RunResult run = Plan(test.args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, test.unread.empty() ? "" : "tak-reset-plan: " + test.unread + "\n");
    EXPECT_TRUE(test.unread.empty() || run.out.find("  - " + test.unread + "\n") != std::string::npos)
        << run.out;
    if (test.expected != nullptr) {
        EXPECT_EQ(run.out, test.expected);
    }
    size_t at = 0;
    for (const std::string& line : test.lines) {
        at = run.out.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << "\nin:\n" << run.out;
    }
}

INSTANTIATE_TEST_SUITE_P(
    EachKind, APlan,
    ::testing::ValuesIn(std::vector<OutputCase>{
        {"AppReset",
         "apps",
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
         "android apps",
         {"reset=tak_service_reset", "userdata=-3", "reset_reason=test"},
         nullptr,
         // The app reset's text but for these lines.
         {"Plan of tak_service_reset", "Board: runs Android apps: yes",
          "Apps in uninstall order: 8 (2 uninstall, 6 keep)",
          "      4  keep       fixed id           3202001019917",
          "      7  keep       general app        3202110000259",
          "  memory/tak/app_change   0 -> 1\n\nResult: \"tak_service_reset_result\" 1, user data -3",
          "Notes:\n  - the board runs Android apps: the uninstalls wait until the service's binder "
          "exists\n"}},
        {"CorvaneReset",
         "apps",
         {"reset=corvane_reset", "userdata=5"},
         nullptr,
         // The app reset's text without the apps, with the Corvane clean-up and settings.
         {"Plan of corvane_reset", "Board: runs Android apps: no; robot product: no\n\nClean-up in order:",
          "  empty                       2            13  <root>/opt/usr/share/vardell/system_app/\n",
          "  delete notifications        -             -  DeleteAllInstallNotificationsAPI\n",
          "  memory/tak/app_group_list_ready           1 -> 0\n",
          "Result: \"corvane_reset_result\" 1, no user data, when the reset ends\n\n"
          "Notes:\n  - the board runs no Android apps: no app is uninstalled\n"}},
        {"BuiltInAppReset",
         "built-ins",
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
        {"BuiltInServiceReset",
         "built-ins",
         {"reset=biu_service_reset", "obj=tv", "method=m"},
         nullptr,
         // The app reset's text but for these lines.
         {"Plan of biu_service_reset",
          "Waiting list: pkg.busy\n\nProgress to managerclient.tv, method \"m\": 500 with 3, "
          "501 after each install, 502 at the end\n",
          "  db/built-in-app-upgrader/reset  0 -> 1"}},
        {"NoDatabase",
         "no database",
         {"reset=tak_app_reset"},
         nullptr,
         {"Apps in uninstall order: 0 (0 uninstall, 0 keep)", "Could not read:"},
         "there is no app database at <root>/home/owner/.vardell.db"},
        {"CorruptDatabase",
         "corrupt database",
         {"reset=corvane_reset"},
         nullptr,
         {"Clean-up in order:"},
         "the app database <root>/home/owner/.vardell.db cannot be read: file is not a database"},
        {"NoLibraryForAnAppsReset",
         "missing library",
         {"reset=tak_app_reset"},
         nullptr,
         {"  keep       no UninstallAppAPI",
          "Result: \"tak_app_reset_result\" 1, user data 0, only when its task is ended (a later request or "
          "reset=end)",
          "  - the common library has no UninstallAppAPI: the reset stops before its first uninstall "
          "request; nothing is uninstalled or cleaned up"},
         "the common library <root>/usr/lib64/libtak_common.so could not be loaded"},
        {"ABrokenLibraryForABuiltInReset",
         "broken library",
         {"reset=biu_service_reset", "obj=tv", "method=m"},
         nullptr,
         {"Condition: passes", "Progress to managerclient.tv, method \"m\": 502 only when its task is ended",
          "db/built-in-app-upgrader/reset  0 -> 1",
          "  - the common library has no GetBuiltInAppListAPI: the reset stops after its condition check"},
         "the common library <root>/usr/lib64/libtak_common.so could not be loaded"},
        {"NoPackageRecords",
         "no package records",
         {"reset=biu_app_reset"},
         nullptr,
         {"Library list for caller \"\": 0", "Reset order: 0 (0 install, 0 keep)"}},
        {"ABuiltInResetInProcess",
         "built-in reset in process",
         {"reset=biu_service_reset", "method=m", "obj=tv"},
         nullptr,
         {"Condition: fails, the reset is skipped (db/built-in-app-upgrader/server_upgrade true, "
          "db/built-in-app-upgrader/reset 2)",
          "Progress to managerclient.tv, method \"m\": 500 with 0, then 502",
          "Result: \"biu_service_reset_result\" 1, user data 0, when the reset ends",
          "  - the server upgrade is not allowed or a built-in reset is in process: this reset is skipped"}},
    }),
    [](const auto& info) { return std::string(info.param.name); });

class ThePlanCommand : public PlanFixture {
protected:
    bool StartsBus() const override { return false; }
};

// The launch keys are read strictly: what it refuses is one line on standard error and status 2, and a
// root with nothing to read is status 1.
TEST_F(ThePlanCommand, ReadsTheLaunchKeysStrictlyAndFailsOnlyWhenItCouldReadNothing) {
    const struct {
        std::vector<std::string> args;
        const char* error;  // part of the one-line error; nullptr: accepted
    } cases[] = {
        {{"reset=tak_app_reset"}, nullptr},
        {{"reset=biu_service_reset", "userdata=-9223372036854775808", "thread_id=-1",
          "event_index=2147483647", "deprecated=0", "method=m", "obj=tv", "caller_process_name=a=b",
          "reset_reason="},
         nullptr},
        {{}, "no reset=KIND given"},
        {{"reset=end"}, "reset=end stops tak-reset"},
        {{"reset=TAK_APP_RESET"}, "reset=\"TAK_APP_RESET\" starts no reset"},
        {{"reset=tak_app_reset", "reset=corvane_reset"}, "\"reset\" is given twice"},
        {{"reset=tak_app_reset", "colour=red"}, "unknown key \"colour\""},
        {{"--colour", "reset=tak_app_reset"}, "--colour"},
        {{"reset=tak_app_reset", "plain"}, "\"plain\" is not KEY=VALUE"},
        {{"reset=tak_app_reset", "userdata=12x"}, "\"userdata\" takes a whole number"},
        {{"reset=tak_app_reset", "userdata=9223372036854775808"}, "\"userdata\" takes a whole number"},
        {{"reset=tak_app_reset", "event_index= 1"}, "\"event_index\" takes a whole number"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.args.empty() ? "(none)" : test.args.back());
        orvix::test::RunResult run = Plan(test.args);
        EXPECT_EQ(run.status, test.error == nullptr ? 0 : 2) << run.err;
        EXPECT_TRUE(test.error == nullptr || (run.out.empty() && run.err.rfind("tak-reset-plan: ", 0) == 0 &&
                                              run.err.find(test.error) != std::string::npos &&
                                              run.err.find('\n') == run.err.size() - 1))
            << run.out << run.err;
    }
    // Its failed reads leave platform log lines on standard error only when asked for (empty: not set).
    for (const auto& [option, logs] : {std::pair<const char*, bool>{"--verbose", true}, {"--json", false}}) {
        orvix::test::RunResult run = orvix::test::RunProgram(
            orvix::test::DeviceArgv({PlanPath(), option, "reset=tak_app_reset"}),
            {{"ORVIX_HOST_ROOT", Root() + "/nowhere"}, {"ORVIX_LOG_LEVEL", ""}, {"ORVIX_LOG_FILE", ""}});
        EXPECT_TRUE(run.status == 1 && run.out.empty() &&
                    run.err.find("tak-reset-plan: nothing could be read, so there is no plan\n") !=
                        std::string::npos)
            << run.status << run.err;
        EXPECT_EQ(run.err.find("/TAK(") != std::string::npos, logs) << option << run.err;
    }
}
