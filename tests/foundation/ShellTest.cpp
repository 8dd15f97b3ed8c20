// CTAKShell (children through vfork and execve, PATH only, one at a time) and the privileged utility: the
// ITAKUtility wrapper over the host takutility, which is confined to the host root.
#include <signal.h>

#include <cerrno>

#include <platform_path.h>

#include "FoundationTest.h"
#include "TAKShell.h"
#include "TAKUtilityWrapper.h"

namespace {

class ShellTest : public FoundationTest {
protected:
    static int ExitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
    // The NUL-terminated entries that the probe wrote to a file.
    static std::list<std::string> Entries(const std::string& path) {
        return TAKString::SplitStringToList(ReadFile(path), std::string(1, '\0'), true);
    }
};

TEST_F(ShellTest, ChildGetsEveryArgumentWholeAndNothingButPath) {
    setenv("FOUNDATION_PARENT_ONLY", "must not pass", 1);
    std::string out = Under("child");
    std::string argv[] = {FOUNDATION_PROBE, "dump", out,
                          "two words 'single' \"double\"; echo $(id) `id` $HOME", "line one\nline two\n"};
    EXPECT_EQ(CTAKShell::ExecShell(argv, 5), 0);
    unsetenv("FOUNDATION_PARENT_ONLY");
    EXPECT_EQ(Entries(out + ".args"), std::list<std::string>(argv, argv + 5));
    EXPECT_EQ(Entries(out + ".env"),
              std::list<std::string>{std::string("PATH=") + platform_path_get(PLATFORM_PATH_SYSTEM_BIN)});
}

// The result is the raw wait status, also while SIGCHLD is ignored (with it ignored the kernel would reap
// the child itself): the shell sets the default for the run and restores the caller's setting after.
// Bad arguments are refused before anything runs; a program that cannot run exits with its errno.
TEST_F(ShellTest, ResultIsTheRawWaitStatusOrARefusal) {
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &previous), 0);
    std::string exitFive[] = {FOUNDATION_PROBE, "exit", "5"};
    int status = CTAKShell::ExecShell(exitFive, 3);
    ASSERT_EQ(sigaction(SIGCHLD, &previous, &ignore), 0);
    EXPECT_EQ(ignore.sa_handler, SIG_IGN);
    EXPECT_EQ(ExitCode(status), 5);

    std::string out = Under("child");
    std::string six[] = {FOUNDATION_PROBE, "dump", out, "a", "b", "c"};
    std::string empty[] = {""};
    EXPECT_TRUE(CTAKShell::ExecShell(six, 6) == -1 && CTAKShell::ExecShell(six, 0) == -1 &&
                CTAKShell::ExecShell(nullptr, 1) == -1 && CTAKShell::ExecShell(empty, 1) == -1);
    EXPECT_FALSE(TAKFile::Exists(out + ".args"));
    EXPECT_TRUE(LogHas("Input parameter error!"));
    EXPECT_TRUE(CTAKShell::Remove(nullptr) == -1 && CTAKShell::Copy("a", nullptr) == -1 &&
                CTAKShell::Move(nullptr, "b") == -1 && CTAKShell::CreateDir(nullptr) == -1);

    WriteFile(Under("not-executable"), "#!/bin/sh\nexit 0\n");
    std::string missing[] = {Under("no-such-program")};
    std::string plain[] = {Under("not-executable")};
    EXPECT_EQ(ExitCode(CTAKShell::ExecShell(missing, 1)), ENOENT);
    EXPECT_TRUE(LogHas("Execve return error = [" + Under("no-such-program") + "]"));
    EXPECT_EQ(ExitCode(CTAKShell::ExecShell(plain, 1)), EACCES);
}

// A probe that finds another one between its two marker lines writes "overlap".
TEST_F(ShellTest, ChildrenOfTwoThreadsRunOneAtATime) {
    std::string markers = Under("markers");
    auto runTen = [&] {
        std::string argv[] = {FOUNDATION_PROBE, "mark", markers};
        for (int i = 0; i < 10; ++i) {
            CTAKShell::ExecShell(argv, 3);
        }
    };
    std::thread first(runTen);
    runTen();
    first.join();
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        expected += "start\nend\n";
    }
    EXPECT_EQ(ReadFile(markers), expected);
}

// The utility is installed in the root, as `orvix-host init` does, and run by the service with nothing in
// its environment but PATH. A directory outside the root holds what must never be touched.
class UtilityTest : public ShellTest {
protected:
    void SetUp() override {
        ShellTest::SetUp();
        for (const char* place : {"bin", "usr/bin"}) {
            ASSERT_TRUE(TAKDir::Create(Under(place)));
            ASSERT_EQ(symlink(TAKUTILITY_TOOL, Under(std::string(place) + "/takutility").c_str()), 0);
        }
        ASSERT_TRUE(TAKDir::Create(outside_ = root_ + "-outside") && TAKDir::Create(Under("data")));
        WriteFile(outside_ + "/precious", "precious");
        WriteFile(Under("data/a.txt"), "alpha");
    }
    void TearDown() override {
        EXPECT_TRUE(ReadFile(outside_ + "/precious") == "precious" && TAKDir::FolderSize(outside_) == 8);
        TAKDir::RemoveAllFiles(outside_, true, false);
        ShellTest::TearDown();
    }
    std::string outside_;
};

// Paths outside the root, also through `..` or a link inside, are refused with a message and a
// non-zero status; the outside stays whole (checked after every test).
TEST_F(UtilityTest, RefusesEverythingOutsideTheRoot) {
    ASSERT_EQ(symlink(outside_.c_str(), Under("data/to-outside").c_str()), 0);
    ASSERT_EQ(symlink((outside_ + "/precious").c_str(), Under("data/to-precious").c_str()), 0);
    ASSERT_EQ(symlink(FOUNDATION_PROBE, Under("data/to-probe").c_str()), 0);
    const int statuses[] = {
        ITAKUtility::RemoveFile(Under("..") + outside_.substr(outside_.rfind('/')) + "/precious"),
        ITAKUtility::RemoveFileInDirectory(outside_),
        ITAKUtility::RemoveFileInDirectory(Under("data/to-outside")),
        ITAKUtility::Copy(Under("data/to-precious"), Under("data/copy")),
        ITAKUtility::Copy(Under("data/a.txt"), outside_ + "/stolen"),
        ITAKUtility::Execute(Under("data/to-outside/precious")),
        ITAKUtility::Execute(Under("data/to-probe")),
        ITAKUtility::SetSmack(outside_ + "/precious", "Evil")};
    for (int status : statuses) {
        EXPECT_NE(ExitCode(status), 0) << &status - statuses;
    }
    RunResult result = RunProgram(TAKUTILITY_TOOL, "-e|" + outside_ + "/precious");
    EXPECT_TRUE(result.status != 0 && result.err.find("outside the host root") != std::string::npos);
    for (const std::string& args :
         std::vector<std::string>{"-e|relative/path", "-q|" + Under("data"), "-e"}) {
        EXPECT_NE(RunProgram(TAKUTILITY_TOOL, args).status, 0) << args;
    }
}

}  // namespace
