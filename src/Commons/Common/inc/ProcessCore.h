// CProcessCore: the base of a service process of the family. It runs the platform's service-application
// loop on the main thread and turns its callbacks into virtual calls on the derived class.
//
// Life: Exec() runs the loop. The first launch request runs the one-time initialisation (release-image
// check, SIGTERM logging, the watchdog timer, the common library, OnCreate, the binders on AOT boards,
// the update-marker monitor); every request then goes to OnReset unless it is a monitoring or recovery
// request, or the derived class has marked the process as exiting. The framework's terminate callback
// stops the monitor, the timer and the binders and calls OnTerminate.
#pragma once

#include <app_control.h>
#include <gio/gio.h>
#include <vconf.h>

#include <string>

#include "TAKTimer.h"

class CProcessCore {
public:
    CProcessCore(int argc, char** argv, const std::string& processName, unsigned int watchdogPeriodMs);
    virtual ~CProcessCore();
    CProcessCore(const CProcessCore&) = delete;
    CProcessCore& operator=(const CProcessCore&) = delete;

    virtual void OnCreate() {}
    virtual void OnReset(app_control_h appControl) = 0;
    virtual void OnTerminate() {}
    virtual void CommunicatorBinderCreated() {}

    // Runs the service-application loop until the process is asked to exit; the framework's result.
    int Exec();

    // Framework callbacks; `data` is the core.
    static bool s_AppCreate(void* data);
    static void s_AppControl(app_control_h appControl, void* data);
    static void s_AppTerminate(void* data);

    // Typed reads of one launch-request value. A missing key is logged, leaves `out` as it was and
    // gives false. Only the exact text "true" is true; numbers use the common string conversions.
    static bool m_GetControlData(app_control_h appControl, const char* key, std::string& out);
    static bool m_GetControlData(app_control_h appControl, const char* key, bool& out);
    static bool m_GetControlData(app_control_h appControl, const char* key, int& out);
    static bool m_GetControlData(app_control_h appControl, const char* key, long& out);

protected:
    // From now on every launch request is refused.
    void m_SetExiting() { m_bExiting = true; }
    bool m_IsExiting() const { return m_bExiting; }

    // Installs the app-data functions into the hook tables that the shared code calls through.
    void m_SetAppInfoHandle();

private:
    void m_Init();
    void m_HandleMonitorRequest(app_control_h appControl, const std::string& event);
    void m_HandleRecoveryRequest();
    void m_CreateBinders();
    void m_DestroyBinders();
    void m_CheckBoostFlag();
    void m_StopFileMonitor();

    static void m_SigTermInstall();
    static void m_SigTerm(int signal);
    static void m_SdNotify(void* data);
    static void m_BinderServiceRegistered(void* data);
    static void m_AOTSVCVconfCB(keynode_t* node, void* data);
    static void m_FileChangeCB(GFileMonitor* monitor, GFile* file, GFile* otherFile, GFileMonitorEvent event,
                               gpointer data);
    // Both boost entry points of a pair are called, or neither.
    static bool m_CallBoostPair(const char* first, const char* second);

    int m_nArgc;
    char** m_ppArgv;
    std::string m_strProcessName;
    unsigned int m_nWatchdogPeriodMs;
    bool m_bExiting = false;
    CTAKTimer m_SdNotifyTimer;
    bool m_bWatchdogRegistered = false;  // touched only by the timer thread once it runs

    static bool s_bCreated;
    static bool s_bBoosted;
    static bool g_bReleasedImage;
    static GFileMonitor* m_gFileMonitorHandle;
    static gulong m_MonitorHandlerId;
};
