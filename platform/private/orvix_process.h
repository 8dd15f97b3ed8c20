// Processes the kit starts and stops. A pid alone is not an identity (pids are reused), so every pid file
// of the kit holds "PID STARTTIME", the start time being field 22 of /proc/PID/stat.
// Only the kit, its tools and the tests use this header; the reset code never does.
#pragma once

#include <sys/types.h>

#include <string>

namespace orvix::host {

struct ProcessId {
    pid_t pid = 0;
    unsigned long long startTime = 0;
};

// The start time of a live process; 0 when it does not exist or is a zombie.
unsigned long long ProcessStartTime(pid_t pid);

// The identity of `pid` now (startTime 0 when it is not running).
ProcessId Identify(pid_t pid);

// True while that very process runs; a zombie or a reused pid counts as gone.
bool IsRunning(const ProcessId& process);

// "PID STARTTIME\n", written through a temporary file and a rename.
bool WritePidFile(const std::string& path, const ProcessId& process);
bool WritePidFileTo(int fd, const ProcessId& process);
bool ReadPidFile(const std::string& path, ProcessId& process);

}  // namespace orvix::host
