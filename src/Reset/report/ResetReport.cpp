#include "ResetReport.h"

#include <sys/stat.h>
#include <fstream>

namespace {

const char kPlatformLog[] = "tak-reset.log";
const char kHistoryLog[] = "tak_reset_history.log";

bool IsFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool IsDirectory(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Reads `path` a line at a time (the logs of a TV reach 100 MB); false when it cannot be opened.
template <typename Feed>
bool EachLine(const std::string& path, Feed feed) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        feed(line);
    }
    return true;
}

}  // namespace

// The kit's root keeps the platform log in var/log/; a directory of pulled logs holds it directly.
std::string CResetReport::PlatformLogIn(const std::string& where) {
    std::string direct = where + "/" + kPlatformLog;
    return IsFile(direct) ? direct : where + "/var/log/" + kPlatformLog;
}

// Under a root the history log is in the service's directory of the system data path (opt/usr/data).
std::string CResetReport::HistoryLogIn(const std::string& where) {
    std::string direct = where + "/" + kHistoryLog;
    return IsFile(direct) ? direct : where + "/opt/usr/data/vardell/log/" + kHistoryLog;
}

bool CResetReport::Read(const std::string& where, std::string& problem) {
    if (!IsDirectory(where)) {
        problem = where + " is not a directory";
        return false;
    }
    std::string platform = PlatformLogIn(where);
    if (!EachLine(platform, [this](const std::string& line) { m_log.AddLine(line); })) {
        problem = "cannot read " + platform;
        return false;
    }
    for (const std::string& history : HistoryLogsIn(where)) {
        EachLine(history, [this](const std::string& line) { m_log.AddHistoryLine(line); });
    }
    return true;
}

// The history log and its rotated copies ("NAME.1" the newest of them), oldest first.
std::vector<std::string> CResetReport::HistoryLogsIn(const std::string& where) {
    const std::string current = HistoryLogIn(where);
    std::vector<std::string> logs;
    for (int number = 1; IsFile(current + "." + std::to_string(number)); ++number) {
        logs.insert(logs.begin(), current + "." + std::to_string(number));
    }
    if (IsFile(current)) {
        logs.push_back(current);
    }
    return logs;
}
