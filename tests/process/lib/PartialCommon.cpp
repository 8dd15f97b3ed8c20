// A common library that offers only some entry points: the loader tests see that what exists is found
// and what does not is not. Every call is counted; the tests read the counts through ProcessTestCallCount.
#include <map>
#include <mutex>
#include <string>

#include "TAKCommonApi.h"

namespace {

std::mutex g_countsLock;  // guards g_counts
std::map<std::string, int> g_counts;

}  // namespace

extern "C" {

int ProcessTestCallCount(const char* name) {
    std::lock_guard<std::mutex> lock(g_countsLock);
    auto it = g_counts.find(name);
    return it == g_counts.end() ? 0 : it->second;
}

void CreateConnector() {
    std::lock_guard<std::mutex> lock(g_countsLock);
    ++g_counts["CreateConnector"];
}

// Only the first entry point of the boost pair.
void StartBoostOwnProcessAPI() {}

}  // extern "C"
