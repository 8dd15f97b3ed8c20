#include "ResetDbus.h"

#include "TAKLog.h"

bool CResetDbus::BuiltInProgressMethodCall(const _CLIENT_INFO_T& client, const std::string& appId, int state,
                                           int result) {
    TAK_LOGI("app %s state %d result %d", appId.c_str(), state, result);
    if (client.method.empty()) {
        return false;
    }
    GVariant* parameters = g_variant_new("(iiii)", client.thread_id, state, result, client.event_index);
    return CProcessDbus::MethodCall(CProcessDbus::ClientBusName(client.obj).c_str(),
                                    CProcessDbus::ClientObjectPath(client.obj).c_str(),
                                    CProcessDbus::ClientInterfaceName(client.obj).c_str(),
                                    "tak_builtin_app_service_reset_result", parameters, nullptr);
}

bool CResetDbus::ResetConfigTable() {
    return CProcessDbus::MethodCall(TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE,
                                    "reset_config_table", nullptr, nullptr);
}

bool CResetDbus::ResetAppsUserData() {
    return CProcessDbus::MethodCall(TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE,
                                    "reset_app_user_data", nullptr, nullptr);
}
