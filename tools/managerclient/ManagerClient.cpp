// A manager client's progress display.
#include "ManagerClient.h"

#include <algorithm>

namespace {

constexpr int kBarWidth = 30;

}  // namespace

CManagerClient::CManagerClient(const std::string& obj, FILE* out) : m_strObj(obj), m_pOut(out) {}

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
        gint32 state = 0, progress = 0;
        g_variant_get(parameters, "(i&siiiisis)", nullptr, &appKey, &state, &progress, nullptr, nullptr,
                      nullptr, nullptr, nullptr);
        m_OnInstallProgress(appKey, state, progress);
    }
    return CBusStandIn::Reply();
}

void CManagerClient::m_OnBuiltInProgress(int state, int result) {
    switch (state) {
        case STATE_BIU_TOTAL:
            m_nTotal = std::max(result, 0);
            m_nDone = 0;
            m_bFinished = false;
            break;
        case STATE_BIU_ONE_DONE:
            ++m_nDone;
            break;
        case STATE_BIU_FINISHED:
            m_bFinished = true;
            break;
        default:
            return;
    }
    m_Draw("built-in reset", m_nDone, m_nTotal, m_bFinished);
}

void CManagerClient::m_OnInstallProgress(const char* appKey, int state, int progress) {
    (void)state;
    m_Draw(appKey, std::clamp(progress, 0, 100), 100, progress >= 100);
}

void CManagerClient::m_Draw(const std::string& label, int done, int total, bool last) {
    if (m_pOut == nullptr) {
        return;
    }
    int filled = total > 0 ? kBarWidth * std::min(done, total) / total : (last ? kBarWidth : 0);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kBarWidth - filled), '-');
    fprintf(m_pOut, "\r%-24.24s [%s] %d/%d%s", label.c_str(), bar.c_str(), done, total, last ? "\n" : "");
    fflush(m_pOut);
}
