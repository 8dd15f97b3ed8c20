// The kit as `cmake --install` lays it out under a prefix of the user's choice: the README's walk-through
// with the installed orvix-host finds every program and the library in their installed places (and none
// in the build tree), and the installed demo runs to its end.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "HostFixture.h"

namespace {

using orvix::test::ReadWholeFile;
using orvix::test::RunProgram;
using orvix::test::RunResult;

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}
std::string Exe(pid_t pid) {
    return RealPath("/proc/" + std::to_string(pid) + "/exe");
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

    // The installed orvix-host for this root, each program's variable set empty so that it looks for it.
    RunResult Installed(const std::vector<std::string>& args) const {
        std::vector<std::string> argv = {s_prefix + "/bin/orvix-host"};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<std::pair<std::string, std::string>> environment = {{"ORVIX_HOST_ROOT", Root()}};
        for (const char* program :
             {"TAK_RESET", "INNERSERVER", "MANAGERCLIENT", "LIBTAK_COMMON", "TAKUTILITY"}) {
            environment.emplace_back(std::string("ORVIX_") + program, "");
        }
        return RunProgram(argv, environment);
    }
    static std::string s_prefix;
};

std::string AnInstalledKit::s_prefix;

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
    EXPECT_EQ(Exe(inner.pid), RealPath(s_prefix + "/bin/orvix-innerserver"));
    const std::string started = "started tak-reset (pid ";
    RunResult launched = Installed({"launch", "reset=tak_app_reset", "userdata=7"});
    ASSERT_EQ(launched.out.rfind(started, 0), 0) << launched.out << launched.err;
    EXPECT_EQ(Exe(atoi(launched.out.c_str() + started.size())), RealPath(s_prefix + "/bin/tak-reset"));
    ASSERT_TRUE(WaitForCall("innerserver", "process_result")) << TakResetLog();
    EXPECT_EQ(Installed({"down"}).status, 0);
}

TEST_F(AnInstalledKit, RunsItsDemoToTheEnd) {
    RunResult demo =
        RunProgram({s_prefix + "/bin/tak-reset-demo"}, {{"DEMO_APPS", "3"}, {"DEMO_ROOT", Root() + "/demo"}});
    EXPECT_EQ(demo.status, 0) << demo.out << demo.err;
    for (const char* says :
         {"process_result tak_app_reset_result = 1: the apps reset ran to its end",
          "process_result biu_service_reset_result = 1: the built-in reset ran to its end"}) {
        EXPECT_NE(demo.out.find(says), std::string::npos) << demo.out;
    }
    EXPECT_EQ(demo.err, "");
}

}  // namespace
