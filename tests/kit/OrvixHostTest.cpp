// orvix-host as a user meets it: what it refuses, what init refuses to wipe, `config`,
// and the stand-ins that `up` starts on the private bus; and the kit as `cmake --install` lays it out under
// a prefix of the user's choice: the README's walk-through with the installed orvix-host finds every
// program and the library in their installed places (and none in the build tree), and the installed demo
// runs to its end.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "HostFixture.h"
#include "TempDir.h"

namespace {

using orvix::host::JsonLine;
using orvix::test::ReadWholeFile;
using orvix::test::RunResult;
using Strings = std::vector<std::string>;

class OrvixHost : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    // Refused with status 2 and one line on standard error that says `says`; nothing on standard output.
    static void ExpectRefused(const RunResult& result, const Strings& command, const std::string& says = "") {
        std::string name = JsonLine(Json::Value(command.back()));
        EXPECT_EQ(result.status, 2) << name;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << name << ": " << result.err;
        EXPECT_NE(result.err.find(says), std::string::npos) << name << ": " << result.err;
        EXPECT_EQ(result.out, "") << name;
    }
};

TEST_F(OrvixHost, RefusesWhatCannotSucceedWithOneLineAndStartsOrWritesNothing) {
    std::string flags = ReadWholeFile(Root() + "/etc/sysinfo.ini");
    const std::pair<Strings, const char*> cases[] = {
        {{"launch", "reset=tak_app_reset"}, "orvix-host up"},  // no bus yet
        {{"launch"}, "KEY=VALUE"},
        // Read as tak-reset-plan reads a request; --raw skips that and reaches the bus check.
        {{"launch", "reset=TAK_APP_RESET"}, "starts no reset (tak_app_reset, "},
        {{"launch", "reset=tak_app_reset", "colour=red"}, "unknown key \"colour\" (keys: reset, "},
        {{"launch", "reset=end", "userdata=12x"}, "\"userdata\" takes a whole number"},
        {{"launch", "monitor_event=watch", "appkey=a"}, "(monitor_install, cancel_monitor_install)"},
        {{"launch", "--raw", "reset=none"}, "orvix-host up"},
        {{"log", "nosuch"}, "no log of 'nosuch'"},
        {{"log", "../etc/sysinfo"}, ""},
        {{"settings", "set", "db/bad key", "1"}, "malformed KEY"},
        {{"help", "nosuch"}, "unknown subcommand"},
        {{"path", "5"}, ""},
        {{"path", "24x"}, ""},
        {{"init", "--apps", "-1"}, ""},
        {{"init", "extra"}, ""},
        {{"pkg", "add", "org.bad", "--main", "nope"}, ""},
        {{"pkg", "add", "org.bad", "--meta", "novalue"}, ""},
        {{"sysinfo", "set", "a.b", "yes"}, ""},
        {{"sysinfo", "set", "bad=name", "true"}, ""},
        {{"config", "frob", "RESERVED_17"}, ""},
        {{"config", "set", "RESERVED_17", "no bus"}, ""},
    };
    for (const auto& [command, says] : cases) {
        ExpectRefused(Host(command), command, says);
    }
    EXPECT_FALSE(AppRunning());
    EXPECT_EQ(access((Root() + "/var/lib/vconf/db/bad key").c_str(), F_OK), -1);
    EXPECT_EQ(Host({"pkg", "list"}).out.find("org.bad"), std::string::npos);
    // The variables of a build for another processor, named in the line.
    const std::pair<Strings, std::pair<const char*, std::string>> badVariables[] = {
        {{"launch", "reset=tak_app_reset"}, {"ORVIX_EXEC_PREFIX", "no-such-emulator -L /"}},
        {{"libtak", "apply"}, {"ORVIX_LIBTAK", Root() + "/etc"}},
        {{"init"}, {"ORVIX_LIBTAK", Root() + "/no-such-library.so"}},
    };
    std::string library = ReadWholeFile(Root() + "/usr/lib64/libtak_common.so");
    for (const auto& [command, variable] : badVariables) {
        ExpectRefused(Host(command, {variable}), command, variable.first);
    }
    EXPECT_EQ(access(LogPath(AppName()).c_str(), F_OK), -1) << "a refused launch started " << AppName();
    EXPECT_EQ(ReadWholeFile(Root() + "/usr/lib64/libtak_common.so"), library);
    EXPECT_EQ(ReadWholeFile(Root() + "/etc/sysinfo.ini"), flags)
        << "a refusal changed the flags or wiped the root";
}

