// A common library that offers only some entry points: the no-argument ones needed to see that the
// process calls what exists and skips what does not, one boost entry point of each pair, and the
// install monitoring. Every call is counted; the tests read the counts through ProcessTestCallCount.
#include <map>
#include <mutex>
#include <string>

#include "TAKCommonApi.h"

namespace {

std::mutex g_countsLock;  // guards g_counts
std::map<std::string, int> g_counts;

void Count(const char* name) {
    std::lock_guard<std::mutex> lock(g_countsLock);
    ++g_counts[name];
}

}  // namespace

extern "C" {

int ProcessTestCallCount(const char* name) {
    std::lock_guard<std::mutex> lock(g_countsLock);
    auto it = g_counts.find(name);
    return it == g_counts.end() ? 0 : it->second;
}

void CreateConnector() {
    Count("CreateConnector");
}

// Only the first entry point of each boost pair: the process must call neither.
void StartBoostOwnProcessAPI() {
    Count("StartBoostOwnProcessAPI");
}

void StopBoostAppFWAPI() {
    Count("StopBoostAppFWAPI");
}

void NotifyRecoveryActionChangedAPI() {
    Count("NotifyRecoveryActionChangedAPI");
}

// Reports one progress step to a caller without a method, then ends the monitoring at once; the end
// state hands the client record back to the process, which frees it.
int MonitorAppInstallStatusAPI(const char* appKey, int /*callerPid*/, TAK_PROGRESS_CB callback,
                               void* userData) {
    Count("MonitorAppInstallStatusAPI");
    callback(appKey, static_cast<TAK_EVENT_STATE_E>(1), 10, 0, "", userData);
    callback(appKey, TAK_EVENT_STATE_MONITOR_CANCELLED, 0, 0, "", userData);
    return 0;
}

}  // extern "C"
