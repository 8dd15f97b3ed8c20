#include "ReportLog.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

const char kMainStart[] = "----------Reset main() start.---------";
const char kControl[] = "CONTROL";
const char kResetKey[] = "has key[reset] value[";
const char kUserdataKey[] = "has key[userdata] value[";
const char kStopPrefix[] = "Send CTAKTaskBase::EVENT_EXIT to ";
const char kResultCall[] =
    "MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]";
const char kCallSuccess[] = "method call success";
const char kCallFailure[] = "method call false.";
const char kCorvaneBusy[] = "corvane reset still doing, no need to perform it again";

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool StartsWith(const std::string& text, const std::string& head) {
    return text.compare(0, head.size(), head) == 0;
}

// The text between `head` and the closing ']' of a "has key[...] value[...]" line.
std::string KeyValue(const std::string& message, const std::string& head) {
    size_t close = message.rfind(']');
    return close == std::string::npos || close < head.size()
               ? std::string()
               : message.substr(head.size(), close - head.size());
}

// The word after `head` up to the next space: the app id of "uninstall of ID failed", say.
bool AppAfter(const std::string& message, const std::string& head, const std::string& tail, std::string& id) {
    if (!StartsWith(message, head)) {
        return false;
    }
    size_t space = message.find(' ', head.size());
    if (space == std::string::npos || message.compare(space + 1, tail.size(), tail) != 0) {
        return false;
    }
    id = message.substr(head.size(), space - head.size());
    return !id.empty();
}

std::string ResultName(const std::string& kind) {
    return kind.empty() ? std::string() : kind + "_result";
}

// Milliseconds since the start of the year of a history stamp, in local time as the platform log writes
// it; -1 when `text` has no stamp.
long long HistoryMillis(const std::string& text, size_t& messageStart) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, consumed = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d:>%n", &year, &month, &day, &hour, &minute, &second,
               &consumed) != 6 ||
        consumed == 0) {
        return -1;
    }
    struct tm utc {};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    time_t when = timegm(&utc);
    struct tm local {};
    localtime_r(&when, &local);
    char stamp[32];
    snprintf(stamp, sizeof(stamp), "%02d-%02d %02d:%02d:%02d.000", local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec);
    CLogLine line;
    std::string header = std::string(stamp) + " I/X(1:1): ";
    if (!line.Parse(header)) {
        return -1;
    }
    messageStart = static_cast<size_t>(consumed);
    return line.Millis();
}

}  // namespace

std::vector<std::string> SResetRecord::Done() const {
    std::vector<std::string> done;
    for (const std::string& id : requested) {
        bool missed = false;
        for (const auto* list : {&failed, &timedOut}) {
            for (const std::string& other : *list) {
                missed = missed || other == id;
            }
        }
        if (!missed) {
            done.push_back(id);
        }
    }
    return done;
}

// A line that is not one of this process's (foreign, unreadable or the rest of a message cut by a
// newline) is counted and left out; true for a line of this process.
bool CReportLog::TakeLine(const std::string& text, CLogLine& line) {
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        ++m_unreadable;
        m_continuing = false;
        return false;
    }
    if (!line.Parse(text)) {
        if (!m_continuing) {
            ++m_unreadable;
        }
        m_continuing = m_continuing && text.find("\033[0m") == std::string::npos;
        return false;
    }
    m_continuing = !line.closed;
    if (line.message == kMainStart || m_pid == 0) {
        OnNewProcess(line.pid);
    }
    if (line.pid != m_pid) {
        ++m_foreign;
        return false;
    }
    return true;
}

