// Finds the two logs a reset leaves (under a root the kit made, or side by side in a directory of logs
// pulled from a TV) and reads them into one record per reset.
#pragma once

#include <string>
#include <vector>

#include "ReportLog.h"

class CResetReport {
public:
    // `where` is a root or a directory of logs. False with `problem` set when the platform log cannot be
    // read; a missing history log is no failure, as the platform log says the most.
    bool Read(const std::string& where, std::string& problem);

    const std::vector<SResetRecord>& Resets() const { return m_log.Resets(); }
    size_t Unreadable() const { return m_log.Unreadable(); }
    size_t Foreign() const { return m_log.Foreign(); }
    size_t Repaired() const { return m_log.Repaired(); }

    static std::string PlatformLogIn(const std::string& where);
    static std::string HistoryLogIn(const std::string& where);
    static std::vector<std::string> HistoryLogsIn(const std::string& where);

private:
    CReportLog m_log;
};
