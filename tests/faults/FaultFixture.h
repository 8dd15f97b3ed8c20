// What the fault tests share: the real tak-reset and stand-in daemon of a fresh root (ResetFixture), and
// the means to hurt them the way a TV in the field is hurt: SIGKILL (a power cut, as far as the process
// can tell), a daemon held still or killed, files of the root replaced behind the process's back.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>

#include <fstream>
#include <string>
#include <vector>

#include "../reset/ResetFixture.h"
#include "orvix_process.h"

namespace fault_test {

using reset_test::Lines;
using namespace std::chrono_literals;

// The descriptors a process holds on one file (and files named after it, such as its journal).
struct Openings {
    int count = 0;
    int writable = 0;  // opened for writing
};

class FaultFixture : public reset_test::ResetFixture {
protected:
    // The running instance of tak-reset (pid 0 when there is none).
    orvix::host::ProcessId TakReset() const {
        orvix::host::ProcessId id;
        if (!orvix::host::ReadPidFile(orvix::host::LaunchPidPath(AppName()), id) ||
            !orvix::host::IsRunning(id)) {
            return {};
        }
        return id;
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
    static void Signal(const orvix::host::ProcessId& process, int signal) {
        ASSERT_GT(process.pid, 0);
        ASSERT_EQ(kill(process.pid, signal), 0);
    }

    static std::string DatabasePath() { return orvix::host::PathVariable(24) + "/.vardell.db"; }

    // How `pid` holds the app database and its journal right now.
    static Openings DatabaseOpenings(pid_t pid) {
        Openings openings;
        std::string fds = "/proc/" + std::to_string(pid) + "/fd";
        g_autoptr(GDir) dir = g_dir_open(fds.c_str(), 0, nullptr);
        while (const gchar* name = dir != nullptr ? g_dir_read_name(dir) : nullptr) {
            g_autofree gchar* target = g_file_read_link((fds + "/" + name).c_str(), nullptr);
            if (target == nullptr || !g_str_has_prefix(target, DatabasePath().c_str())) {
                continue;
            }
            ++openings.count;
            std::ifstream info("/proc/" + std::to_string(pid) + "/fdinfo/" + name);
            for (std::string line; std::getline(info, line);) {
                if (line.rfind("flags:", 0) == 0 &&
                    (std::stoul(line.substr(6), nullptr, 8) & O_ACCMODE) != O_RDONLY) {
                    ++openings.writable;
                }
            }
        }
        return openings;
    }

    // The answer of "PRAGMA integrity_check" and the number of app rows, read with a connection of the
    // test's own: what the next reader of the file will find. Like any reader it waits (up to 10 s) for
    // the lock of a write in progress: the stand-in daemon, resumed after a kill, may be writing.
    static std::string DatabaseState() {
        sqlite3* db = nullptr;
        std::string state = "cannot open";
        if (sqlite3_open_v2(DatabasePath().c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
            sqlite3_busy_timeout(db, 10000);
            state = Scalar(db, "PRAGMA integrity_check;") + ", " +
                    Scalar(db, "select count(*) from widgetinfo;") + " apps";
        }
        sqlite3_close(db);
        return state;
    }
    static std::string Scalar(sqlite3* db, const char* sql) {
        sqlite3_stmt* statement = nullptr;
        std::string value = "error";
        if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(statement, 0);
            value = text != nullptr ? reinterpret_cast<const char*>(text) : "null";
        }
        sqlite3_finalize(statement);
        return value;
    }

    // The substitute library's behaviour: every uninstall answers after `delayMs` and fails, so the
    // apps stay installed for the next run and nothing calls the stand-in daemon on the way.
    void FailEveryUninstallAfter(int delayMs) const {
        Json::Value behaviour(Json::objectValue);
        behaviour["uninstall"]["delay_ms"] = delayMs;
        for (const char* app : {"app.one", "app.two"}) {
            behaviour["uninstall"]["apps"][app]["fail"] = true;
            behaviour["uninstall"]["apps"][app]["delay_ms"] = delayMs;
        }
        SetLibTakBehaviour(behaviour);
    }

    // Waits until tak-reset's log holds `text` at least `count` times.
    bool WaitForLogCount(const std::string& text, size_t count,
                         std::chrono::milliseconds timeout = 30s) const {
        return orvix::test::WaitUntil([&] { return CountInLog(text) >= count; }, timeout);
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