// A reset process for another processor: `launch` starts it through ORVIX_EXEC_PREFIX (here a wrapper
// that notes its arguments, in front of the prefix this run may already use) and the root gets the library
// ORVIX_LIBTAK names (here a copy of the usual one with a marker after it).
TEST_F(OrvixHost, StartsTheResetThroughTheExecPrefixWithTheLibraryItNames) {
    const std::string wrapper = Root() + "/wrapper", seen = Root() + "/wrapper.argv";
    const std::string library = Root() + "/marked-libtak_common.so";
    std::ofstream(wrapper) << "#!/bin/sh\nprintf '%s\\n' \"$@\" >'" << seen << "'\nexec \"$@\"\n";
    std::ofstream(library, std::ios::binary)
        << ReadWholeFile(Root() + "/usr/lib64/libtak_common.so") << "marker";
    ASSERT_EQ(chmod(wrapper.c_str(), 0755), 0);
    const char* outer = getenv("ORVIX_EXEC_PREFIX");
    std::vector<std::pair<std::string, std::string>> device = {
        {"ORVIX_EXEC_PREFIX", wrapper + " " + (outer != nullptr ? outer : "")}, {"ORVIX_LIBTAK", library}};
    ASSERT_EQ(Host({"libtak", "apply"}, device).status, 0);
    EXPECT_EQ(ReadWholeFile(Root() + "/usr/lib64/libtak_common.so"), ReadWholeFile(library));
    ASSERT_EQ(Host({"up"}).status, 0);
    ASSERT_EQ(Host({"launch", "reset=tak_app_reset", "userdata=7"}, device).status, 0);
    EXPECT_TRUE(WaitForCall("innerserver", "process_result")) << TakResetLog();
    EXPECT_NE(ReadWholeFile(seen).find(TakResetPath() + "\nreset=tak_app_reset\nuserdata=7\n"),
              std::string::npos)
        << ReadWholeFile(seen);
}

TEST_F(OrvixHost, InitMakesAFreshRootButNeverWipesAForeignDirectoryOrARunningRoot) {
    std::string stray = orvix::host::PathVariable(27) + "/vardell/clone/left-over.dat";
    std::ofstream(stray) << "x";
    ASSERT_EQ(Host({"init", "--apps", "2"}).status, 0);
    EXPECT_NE(access(stray.c_str(), F_OK), 0);
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(27) + "/vardell/clone/sample.dat"), "sample\n");
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(66) + "/nested/inner.dat"), "inner\n");

    std::string foreign = orvix::test::TempPattern("orvix-foreign-");
    ASSERT_NE(mkdtemp(foreign.data()), nullptr);
    // Nor do the commands that need a root run in it; it is left as it was. A file is no root at all.
    const std::string file = foreign + "/precious.txt";
    std::ofstream(file) << "keep me";
    for (const Strings& command :
         {Strings{"init"}, Strings{"calls"}, Strings{"launch", "reset=end"}, Strings{"pkg", "list"},
          Strings{"settings", "get", "db/a/b"}, Strings{"down"}, Strings{"sysinfo", "list"}}) {
        ExpectRefused(Host(command, {{"ORVIX_HOST_ROOT", foreign}}), command,
                      command[0] == "init" ? "refusing" : "is not an initialised root");
        ExpectRefused(Host(command, {{"ORVIX_HOST_ROOT", file}}), command, "is a file, not a directory");
    }
    EXPECT_EQ(ReadWholeFile(file), "keep me");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(foreign), {}), 1);
    // A relative root is the same place for every process the kit starts, whatever their directory.
    EXPECT_EQ(Host({"path", "24"}, {{"ORVIX_HOST_ROOT", "relative/./root/"}}).out,
              std::filesystem::current_path().string() + "/relative/root/home/owner\n");
    orvix::test::RunProgram({"/bin/rm", "-rf", foreign});

    ASSERT_EQ(Host({"up"}).status, 0);
    ExpectRefused(Host({"init"}), {"init"}, "orvix-host down");
    EXPECT_EQ(access((Root() + "/run/env").c_str(), F_OK), 0) << "a refused init changed the root";
}

