// What the report knows of one reset: filled by CReportLog, printed by CReportPrinter.
//
// Times are microseconds on the log's clock: since 00:00 of 1 January of the log's year, local time, as
// the platform log writes no year. -1 means the log does not say. A span from one time to another of
// the same reset is exact; a reset across New Year has none.
#pragma once

#include <string>
#include <utility>
#include <vector>

// How a reset left the log.
enum class EResetEnd {
    Reported,  // it called process_result
    Replaced,  // a new request for the same task stopped it first
    Ended,     // "end" stopped it first
    Failed,    // its task could not be created (the result says so)
    Open,      // the log stops (or the process restarted) before any of the above
};

// From one time to another on the log's clock; an end of -1 while it goes on.
struct SSpan {
    long long startUs = -1;
    long long endUs = -1;

    bool Started() const { return startUs >= 0; }
    long long Us() const { return startUs >= 0 && endUs >= startUs ? endUs - startUs : -1; }
};

// One app's request and its answer.
struct SAppTiming {
    enum EOutcome { Waiting, Done, Failed, TimedOut };
    std::string id;
    SSpan span;  // the request's line to the answer's (or the time-out's)
    EOutcome outcome = Waiting;
};

struct SResetRecord {
    std::string kind;      // the request's "reset" value: tak_app_reset, corvane_reset, ...
    std::string userdata;  // the caller's cookie as the request carried it ("0" when absent)
    int pid = 0;
    std::string start;  // "MM-DD HH:MM:SS.mmm" as the platform log writes it
    std::string end;    // empty while open
    long long durationMs = -1;
    SSpan span;  // start to end, for a picture of the process's life
    EResetEnd how = EResetEnd::Open;
    std::string resultName;  // empty when no result was reported
    int resultValue = 0;
    bool resultLogged = false;     // name and value come from the log, not from the kind
    bool resultDelivered = false;  // the bus call answered "method call success"
    int resultCount = 0;           // process_result calls made for this reset
    std::vector<std::string> requested;
    std::vector<std::string> failed;
    std::vector<std::string> timedOut;
    std::vector<SAppTiming> apps;      // in the order of their requests
    std::vector<std::string> history;  // the history log's lines written while it ran

    // Apps, service and Corvane resets.
    std::vector<std::pair<std::string, std::string>> kept;  // app id, the reason the log gives
    std::vector<std::string> stoppedAnswers;                // apps that answered after this reset was stopped
    std::vector<std::string> emptied;                       // directories the clean-up emptied or removed
    SSpan binderWait;
    SSpan cleanUp;  // its first line to the result

    // Built-in resets.
    bool refused = false;  // the condition check skipped the whole reset
    std::vector<std::string> installOrder;
    std::vector<std::pair<std::string, std::string>> skipped;  // app or package id, why
    std::vector<std::string> waitedFor;                        // packages updating in the background
    SSpan updatesWait;

    bool Builtin() const { return kind.rfind("biu_", 0) == 0; }
    // Requested apps that neither failed nor timed out: uninstalled, or installed for a built-in reset.
    std::vector<std::string> Done() const;
};
