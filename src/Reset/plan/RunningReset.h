// CRunningReset: the tak-reset that already runs for this device, as far as it can be seen from outside,
// since a request goes to that process and what it did already changes what the request does.
//
// The process is the one instance of its app: its pid file ("PID STARTTIME", the start time being field
// 22 of /proc/PID/stat, so that a pid used again is not taken for it) lies at /run/tak-reset/tak-reset.pid.
// Its state that changes a plan, and that leaves a trace outside it: a Corvane reset it ran (a process
// refuses a second one; its history log has the line of the first after the process started) and a
// built-in reset it ran or runs (the setting that marks one in process, which the plan reads anyway).
#pragma once

#include <sys/types.h>

#include <string>

class CRunningReset {
public:
    // Looks for the running process and, when there is one, for the Corvane reset in its history.
    void Read();

    // The pid of the running tak-reset, or 0.
    pid_t Pid() const { return m_nPid; }
    // The time stamp of the Corvane reset that process ran ("" when it ran none).
    const std::string& CorvaneResetAt() const { return m_strCorvaneAt; }

    // Where the pid file is.
    static std::string PidFilePath();

private:
    // When the process started, in seconds since the epoch; 0 when unknown.
    static long long StartedAt();
    void m_FindCorvaneReset(long long since);

    pid_t m_nPid = 0;
    std::string m_strCorvaneAt;
};
