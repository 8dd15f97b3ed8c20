// The built-in reset's queries: GetBuiltInAppListAPI (which built-in apps there are, in the library's
// order) and GetAppsDLDInfoAPI (where each one is downloaded from). Both answer from "builtin" in the
// behaviour file (BuiltInBehaviour.h); without a "list" the built-in package records are the list.
#include <string>
#include <vector>

#include "BuiltInBehaviour.h"
#include "BuiltInJson.h"
#include "LibTak.h"
#include "PackageRecords.h"
#include "TAKCommonApi.h"

namespace {

// Every built-in package record in record order, as the library lists an app it knows nothing more of.
bool ListPackageRecords(std::vector<OPENAPI_BUILTIN_APP_INFO>& list) {
    std::vector<orvix::host::PackageRecord> packages;
    std::string error;
    if (!orvix::host::LoadPackages(packages, error)) {
        libtak::LogError("%s: %s", TAK_API_GET_BUILTIN_APP_LIST, error.c_str());
        return false;
    }
    for (const auto& package : packages) {
        if (!package.builtIn) {
            continue;
        }
        OPENAPI_BUILTIN_APP_INFO app;
        app.appId = package.mainApp;
        app.orvixId = package.mainApp;
        app.pkgId = package.pkgId;
        list.push_back(app);
    }
    return true;
}

bool MakeList(const libtak::BuiltInBehaviour& behaviour, std::vector<OPENAPI_BUILTIN_APP_INFO>& list) {
    if (!behaviour.listGiven) {
        return ListPackageRecords(list);
    }
    if (!behaviour.listValid) {
        return false;
    }
    for (const auto& entry : behaviour.list) {
        list.push_back(entry.app);
    }
    return true;
}

}  // namespace

LIBTAK_EXPORT bool GetBuiltInAppListAPI(std::vector<OPENAPI_BUILTIN_APP_INFO>& list,
                                        std::string callerProcessName) {
    std::vector<OPENAPI_BUILTIN_APP_INFO> answer;
    bool made = MakeList(*libtak::CurrentBuiltInBehaviour(), answer);
    Json::Value args(Json::arrayValue);
    args.append(callerProcessName);
    Json::Value reply(Json::arrayValue);
    for (const auto& app : answer) {
        reply.append(app.appId);
    }
    Json::Value extra(Json::objectValue);
    extra["reply"] = made ? reply : Json::Value(false);
    libtak::Enter(TAK_API_GET_BUILTIN_APP_LIST, args, extra);
    if (!made) {
        return false;
    }
    list = std::move(answer);
    return true;
}

LIBTAK_EXPORT bool GetAppsDLDInfoAPI(std::map<std::string, APP_SERVER_REQUEST_INFO>& requests,
                                     std::map<std::string, OPENAPI_APP_DLD_INFO>& result) {
    std::shared_ptr<const libtak::BuiltInBehaviour> behaviour = libtak::CurrentBuiltInBehaviour();
    Json::Value ids(Json::arrayValue);
    Json::Value answered(Json::objectValue);
    for (const auto& request : requests) {
        ids.append(request.first);
        auto found = behaviour->dld.find(request.first);
        if (found != behaviour->dld.end()) {
            result[request.first] = found->second;
            answered[request.first] = libtak::DLDInfoToJson(found->second);
        }
    }
    Json::Value args(Json::arrayValue);
    args.append(ids);
    args.append(answered);
    libtak::Enter(TAK_API_GET_APPS_DLD_INFO, args);
    return true;
}
