// orvix-host's own rules (what init refuses to wipe, the package records, path variables, system flags,
// the records it prints) and the stand-ins that `up` starts on the private bus.
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <regex>

#include "HostFixture.h"
#include "PtyProgram.h"
#include "system_info.h"

namespace {

using orvix::host::JsonLine;
using orvix::test::ReadWholeFile;
using orvix::test::RunResult;

class OrvixHost : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }

    // Each refused with status 2 and one line.
    void ExpectRefused(const std::vector<std::vector<std::string>>& commands) const {
        for (const auto& command : commands) {
            RunResult result = Host(command);
            EXPECT_EQ(result.status, 2) << command.back();
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        }
    }
    bool Flag(const char* name) {
        bool value = true;
        EXPECT_EQ(system_info_get_platform_bool(name, &value), SYSTEM_INFO_ERROR_NONE);
        return value;
    }
};

TEST_F(OrvixHost, InitMakesAFreshRootButNeverWipesAForeignDirectoryOrARunningRoot) {
    std::string stray = orvix::host::PathVariable(27) + "/vardell/clone/left-over.dat";
    std::ofstream(stray) << "x";
    ASSERT_EQ(Host({"init", "--apps", "2"}).status, 0);
    EXPECT_NE(access(stray.c_str(), F_OK), 0);
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(27) + "/vardell/clone/sample.dat"), "sample\n");
    EXPECT_EQ(ReadWholeFile(orvix::host::PathVariable(66) + "/nested/inner.dat"), "inner\n");

    char foreign[] = "/tmp/orvix-foreign-XXXXXX";
    ASSERT_NE(mkdtemp(foreign), nullptr);
    std::ofstream(std::string(foreign) + "/precious.txt") << "keep me";
    RunResult refused = orvix::test::RunProgram({OrvixHostPath(), "init"}, {{"ORVIX_HOST_ROOT", foreign}});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("refusing"), std::string::npos) << refused.err;
    EXPECT_EQ(ReadWholeFile(std::string(foreign) + "/precious.txt"), "keep me");
    orvix::test::RunProgram({"/bin/rm", "-rf", foreign});

    ASSERT_EQ(Host({"up"}).status, 0);
    RunResult busy = Host({"init"});
    EXPECT_EQ(busy.status, 2);
    EXPECT_NE(busy.err.find("orvix-host down"), std::string::npos) << busy.err;
    EXPECT_EQ(access((Root() + "/run/env").c_str(), F_OK), 0) << "a refused init changed the root";
    ExpectRefused({{"init", "--apps", "-1"}, {"init", "extra"}});
}

TEST_F(OrvixHost, PackagesKeepMetadataInDeclarationOrder) {
    ASSERT_EQ(Host({"pkg",   "add",    "org.orvix.tv", "--version", "3.1",    "--removable", "false",
                    "--app", "tv.a",   "--app",        "tv.main",   "--main", "tv.main",     "--meta",
                    "k1=v1", "--meta", "k0=a=b",       "--meta",    "k1=v2",  "--category",  "c1"})
                  .status,
              0);
    EXPECT_NE(Host({"pkg", "list"})
                  .out.find(R"({"apps":[{"appid":"tv.a","categories":[],"metadata":[]},{"appid":"tv.main",)"
                            R"("categories":["c1"],"metadata":[["k1","v1"],["k0","a=b"],["k1","v2"]]}],)"
                            R"("builtin":false,"mainapp":"tv.main","pkgid":"org.orvix.tv","removable":false,)"
                            R"("type":"tpk","version":"3.1"})"),
              std::string::npos);
    ExpectRefused(
        {{"pkg", "add", "org.bad", "--main", "nope"}, {"pkg", "add", "org.bad", "--meta", "novalue"}});
    EXPECT_EQ(Host({"pkg", "list"}).out.find("org.bad"), std::string::npos);
    EXPECT_EQ(Host({"pkg", "remove", "org.orvix.tv"}).status, 0);
    EXPECT_EQ(Host({"pkg", "remove", "org.orvix.tv"}).status, 1);
    EXPECT_EQ(Host({"pkg", "list"}).out.find("org.orvix.tv"), std::string::npos);

    // A hand-written record says things the typed fields cannot (no removable flag, no main app, a
    // metadata value without text); a rewrite for another package keeps them.
    const std::string handWritten =
        R"({"apps":[{"appid":"hw","metadata":[["k",null]]}],"note":"mine","pkgid":"org.hand","version":"2"})";
    std::ofstream(orvix::host::UnderRoot("var/lib/pkgmgr/packages.json"))
        << "{\"packages\": [" << handWritten << "]}";
    ASSERT_EQ(Host({"pkg", "add", "org.other"}).status, 0);
    EXPECT_NE(Host({"pkg", "list"}).out.find(handWritten), std::string::npos) << Host({"pkg", "list"}).out;
}