void CReportLog::AddLine(const std::string& text) {
    CLogLine line;
    if (!TakeLine(text, line)) {
        return;
    }
    if (EndsWith(line.source, "/Reset/src/Reset")) {
        m_taskOfThread[line.tid] = kAppsTask;
    } else if (EndsWith(line.source, "/Reset/src/BuiltInAppReset")) {
        m_taskOfThread[line.tid] = kBuiltinTask;
    }
    const std::string& message = line.message;
    if (message == kControl || StartsWith(message, kResetKey) || StartsWith(message, kUserdataKey)) {
        OnRequestKey(message);
    } else if (message == "App Reset Start") {
        OnStart(line, kAppsTask, "tak_app_reset");
    } else if (message == "Corvane Start") {
        OnStart(line, kAppsTask, "corvane_reset");
    } else if (message == "BuiltIn Reset Start") {
        OnStart(line, kBuiltinTask, "biu_app_reset");
    } else if (message == kCorvaneBusy && m_open[kAppsTask] == static_cast<int>(m_resets.size()) - 1) {
        // The request was ignored: the running Corvane reset goes on and is still the open one.
        m_resets.pop_back();
        m_startMillis.pop_back();
        m_endMillis.pop_back();
        m_open[kAppsTask] = m_openBeforeStart;
    } else if (message == "Send CTAKTaskBase::EVENT_EXIT to m_Reset!") {
        OnStop(line, kAppsTask);
    } else if (message == "Send CTAKTaskBase::EVENT_EXIT to m_BuiltInAppReset!") {
        OnStop(line, kBuiltinTask);
    } else if (message == "Create apps reset thread fail." ||
               message == "Create corvane reset thread fail.") {
        OnCreateFailed(line, kAppsTask);
    } else if (message == "Create builtin app reset thread fail.") {
        OnCreateFailed(line, kBuiltinTask);
    } else if (message == kResultCall) {
        OnResult(line);
    } else if (message == kCallSuccess || StartsWith(message, kCallFailure)) {
        OnDelivery(line, message == kCallSuccess);
    } else {
        OnAppLine(line);
    }
}

void CReportLog::OnNewProcess(int pid) {
    m_pid = pid;
    m_open[kAppsTask] = m_open[kBuiltinTask] = kNone;
    m_lastCreateFailed = kNone;
    m_taskOfThread.clear();
    m_awaitingAnswer.clear();
    m_requestKind.clear();
    m_requestUserdata = "0";
}

void CReportLog::OnRequestKey(const std::string& message) {
    if (message == kControl) {
        m_requestKind.clear();
        m_requestUserdata = "0";
    } else if (StartsWith(message, kResetKey)) {
        m_requestKind = KeyValue(message, kResetKey);
    } else {
        m_requestUserdata = KeyValue(message, kUserdataKey);
    }
}

void CReportLog::OnStart(const CLogLine& line, ETask task, const std::string& fallbackKind) {
    SResetRecord record;
    record.kind = m_requestKind.empty() ? fallbackKind : m_requestKind;
    record.userdata = m_requestUserdata;
    record.pid = line.pid;
    record.start = line.time;
    m_resets.push_back(record);
    m_startMillis.push_back(line.Millis());
    m_endMillis.push_back(-1);
    m_openBeforeStart = m_open[task];
    m_open[task] = static_cast<int>(m_resets.size()) - 1;
}

// The task is told to exit before it is started again, and when "end" arrives.
void CReportLog::OnStop(const CLogLine& line, ETask task) {
    // The record of the request that stops the task was already made; the stopped one is before it.
    int stopped = kNone;
    for (int i = static_cast<int>(m_resets.size()) - 1; i >= 0; --i) {
        const SResetRecord& record = m_resets[static_cast<size_t>(i)];
        if (record.Builtin() == (task == kBuiltinTask) && record.how == EResetEnd::Open &&
            record.pid == m_pid && (m_requestKind == "end" || i != m_open[task])) {
            stopped = i;
            break;
        }
    }
    if (stopped != kNone) {
        Close(stopped, line, m_requestKind == "end" ? EResetEnd::Ended : EResetEnd::Replaced);
    }
}

void CReportLog::OnCreateFailed(const CLogLine& line, ETask task) {
    if (m_open[task] == kNone) {
        return;
    }
    m_lastCreateFailed = m_open[task];
    Close(m_open[task], line, EResetEnd::Failed);
}

void CReportLog::Close(int index, const CLogLine& line, EResetEnd how) {
    SResetRecord& record = m_resets[static_cast<size_t>(index)];
    record.how = how;
    record.end = line.time;
    m_endMillis[static_cast<size_t>(index)] = line.Millis();
    long long duration = line.Millis() - m_startMillis[static_cast<size_t>(index)];
    record.durationMs = duration >= 0 ? duration : -1;
    for (int& open : m_open) {
        open = open == index ? kNone : open;
    }
}

