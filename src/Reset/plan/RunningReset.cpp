#include "RunningReset.h"

#include <glib.h>
#include <platform_path.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>

#include "ResetCore.h"
#include "TAKHistoryLog.h"

namespace {

const char kCorvaneLine[] = "]Corvane Reset";

// Field 22 of /proc/PID/stat (after the name in parentheses, which may hold anything); 0 when the process
// does not exist.
unsigned long long StartTicks(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(stat.substr(close + 1));
    std::string skipped;
    for (int field = 3; field < 22 && fields >> skipped; ++field) {
    }
    unsigned long long ticks = 0;
    return fields >> ticks ? ticks : 0;
}

// "YYYY-MM-DDTHH:MM:SS:>" (UTC) at the start of a history line, in seconds since the epoch; -1 otherwise.
long long StampOf(const std::string& line) {
    struct tm utc {};
    if (sscanf(line.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d:>", &utc.tm_year, &utc.tm_mon, &utc.tm_mday,
               &utc.tm_hour, &utc.tm_min, &utc.tm_sec) != 6) {
        return -1;
    }
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    return static_cast<long long>(timegm(&utc));
}

}  // namespace

std::string CRunningReset::PidFilePath() {
    return platform_path_fixed("/run/tak-reset/tak-reset.pid");
}

void CRunningReset::Read() {
    long long pid = 0;
    unsigned long long ticks = 0;
    std::ifstream file(PidFilePath());
    if (!(file >> pid >> ticks) || pid <= 0 || pid > G_MAXINT32 ||
        StartTicks(static_cast<pid_t>(pid)) != ticks) {
        return;  // none runs, or the file names a process that is gone
    }
    m_nPid = static_cast<pid_t>(pid);
    m_FindCorvaneReset(StartedAt());
}

// The process writes its pid file as it starts; the file's time says when, more closely than the start
// ticks, which count from a boot time known to the second.
long long CRunningReset::StartedAt() {
    struct stat info = {};
    return stat(PidFilePath().c_str(), &info) == 0 ? static_cast<long long>(info.st_mtime) : 0;
}

// The last Corvane line stamped at or after the process's start (within the second: the stamps have no
// finer grain). Only the current file is read: the process writes a handful of lines per reset.
void CRunningReset::m_FindCorvaneReset(long long since) {
    std::ifstream history(HistoryLogFilePath(CResetCore::HISTORY_LOG_NAME));
    std::string line;
    while (std::getline(history, line)) {
        if (line.find(kCorvaneLine) != std::string::npos && since > 0 && StampOf(line) >= since) {
            m_strCorvaneAt = line.substr(0, line.find(":>"));
        }
    }
}
