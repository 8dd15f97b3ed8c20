// CResetCore: the reset process. It reads each launch request, picks the reset it asks for and hands it
// to one of its two tasks: m_Reset (apps reset and Corvane reset) or m_BuiltInAppReset (built-in app
// reset). A new request of a task's kind stops the running task first; "end" stops both and leaves.
#pragma once

#include <app_control.h>

#include "BuiltInAppReset.h"
#include "ProcessCore.h"
#include "ProcessDbus.h"
#include "Reset.h"

class CResetCore : public CProcessCore {
public:
    static const unsigned int kWatchdogPeriodMs = 16000;
    // The base name of the process's history log (TAKHistoryLog.h), which tools read back.
    static constexpr const char* HISTORY_LOG_NAME = "tak_reset_history";

    CResetCore(int argc, char** argv);
    ~CResetCore() override;

    void OnCreate() override;
    void OnReset(app_control_h appControl) override;
    void OnTerminate() override;
    void CommunicatorBinderCreated() override;

private:
    void m_HandleAppReset(long userdata, bool isService, const _CLIENT_INFO_T& client);
    void m_HandleBuiltInReset(long userdata, bool isService, const _CLIENT_INFO_T& client);
    void m_HandleCorvaneReset();
    void m_HandleResetEnd();

    // Sends EVENT_EXIT to a task that exists and waits until its thread has ended.
    static void m_StopTask(CTAKTaskBase& task, const char* name);
    static void m_TraceMarker(const char* marker);

    CReset m_Reset;
    CBuiltInAppReset m_BuiltInAppReset;
};
