// Uninstall and clean-up entry points of the substitute library: UninstallAppAPI, SetPreloadStatusAPI,
// ClearAndroidDataAPI and DeleteAllInstallNotificationsAPI.
//
// An uninstall records its request (every extra data value), and later, from a thread of the library,
// removes the app (its package record and, through the stand-in daemon's "remove_app", its row) and calls
// the request's "callback" with state 122, or 123 when it is configured to fail. Callbacks come from the
// library's dispatcher thread, in the order they fall due (or from several, see "threads").
//
// Behaviour file member "uninstall" (every member optional):
//   "delay_ms": 20        time from the request to its terminal callback (default 20)
//   "bench": false        answer every uninstall at once, in random order, with no side effects and no
//                         records (for measuring the caller, not the library)
//   "threads": 1          dispatcher threads; with more than one, callbacks come from several threads at
//                         once and in no particular order (also the states of one app)
//   "apps": {"<app id>": {
//       "fail": true              state 123; nothing is removed
//       "delay_ms": 500           this app's own delay
//       "silent": true            never call back, remove nothing
//       "twice": true             the terminal callback comes a second time
//       "also_for": "<app id>"    then one more terminal callback, naming another app id
//       "states": [120, 121]      states reported before the terminal one
//       "during_walk": true       due at once, and UninstallAppAPI returns only once the dispatcher has begun
//                                 that callback, so it arrives while the caller is still sending requests
//       "call_ms": 800            UninstallAppAPI itself takes this long to return (a slow library makes
//                                 the caller's walk of requests long); the answer is due from the request
//   }}
#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LibTak.h"
#include "LibTakWorkers.h"
#include "PackageRecords.h"
#include "ProcessDbus.h"
#include "TAKCommonApi.h"
#include "orvix_host.h"

namespace {

using Clock = std::chrono::steady_clock;

const int kDefaultDelayMs = 20;
// Upper bound of the wait of a "during_walk" request for its callback to begin.
const int kDuringWalkWaitMs = 10000;
const int kIdleWaitMs = 60 * 60 * 1000;
const int kRemoveAppTimeoutMs = 10000;

struct AppBehaviour {
    bool fail = false;
    int delayMs = kDefaultDelayMs;
    bool silent = false;
    bool twice = false;
    std::string alsoFor;
    std::vector<int> states;
    bool duringWalk = false;
    int callMs = 0;
};

struct UninstallSettings {
    bool bench = false;
    int threads = 1;
    int delayMs = kDefaultDelayMs;
    std::map<std::string, AppBehaviour> apps;

