// Process identities for the kit's pid files.
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_process.h"
#include "orvix_regular_file.h"

namespace orvix::host {

namespace {

// Field 3 (state) and field 22 (start time) of the stat of the process's main thread, which the kernel
// gives the process's own values. Not /proc/PID/stat: a user-mode emulator (a reset process built for
// another processor) answers a process's reads of its own /proc/PID/stat with made-up fields, a start time
// that no other reader sees among them, while it leaves the task entries alone. The command name (field 2)
// may hold blanks and parentheses, so parsing starts after its last ')'.
bool ReadStat(pid_t pid, char& state, unsigned long long& startTime) {
    std::string text;
    const std::string id = std::to_string(pid);
    if (!ReadRegular("/proc/" + id + "/task/" + id + "/stat", text)) {
        return false;
    }
    const char* close = strrchr(text.c_str(), ')');
    // After the name: state, then fields 4 to 21 skipped, then the start time.
    bool ok =
        close != nullptr &&
        sscanf(close + 1, " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu",
               &state, &startTime) == 2;
    return ok;
}

std::string Format(const ProcessId& process) {
    return std::to_string(process.pid) + " " + std::to_string(process.startTime) + "\n";
}

}  // namespace

unsigned long long ProcessStartTime(pid_t pid) {
    char state = 0;
    unsigned long long startTime = 0;
    if (pid <= 0 || !ReadStat(pid, state, startTime) || state == 'Z' || state == 'X') {
        return 0;
    }
    return startTime;
}

ProcessId Identify(pid_t pid) {
    return ProcessId{pid, ProcessStartTime(pid)};
}

bool IsRunning(const ProcessId& process) {
    return process.pid > 0 && process.startTime != 0 && ProcessStartTime(process.pid) == process.startTime;
}

bool WritePidFileTo(int fd, const ProcessId& process) {
    std::string text = Format(process);
    if (ftruncate(fd, 0) != 0) {
        return false;
    }
    return pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

bool WritePidFile(const std::string& path, const ProcessId& process) {
    return WriteFileAtomically(path, Format(process));
}

bool ReadPidFile(const std::string& path, ProcessId& process) {
    std::string text;
    if (!ReadRegular(path, text)) {
        if (IsNotRegularError(errno)) {
            dlog_print(DLOG_ERROR, "ORVIX", "pid file %s is not a regular file, not read", path.c_str());
        }
        return false;
    }
    long long pid = 0;
    unsigned long long startTime = 0;
    // A damaged file must not name some other process through a truncated pid.
    bool ok = sscanf(text.c_str(), "%lld %llu", &pid, &startTime) == 2 && pid > 0 &&
              pid <= std::numeric_limits<pid_t>::max();
    if (ok) {
        process = ProcessId{static_cast<pid_t>(pid), startTime};
    }
    return ok;
}

}  // namespace orvix::host