TEST_F(OrvixHost, RefusesWhatCannotSucceedWithOneLineAndStartsOrWritesNothing) {
    struct Case {
        std::vector<std::string> command;
        int status;
        const char* says;
    };
    const Case cases[] = {
        {{"launch", "reset=tak_app_reset"}, 2, "orvix-host up"},  // no bus yet
        {{"launch"}, 2, "KEY=VALUE"},
        {{"log", "nosuch"}, 2, "no log of 'nosuch'"},
        {{"settings", "set", "db/bad key", "1"}, 2, "malformed KEY"},
        {{"settings", "get", "memory/../x"}, 2, "malformed KEY"},
        {{"help", "nosuch"}, 2, "unknown subcommand"},
    };
    for (const auto& c : cases) {
        RunResult result = Host(c.command);
        std::string name = JsonLine(Json::Value(c.command.back()));
        EXPECT_EQ(result.status, c.status) << name;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << name << ": " << result.err;
        EXPECT_NE(result.err.find(c.says), std::string::npos) << name << ": " << result.err;
        EXPECT_EQ(result.out, "") << name;
    }
    ExpectRefused({{"path", "5"}, {"path", "24x"}, {"log", "../etc/sysinfo"}});
    EXPECT_FALSE(AppRunning());
    EXPECT_EQ(access(LogPath(AppName()).c_str(), F_OK), -1) << "a refused launch started " << AppName();
    EXPECT_EQ(access((Root() + "/var/lib/vconf/db/bad key").c_str(), F_OK), -1);

    // Nor in a directory that `init` never made, which is left as it was.
    char empty[] = "/tmp/orvix-uninitialised-XXXXXX";
    ASSERT_NE(mkdtemp(empty), nullptr);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"calls"}, {"launch", "reset=end"}}) {
        std::vector<std::string> argv = {OrvixHostPath()};
        argv.insert(argv.end(), command.begin(), command.end());
        RunResult result = orvix::test::RunProgram(argv, {{"ORVIX_HOST_ROOT", empty}});
        EXPECT_EQ(result.status, 2) << command[0];
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_EQ(rmdir(empty), 0) << "something was left in the uninitialised root";
}

TEST_F(OrvixHost, LogKeepsLinesOfTheLevelAndAboveAndItsColoursOnlyOnATerminal) {
    const std::string kDebug = "11-23 20:29:14.715 D/TAK(  1:  1): \x1b[34mdebug\x1b[0m\n";
    const std::string kInfo = "11-23 20:29:14.716 I/TAK(  1:  1): \x1b[33minfo\x1b[0m\n";
    const std::string kWarning = "11-23 20:29:14.717 W/ORVIX(  1:  1): warning\n";
    const std::string kError = "11-23 20:29:14.718 E/TAK(  1:  1): \x1b[31merror\x1b[0m\n";
    const std::string kGlib = "(tak-reset:1): GLib-GIO-WARNING **: 20:29:14.719: not a platform line\n";
    const std::string kLast = "11-23 20:29:14.720 E/TAK(  1:  1): \x1b[31mcut short\x1b[0m";
    std::ofstream(LogPath("tak-reset")) << kDebug << kInfo << kWarning << kError << kGlib << kLast;
    auto plain = [](std::string text) { return std::regex_replace(text, std::regex("\x1b\\[[0-9;]*m"), ""); };
    struct Case {
        std::vector<std::string> options;
        std::string shown;
    };
    const Case cases[] = {
        {{}, kDebug + kInfo + kWarning + kError + kGlib + kLast},
        {{"--level", "D"}, kDebug + kInfo + kWarning + kError + kGlib + kLast},
        {{"--level", "I"}, kInfo + kWarning + kError + kGlib + kLast},
        {{"--level=W"}, kWarning + kError + kGlib + kLast},
        {{"-l", "e"}, kError + kGlib + kLast},
    };
    for (const auto& c : cases) {
        std::vector<std::string> command = {"log"};
        command.insert(command.end(), c.options.begin(), c.options.end());
        RunResult result = Host(command);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, plain(c.shown)) << (c.options.empty() ? "no level" : c.options.back());
    }
    orvix::test::PtyProgram terminal({OrvixHostPath(), "log", "--level", "E"}, {{"ORVIX_HOST_ROOT", Root()}});
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_NE(terminal.Output().find("\x1b[31merror\x1b[0m"), std::string::npos) << terminal.Output();
    EXPECT_EQ(terminal.Output().find("debug"), std::string::npos) << terminal.Output();
}

TEST_F(OrvixHost, FlagsFollowSysinfoSetWhichRefusesBadValuesAndAnythingButABooleanReadsFalse) {
    SetSystemFlag("robot_product.support", true);
    EXPECT_TRUE(Flag("robot_product.support"));
    EXPECT_FALSE(Flag("android_on_orvix.support"));
    EXPECT_EQ(Host({"sysinfo", "get", "robot_product.support"}).out, "true\n");
    std::string file = Root() + "/etc/sysinfo.ini";
    std::string before = ReadWholeFile(file);
    ExpectRefused({{"sysinfo", "set", "a.b", "yes"}, {"sysinfo", "set", "bad=name", "true"}});
    EXPECT_EQ(ReadWholeFile(file), before);
    std::ofstream(file, std::ios::trunc) << "[flags]\nrobot_product.support=maybe\n";
    EXPECT_FALSE(Flag("robot_product.support"));
    unlink(file.c_str());
    EXPECT_FALSE(Flag("robot_product.support"));
}

class StandIns : public orvix::test::HostFixture {};

TEST_F(StandIns, UpLeavesWhatRunsAloneAndRestartsWhatDied) {
    std::string pidFile = Root() + "/run/pids/innerserver.pid";
    std::string before = ReadWholeFile(pidFile);
    RunResult again = Host({"up"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "export DBUS_SYSTEM_BUS_ADDRESS=" + BusAddress() + "\n");
    EXPECT_EQ(ReadWholeFile(pidFile), before);

    orvix::host::ProcessId inner;
    ASSERT_TRUE(orvix::host::ReadPidFile(pidFile, inner));
    kill(inner.pid, SIGKILL);
    ASSERT_TRUE(orvix::test::WaitUntil([&] { return !orvix::host::IsRunning(inner); }));
    RunResult up = Host({"up"});
    ASSERT_EQ(up.status, 0) << up.err;
    EXPECT_NE(ReadWholeFile(pidFile), before);
    // The new daemon answers on the bus.
    RunResult set = Host({"config", "set", "RESERVED_17", "after restart"});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(CallsOf("innerserver", "update_config_table").size(), 1u);
}

}  // namespace