    AppBehaviour For(const std::string& appId) const {
        auto found = apps.find(appId);
        if (found != apps.end()) {
            return found->second;
        }
        AppBehaviour plain;
        plain.delayMs = delayMs;
        return plain;
    }
};

AppBehaviour ParseApp(const Json::Value& item, int defaultDelayMs) {
    AppBehaviour app;
    app.delayMs = item["delay_ms"].isInt() ? item["delay_ms"].asInt() : defaultDelayMs;
    app.fail = item["fail"].isBool() && item["fail"].asBool();
    app.silent = item["silent"].isBool() && item["silent"].asBool();
    app.twice = item["twice"].isBool() && item["twice"].asBool();
    app.duringWalk = item["during_walk"].isBool() && item["during_walk"].asBool();
    app.callMs = item["call_ms"].isInt() ? std::max(0, item["call_ms"].asInt()) : 0;
    if (item["also_for"].isString()) {
        app.alsoFor = item["also_for"].asString();
    }
    for (const auto& state : item["states"]) {
        if (state.isInt()) {
            app.states.push_back(state.asInt());
        }
    }
    return app;
}

std::shared_ptr<const UninstallSettings> ParseSettings(const Json::Value& file) {
    auto settings = std::make_shared<UninstallSettings>();
    const Json::Value& uninstall = file["uninstall"];
    if (!uninstall.isObject()) {
        return settings;
    }
    settings->bench = uninstall["bench"].isBool() && uninstall["bench"].asBool();
    if (uninstall["threads"].isInt()) {
        settings->threads = std::max(1, std::min(16, uninstall["threads"].asInt()));
    }
    if (uninstall["delay_ms"].isInt()) {
        settings->delayMs = uninstall["delay_ms"].asInt();
    }
    const Json::Value& apps = uninstall["apps"];
    if (apps.isObject()) {
        for (const auto& id : apps.getMemberNames()) {
            if (apps[id].isObject()) {
                settings->apps[id] = ParseApp(apps[id], settings->delayMs);
            }
        }
    }
    return settings;
}

// Parsed once per version of the behaviour file: a reset of ten thousand apps makes ten thousand
// requests, and parsing the file for each would be the library's cost, not the caller's.
std::shared_ptr<const UninstallSettings> Settings() {
    return libtak::DerivedBehaviour<UninstallSettings>(ParseSettings);
}

// One callback to make.
struct Delivery {
    Clock::time_point due;
    std::string appId;
    int state = TAK_EVENT_STATE_UNINSTALL_SUCCESS;
    int progress = 0;
    int result = 0;
    TAK_PROGRESS_CB callback = nullptr;
    void* userData = nullptr;
    bool removesApp = false;        // the app goes before this callback is made
    bool bench = false;             // no side effects, no records
    std::shared_ptr<bool> started;  // set (workers' lock) when the dispatcher begins this callback
};

// Pending callbacks, guarded by the workers' lock. Never destroyed: the dispatcher may use it while the
// library's statics are torn down, until the workers are joined.
struct DeliveryQueue {
    std::map<std::pair<Clock::time_point, uint64_t>, Delivery> items;
    uint64_t nextSeq = 0;
    uint64_t generation = 0;  // changes at every enqueue, so that the dispatchers re-read the head
    int dispatchers = 0;
};

DeliveryQueue& Queue() {
    static auto* queue = new DeliveryQueue();
    return *queue;
}

// The package records are one file; the dispatchers (and the installs) take turns at it.
void RemovePackage(const std::string& appId) {
    std::lock_guard<std::mutex> lock(libtak::PackageRecordsLock());
    std::vector<orvix::host::PackageRecord> packages;
    std::string error;
    if (!orvix::host::LoadPackages(packages, error)) {
        fprintf(stderr, "libtak_common: %s\n", error.c_str());
        return;
    }
    auto holds = [&appId](const orvix::host::PackageRecord& package) {
        return package.mainApp == appId ||
               std::any_of(package.apps.begin(), package.apps.end(),
                           [&appId](const orvix::host::PackageApp& app) { return app.appId == appId; });
    };
    auto kept = std::remove_if(packages.begin(), packages.end(), holds);
    if (kept == packages.end()) {
        return;
    }
    packages.erase(kept, packages.end());
    if (!orvix::host::SavePackages(packages, error)) {
        fprintf(stderr, "libtak_common: %s\n", error.c_str());
    }
}

// The daemon deletes the row whose id is exactly the one it is given, and a D-Bus string must be UTF-8.
// An id that is not cannot be named to it: a converted id would be another app's (or nobody's), so the
// row is left where it is and says so, rather than risk deleting what the reset keeps.
void RemoveRow(const std::string& appId) {
    if (!g_utf8_validate(appId.data(), static_cast<gssize>(appId.size()), nullptr)) {
        g_autofree gchar* shown = g_utf8_make_valid(appId.data(), static_cast<gssize>(appId.size()));
        fprintf(stderr,
                "libtak_common: app id [%s] is not UTF-8, so the daemon cannot be asked to remove its row\n",
                shown);
        return;
    }
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        g_clear_error(&error);
        return;
    }
    GVariant* reply = g_dbus_connection_call_sync(
        bus, TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE, "remove_app",
        g_variant_new("(s)", appId.c_str()), G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE,
        kRemoveAppTimeoutMs, nullptr, &error);
    if (reply != nullptr) {
        g_variant_unref(reply);
    }
    g_clear_error(&error);
    g_object_unref(bus);
}

