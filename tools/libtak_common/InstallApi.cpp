// InstallAppAPI: reinstalls one built-in app.
//
// The request's records live only until the call returns, so everything is read during the call and
// recorded: the extra data as [key, value] pairs in the order they were added, the download-info record
// that "app_dld_info" points at (BuiltInJson.h) and the seven strings of the statistics record that
// "biu_kpi_info" points at (null for an address that is missing or 0). Then the answer configured in
// "builtin"."install" (BuiltInBehaviour.h) is given from the library's schedule thread, never from the
// caller's: an install that ends in 103, 110 or 111 first sets the version of the app's package record to
// the list entry's "baseVersion" (when it has one), like a real reinstall at the base version would.
//
// A request without "appkey" or without a usable "callback" address is recorded and refused (-1);
// nothing calls back. A non-zero "results"."InstallAppAPI" is returned as it is, with no callback.
#include <app_control.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "BuiltInBehaviour.h"
#include "BuiltInJson.h"
#include "LibTak.h"
#include "LibTakSchedule.h"
#include "PackageRecords.h"
#include "TAKCommonApi.h"

namespace {

const char kEntryPoint[] = TAK_API_INSTALL_APP;

using Extras = std::vector<std::pair<std::string, std::string>>;

const std::string* Find(const Extras& extras, const char* key) {
    auto found =
        std::find_if(extras.begin(), extras.end(), [key](const auto& extra) { return extra.first == key; });
    return found != extras.end() ? &found->second : nullptr;
}

// An address as decimal text; 0 when the key is missing or the text is not a whole number.
uintptr_t Address(const Extras& extras, const char* key) {
    const std::string* text = Find(extras, key);
    if (text == nullptr || text->empty() || (*text)[0] == '-' || (*text)[0] == '+' || (*text)[0] == ' ') {
        return 0;
    }
    errno = 0;
    char* end = nullptr;
    unsigned long long value = std::strtoull(text->c_str(), &end, 10);
    if (errno != 0 || *end != '\0') {
        libtak::LogError("%s: %s is not an address: %s", kEntryPoint, key, text->c_str());
        return 0;
    }
    return static_cast<uintptr_t>(value);
}

Json::Value ExtrasToJson(const Extras& extras) {
    Json::Value pairs(Json::arrayValue);
    for (const auto& [key, value] : extras) {
        Json::Value pair(Json::arrayValue);
        pair.append(key);
        pair.append(value);
        pairs.append(pair);
    }
    return pairs;
}

Json::Value KpiToJson(const BIU_INSTALL_KPI_INFO* kpi) {
    if (kpi == nullptr) {
        return Json::Value();
    }
    Json::Value fields(Json::arrayValue);
    for (const auto& field : kpi->fields) {
        fields.append(field);
    }
    return fields;
}

// The package the install changes: the list entry's own package, else the one that holds the app.
bool SetBaseVersion(const std::string& appId, const std::string& pkgId, const std::string& version) {
    std::lock_guard<std::mutex> lock(libtak::PackageRecordsLock());
    std::vector<orvix::host::PackageRecord> packages;
    std::string error;
    if (!orvix::host::LoadPackages(packages, error)) {
        libtak::LogError("%s: %s", kEntryPoint, error.c_str());
        return false;
    }
    auto holds = [&](const orvix::host::PackageRecord& package) {
        if (!pkgId.empty()) {
            return package.pkgId == pkgId;
        }
        return package.mainApp == appId ||
               std::any_of(package.apps.begin(), package.apps.end(),
                           [&appId](const orvix::host::PackageApp& app) { return app.appId == appId; });
    };
    auto package = std::find_if(packages.begin(), packages.end(), holds);
    if (package == packages.end()) {
        libtak::LogError("%s: no package record of %s to set to %s", kEntryPoint, appId.c_str(),
                         version.c_str());
        return false;
    }
    package->version = version;
    if (!orvix::host::SavePackages(packages, error)) {
        libtak::LogError("%s: %s", kEntryPoint, error.c_str());
        return false;
    }
    return true;
}

bool EndsInstall(int state) {
    return state == 103 || state == 110 || state == 111;
}

// One callback to make.
struct Delivery {
    std::string appId;
    int state = 110;
    int progress = 100;
    int result = 0;
    bool setsVersion = false;  // the app's own terminal callback: the package gets its base version first
};

struct Request {
    std::string appId;
    TAK_PROGRESS_CB callback = nullptr;
    void* userData = nullptr;
    bool hasBaseVersion = false;
    std::string pkgId;
    std::string baseVersion;
};

void Deliver(const Request& request, const Delivery& delivery) {
    if (delivery.setsVersion && request.hasBaseVersion && EndsInstall(delivery.state)) {
        SetBaseVersion(request.appId, request.pkgId, request.baseVersion);
    }
    Json::Value args(Json::arrayValue);
    args.append(delivery.appId);
    args.append(delivery.state);
    args.append(delivery.progress);
    args.append(delivery.result);
    libtak::RecordCallback(kEntryPoint, args);
    request.callback(delivery.appId, static_cast<TAK_EVENT_STATE_E>(delivery.state), delivery.progress,
                     delivery.result, std::string(), request.userData);
}

std::vector<Delivery> Plan(const std::string& appId, const libtak::InstallAnswer& answer) {
    std::vector<Delivery> plan;
    for (const auto& step : answer.states) {
        plan.push_back(Delivery{appId, step.state, step.progress, step.result, false});
    }
    plan.push_back(Delivery{appId, answer.terminal, 100, 0, true});
    if (answer.twice) {
        plan.push_back(Delivery{appId, answer.terminal, 100, 0, false});
    }
    if (!answer.alsoFor.empty()) {
        plan.push_back(Delivery{answer.alsoFor, answer.terminal, 100, 0, false});
    }
    return plan;
}

}  // namespace

