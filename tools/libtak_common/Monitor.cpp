// Install monitoring. Each monitoring runs on a thread of the library: it reports the configured progress
// states ("monitor"."states", each [state, progress, result], "monitor"."interval_ms" apart) and then
// waits. CancelMonitorAppInstallStatusAPI ends every monitoring of that app key and caller pid; each one
// reports state 160 as its last callback. Monitorings still open when the library is unloaded stop
// without a callback (the program that loaded it is going away).
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "LibTak.h"
#include "LibTakWorkers.h"
#include "TAKCommonApi.h"

struct SMonitoring {
    std::string appKey;
    int callerPid = 0;
    TAK_PROGRESS_CB callback = nullptr;
    void* userData = nullptr;
    bool cancelled = false;  // guarded by the workers' lock
};

namespace {

struct Step {
    int state;
    int progress;
    int result;
};

std::vector<Step> ConfiguredSteps(int& intervalMs) {
    Json::Value monitor = libtak::Behaviour()["monitor"];
    intervalMs = monitor.isObject() && monitor["interval_ms"].isInt() ? monitor["interval_ms"].asInt() : 20;
    if (!monitor.isObject() || !monitor["states"].isArray()) {
        return {{100, 0, 0}, {100, 50, 0}, {100, 100, 0}, {110, 100, 0}};
    }
    std::vector<Step> steps;
    for (const auto& item : monitor["states"]) {
        if (item.isArray() && item.size() == 3 && item[0].isInt() && item[1].isInt() && item[2].isInt()) {
            steps.push_back({item[0].asInt(), item[1].asInt(), item[2].asInt()});
        }
    }
    return steps;
}

void Report(const SMonitoring& m, int state, int progress, int result) {
    Json::Value args(Json::arrayValue);
    args.append(m.appKey);
    args.append(state);
    args.append(progress);
    args.append(result);
    libtak::RecordCallback("MonitorAppInstallStatusAPI", args);
    m.callback(m.appKey, static_cast<TAK_EVENT_STATE_E>(state), progress, result, std::string(), m.userData);
}

void Run(const std::shared_ptr<SMonitoring>& m) {
    auto& workers = CLibTakWorkers::Get();
    auto cancelled = [&m] { return m->cancelled; };
    int intervalMs = 0;
    for (const Step& step : ConfiguredSteps(intervalMs)) {
        auto wake = workers.WaitUntil(intervalMs, cancelled);
        if (wake != CLibTakWorkers::Wake::TimedOut) {
            break;
        }
        Report(*m, step.state, step.progress, step.result);
    }
    // Wait for the cancel; a long wait is fine, unloading interrupts it.
    while (workers.WaitUntil(60 * 60 * 1000, cancelled) == CLibTakWorkers::Wake::TimedOut) {
    }
    if (workers.Stopping()) {
        return;
    }
    Report(*m, TAK_EVENT_STATE_MONITOR_CANCELLED, 0, 0);
}

}  // namespace

LIBTAK_EXPORT int MonitorAppInstallStatusAPI(const char* appKey, int callerPid, TAK_PROGRESS_CB callback,
                                             void* userData) {
    Json::Value args(Json::arrayValue);
    args.append(appKey != nullptr ? appKey : "");
    args.append(callerPid);
    libtak::Enter("MonitorAppInstallStatusAPI", args);
    int result = libtak::IntSetting("results", "MonitorAppInstallStatusAPI", 0);
    if (result != 0 || appKey == nullptr || callback == nullptr) {
        return result != 0 ? result : -1;
    }
    auto m = std::make_shared<SMonitoring>();
    m->appKey = appKey;
    m->callerPid = callerPid;
    m->callback = callback;
    m->userData = userData;
    auto& workers = CLibTakWorkers::Get();
    workers.Signal([&workers, &m] { workers.Monitorings().push_back(m); });
    workers.Start([m] {
        Run(m);
        auto& self = CLibTakWorkers::Get();
        self.Signal([&self, &m] { self.Monitorings().remove(m); });
    });
    return 0;
}

LIBTAK_EXPORT int CancelMonitorAppInstallStatusAPI(const char* appKey, int callerPid) {
    Json::Value args(Json::arrayValue);
    args.append(appKey != nullptr ? appKey : "");
    args.append(callerPid);
    libtak::Enter("CancelMonitorAppInstallStatusAPI", args);
    if (appKey == nullptr) {
        return -1;
    }
    bool found = false;
    auto& workers = CLibTakWorkers::Get();
    workers.Signal([&] {
        for (auto& m : workers.Monitorings()) {
            if (m->appKey == appKey && m->callerPid == callerPid && !m->cancelled) {
                m->cancelled = true;
                found = true;
            }
        }
    });
    return found ? 0 : -1;
}