void Deliver(Delivery& d) {
    if (d.removesApp && !d.bench) {
        RemovePackage(d.appId);
        RemoveRow(d.appId);
    }
    if (d.started != nullptr) {
        CLibTakWorkers::Get().Signal([&d] { *d.started = true; });
    }
    if (!d.bench) {
        Json::Value args(Json::arrayValue);
        args.append(d.appId);
        args.append(d.state);
        args.append(d.progress);
        args.append(d.result);
        libtak::RecordCallback("UninstallAppAPI", args);
    }
    d.callback(d.appId, static_cast<TAK_EVENT_STATE_E>(d.state), d.progress, d.result, std::string(),
               d.userData);
}

// Takes the callbacks that are due (at most `limit`); tells when the next one falls due.
std::vector<Delivery> TakeDue(size_t limit, bool& more, Clock::time_point& next, uint64_t& generation) {
    std::vector<Delivery> due;
    CLibTakWorkers::Get().Signal([&] {
        DeliveryQueue& queue = Queue();
        Clock::time_point now = Clock::now();
        while (!queue.items.empty() && queue.items.begin()->first.first <= now && due.size() < limit) {
            due.push_back(std::move(queue.items.begin()->second));
            queue.items.erase(queue.items.begin());
        }
        more = !queue.items.empty();
        if (more) {
            next = queue.items.begin()->first.first;
        }
        generation = queue.generation;
    });
    return due;
}

// With several dispatchers each takes one callback at a time, so that they really run side by side.
void Dispatch(size_t limit) {
    auto& workers = CLibTakWorkers::Get();
    std::mt19937 shuffler(std::random_device{}());
    for (;;) {
        bool more = false;
        Clock::time_point next;
        uint64_t generation = 0;
        std::vector<Delivery> due = TakeDue(limit, more, next, generation);
        if (!due.empty()) {
            // Bench requests answer in random order, like many uninstalls finishing at once would.
            if (std::all_of(due.begin(), due.end(), [](const Delivery& d) { return d.bench; })) {
                std::shuffle(due.begin(), due.end(), shuffler);
            }
            for (Delivery& d : due) {
                if (workers.Stopping()) {
                    return;
                }
                Deliver(d);
            }
            continue;
        }
        int waitMs = kIdleWaitMs;
        if (more) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
            waitMs = static_cast<int>(std::max<long long>(1, left + 1));
        }
        auto newer = [generation] { return Queue().generation != generation; };
        if (workers.WaitUntil(waitMs, newer) == CLibTakWorkers::Wake::Stopping) {
            return;
        }
    }
}

void Enqueue(std::vector<Delivery> deliveries, int threads) {
    int start = 0;
    CLibTakWorkers::Get().Signal([&] {
        DeliveryQueue& queue = Queue();
        for (Delivery& d : deliveries) {
            Clock::time_point due = d.due;
            queue.items.emplace(std::make_pair(due, queue.nextSeq++), std::move(d));
        }
        ++queue.generation;
        start = std::max(0, threads - queue.dispatchers);
        queue.dispatchers += start;
    });
    size_t limit = threads > 1 ? 1 : SIZE_MAX;
    for (int i = 0; i < start; ++i) {
        CLibTakWorkers::Get().Start([limit] { Dispatch(limit); });
    }
}

std::map<std::string, std::string> Extras(app_control_h request) {
    std::map<std::string, std::string> extras;
    for (auto& extra : libtak::ReadExtras(request)) {
        extras[extra.first] = std::move(extra.second);
    }
    return extras;
}

