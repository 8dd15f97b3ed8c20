#include "BuiltInAppReset.h"

#include "ICVConf.h"
#include "ResetDbus.h"
#include "TAKLog.h"

namespace {

const char kBiuUpdatingAppKey[] = "memory/tak/biu_updating_app";

}  // namespace

CBuiltInAppReset* CBuiltInAppReset::m_poInstance = nullptr;

CBuiltInAppReset::CBuiltInAppReset() {
    ICVConf::Get("db/home/homeversion_pkg_id", m_strHomeBasePkgId);
    m_poInstance = this;
}

CBuiltInAppReset::~CBuiltInAppReset() {
    if (m_poInstance == this) {
        m_poInstance = nullptr;
    }
}

void CBuiltInAppReset::BuiltInAppReset(void* user, bool service, _CLIENT_INFO_T client) {
    m_nInstallCount = 0;
    m_pUserData = user;
    m_InstantResetList.clear();
    m_WaitingList.clear();
    m_bServiceReset = service;
    m_tClientInfo = client;
    m_EventSendToMe(EVENT_CHECK_CONDITION, 0);
}

bool CBuiltInAppReset::t_Create() {
    return true;
}

bool CBuiltInAppReset::t_Destroy() {
    m_InstantResetList.clear();
    m_ResetDoneApps.clear();
    // A reset ended early still answers its requester once.
    if (!m_bCompleted) {
        m_ReportResult();
    }
    m_bCompleted = false;
    return true;
}

bool CBuiltInAppReset::t_OnEvent(PTEvent* ptEvent) {
    if (ptEvent == nullptr) {
        TAK_LOGE("ptEvent == NULL");
        return false;
    }
    bool handled = CTAKTaskBase::t_OnEvent(ptEvent);
    if (handled) {
        TAK_LOGD("CBuiltInAppReset task exit!");
        return handled;
    }
    TAK_LOGD("event type: %d!", static_cast<int>(ptEvent->event));
    switch (ptEvent->event) {
        case EVENT_CHECK_CONDITION:
            m_CheckCondition();
            break;
        case EVENT_GET_BUILTIN_APP_LIST:
            m_GetBuiltInAppList();
            break;
        case EVENT_CHECK_WAITING_LIST:
            m_CheckWaitingList();
            break;
        case EVENT_RESET_BUILTIN_APPS:
            m_ResetBuiltInApps();
            break;
        case EVENT_COMPLETED:
            m_Completed();
            break;
        default:
            TAK_LOGI("unknown event type %ld", static_cast<long>(ptEvent->event));
            break;
    }
    return true;
}

void CBuiltInAppReset::m_EventSendToMe(unsigned long event, long data) {
    PTEvent ev{};
    ev.event = event;
    ev.receiver = this;
    ev.data = data;
    Send(&ev, false);
}

void CBuiltInAppReset::m_VconfCB(std::string key, VCONF_VALUE value) {
    if (key != kBiuUpdatingAppKey) {
        TAK_LOGE("vconf name %s is not biu updating app", key.c_str());
        return;
    }
    TAK_LOGI("vconf name biu updating app change to %s", value.stringValue.c_str());
    if (m_poInstance == nullptr) {
        TAK_LOGE("m_poInstance is NULL");
        return;
    }
    m_poInstance->m_EventSendToMe(EVENT_CHECK_WAITING_LIST, 0);
}

// The reset work of the events below is not part of this build yet: each handler says so and leaves
// the task waiting; the requester is still answered when the task ends.
void CBuiltInAppReset::m_CheckCondition() {
    TAK_LOGI("m_CheckCondition");
    TAK_LOGE("built-in reset condition check is not available");
}

void CBuiltInAppReset::m_GetBuiltInAppList() {
    TAK_LOGE("built-in app list assembly is not available");
}

void CBuiltInAppReset::m_CheckWaitingList() {
    TAK_LOGE("built-in waiting list check is not available");
}

void CBuiltInAppReset::m_ResetBuiltInApps() {
    TAK_LOGE("built-in app install is not available");
}

void CBuiltInAppReset::m_Completed() {
    m_ReportResult();
    m_bCompleted = true;
}

void CBuiltInAppReset::m_ReportResult() {
    if (m_bServiceReset) {
        CResetDbus::BuiltInProgressMethodCall(m_tClientInfo, "", TAK_EVENT_STATE_BIU_RESET_FINISHED, 0);
    }
    CProcessDbus::ProcessResult(m_bServiceReset ? "biu_service_reset_result" : "biu_app_reset_result", 1,
                                m_pUserData, "");
}
