// A manager client: its names on the bus and the calls whose progress it shows.
#include "ManagerClient.h"

#include <algorithm>

CManagerClient::CManagerClient(const std::string& obj, FILE* out, bool terminal)
    : m_strObj(obj), m_View(out, terminal) {}

bool CManagerClient::IsValidObjectName(const std::string& obj) {
    if (obj.empty() || g_ascii_isdigit(obj[0])) {
        return false;
    }
    return std::all_of(obj.begin(), obj.end(), [](char c) { return g_ascii_isalnum(c) || c == '_'; });
}

std::string CManagerClient::BusName() const {
    return "org.orvix.tv.vardell.managerclient." + m_strObj;
}

std::string CManagerClient::ObjectPath() const {
    return "/org/orvix/tv/vardell/managerclient/" + m_strObj;
}

std::string CManagerClient::InterfaceName() const {
    return "org.orvix.tv.vardell.managerclient.interface." + m_strObj;
}

std::string CManagerClient::Who() const {
    return "managerclient." + m_strObj;
}

CBusStandIn::Reply CManagerClient::Handle(const std::string& method, GVariant* parameters) {
    if (method == "tak_builtin_app_service_reset_result" && parameters != nullptr &&
        g_variant_is_of_type(parameters, G_VARIANT_TYPE("(iiii)"))) {
        gint32 threadId = 0, state = 0, result = 0, eventIndex = 0;
        g_variant_get(parameters, "(iiii)", &threadId, &state, &result, &eventIndex);
        m_OnBuiltInProgress(state, result);
    } else if (method == "tak_install_result" && parameters != nullptr &&
               g_variant_is_of_type(parameters, G_VARIANT_TYPE("(isiiiisis)"))) {
        const char* appKey = nullptr;
        gint32 progress = 0;
        g_variant_get(parameters, "(i&siiiisis)", nullptr, &appKey, nullptr, &progress, nullptr, nullptr,
                      nullptr, nullptr, nullptr);
        m_View.Install(appKey, progress);
    }
    return CBusStandIn::Reply();
}

void CManagerClient::m_OnBuiltInProgress(int state, int result) {
    switch (state) {
        case STATE_BIU_TOTAL:
            m_View.Start(result);
            break;
        case STATE_BIU_ONE_DONE:
            m_View.Advance();
            break;
        case STATE_BIU_FINISHED:
            m_View.Finish();
            break;
        default:
            break;
    }
}