// A decimal address as the caller wrote it (signed).
bool ParseAddress(const std::map<std::string, std::string>& extras, const char* key, intptr_t& address) {
    auto found = extras.find(key);
    if (found == extras.end() || found->second.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    long long value = std::strtoll(found->second.c_str(), &end, 10);
    if (errno != 0 || end == nullptr || *end != '\0') {
        return false;
    }
    address = static_cast<intptr_t>(value);
    return true;
}

// Holds the entry point's return back by `ms`, as a slow library would.
struct SlowReturn {
    int ms;
    ~SlowReturn() { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }
};

Delivery Make(const Delivery& base, int state, int progress, int result) {
    Delivery d = base;
    d.state = state;
    d.progress = progress;
    d.result = result;
    return d;
}

std::vector<Delivery> Plan(const Delivery& base, const AppBehaviour& app) {
    std::vector<Delivery> plan;
    for (int state : app.states) {
        plan.push_back(Make(base, state, 50, 0));
    }
    int terminal = app.fail ? TAK_EVENT_STATE_UNINSTALL_FAIL : TAK_EVENT_STATE_UNINSTALL_SUCCESS;
    int result = app.fail ? -1 : 0;
    Delivery last = Make(base, terminal, app.fail ? 0 : 100, result);
    last.removesApp = !app.fail;
    plan.push_back(last);
    if (app.twice) {
        plan.push_back(Make(base, terminal, app.fail ? 0 : 100, result));
    }
    if (!app.alsoFor.empty()) {
        Delivery other = Make(base, terminal, app.fail ? 0 : 100, result);
        other.appId = app.alsoFor;
        plan.push_back(other);
    }
    // Only the first callback of a "during_walk" request tells UninstallAppAPI to return.
    for (size_t i = 1; i < plan.size(); ++i) {
        plan[i].started = nullptr;
    }
    return plan;
}

}  // namespace

LIBTAK_EXPORT int UninstallAppAPI(app_control_h request) {
    std::shared_ptr<const UninstallSettings> settings = Settings();
    std::map<std::string, std::string> extras = Extras(request);
    if (!settings->bench) {
        Json::Value record(Json::objectValue);
        for (const auto& extra : extras) {
            record[extra.first] = extra.second;
        }
        Json::Value args(Json::arrayValue);
        args.append(record);
        libtak::Enter("UninstallAppAPI", args);
    }
    intptr_t callback = 0;
    intptr_t userData = 0;
    auto appKey = extras.find("appkey");
    if (appKey == extras.end() || !ParseAddress(extras, "callback", callback) || callback == 0 ||
        !ParseAddress(extras, "userdata", userData)) {
        return -1;
    }
    AppBehaviour app = settings->For(appKey->second);
    // Returns late however the app is answered; its answer stays due from the request.
    SlowReturn slowReturn{app.callMs};
    if (app.silent && !settings->bench) {
        return 0;
    }
    Delivery base;
    base.appId = appKey->second;
    base.callback = reinterpret_cast<TAK_PROGRESS_CB>(callback);
    base.userData = reinterpret_cast<void*>(userData);
    base.bench = settings->bench;
    bool duringWalk = app.duringWalk && !settings->bench;
    base.due = Clock::now() + std::chrono::milliseconds(settings->bench || duringWalk ? 0 : app.delayMs);
    if (duringWalk) {
        base.started = std::make_shared<bool>(false);
    }
    std::shared_ptr<bool> started = base.started;
    Enqueue(settings->bench ? std::vector<Delivery>{Make(base, TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0)}
                            : Plan(base, app),
            settings->bench ? 1 : settings->threads);
    if (started != nullptr) {
        CLibTakWorkers::Get().WaitUntil(kDuringWalkWaitMs, [&started] { return *started; });
    }
    return 0;
}

LIBTAK_EXPORT int SetPreloadStatusAPI(int status) {
    Json::Value args(Json::arrayValue);
    args.append(status);
    libtak::Enter("SetPreloadStatusAPI", args);
    return libtak::IntSetting("results", "SetPreloadStatusAPI", 0);
}

LIBTAK_EXPORT int ClearAndroidDataAPI(const char* packageName) {
    Json::Value args(Json::arrayValue);
    args.append(packageName != nullptr ? packageName : "");
    libtak::Enter("ClearAndroidDataAPI", args);
    return libtak::IntSetting("results", "ClearAndroidDataAPI", 0);
}

LIBTAK_EXPORT void DeleteAllInstallNotificationsAPI(void) {
    libtak::Enter("DeleteAllInstallNotificationsAPI");
}
