// The history log's directory on a file system with no room left: its lines are lost, each with a line
// in the platform log, the reset goes on and reports, and once there is room again the lines come back.
// A FIFO in place of the history file: no line may hold the main thread in its open.
// The directory gets a small tmpfs of its own (the tests run as root); where mounting is refused, the row
// runs with a history directory that cannot hold a file at all, and says why.
#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "FaultFixture.h"

using namespace fault_test;

class AFullHistoryLogFileSystem : public FaultFixture {
protected:
    void TearDown() override {
        if (m_mounted) {
            EXPECT_EQ(umount2(LogDir().c_str(), MNT_DETACH), 0) << strerror(errno);
        }
        FaultFixture::TearDown();
    }

    static std::string LogDir() { return orvix::host::PathVariable(2) + "/vardell/log"; }
    static std::string History() { return LogDir() + "/tak_reset_history.log"; }

    // A tmpfs over the log directory, filled to the last block. False (with the reason) when refused.
    bool MountFullFileSystem(std::string& whyNot) {
        if (mount("tmpfs", LogDir().c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=64k,mode=0755") != 0) {
            whyNot = std::string("mount of a tmpfs refused: ") + strerror(errno);
            return false;
        }
        m_mounted = true;
        std::ofstream filler(LogDir() + "/filler");
        const std::string block(4096, 'f');
        while (filler.write(block.data(), block.size()).flush()) {
        }
        return true;
    }

    void Unfill() const {
        if (m_mounted) {
            ASSERT_EQ(unlink((LogDir() + "/filler").c_str()), 0);
            return;
        }
        ASSERT_EQ(unlink(LogDir().c_str()), 0);
        ASSERT_EQ(rename((LogDir() + ".saved").c_str(), LogDir().c_str()), 0);
    }

    bool m_mounted = false;
};

TEST_F(AFullHistoryLogFileSystem, LosesTheHistoryLinesNotTheResetAndWritesThemOnceThereIsRoom) {
    std::string whyNot;
    if (!MountFullFileSystem(whyNot)) {
        std::cout << "[ NOTE     ] the full file system row could not run (" << whyNot
                  << "); it runs with a history directory that is a plain file instead" << std::endl;
        RecordProperty("full_file_system", whyNot);
        ASSERT_EQ(rename(LogDir().c_str(), (LogDir() + ".saved").c_str()), 0);
        std::ofstream(LogDir()) << "not a directory\n";
    }
    Start({"reset=tak_app_reset", "userdata=81"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "81"));
    // The "End" line is written just after the result is sent: wait for its failure before making room.
    auto lost = [&] {
        return m_mounted ? CountInLog("Failed to write " + History() + ": No space left on device")
                         : CountInLog("is not realpath, so can not open it!!!") + CountInLog("ptLog is NULL");
    };
    EXPECT_TRUE(orvix::test::WaitUntil([&] { return lost() >= 2; })) << lost() << " lines lost";
    if (m_mounted) {
        EXPECT_EQ(orvix::test::ReadWholeFile(History()), "");
    }

    Unfill();
    RunToEnd({"reset=tak_app_reset", "userdata=82"}, "tak_app_reset_result", 2);
    std::string history = orvix::test::ReadWholeFile(History());
    EXPECT_EQ(reset_test::Count(history, "[AppsReset][118]Start"), 1u) << history;
    EXPECT_EQ(reset_test::Count(history, "[m_ClearDB][637]End"), 1u) << history;
}

// Nobody reads the FIFO, so a plain open for writing would wait for good: no result, and the "end" could
// never be handled. Every line is lost with its failure line instead, and the process serves on.
TEST_F(AFullHistoryLogFileSystem, FifoInPlaceOfTheFileLosesTheLinesNotTheProcess) {
    ASSERT_EQ(mkfifo(History().c_str(), 0644), 0) << strerror(errno);
    RunToEnd({"reset=tak_app_reset", "userdata=83"}, "tak_app_reset_result");
    EXPECT_EQ(Results("tak_app_reset_result"), One("tak_app_reset_result", "83"));
    EXPECT_GE(CountInLog("ptLog is NULL"), 2u);
    EXPECT_EQ(CountInLog("EXEC finish"), 1u);
    struct stat st {};
    EXPECT_TRUE(stat(History().c_str(), &st) == 0 && S_ISFIFO(st.st_mode)) << "the FIFO was replaced";
}