LIBTAK_EXPORT int InstallAppAPI(app_control_h request) {
    std::shared_ptr<const libtak::BuiltInBehaviour> behaviour = libtak::CurrentBuiltInBehaviour();
    Extras extras = request != nullptr ? libtak::ReadExtras(request) : Extras();
    auto* dld = reinterpret_cast<const OPENAPI_APP_DLD_INFO*>(Address(extras, "app_dld_info"));
    auto* kpi = reinterpret_cast<const BIU_INSTALL_KPI_INFO*>(Address(extras, "biu_kpi_info"));
    Json::Value args(Json::arrayValue);
    args.append(ExtrasToJson(extras));
    args.append(dld != nullptr ? libtak::DLDInfoToJson(*dld) : Json::Value());
    args.append(KpiToJson(kpi));
    libtak::Enter(kEntryPoint, args);

    int configured = libtak::IntSetting("results", kEntryPoint, 0);
    if (configured != 0) {
        return configured;
    }
    const std::string* appKey = Find(extras, "appkey");
    uintptr_t callback = Address(extras, "callback");
    if (appKey == nullptr || callback == 0) {
        libtak::LogError("%s: refused, %s", kEntryPoint,
                         appKey == nullptr ? "no appkey" : "no callback address");
        return -1;
    }
    libtak::InstallAnswer answer = behaviour->InstallFor(*appKey);
    if (answer.silent) {
        return 0;
    }
    auto shared = std::make_shared<Request>();
    shared->appId = *appKey;
    shared->callback = reinterpret_cast<TAK_PROGRESS_CB>(callback);
    shared->userData = reinterpret_cast<void*>(Address(extras, "userdata"));
    if (const libtak::BuiltInListEntry* entry = behaviour->Entry(*appKey)) {
        shared->hasBaseVersion = entry->hasBaseVersion;
        shared->pkgId = entry->app.pkgId;
        shared->baseVersion = entry->baseVersion;
    }
    auto due = CLibTakSchedule::Clock::now() + std::chrono::milliseconds(std::max(0, answer.delayMs));
    for (const Delivery& delivery : Plan(*appKey, answer)) {
        CLibTakSchedule::Get().At(due, [shared, delivery] { Deliver(*shared, delivery); });
    }
    return 0;
}
