#include "ReportLog.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

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
const char kNamedResult[] = "process_result name[";
const char kBinderWait[] = "binder is not created yet, waiting...";
const char kBinderCreated[] = "SetCommunicatorBinderCreated";
const char kCleanUpStart[] = "clean-up of ";
const char kEmptied[] = "clean-up emptied ";
const char kStoppedAnswer[] = " answered a request of a stopped reset, callback ignored";
const char kUpdatesWait[] = "waiting for background updates of ";
const char kRefused[] =
    "Server upgrade not support or Reset is already in process. this time reset will be skipped";

// The lines that keep an app from an apps or service reset's uninstalls: what follows the id, and why.
const char kKeepTail[] = ", continue to uninstall next apps";
const char kKeepFixed[] = "hard-coded for DF200715-00947, do not uninstall ";
const char* const kKeepReasons[][2] = {
    {" is default/native[", "default/native"},
    {" is configured as disable reset", "disable reset"},
    {" is general app[", "general app"},
};

// The lines that leave an app out of a built-in reset's installs: head, tail, reason.
const char* const kSkipLines[][3] = {
    {"", " not installed, skip it", "not installed"},
    {"", " not support instant reset, skip it", "no instant reset"},
    {"", " not removable, skip it", "not removable"},
    {"remove Home base/test pkg ", " from general biu list", "Home base or test package"},
    {"remove ", " because it requires higher Home base/test pkg version than installed version",
     "needs a newer Home package"},
};

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

// What lies between `head` and `tail` of a message that starts and ends with them, or "".
std::string Around(const std::string& message, const std::string& head, const std::string& tail) {
    if (message.size() <= head.size() + tail.size() || !StartsWith(message, head) ||
        !EndsWith(message, tail)) {
        return std::string();
    }
    return message.substr(head.size(), message.size() - head.size() - tail.size());
}

// "app[pkg]" of a skip line: the app id alone.
std::string WithoutPackage(const std::string& id) {
    size_t open = id.find('[');
    return open == std::string::npos || id.back() != ']' ? id : id.substr(0, open);
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
    g_autoptr(GDateTime) utc = g_date_time_new_utc(year, month, day, hour, minute, second);
    if (utc == nullptr) {
        return -1;
    }
    g_autoptr(GDateTime) local = g_date_time_to_local(utc);
    messageStart = static_cast<size_t>(consumed);
    return CLogLine::ClockMillis(g_date_time_get_month(local), g_date_time_get_day_of_month(local),
                                 g_date_time_get_hour(local), g_date_time_get_minute(local),
                                 g_date_time_get_second(local), 0);
}

}  // namespace

std::vector<std::string> SResetRecord::Done() const {
    std::vector<std::string> done;
    for (const SAppTiming& app : apps) {
        if (app.outcome == SAppTiming::Done) {
            done.push_back(app.id);
        }
    }
    return done;
}

// A line that is not one of this process's (foreign, unreadable or the rest of a message cut by a
// newline) is counted and left out; true for a line of this process.
bool CReportLog::TakeLine(const std::string& raw, CLogLine& line) {
    // Bytes that are not UTF-8 in a message (the id of a broken package, say) are read as U+FFFD, so that
    // the rest of the line still counts; in a header they leave no line.
    const bool valid = g_utf8_validate(raw.data(), static_cast<gssize>(raw.size()), nullptr);
    std::string repaired;
    if (!valid) {
        g_autofree gchar* fixed = g_utf8_make_valid(raw.data(), static_cast<gssize>(raw.size()));
        repaired = fixed;
    }
    const std::string& text = valid ? raw : repaired;
    if (!valid && !line.Parse(text)) {
        ++m_unreadable;
        m_continuing = false;
        return false;
    }
    m_repaired += valid ? 0 : 1;
    if (valid && !line.Parse(text)) {
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
    CLogLine& line = m_line;  // kept from line to line, so that its strings keep their room
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
    } else if (StartsWith(message, kNamedResult)) {
        OnNamedResult(line);
    } else if (message == kResultCall) {
        // A result line of its own came first with the name and value; this is the same call.
        auto named = m_namedResult.find(line.tid);
        if (named == m_namedResult.end()) {
            OnResult(line);
        } else {
            m_namedResult.erase(named);
        }
    } else if (message == kCallSuccess || StartsWith(message, kCallFailure)) {
        OnDelivery(line, message == kCallSuccess);
    } else if (!OnStageLine(line) && !OnRuleLine(line)) {
        OnAppLine(line);
    }
}

