#include "BuiltInResetRules.h"

#include <utility>

#include "ICVConf.h"
#include "TAKLog.h"

const char* const CBuiltInResetRules::SERVER_UPGRADE_KEY = "db/built-in-app-upgrader/server_upgrade";
const char* const CBuiltInResetRules::RESET_IN_PROCESS_KEY = "db/built-in-app-upgrader/reset";
const char* const CBuiltInResetRules::HOME_BASE_PKG_KEY = "db/home/homeversion_pkg_id";
const char* const CBuiltInResetRules::BTGID_KEY = "db/tak/btgid";
const char* const CBuiltInResetRules::UPDATING_APP_KEY = "memory/tak/biu_updating_app";

void CBuiltInResetRules::ReadCondition(bool& serverUpgrade, int& resetInProcess) {
    serverUpgrade = true;
    ICVConf::Get(SERVER_UPGRADE_KEY, serverUpgrade);
    resetInProcess = 0;
    ICVConf::Get(RESET_IN_PROCESS_KEY, resetInProcess);
}

bool CBuiltInResetRules::ConditionPasses(bool serverUpgrade, int resetInProcess) {
    return serverUpgrade && resetInProcess == 0;
}

int CBuiltInResetRules::ResetInProcessValue(bool service) {
    return service ? 1 : 2;
}

BUILTIN_APP_LIST CBuiltInResetRules::InstantResetList(BUILTIN_APP_LIST apps, const std::string& homeBasePkgId,
                                                      CBuiltInAppList::Query& query,
                                                      std::vector<std::string>& waitingList,
                                                      CBuiltInAppList::Observer* observer) {
    CBuiltInAppList assembly(query, observer);
    assembly.RemoveHomeBasePkg(homeBasePkgId, apps);
    assembly.RemoveHomeTestVersion(apps);
    CBuiltInAppList::AssembleBuiltInList(apps, observer);
    BUILTIN_APP_LIST resetList;
    for (OPENAPI_BUILTIN_APP_INFO& app : apps) {
        if (!assembly.CheckResetCondition(app, waitingList)) {
            continue;
        }
        TAK_LOGN("add %s to instant reset list", app.appId.c_str());
        resetList.push_back(std::move(app));
    }
    return resetList;
}

const char* CBuiltInResetRules::ResultName(bool service) {
    return service ? "biu_service_reset_result" : "biu_app_reset_result";
}
