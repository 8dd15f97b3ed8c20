// Follows the platform log of tak-reset line by line and keeps one record per reset, in the order the
// requests arrived. Lines of another process, lines it cannot read and messages cut by a newline are
// counted, never fatal.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "LogLine.h"
#include "ResetRecord.h"

class CReportLog {
public:
    void AddLine(const std::string& text);
    // One line of the history log ("YYYY-MM-DDTHH:MM:SS:>message", UTC); given after the platform log, it
    // goes to the apps, service or Corvane reset that ran at that second.
    void AddHistoryLine(const std::string& text);

    const std::vector<SResetRecord>& Resets() const { return m_resets; }
    size_t Unreadable() const { return m_unreadable; }
    size_t Foreign() const { return m_foreign; }
    size_t Repaired() const { return m_repaired; }  // lines read with U+FFFD for bytes that were not UTF-8

private:
    // The two tasks of the process: the apps task runs apps, service and Corvane resets, the other one
    // the built-in resets. A new request for a task stops the reset it is running.
    enum ETask { kAppsTask = 0, kBuiltinTask = 1, kTasks = 2 };
    static const int kNone = -1;

    bool TakeLine(const std::string& raw, CLogLine& line);
    void OnRequestKey(const std::string& message);
    void OnStart(const CLogLine& line, ETask task, const std::string& fallbackKind);
    void OnStop(const CLogLine& line, ETask task);
    void OnCreateFailed(const CLogLine& line, ETask task);
    int OnResult(const CLogLine& line);
    void OnNamedResult(const CLogLine& line);
    bool OnStageLine(const CLogLine& line);
    bool OnRuleLine(const CLogLine& line);
    void OnAnswer(const CLogLine& line, SResetRecord& record, const std::string& id,
                  SAppTiming::EOutcome outcome);
    SResetRecord* LastStopped();
    void OnDelivery(const CLogLine& line, bool delivered);
    void OnAppLine(const CLogLine& line);
    void OnNewProcess(int pid);
    void Close(int index, const CLogLine& line, EResetEnd how);
    int ResultTarget(const CLogLine& line, bool& mainThread) const;
    SResetRecord* Open(ETask task);
    long long StartMillis(size_t index) const;  // on the log's clock, from the record's own span

    CLogLine m_line;
    std::vector<SResetRecord> m_resets;
    std::vector<size_t> m_historyOrder;  // the resets by start, for the history's lines
    int m_open[kTasks] = {kNone, kNone};
    int m_lastCreateFailed = kNone;
    int m_openBeforeStart = kNone;  // what the last start replaced, back when it is ignored
    std::map<long, ETask> m_taskOfThread;
    std::map<long, int> m_awaitingAnswer;  // thread -> record whose result call has not answered yet
    std::map<long, int> m_namedResult;     // thread -> record its result line named; its bus call follows
    std::string m_requestKind;
    std::string m_requestUserdata = "0";
    int m_pid = 0;
    bool m_continuing = false;  // the last line's message went on past a newline
    size_t m_unreadable = 0;
    size_t m_foreign = 0;
    size_t m_repaired = 0;
};
