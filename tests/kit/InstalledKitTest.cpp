// The kit as `cmake --install` lays it out under a prefix of the user's choice: the README's walk-through
// with the installed orvix-host finds every program and the library in their installed places (and none
// in the build tree), and the installed demo runs to its end.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "HostFixture.h"

namespace {

using orvix::test::RunProgram;
using orvix::test::RunResult;

// Each program's variable set empty, so that orvix-host looks for it itself.
const std::vector<std::pair<std::string, std::string>> kNoProgramOverrides = {
    {"ORVIX_TAK_RESET", ""},     {"ORVIX_INNERSERVER", ""}, {"ORVIX_MANAGERCLIENT", ""},
    {"ORVIX_LIBTAK_COMMON", ""}, {"ORVIX_TAKUTILITY", ""},
};

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

class AnInstalledKit : public orvix::test::HostFixture {
protected:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/orvix-prefix-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        s_prefix = pattern;
        RunResult installed =
            RunProgram({CMAKE_COMMAND_PATH, "--install", BinaryDir(), "--prefix", s_prefix});
        ASSERT_EQ(installed.status, 0) << installed.out << installed.err;
    }
    static void TearDownTestSuite() { RunProgram({"/bin/rm", "-rf", s_prefix}); }

    bool StartsBus() const override { return false; }

    // The installed orvix-host, run for this root.
    RunResult Installed(const std::vector<std::string>& args,
                        std::vector<std::pair<std::string, std::string>> environment = {}) const {
        std::vector<std::string> argv = {s_prefix + "/bin/orvix-host"};
        argv.insert(argv.end(), args.begin(), args.end());
        environment.insert(environment.end(), kNoProgramOverrides.begin(), kNoProgramOverrides.end());
        environment.emplace_back("ORVIX_HOST_ROOT", Root());
        return RunProgram(argv, environment);
    }

    static std::string s_prefix;
};

std::string AnInstalledKit::s_prefix;

TEST_F(AnInstalledKit, RunsTheWalkThroughWithItsOwnProgramsOnly) {
    EXPECT_EQ(access((s_prefix + "/bin/libtak_common.so").c_str(), F_OK), -1)
        << "a library among the programs";
    RunResult init = Installed({"init", "--apps", "3"});
    ASSERT_EQ(init.status, 0) << init.err;
    // The root's library is a copy of the installed one, and takutility of the installed program.
    EXPECT_EQ(orvix::test::ReadWholeFile(Root() + "/usr/lib64/libtak_common.so"),
              orvix::test::ReadWholeFile(s_prefix + "/lib/tak-reset/libtak_common.so"));
    EXPECT_EQ(orvix::test::ReadWholeFile(Root() + "/bin/takutility"),
              orvix::test::ReadWholeFile(s_prefix + "/bin/takutility"));
    ASSERT_EQ(Installed({"up"}).status, 0);
    orvix::host::ProcessId inner;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", inner));
    EXPECT_EQ(RealPath("/proc/" + std::to_string(inner.pid) + "/exe"),
              RealPath(s_prefix + "/bin/orvix-innerserver"));

    RunResult launched = Installed({"launch", "reset=tak_app_reset", "userdata=7"});
    ASSERT_EQ(launched.status, 0) << launched.err;
    ASSERT_EQ(launched.out.rfind("started tak-reset (pid ", 0), 0) << launched.out;
    pid_t pid = atoi(launched.out.c_str() + strlen("started tak-reset (pid "));
    EXPECT_EQ(RealPath("/proc/" + std::to_string(pid) + "/exe"), RealPath(s_prefix + "/bin/tak-reset"));
    ASSERT_TRUE(WaitForCall("innerserver", "process_result")) << TakResetLog();
    EXPECT_EQ(CallsOf("libtak_common", "UninstallAppAPI").size(), 3u);
    EXPECT_EQ(Installed({"launch", "reset=end"}).status, 0);
    EXPECT_TRUE(WaitForAppExit());
    EXPECT_EQ(Installed({"down"}).status, 0);
}

TEST_F(AnInstalledKit, RunsItsDemoToTheEnd) {
    RunResult demo =
        RunProgram({s_prefix + "/bin/tak-reset-demo"}, {{"DEMO_APPS", "3"}, {"DEMO_ROOT", Root() + "/demo"}});
    EXPECT_EQ(demo.status, 0) << demo.out << demo.err;
    EXPECT_NE(demo.out.find("process_result tak_app_reset_result = 1: the apps reset ran to its end"),
              std::string::npos)
        << demo.out;
    EXPECT_NE(demo.out.find("process_result biu_service_reset_result = 1: the built-in reset ran to its end"),
              std::string::npos)
        << demo.out;
    EXPECT_EQ(demo.err, "");
}

}  // namespace
