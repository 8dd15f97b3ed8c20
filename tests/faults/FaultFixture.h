// What the fault tests share: the real tak-reset and stand-in daemon of a fresh root (ResetFixture), and
// the means to hurt them the way a TV in the field is hurt: SIGKILL (a power cut, as far as the process
// can tell), a daemon held still or killed, files of the root replaced behind the process's back.
#pragma once

#include <fcntl.h>
#include <signal.h>

#include <fstream>
#include <string>
#include <vector>

#include "../reset/ResetFixture.h"
#include "orvix_process.h"

namespace fault_test {

using reset_test::Lines;
using namespace std::chrono_literals;

class FaultFixture : public reset_test::ResetFixture {
protected:
    // The running instance of tak-reset (pid 0 when there is none).
    orvix::host::ProcessId TakReset() const {
        orvix::host::ProcessId id;
        bool running =
            orvix::host::ReadPidFile(orvix::host::LaunchPidPath(AppName()), id) && orvix::host::IsRunning(id);
        return running ? id : orvix::host::ProcessId{};
    }
    orvix::host::ProcessId InnerServer() const {
        orvix::host::ProcessId id;
        orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", id);
        return id;
    }

    // SIGKILL, and back once the process is gone.
    static void Kill(const orvix::host::ProcessId& process) {
        ASSERT_GT(process.pid, 0);
        ASSERT_EQ(kill(process.pid, SIGKILL), 0);
        ASSERT_TRUE(orvix::test::WaitUntil([&] { return !orvix::host::IsRunning(process); }))
            << "process " << process.pid << " survived SIGKILL";
    }

    // SIGKILL to `process`, which holds the app database (or its journal) open, for reading only: a kill
    // cannot leave a write half done.
    static void KillWhileReadingTheDatabase(const orvix::host::ProcessId& process) {
        const std::string proc = "/proc/" + std::to_string(process.pid);
        int count = 0, writable = 0;
        std::error_code error;
        for (const auto& fd : std::filesystem::directory_iterator(proc + "/fd", error)) {
            if (std::filesystem::read_symlink(fd, error).string().rfind(DatabasePath(), 0) == 0) {
                ++count;
                std::string info =
                    orvix::test::ReadWholeFile(proc + "/fdinfo/" + fd.path().filename().string());
                size_t flags = info.find("flags:");
                writable += flags != std::string::npos &&
                            (std::stoul(info.substr(flags + 6), nullptr, 8) & O_ACCMODE) != O_RDONLY;
            }
        }
        Kill(process);
        EXPECT_GE(count, 1);
        EXPECT_EQ(writable, 0) << "tak-reset held the database open for writing";
    }

    // The answer of "PRAGMA integrity_check" and the number of app rows: what the next reader of the file
    // will find. The stand-in daemon, resumed after a kill, may be writing: the read waits for it.
    static std::string DatabaseState() {
        Lines check = Rows("PRAGMA integrity_check;"), apps = Rows("select count(*) from widgetinfo;");
        return (check.empty() ? "error" : check[0]) + ", " + (apps.empty() ? "error" : apps[0]) + " apps";
    }

    // Every uninstall answers after `delayMs` and fails, so the apps stay installed for the next run and
    // nothing calls the stand-in daemon on the way.
    void FailEveryUninstallAfter(int delayMs) const {
        SetLibTakBehaviour(FailingUninstalls(delayMs, {"app.one", "app.two"}));
    }

    // Every directory a reset empties holds something again, as a TV in use would have it.
    static void FillEveryResetDirectory() {
        for (const auto& dir : ResetDirectories(true)) {
            Plant(dir + "/in_use.dat");
        }
        Plant(ServiceDir(27, "bnr_backup/bnr_backup.json"));
    }
};

}  // namespace fault_test
