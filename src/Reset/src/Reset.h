// CReset: the task that runs the apps reset (app and service kind) and the home-screen (Corvane) reset.
//
// Life of an apps reset: AppsReset (dispatcher thread) resets the app records, builds the uninstall list
// and posts 100; event 100 sends one uninstall request per app to the common library; the library calls
// m_UninstallCB on its own threads as apps finish; when the list is empty the end event (101, or 202 in a
// Corvane reset on an Android-apps board) runs the clean-up and reports the result.
//
// Life of a Corvane reset: CorvaneReset (dispatcher thread) clears the home screen's keys and posts 200;
// 200 terminates every app and, on an Android-apps board, posts 201 (the same uninstall walk); 202 wipes
// the directories and reports "corvane_reset_result".
//
// On an Android-apps board the first event of either reset is held back until the service's binder
// exists (SetCommunicatorBinderCreated).
//
// Which answers count for the run that waits (the task serves every run, and the library's callback
// cannot say which run asked) is decided by CUninstallRequests.
//
// An optional deadline ("db/tak/reset_callback_timeout_sec", read at each uninstall walk): each request
// is given up N seconds after it was sent, as a failed uninstall would end it. A timer on the task's own
// loop is armed for the request due first; it runs on the task thread under the singleton lock, so it
// and a late callback cannot both end the same app. The singleton lock's place in the lock order, and
// what holding it across "UninstallAppAPI" assumes of the library, are in TAKLockOrder.h.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "AppInfo.h"
#include "AppsResetRules.h"
#include "ProcessDbus.h"
#include "TAKCommonApi.h"
#include "TAKSingleton.h"
#include "TAKTaskBase.h"
#include "UninstallRequests.h"

class CReset : public CTAKTaskBase, public CTAKSingleton<CReset> {
public:
    enum : unsigned long {
        EVENT_UNINSTALL_APPS = 100,
        EVENT_CLEAR_DB = 101,
        EVENT_TERMINATE_ALL_APPS = 200,
        EVENT_CORVANE_UNINSTALL_APPS = 201,
        EVENT_DISABLE_APPS = 202,
    };

    CReset();
    ~CReset() override;
    CReset(const CReset&) = delete;
    CReset& operator=(const CReset&) = delete;

    void AppsReset(void* pUserData, bool bServiceReset, _CLIENT_INFO_T tClientInfo);
    void CorvaneReset();
    bool CheckCorvaneResetDoing() const { return m_bCorvaneResetDoing; }
    void SetCommunicatorBinderCreated();

    // The completion callback handed to the common library; its address travels as decimal text.
    static void m_UninstallCB(std::string appId, TAK_EVENT_STATE_E state, int progress, int result,
                              std::string message, void* pvUserData);

protected:
    bool t_Create() override;
    bool t_Destroy() override;
    bool t_OnEvent(PTEvent* ptEvent) override;

private:
    void m_EventSendToMe(unsigned long type, long param);
    // Posts `event` now, or holds it until the binder exists (Android-apps board only).
    void m_PostAfterBinder(unsigned long event);
    // The event that ends the uninstalls: 202 in a Corvane reset on an Android-apps board, else 101.
    unsigned long m_EndEvent() const;

    // The kind of an apps reset, by the request's flag (a Corvane reset leaves the flag as it was).
    RESET_KIND_E m_AppsKind() const;
    void m_GetUninstallList();
    void m_RecoverDefaultAppResetStatus();
    void m_UninstallApps(unsigned long param);
    bool m_SendUninstall(TAK_INSTALL_API pfUninstall, app_control_h request, const _APPINFO_T& app,
                         int reason);
    void m_ClearDB();
    void m_TerminateAllApps();
    void m_DisableApps();
    void m_ResetAppItems();
    // Writes the settings of one stage of the reset; `factoryReset` as "db/tak/factory_reset" reads.
    void m_WriteSettings(RESET_KIND_E kind, RESET_STAGE_E stage, int factoryReset = 0);
    // Arms the timer for the request due first, if any, in place of an earlier one (singleton lock held).
    void m_ArmDeadline();
    static gboolean m_OnDeadline(gpointer self);
    // The answers, by what the requests ledger makes of them (singleton lock held).
    void m_OnAnswer(const std::string& appId, bool failed);

    CUninstallRequests m_AppsList;  // guarded by CTAKSingleton<CReset>::m_tSingletonLock
    std::map<std::string, std::string> m_DefaultApps;
    std::map<std::string, std::string> m_GeneralApps;
    bool m_bServiceReset = false;
    // Read by the uninstall callback on the library's threads, so it is atomic.
    std::atomic<bool> m_bCorvaneResetDoing{false};
    void* m_pUserData = nullptr;
    bool m_bResultSent = false;
    bool m_bBinderCreated = false;      // guarded by m_tBinderLock
    unsigned long m_nPendingEvent = 0;  // guarded by m_tBinderLock
    const bool m_bAOTBoard;
    _CLIENT_INFO_T m_tClientInfo;
    std::mutex m_tBinderLock;
    // Task thread only.
    GSource* m_pDeadline = nullptr;
    int m_nDeadlineSec = 0;
};
