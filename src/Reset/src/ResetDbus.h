// Reports of the reset process beyond the shared ones of CProcessDbus.
#pragma once

#include <string>

#include "ProcessDbus.h"

class CResetDbus {
public:
    // "tak_builtin_app_service_reset_result" (thread_id, state, result, event_index) on the caller's
    // manager client; nothing is sent when the caller gave no method. The app id is only logged.
    static bool BuiltInProgressMethodCall(const _CLIENT_INFO_T& client, const std::string& appId, int state,
                                          int result);
    // "reset_config_table" on the inner server.
    static bool ResetConfigTable();
    // "reset_app_user_data" on the inner server.
    static bool ResetAppsUserData();
};
