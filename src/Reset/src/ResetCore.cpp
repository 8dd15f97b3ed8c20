#include "ResetCore.h"

#include <service_app.h>
#include <sys/prctl.h>
#include <ttrace.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "ResetDbus.h"
#include "TAKCommonApi.h"
#include "TAKCommonHandle.h"
#include "TAKDBConnection.h"
#include "TAKHistoryLog.h"
#include "TAKLog.h"

namespace {

// The kernel's trace hook on the TV; elsewhere the option is unknown and the call fails harmlessly.
const int kPrctlTraceMarker = 666;

void* Cookie(long userdata) {
    return reinterpret_cast<void*>(static_cast<intptr_t>(userdata));
}

}  // namespace

CResetCore::CResetCore(int argc, char** argv) : CProcessCore(argc, argv, "tak-reset", kWatchdogPeriodMs) {}

CResetCore::~CResetCore() = default;

void CResetCore::OnCreate() {
    TAK_LOGI("+++++++++++++Start Reset process.+++++++++++++");
    HistoryLogFileName(HISTORY_LOG_NAME);
    CTAKCommonHandle::CallVoid(TAK_API_QX_CURL_SSL_LOCK);
    m_TraceMarker("[BEGIN]CResetCore:OnCreate:Reset process start");
    m_SetAppInfoHandle();
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    TAK_LOGI("TAK Database pointer %ld", static_cast<long>(reinterpret_cast<intptr_t>(connection)));
    CTAKCommonHandle::CallVoid(TAK_API_CREATE_CONNECTOR);
    CTAKCommonHandle::CallVoid(TAK_API_CREATE_INSTALLER);
}

void CResetCore::m_TraceMarker(const char* marker) {
    prctl(kPrctlTraceMarker, marker, strlen(marker), 0, 0);
    trace_begin("%s", marker);
    trace_end();
}

void CResetCore::OnReset(app_control_h appControl) {
    std::string reset;
    long userdata = 0;
    _CLIENT_INFO_T client;
    m_GetControlData(appControl, "reset", reset);
    m_GetControlData(appControl, "userdata", userdata);
    m_GetControlData(appControl, "deprecated", client.deprecated);
    m_GetControlData(appControl, "method", client.method);
    m_GetControlData(appControl, "obj", client.obj);
    m_GetControlData(appControl, "thread_id", client.thread_id);
    m_GetControlData(appControl, "event_index", client.event_index);
    m_GetControlData(appControl, "caller_process_name", client.caller_process_name);
    m_GetControlData(appControl, "reset_reason", client.reset_reason);

    if (reset == "tak_app_reset") {
        m_HandleAppReset(userdata, false, client);
    } else if (reset == "tak_service_reset") {
        m_HandleAppReset(userdata, true, client);
    } else if (reset == "biu_app_reset") {
        m_HandleBuiltInReset(userdata, false, client);
    } else if (reset == "biu_service_reset") {
        m_HandleBuiltInReset(userdata, true, client);
    } else if (reset == "corvane_reset") {
        m_HandleCorvaneReset();
    } else if (reset == "end") {
        m_HandleResetEnd();
    }
}

void CResetCore::OnTerminate() {
    TAK_LOGI("**************Reset EXIT***********");
}

void CResetCore::CommunicatorBinderCreated() {
    m_Reset.SetCommunicatorBinderCreated();
}

void CResetCore::m_StopTask(CTAKTaskBase& task, const char* name) {
    if (!task.IsCreated()) {
        return;
    }
    TAK_LOGI("Send CTAKTaskBase::EVENT_EXIT to %s!", name);
    PTEvent event{};
    event.event = CTAKTaskBase::EVENT_EXIT;
    event.receiver = &task;
    task.Send(&event, false);
    task.Destroy();
}

void CResetCore::m_HandleAppReset(long userdata, bool isService, const _CLIENT_INFO_T& client) {
    TAK_LOGM("App Reset Start");
    m_StopTask(m_Reset, "m_Reset");
    if (!m_Reset.Create()) {
        TAK_LOGE("Create apps reset thread fail.");
        CProcessDbus::ProcessResult(isService ? "tak_service_reset_result" : "tak_app_reset_result", 0,
                                    Cookie(userdata), "");
        return;
    }
    m_Reset.AppsReset(Cookie(userdata), isService, client);
}

void CResetCore::m_HandleBuiltInReset(long userdata, bool isService, const _CLIENT_INFO_T& client) {
    TAK_LOGI("BuiltIn Reset Start");
    m_StopTask(m_BuiltInAppReset, "m_BuiltInAppReset");
    if (!m_BuiltInAppReset.Create()) {
        TAK_LOGE("Create builtin app reset thread fail.");
        if (isService) {
            CResetDbus::BuiltInProgressMethodCall(client, "", TAK_EVENT_STATE_BIU_RESET_TOTAL, 0);
            CResetDbus::BuiltInProgressMethodCall(client, "", TAK_EVENT_STATE_BIU_RESET_FINISHED, 0);
        } else {
            // A built-in app reset that cannot start still counts as done for its caller.
            CProcessDbus::ProcessResult("biu_app_reset_result", 1, Cookie(userdata), "");
        }
        return;
    }
    m_BuiltInAppReset.BuiltInAppReset(Cookie(userdata), isService, client);
}

void CResetCore::m_HandleCorvaneReset() {
    TAK_LOGI("Corvane Start");
    if (m_Reset.CheckCorvaneResetDoing()) {
        TAK_LOGN("corvane reset still doing, no need to perform it again");
        return;
    }
    m_StopTask(m_Reset, "m_Reset");
    if (!m_Reset.Create()) {
        TAK_LOGE("Create corvane reset thread fail.");
        CProcessDbus::ProcessResult("corvane_reset_result", 0, nullptr, "");
        return;
    }
    m_Reset.CorvaneReset();
}

void CResetCore::m_HandleResetEnd() {
    m_SetExiting();
    m_StopTask(m_Reset, "m_Reset");
    m_StopTask(m_BuiltInAppReset, "m_BuiltInAppReset");
    CTAKCommonHandle::CallVoid(TAK_API_DESTROY_INSTALLER);
    CTAKCommonHandle::CallVoid(TAK_API_DESTROY_CONNECTOR);
    CTAKCommonHandle::CallVoid(TAK_API_QX_CURL_SSL_UNLOCK);
    service_app_exit();
}
