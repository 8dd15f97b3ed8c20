// What the report knows of one reset: filled by CReportLog, printed by CReportPrinter.
#pragma once

#include <string>
#include <vector>

// How a reset left the log.
enum class EResetEnd {
    Reported,  // it called process_result
    Replaced,  // a new request for the same task stopped it first
    Ended,     // "end" stopped it first
    Failed,    // its task could not be created (the result says so)
    Open,      // the log stops (or the process restarted) before any of the above
};

struct SResetRecord {
    std::string kind;      // the request's "reset" value: tak_app_reset, corvane_reset, ...
    std::string userdata;  // the caller's cookie as the request carried it ("0" when absent)
    int pid = 0;
    std::string start;  // "MM-DD HH:MM:SS.mmm" as the platform log writes it
    std::string end;    // empty while open
    long long durationMs = -1;
    EResetEnd how = EResetEnd::Open;
    std::string resultName;  // empty when no result was reported
    int resultValue = 0;
    bool resultDelivered = false;  // the bus call answered "method call success"
    int resultCount = 0;           // process_result calls made for this reset
    std::vector<std::string> requested;
    std::vector<std::string> failed;
    std::vector<std::string> timedOut;
    std::vector<std::string> history;  // the history log's lines written while it ran

    bool Builtin() const { return kind.rfind("biu_", 0) == 0; }
    // Requested apps that neither failed nor timed out: uninstalled, or installed for a built-in reset.
    std::vector<std::string> Done() const;
};