void CReportLog::OnNewProcess(int pid) {
    m_pid = pid;
    m_open[kAppsTask] = m_open[kBuiltinTask] = kNone;
    m_lastCreateFailed = kNone;
    m_taskOfThread.clear();
    m_awaitingAnswer.clear();
    m_namedResult.clear();
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
    record.span.startUs = line.Millis() * 1000;
    m_resets.push_back(std::move(record));
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
    record.span.endUs = line.Millis() * 1000;
    // Waits still going on end with the reset.
    for (SSpan* span : {&record.binderWait, &record.updatesWait, &record.cleanUp}) {
        span->endUs = span->Started() && span->endUs < 0 ? record.span.endUs : span->endUs;
    }
    // A log from before installs had an answer line of their own: an install sent and not failed or
    // timed out was done, as the next one is sent only after it.
    bool answersLogged = false;
    for (const SAppTiming& app : record.apps) {
        answersLogged = answersLogged || app.span.endUs >= 0;
    }
    for (SAppTiming& app : record.apps) {
        if (record.Builtin() && !answersLogged && how == EResetEnd::Reported &&
            app.outcome == SAppTiming::Waiting) {
            app.outcome = SAppTiming::Done;
        }
    }
    record.durationMs = record.span.Us() < 0 ? -1 : record.span.Us() / 1000;
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

int CReportLog::OnResult(const CLogLine& line) {
    bool mainThread = false;
    int target = ResultTarget(line, mainThread);
    if (target == kNone) {
        return kNone;
    }
    SResetRecord& record = m_resets[static_cast<size_t>(target)];
    if (record.resultCount++ == 0) {
        // The reset process reports 1 when it ran; a task that could not be created reports 0, except
        // for the built-in resets, which report 1 either way.
        record.resultName = ResultName(record.kind);
        record.resultValue = mainThread && !record.Builtin() ? 0 : 1;
    }
    m_awaitingAnswer[line.tid] = target;
    if (record.cleanUp.Started() && record.cleanUp.endUs < 0) {
        record.cleanUp.endUs = line.Millis() * 1000;
    }
    if (record.updatesWait.Started() && record.updatesWait.endUs < 0) {
        record.updatesWait.endUs = line.Millis() * 1000;
    }
    if (record.how == EResetEnd::Open) {
        Close(target, line, EResetEnd::Reported);
    }
    if (mainThread) {
        m_lastCreateFailed = kNone;
    }
    return target;
}

// "process_result name[NAME] value[VALUE] cookie[COOKIE]": the call as it was made. Older logs lack it.
void CReportLog::OnNamedResult(const CLogLine& line) {
    const std::string& message = line.message;
    size_t value = message.rfind("] value[");
    size_t cookie = message.rfind("] cookie[");
    if (value == std::string::npos || cookie == std::string::npos || cookie < value) {
        return;
    }
    int target = OnResult(line);
    if (target == kNone) {
        return;
    }
    m_namedResult[line.tid] = target;
    SResetRecord& record = m_resets[static_cast<size_t>(target)];
    if (record.resultCount > 1) {
        return;  // the first call is the one shown
    }
    record.resultName = message.substr(strlen(kNamedResult), value - strlen(kNamedResult));
    record.resultValue = atoi(message.c_str() + value + strlen("] value["));
    record.resultLogged = true;
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

// "Reset ID" when an app's request is made; an answer line, or a warning when it fails or times out.
void CReportLog::OnAppLine(const CLogLine& line) {
    bool apps = EndsWith(line.source, "/Reset/src/Reset");
    bool builtin = EndsWith(line.source, "/Reset/src/BuiltInAppReset");
    SResetRecord* record = apps ? Open(kAppsTask) : builtin ? Open(kBuiltinTask) : nullptr;
    if (record == nullptr) {
        return;
    }
    const std::string& message = line.message;
    const std::string verb = apps ? "uninstall of " : "install of ";
    std::string id;
    if (StartsWith(message, "Reset ") && line.level == 'I') {
        record->requested.push_back(message.substr(6));
        SAppTiming app;
        app.id = record->requested.back();
        app.span.startUs = line.Millis() * 1000;
        record->apps.push_back(app);
        // The installs start when the wait for background updates is over.
        if (record->updatesWait.Started() && record->updatesWait.endUs < 0) {
            record->updatesWait.endUs = app.span.startUs;
        }
    } else if (line.level == 'I' && apps &&
               !(id = Around(message, "uninstall callback appid ", " ")).empty()) {
        OnAnswer(line, *record, id, SAppTiming::Done);
    } else if (line.level == 'I' && builtin && AppAfter(message, verb, "answered with state ", id)) {
        OnAnswer(line, *record, id, SAppTiming::Done);
    } else if (line.level != 'W') {
        return;
    } else if (AppAfter(message, verb, "failed", id)) {
        record->failed.push_back(id);
        OnAnswer(line, *record, id, SAppTiming::Failed);
    } else if (AppAfter(message, verb, "timed out after ", id)) {
        record->timedOut.push_back(id);
        OnAnswer(line, *record, id, SAppTiming::TimedOut);
    }
}

// The answer ends the app's oldest request still waiting; a failure after its answer line (the order
// the reset logs them in) only changes the outcome.
void CReportLog::OnAnswer(const CLogLine& line, SResetRecord& record, const std::string& id,
                          SAppTiming::EOutcome outcome) {
    for (SAppTiming& app : record.apps) {
        if (app.id != id) {
            continue;
        }
        if (app.outcome == SAppTiming::Waiting) {
            app.outcome = outcome;
            app.span.endUs = line.Millis() * 1000;
            return;
        }
        if (app.outcome == SAppTiming::Done && outcome != SAppTiming::Done) {
            app.outcome = outcome;
            return;
        }
    }
}

// The waits and the clean-up of a reset; true when the line was one of them.
bool CReportLog::OnStageLine(const CLogLine& line) {
    const std::string& message = line.message;
    const long long now = line.Millis() * 1000;
    SResetRecord* apps = Open(kAppsTask);
    SResetRecord* builtin = Open(kBuiltinTask);
    if (message == kBinderWait) {
        if (apps != nullptr) {
            apps->binderWait.startUs = now;
        }
    } else if (message == kBinderCreated) {
        if (apps != nullptr && apps->binderWait.Started() && apps->binderWait.endUs < 0) {
            apps->binderWait.endUs = now;
        }
    } else if (StartsWith(message, kCleanUpStart) && EndsWith(message, " steps starts")) {
        if (apps != nullptr) {
            apps->cleanUp.startUs = now;
        }
    } else if (StartsWith(message, kEmptied)) {
        if (apps != nullptr) {
            apps->emptied.push_back(message.substr(strlen(kEmptied)));
        }
    } else if (StartsWith(message, kUpdatesWait)) {
        if (builtin != nullptr) {
            builtin->updatesWait.startUs = now;
            gchar** ids = g_strsplit(message.c_str() + strlen(kUpdatesWait), ",", -1);
            for (gchar** id = ids; *id != nullptr; ++id) {
                builtin->waitedFor.emplace_back(*id);
            }
            g_strfreev(ids);
        }
    } else if (message == kRefused) {
        if (builtin != nullptr) {
            builtin->refused = true;
        }
    } else if (EndsWith(message, kStoppedAnswer)) {
        SResetRecord* stopped = LastStopped();
        if (stopped != nullptr) {
            stopped->stoppedAnswers.push_back(message.substr(0, message.size() - strlen(kStoppedAnswer)));
        }
    } else {
        return false;
    }
    return true;
}

// The lines of the rules: apps kept from an uninstall, the built-in install order and what it skips.
bool CReportLog::OnRuleLine(const CLogLine& line) {
    const std::string& message = line.message;
    std::string id;
    if (SResetRecord* apps = Open(kAppsTask)) {
        std::string body =
            EndsWith(message, kKeepTail) ? message.substr(0, message.size() - strlen(kKeepTail)) : "";
        for (const auto& keep : kKeepReasons) {
            size_t at = body.find(keep[0]);
            if (at != std::string::npos && at > 0) {
                apps->kept.emplace_back(body.substr(0, at), keep[1]);
                return true;
            }
        }
        if (StartsWith(message, kKeepFixed) && message.size() > strlen(kKeepFixed)) {
            apps->kept.emplace_back(message.substr(strlen(kKeepFixed)), "fixed id");
            return true;
        }
    }
    SResetRecord* builtin = Open(kBuiltinTask);
    if (builtin == nullptr) {
        return false;
    }
    if (!(id = Around(message, "add ", " to instant reset list")).empty()) {
        builtin->installOrder.push_back(id);
        return true;
    }
    for (const auto& skip : kSkipLines) {
        if (!(id = Around(message, skip[0], skip[1])).empty()) {
            builtin->skipped.emplace_back(WithoutPackage(id), skip[2]);
            return true;
        }
    }
    return false;
}

// The newest apps, service or Corvane reset of this process that a request or "end" stopped.
SResetRecord* CReportLog::LastStopped() {
    for (size_t i = m_resets.size(); i-- > 0;) {
        SResetRecord& record = m_resets[i];
        if (record.pid != m_pid) {
            break;
        }
        if (!record.Builtin() && (record.how == EResetEnd::Replaced || record.how == EResetEnd::Ended)) {
            return &record;
        }
    }
    return nullptr;
}

long long CReportLog::StartMillis(size_t index) const {
    return m_resets[index].span.startUs / 1000;
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
    // The resets are looked up by start, as a long log holds many thousands of them; of those that
    // started by then, the newest few are asked, newest first.
    if (m_historyOrder.size() != m_resets.size()) {
        m_historyOrder.clear();
        for (size_t i = 0; i < m_resets.size(); ++i) {
            m_historyOrder.push_back(i);
        }
        std::stable_sort(m_historyOrder.begin(), m_historyOrder.end(),
                         [this](size_t a, size_t b) { return StartMillis(a) < StartMillis(b); });
    }
    auto after =
        std::upper_bound(m_historyOrder.begin(), m_historyOrder.end(), millis,
                         [this](long long when, size_t i) { return when < StartMillis(i) / 1000 * 1000; });
    const int kCandidates = 8;
    int looked = 0;
    for (auto it = after; it != m_historyOrder.begin() && looked < kCandidates;) {
        SResetRecord& reset = m_resets[*--it];
        if (reset.Builtin()) {
            continue;
        }
        ++looked;
        long long end = reset.span.endUs < 0 ? -1 : reset.span.endUs / 1000;
        long long to = end < 0 ? -1 : end / 1000 * 1000 + 999;
        if (to < 0 || millis <= to) {
            reset.history.push_back(text.substr(messageStart));
            return;
        }
    }
}