// What a write chose or does not know is said on standard error; the write is made all the same.
TEST_F(OrvixHost, SaysWhichTypeANewSettingGotAndWarnsOfAFlagTheResetNeverAsks) {
    RunResult set = Host({"settings", "set", "db/tak/new_key", "30"});
    EXPECT_TRUE(set.status == 0 && set.err.find("new key, stored as a string") != std::string::npos)
        << set.err;
    EXPECT_EQ(Host({"settings", "set", "db/tak/new_key", "31"}).err, "");  // it keeps its type now
    EXPECT_EQ(Host({"settings", "get", "-t", "db/tak/new_key"}).out, "string 31\n");
    EXPECT_EQ(Host({"settings", "get", "--type", "db/tak/factory_reset"}).out.rfind("int ", 0), 0u);
    RunResult flag = Host({"sysinfo", "set", "robot_product.suport", "true"});
    EXPECT_TRUE(flag.status == 0 && flag.err.find("robot_product.support") != std::string::npos) << flag.err;
    EXPECT_EQ(Host({"sysinfo", "get", "robot_product.suport"}).out, "true\n");
    EXPECT_EQ(Host({"sysinfo", "set", "robot_product.support", "true"}).err, "");
}

// `up` again leaves the running stand-ins alone (that it restarts a killed daemon is a fault-matrix row);
// `config` shows and changes the configuration table the built-in reset keeps its lists in, and the
// table outlives the daemon.
TEST_F(OrvixHost, UpLeavesWhatRunsAloneAndConfigGoesThroughTheInnerServer) {
    ASSERT_EQ(Host({"up"}).status, 0);
    EXPECT_EQ(Host({"config", "get", "NO_SUCH_KEY"}).status, 1);
    std::string before = ReadWholeFile(Root() + "/run/pids/innerserver.pid");
    RunResult again = Host({"up"});
    EXPECT_EQ(again.out, "export DBUS_SYSTEM_BUS_ADDRESS=" + BusAddress() + "\n");
    EXPECT_EQ(ReadWholeFile(Root() + "/run/pids/innerserver.pid"), before);
    RunResult set = Host({"config", "set", "RESERVED_17", "a;b,'\"c\""});
    ASSERT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(JsonLine(CallsOf("innerserver", "update_config_table").front()["args"]),
              R"(["RESERVED_17","a;b,'\"c\""])");
    for (const Strings& command : {Strings{"config", "set", "RESERVED-17", "v"},
                                   Strings{"config", "set", "RESERVED_17", "\xff\xfe"}}) {
        ExpectRefused(Host(command), command);
    }
    ASSERT_EQ(Host({"down"}).status, 0);
    EXPECT_EQ(Host({"config", "get", "RESERVED_17"}).out, "a;b,'\"c\"\n");
    EXPECT_EQ(CallsOf("innerserver", "update_config_table").size(), 1u);
}

class AnInstalledKit : public OrvixHost {
protected:
    // A failed install fails each test: an assertion here would only mark them skipped.
    static void SetUpTestSuite() {
        std::string pattern = orvix::test::TempPattern("orvix-prefix-");
        if (mkdtemp(pattern.data()) == nullptr) {
            s_installProblem = "no temporary prefix";
            return;
        }
        s_prefix = pattern;
        RunResult installed =
            orvix::test::RunProgram({CMAKE_COMMAND_PATH, "--install", KitDir(), "--prefix", s_prefix});
        if (installed.status != 0) {
            s_installProblem = "cmake --install failed: " + installed.out + installed.err;
        }
    }
    void SetUp() override {
        OrvixHost::SetUp();
        ASSERT_EQ(s_installProblem, "");
    }
    static void TearDownTestSuite() { orvix::test::RunProgram({"/bin/rm", "-rf", s_prefix}); }

    // The installed orvix-host for this root, each program's variable set empty so that it looks for it,
    // and no emulator in front of its tak-reset (the kit is installed from the native build).
    RunResult Installed(Strings command) const {
        command.insert(command.begin(), s_prefix + "/bin/orvix-host");
        std::vector<std::pair<std::string, std::string>> environment = {{"ORVIX_HOST_ROOT", Root()}};
        for (const char* program : {"TAK_RESET", "INNERSERVER", "MANAGERCLIENT", "LIBTAK_COMMON", "LIBTAK",
                                    "TAKUTILITY", "EXEC_PREFIX"}) {
            environment.emplace_back(std::string("ORVIX_") + program, "");
        }
        return orvix::test::RunProgram(command, environment);
    }
    inline static std::string s_prefix, s_installProblem;
};

// The reset's own work is the reset tests'; here only who does it.
TEST_F(AnInstalledKit, RunsTheWalkThroughWithItsOwnProgramsOnly) {
    EXPECT_EQ(access((s_prefix + "/bin/libtak_common.so").c_str(), F_OK), -1)
        << "a library among the programs";
    RunResult init = Installed({"init", "--apps", "3"});
    ASSERT_EQ(init.status, 0) << init.err;
    // The root's library is a copy of the installed one, and takutility of the installed program.
    EXPECT_EQ(ReadWholeFile(Root() + "/usr/lib64/libtak_common.so"),
              ReadWholeFile(s_prefix + "/lib/tak-reset/libtak_common.so"));
    EXPECT_EQ(ReadWholeFile(Root() + "/bin/takutility"), ReadWholeFile(s_prefix + "/bin/takutility"));
    ASSERT_EQ(Installed({"up"}).status, 0);
    orvix::host::ProcessId inner;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", inner));
    EXPECT_EQ(std::filesystem::canonical("/proc/" + std::to_string(inner.pid) + "/exe"),
              std::filesystem::canonical(s_prefix + "/bin/orvix-innerserver"));
    const std::string started = "started tak-reset (pid ";
    RunResult launched = Installed({"launch", "reset=tak_app_reset", "userdata=7"});
    ASSERT_EQ(launched.out.rfind(started, 0), 0) << launched.out << launched.err;
    pid_t reset = atoi(launched.out.c_str() + started.size());
    EXPECT_EQ(std::filesystem::canonical("/proc/" + std::to_string(reset) + "/exe"),
              std::filesystem::canonical(s_prefix + "/bin/tak-reset"));
    ASSERT_TRUE(WaitForCall("innerserver", "process_result")) << TakResetLog();
    EXPECT_EQ(Installed({"down"}).status, 0);
}

TEST_F(AnInstalledKit, RunsItsDemoToTheEnd) {
    const std::string picture = Root() + "/timeline.svg";
    RunResult demo = orvix::test::RunProgram(
        {s_prefix + "/bin/tak-reset-demo"},
        {{"DEMO_APPS", "3"}, {"DEMO_ROOT", Root() + "/demo"}, {"DEMO_PICTURE", picture}});
    EXPECT_EQ(demo.status, 0) << demo.out << demo.err;
    EXPECT_NE(ReadWholeFile(picture).find("</svg>"), std::string::npos) << "no timeline picture";
    for (const char* says :
         {"process_result tak_app_reset_result = 1: the apps reset ran to its end",
          "process_result biu_service_reset_result = 1: the built-in reset ran to its end",
          "outcome     result reported", "the timeline (a row per reset, app, wait and clean-up): "}) {
        EXPECT_NE(demo.out.find(says), std::string::npos) << demo.out;
    }
    EXPECT_EQ(demo.err, "");
}

// Each installed program answers --help with its usage and starts nothing (tak-reset, as a service, would
// take the root's instance lock and wait for requests), and has the manual page made from that help; the
// package's copyright file goes with them.
TEST_F(AnInstalledKit, EveryProgramAnswersHelpAndHasItsManualPage) {
    Strings programs;
    for (const auto& entry : std::filesystem::directory_iterator(s_prefix + "/bin")) {
        programs.push_back(entry.path().filename());
    }
    for (const char* expected : {"tak-reset", "tak-reset-plan", "orvix-host", "tak-reset-demo"}) {
        EXPECT_NE(std::find(programs.begin(), programs.end(), expected), programs.end()) << expected;
    }
    for (const std::string& name : programs) {
        RunResult help = orvix::test::RunProgram({s_prefix + "/bin/" + name, "--help"},
                                                 {{"ORVIX_HOST_ROOT", Root()}, {"ORVIX_LOG_FILE", ""}});
        EXPECT_EQ(help.status, 0) << name << ": " << help.err;
        EXPECT_NE(help.out.find(name), std::string::npos) << name << ": " << help.out;
        EXPECT_EQ(help.err, "") << name;
        auto page = [&](const std::string& section) {
            return ReadWholeFile(s_prefix + "/share/man/man" + section + "/" + name + "." + section + ".gz");
        };
        EXPECT_NE(page("1") + page("8"), "") << name << " has no manual page";
    }
    EXPECT_FALSE(std::filesystem::exists(Root() + "/run/tak-reset"))
        << "tak-reset --help started the service";
    EXPECT_NE(ReadWholeFile(s_prefix + "/share/doc/tak-reset/copyright").find("Files: *"), std::string::npos);
}

}  // namespace
