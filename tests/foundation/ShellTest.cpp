#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

#include <platform_path.h>

#include "FoundationTest.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKShell.h"

namespace foundation {
namespace {

std::vector<std::string> Entries(const std::string& text) {
    std::vector<std::string> entries;
    size_t begin = 0;
    for (size_t end; (end = text.find('\0', begin)) != std::string::npos; begin = end + 1) {
        entries.push_back(text.substr(begin, end - begin));
    }
    return entries;
}

class ShellTest : public FoundationTest {
protected:
    bool LogHas(const std::string& text) const { return Log().find(text) != std::string::npos; }
};

TEST_F(ShellTest, ChildSeesOnlyThePathVariable) {
    setenv("FOUNDATION_PARENT_ONLY", "must not pass", 1);
    std::string out = Under("child");
    std::string argv[] = {FOUNDATION_PROBE, "dump", out};
    EXPECT_EQ(CTAKShell::ExecShell(argv, 3), 0);
    unsetenv("FOUNDATION_PARENT_ONLY");

    std::vector<std::string> env = Entries(ReadFile(out + ".env"));
    ASSERT_EQ(env.size(), 1u);
    EXPECT_EQ(env[0], std::string("PATH=") + platform_path_get(PLATFORM_PATH_SYSTEM_BIN));
}

TEST_F(ShellTest, EveryArgumentReachesTheChildWhole) {
    std::string out = Under("child");
    std::string argv[] = {FOUNDATION_PROBE, "dump", out,
                          "two words 'single' \"double\"; echo $(id) `id` $HOME", "line one\nline two\n"};
    EXPECT_EQ(CTAKShell::ExecShell(argv, 5), 0);
    std::vector<std::string> seen = Entries(ReadFile(out + ".args"));
    ASSERT_EQ(seen.size(), 5u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(seen[i], argv[i]);
    }
}

TEST_F(ShellTest, WrongArgumentCountsAreRefusedBeforeAnythingRuns) {
    std::string out = Under("child");
    std::string six[] = {FOUNDATION_PROBE, "dump", out, "a", "b", "c"};
    EXPECT_EQ(CTAKShell::ExecShell(six, 6), -1);
    EXPECT_EQ(CTAKShell::ExecShell(six, 0), -1);
    EXPECT_EQ(CTAKShell::ExecShell(nullptr, 1), -1);
    std::string empty[] = {""};
    EXPECT_EQ(CTAKShell::ExecShell(empty, 1), -1);
    EXPECT_FALSE(TAKFile::Exists(out + ".args"));
    EXPECT_TRUE(LogHas("Input parameter error!"));
    EXPECT_FALSE(LogHas("> Start"));

    EXPECT_EQ(CTAKShell::Remove(nullptr), -1);
    EXPECT_EQ(CTAKShell::Copy("a", nullptr), -1);
    EXPECT_EQ(CTAKShell::Move(nullptr, "b"), -1);
    EXPECT_EQ(CTAKShell::CreateDir(nullptr), -1);
    EXPECT_TRUE(LogHas("pchSource is NULL"));
    EXPECT_TRUE(LogHas("pchSource or pchDest is NULL"));
    EXPECT_TRUE(LogHas("pDir is NULL"));
}

TEST_F(ShellTest, ResultIsTheRawWaitStatus) {
    std::string exitThree[] = {FOUNDATION_PROBE, "exit", "3"};
    int status = CTAKShell::ExecShell(exitThree, 3);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(ShellTest, AProgramThatCannotRunExitsWithItsErrno) {
    std::string missing[] = {Under("no-such-program")};
    int status = CTAKShell::ExecShell(missing, 1);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), ENOENT);
    EXPECT_TRUE(LogHas("Execve return error = [" + Under("no-such-program") + "]"));

    WriteFile(Under("not-executable"), "#!/bin/sh\nexit 0\n");
    std::string plain[] = {Under("not-executable")};
    status = CTAKShell::ExecShell(plain, 1);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), EACCES);
}

TEST_F(ShellTest, ChildExitSignalIsDefaultDuringTheRunAndRestoredAfter) {
    // With SIGCHLD ignored the kernel reaps children itself and waitpid could not report the status.
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &previous), 0);

    std::string exitFive[] = {FOUNDATION_PROBE, "exit", "5"};
    int status = CTAKShell::ExecShell(exitFive, 3);

    struct sigaction after {};
    sigaction(SIGCHLD, &previous, &after);
    EXPECT_EQ(after.sa_handler, SIG_IGN);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_F(ShellTest, ChildrenOfTwoThreadsRunOneAtATime) {
    std::string markers = Under("markers");
    const int kRunsEach = 10;
    std::vector<int> statuses[2];
    auto runMany = [&](int index) {
        for (int i = 0; i < kRunsEach; ++i) {
            std::string argv[] = {FOUNDATION_PROBE, "mark", markers};
            statuses[index].push_back(CTAKShell::ExecShell(argv, 3));
        }
    };
    std::thread first(runMany, 0);
    std::thread second(runMany, 1);
    first.join();
    second.join();

    for (const auto& list : statuses) {
        for (int status : list) {
            EXPECT_EQ(status, 0);
        }
    }
    std::string expected;
    for (int i = 0; i < 2 * kRunsEach; ++i) {
        expected += "start\nend\n";
    }
    EXPECT_EQ(ReadFile(markers), expected);
}

TEST_F(ShellTest, FileOperationsUseTheSystemPrograms) {
    ASSERT_TRUE(TAKDir::Create(Under("src/inner")));
    WriteFile(Under("src/inner/f.txt"), "payload");

    EXPECT_EQ(CTAKShell::CreateDir(Under("made/deep").c_str()), 0);
    struct stat st {};
    ASSERT_EQ(stat(Under("made/deep").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777u);

    EXPECT_EQ(CTAKShell::Copy(Under("src").c_str(), Under("copy").c_str()), 0);
    EXPECT_EQ(ReadFile(Under("copy/inner/f.txt")), "payload");
    EXPECT_EQ(CTAKShell::Move(Under("copy").c_str(), Under("moved").c_str()), 0);
    EXPECT_FALSE(TAKFile::Exists(Under("copy")));
    EXPECT_EQ(ReadFile(Under("moved/inner/f.txt")), "payload");
    EXPECT_EQ(CTAKShell::Remove(Under("moved").c_str()), 0);
    EXPECT_FALSE(TAKFile::Exists(Under("moved")));
    EXPECT_TRUE(LogHas("copy " + Under("src") + " to " + Under("copy")));

    int status = CTAKShell::Move(Under("nothing-here").c_str(), Under("x").c_str());
    EXPECT_NE(status, 0);
}

}  // namespace
}  // namespace foundation
