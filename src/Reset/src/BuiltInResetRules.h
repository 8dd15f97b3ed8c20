// CBuiltInResetRules: the decisions of a built-in app reset around the list assembly of
// CBuiltInAppList: whether the reset may start, what it marks while it runs, which apps it reinstalls
// in which order, and the result it reports. The reset task and the plan command both take them from
// here. Only ReadCondition reads anything (two settings); nothing here writes.
#pragma once

#include <string>
#include <vector>

#include "BuiltInAppList.h"

class CBuiltInResetRules {
public:
    // Settings of the built-in reset.
    static const char* const SERVER_UPGRADE_KEY;    // bool: the upgrader may run
    static const char* const RESET_IN_PROCESS_KEY;  // int: a built-in reset is in process (1, 2) or not
    static const char* const HOME_BASE_PKG_KEY;     // string: the Home base package id
    static const char* const BTGID_KEY;             // string: cleared before the library is asked
    static const char* const UPDATING_APP_KEY;      // string: the JSON text of a background update

    // The two settings of the condition check, with the reset's defaults for keys that cannot be read:
    // the upgrader allowed, no reset in process.
    static void ReadCondition(bool& serverUpgrade, int& resetInProcess);
    // Whether the reset may start.
    static bool ConditionPasses(bool serverUpgrade, int resetInProcess);
    // What a reset that starts writes to RESET_IN_PROCESS_KEY: 1 for a service reset, 2 for an app reset.
    static int ResetInProcessValue(bool service);

    // The instant reset list: the library's list without the Home base and test packages and the apps
    // that need newer ones, in requirement order, keeping the apps that may be reset now, each logged
    // "add %s to instant reset list". Packages updated in the background right now are appended to
    // `waitingList`. `observer` hears every decision.
    static BUILTIN_APP_LIST InstantResetList(BUILTIN_APP_LIST apps, const std::string& homeBasePkgId,
                                             CBuiltInAppList::Query& query,
                                             std::vector<std::string>& waitingList,
                                             CBuiltInAppList::Observer* observer = nullptr);

    // "biu_service_reset_result" or "biu_app_reset_result".
    static const char* ResultName(bool service);
};
