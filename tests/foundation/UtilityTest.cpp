#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <cstdlib>

#include <smack.h>

#include "FoundationTest.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TAKUtilityWrapper.h"

namespace foundation {
namespace {

int ExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The utility is installed in the root, as `orvix-host init` does, and run by the service with nothing
// in its environment but PATH.
class UtilityTest : public FoundationTest {
protected:
    void SetUp() override {
        FoundationTest::SetUp();
        for (const char* place : {"bin", "usr/bin"}) {
            ASSERT_TRUE(TAKDir::Create(Under(place)));
            ASSERT_EQ(symlink(TAKUTILITY_TOOL, Under(std::string(place) + "/takutility").c_str()), 0);
        }
        char pattern[] = "/tmp/foundation-outside.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        outside_ = pattern;
        WriteFile(outside_ + "/precious", "precious");
        ASSERT_TRUE(TAKDir::Create(Under("data")));
    }
    void TearDown() override {
        TAKDir::RemoveAllFiles(outside_, true, false);
        FoundationTest::TearDown();
    }

    void ExpectOutsideWhole() { EXPECT_EQ(ReadFile(outside_ + "/precious"), "precious"); }
    bool LogHas(const std::string& text) const { return Log().find(text) != std::string::npos; }

    std::string outside_;
};

TEST_F(UtilityTest, RemovesInsideTheRootAndRefusesOutside) {
    WriteFile(Under("data/file"), "x");
    EXPECT_EQ(ITAKUtility::RemoveFile(Under("data/file")), 0);
    EXPECT_FALSE(TAKFile::Exists(Under("data/file")));
    EXPECT_TRUE(LogHas("Remove file[" + Under("data/file") + "] end, result = [0]"));

    EXPECT_NE(ExitCode(ITAKUtility::RemoveFile(outside_ + "/precious")), 0);
    EXPECT_NE(ExitCode(ITAKUtility::RemoveFile(root_ + "/../" + outside_.substr(5) + "/precious")), 0);
    EXPECT_NE(ExitCode(ITAKUtility::RemoveFileInDirectory(outside_)), 0);
    ExpectOutsideWhole();
}

TEST_F(UtilityTest, LinksInsideTheRootDoNotLeadOutside) {
    ASSERT_EQ(symlink(outside_.c_str(), Under("data/to-outside").c_str()), 0);
    ASSERT_EQ(symlink((outside_ + "/precious").c_str(), Under("data/to-precious").c_str()), 0);

    EXPECT_NE(ExitCode(ITAKUtility::RemoveFileInDirectory(Under("data/to-outside"))), 0);
    EXPECT_NE(ExitCode(ITAKUtility::Copy(Under("data/to-precious"), Under("data/copy"))), 0);
    EXPECT_NE(ExitCode(ITAKUtility::Execute(Under("data/to-outside/precious"))), 0);
    ExpectOutsideWhole();

    // Removing the link itself is fine: the link is inside.
    EXPECT_EQ(ITAKUtility::RemoveFile(Under("data/to-precious")), 0);
    EXPECT_FALSE(TAKFile::Exists(Under("data/to-precious")));
    EXPECT_EQ(ITAKUtility::RemoveFileInDirectory(Under("data")), 0);
    EXPECT_TRUE(TAKFile::IsDir(Under("data")));
    EXPECT_EQ(TAKDir::FolderSize(Under("data")), 0);
    ExpectOutsideWhole();
}

TEST_F(UtilityTest, CopiesMovesAndExecutesInsideTheRoot) {
    WriteFile(Under("data/a.txt"), "alpha");
    EXPECT_EQ(ITAKUtility::Copy(Under("data/a.txt"), Under("data/b.txt")), 0);
    EXPECT_EQ(ReadFile(Under("data/b.txt")), "alpha");
    EXPECT_EQ(ITAKUtility::Move(Under("data/b.txt"), Under("data/c.txt")), 0);
    EXPECT_FALSE(TAKFile::Exists(Under("data/b.txt")));
    EXPECT_EQ(ReadFile(Under("data/c.txt")), "alpha");
    EXPECT_NE(ExitCode(ITAKUtility::Copy(Under("data/a.txt"), outside_ + "/stolen")), 0);
    EXPECT_NE(ExitCode(ITAKUtility::Move(Under("data/a.txt"), "no-question-mark")), 0);
    EXPECT_FALSE(TAKFile::Exists(outside_ + "/stolen"));

    std::string copied = Under("data/probe");
    ASSERT_EQ(symlink(FOUNDATION_PROBE, copied.c_str()), 0);
    EXPECT_NE(ExitCode(ITAKUtility::Execute(copied)), 0);  // resolves to the build tree: outside
    ASSERT_EQ(unlink(copied.c_str()), 0);
    WriteFile(copied, ReadFile(FOUNDATION_PROBE));
    ASSERT_EQ(chmod(copied.c_str(), 0755), 0);
    // Run without arguments the probe exits with 64, which the utility passes on.
    EXPECT_EQ(ExitCode(ITAKUtility::Execute(copied)), 64);
    EXPECT_NE(ExitCode(ITAKUtility::Execute("/bin/true")), 0);
}

TEST_F(UtilityTest, LabelsTravelThroughTheResultKey) {
    WriteFile(Under("data/db"), "db");
    EXPECT_EQ(ITAKUtility::SetSmack(Under("data/db"), "User::Home"), 0);
    std::string label;
    EXPECT_EQ(ITAKUtility::GetSmack(Under("data/db"), label), 0);
    EXPECT_EQ(label, "User::Home");
    EXPECT_FALSE(LogHas("not changed, error happened"));

    // The same label again leaves the key as it was, which reads as a utility that did not answer.
    EXPECT_EQ(ITAKUtility::GetSmack(Under("data/db"), label), 0);
    EXPECT_EQ(label, "User::Home");
    EXPECT_TRUE(LogHas("smack (User::Home) not changed, error happened"));

    EXPECT_NE(ExitCode(ITAKUtility::SetSmack(outside_ + "/precious", "Evil")), 0);
    char* outsideLabel = nullptr;
    EXPECT_EQ(smack_getlabel((outside_ + "/precious").c_str(), &outsideLabel, SMACK_LABEL_ACCESS), 1);
    EXPECT_STREQ(outsideLabel, "_");
    free(outsideLabel);
}

TEST_F(UtilityTest, ChecksTheServiceDirectories) {
    EXPECT_EQ(ITAKUtility::CheckTAKDir(), 0);
    EXPECT_TRUE(TAKFile::IsDir(Under("opt/usr/data/vardell/log")));
    EXPECT_TRUE(TAKFile::IsDir(Under("opt/usr/share/vardell")));
}

TEST_F(UtilityTest, ToolRefusesPathsOutsideTheRootWithAMessage) {
    RunResult result = RunProgram({TAKUTILITY_TOOL, "-e", outside_ + "/precious"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.err.find("outside the host root"), std::string::npos);
    result = RunProgram({TAKUTILITY_TOOL, "-x", outside_});
    EXPECT_NE(result.exitCode, 0);
    result = RunProgram({TAKUTILITY_TOOL, "-o", Under("data") + "?" + outside_ + "/copied"});
    EXPECT_NE(result.exitCode, 0);
    result = RunProgram({TAKUTILITY_TOOL, "-e", "relative/path"});
    EXPECT_NE(result.exitCode, 0);
    result = RunProgram({TAKUTILITY_TOOL, "-q", Under("data")});
    EXPECT_NE(result.exitCode, 0);
    result = RunProgram({TAKUTILITY_TOOL, "-e"});
    EXPECT_NE(result.exitCode, 0);
    ExpectOutsideWhole();
    EXPECT_FALSE(TAKFile::Exists(outside_ + "/copied"));
}

}  // namespace
}  // namespace foundation