// The reset a process_result call belongs to: on the main thread, the one whose task could not be
// created; on a task's thread, the task's open reset, else the last one it reported for (a reset may
// report more than once).
int CReportLog::ResultTarget(const CLogLine& line, bool& mainThread) const {
    mainThread = line.tid == line.pid;
    if (mainThread) {
        return m_lastCreateFailed;
    }
    auto known = m_taskOfThread.find(line.tid);
    if (known == m_taskOfThread.end()) {
        // A thread that has logged nothing of a task yet (its debug lines filtered, say): the newest reset
        // still running.
        return std::max(m_open[kAppsTask], m_open[kBuiltinTask]);
    }
    if (m_open[known->second] != kNone) {
        return m_open[known->second];
    }
    for (int i = static_cast<int>(m_resets.size()) - 1; i >= 0; --i) {
        const SResetRecord& record = m_resets[static_cast<size_t>(i)];
        if (record.pid == m_pid && record.Builtin() == (known->second == kBuiltinTask)) {
            return record.resultCount > 0 ? i : kNone;
        }
    }
    return kNone;
}

void CReportLog::OnResult(const CLogLine& line) {
    bool mainThread = false;
    int target = ResultTarget(line, mainThread);
    if (target == kNone) {
        return;
    }
    SResetRecord& record = m_resets[static_cast<size_t>(target)];
    if (record.resultCount++ == 0) {
        // The reset process reports 1 when it ran; a task that could not be created reports 0, except
        // for the built-in resets, which report 1 either way.
        record.resultName = ResultName(record.kind);
        record.resultValue = mainThread && !record.Builtin() ? 0 : 1;
    }
    m_awaitingAnswer[line.tid] = target;
    if (record.how == EResetEnd::Open) {
        Close(target, line, EResetEnd::Reported);
    }
    if (mainThread) {
        m_lastCreateFailed = kNone;
    }
}

void CReportLog::OnDelivery(const CLogLine& line, bool delivered) {
    auto awaiting = m_awaitingAnswer.find(line.tid);
    if (awaiting == m_awaitingAnswer.end()) {
        return;
    }
    SResetRecord& record = m_resets[static_cast<size_t>(awaiting->second)];
    record.resultDelivered = record.resultDelivered || delivered;
    m_awaitingAnswer.erase(awaiting);
}

// "Reset ID" when an app's request is made; a warning when it fails or times out.
void CReportLog::OnAppLine(const CLogLine& line) {
    bool apps = EndsWith(line.source, "/Reset/src/Reset");
    bool builtin = EndsWith(line.source, "/Reset/src/BuiltInAppReset");
    SResetRecord* record = apps ? Open(kAppsTask) : builtin ? Open(kBuiltinTask) : nullptr;
    if (record == nullptr) {
        return;
    }
    const std::string& message = line.message;
    std::string id;
    if (StartsWith(message, "Reset ") && line.level == 'I') {
        record->requested.push_back(message.substr(6));
    } else if (line.level != 'W') {
        return;
    } else if (AppAfter(message, apps ? "uninstall of " : "install of ", "failed", id)) {
        record->failed.push_back(id);
    } else if (AppAfter(message, apps ? "uninstall of " : "install of ", "timed out after ", id)) {
        record->timedOut.push_back(id);
    }
}

SResetRecord* CReportLog::Open(ETask task) {
    return m_open[task] == kNone ? nullptr : &m_resets[static_cast<size_t>(m_open[task])];
}

void CReportLog::AddHistoryLine(const std::string& text) {
    size_t messageStart = 0;
    long long millis = g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)
                           ? HistoryMillis(text, messageStart)
                           : -1;
    if (millis < 0) {
        ++m_unreadable;
        return;
    }
    // The stamp has whole seconds: a reset owns the seconds from that of its start to that of its end.
    for (size_t i = m_resets.size(); i-- > 0;) {
        if (m_resets[i].Builtin()) {
            continue;
        }
        long long from = m_startMillis[i] / 1000 * 1000;
        long long to = m_endMillis[i] < 0 ? -1 : m_endMillis[i] / 1000 * 1000 + 999;
        if (millis >= from && (to < 0 || millis <= to)) {
            m_resets[i].history.push_back(text.substr(messageStart));
            return;
        }
    }
}
