// CBuiltInAppReset: the task that reinstalls the TV's built-in apps at their base versions.
//
// Life of one reset: BuiltInAppReset (dispatcher thread) stores the request and posts 100; 100 checks
// that no other built-in reset runs; 101 assembles the instant reset list; 102 follows background
// updates until the wait is over; 103 installs the head app of the list, and its install callback posts
// 103 again for the next one; 104 reports the result. A task ended before 104 still reports once, from
// t_Destroy.
//
// Threads and the one lock: the task thread runs the events; the install callback (m_ResetCB) and the
// settings-watch callback (m_VconfCB) come from threads of the common library. InstanceLock() guards
// m_poInstance and, of the live instance, the instant reset list, the reset-done set, the install
// counter, the install-outstanding flag and the dispatcher's writes of the requester. It is never held across
// a call into the library or a bus call; callbacks post events while holding it (the order is in
// TAKLockOrder.h).
//
// Only the callback of the install that is outstanding for the head app ends that app; any other
// callback (late, repeated, for another app, from a reset that was stopped) is logged and ignored, and
// an event 103 that arrives while an install is outstanding starts nothing, so no app is installed
// twice at once.
//
// An optional deadline ("db/tak/reset_callback_timeout_sec"): a timer on the task's own loop, armed
// with each install, takes the head app off the list as a failed install when it fires first; taking
// the app off happens under InstanceLock(), so the timer and a late callback cannot both end it.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BuiltInAppList.h"
#include "ProcessDbus.h"
#include "TAKCommonApi.h"
#include "TAKTaskBase.h"

// One entry of the instant reset list.
struct BUILTIN_APP_INFO {
    int32_t installCount = 0;  // install bookkeeping
    int32_t retryCount = 0;
    OPENAPI_BUILTIN_APP_INFO appInfo;
    OPENAPI_APP_DLD_INFO dldInfo;  // filled once the download information is known
    std::string text;
    bool flags[6] = {false, false, false, false, false, false};
    int32_t value = 0;
};

class CBuiltInAppReset : public CTAKTaskBase {
public:
    enum : unsigned long {
        EVENT_CHECK_CONDITION = 100,
        EVENT_GET_BUILTIN_APP_LIST = 101,
        EVENT_CHECK_WAITING_LIST = 102,
        EVENT_RESET_BUILTIN_APPS = 103,
        EVENT_COMPLETED = 104,
    };

    CBuiltInAppReset();
    ~CBuiltInAppReset() override;
    CBuiltInAppReset(const CBuiltInAppReset&) = delete;
    CBuiltInAppReset& operator=(const CBuiltInAppReset&) = delete;

    // Entry of one built-in reset; returns at once, the work runs on the task's thread.
    void BuiltInAppReset(void* user, bool service, _CLIENT_INFO_T client);

    // Settings-watch callback for "memory/tak/biu_updating_app", called on the library's thread.
    static void m_VconfCB(std::string key, VCONF_VALUE value);
    // Install callback handed to the common library; `user` is the task. Called on the library's thread.
    static void m_ResetCB(std::string appId, TAK_EVENT_STATE_E state, int progress, int result,
                          std::string message, void* user);

protected:
    bool t_Create() override;
    bool t_Destroy() override;
    bool t_OnEvent(PTEvent* ptEvent) override;

private:
    void m_EventSendToMe(unsigned long event, long data);

    void m_CheckCondition();
    void m_GetBuiltInAppList();
    void m_GetDLDInfo();
    void m_CheckWaitingList();
    void m_ResetBuiltInApps();
    // Sends the install request of `app`; false when the request could not be made (then retried).
    bool m_SendInstall(TAK_INSTALL_API pfInstall, const BUILTIN_APP_INFO& app);
    // What a callback that ended the head app's install reports, taken under InstanceLock().
    struct HeadInstallEnd {
        std::string doneIds;  // the reset-done ids joined
        int installCount = 0;
        bool serviceReset = false;
        _CLIENT_INFO_T client;
    };
    // Ends the head app's install from a callback.
    bool m_EndHeadInstall(const std::string& appId, HeadInstallEnd& end);
    void m_ArmDeadline();
    void m_DisarmDeadline();
    static gboolean m_OnDeadline(gpointer self);
    void m_Completed();
    // Registers m_VconfCB for "memory/tak/biu_updating_app" if the library can.
    void m_WatchUpdatingApp();
    // Leaves the wait for background updates: unregisters the watch if one was registered.
    void m_StopWaiting();
    // Progress 502 for a service reset, then the result of the reset's kind.
    void m_ReportResult();

    static std::mutex& InstanceLock();
    static CBuiltInAppReset* m_poInstance;  // guarded by InstanceLock()

    // Guarded by InstanceLock(): touched by the task thread and by m_ResetCB.
    // Head: the app being reset now. A deque, as the head goes after every install.
    std::deque<BUILTIN_APP_INFO> m_InstantResetList;
    std::map<std::string, std::string> m_ResetDoneApps;
    int32_t m_nInstallCount = 0;
    bool m_bInstalling = false;  // the head app's install was sent and has not ended
    // Runs that have ended. The task object serves every run, so a callback that ended an install of a run
    // stopped meanwhile must not post into the next run (which would then complete twice).
    unsigned long m_nEndedRuns = 0;

    // The requester. Written by the dispatcher under InstanceLock(), since an install callback of the
    // stopped run may read it at that moment (it copies it under the lock); the task thread reads it freely,
    // as the dispatcher writes it only while no task thread runs.
    void* m_pUserData = nullptr;
    bool m_bServiceReset = false;
    _CLIENT_INFO_T m_tClientInfo;

    // Task thread only (and the dispatcher before the first event).
    std::vector<std::string> m_WaitingList;  // package ids updated in the background right now
    bool m_bWaiting = false;                 // waiting for the background updates to end
    bool m_bWatching = false;                // m_VconfCB is registered with the library
    bool m_bCompleted = false;
    std::string m_strHomeBasePkgId;
    CBuiltInAppList::LiveQuery m_tQuery;
    GSource* m_pDeadline = nullptr;  // task thread only
    int m_nDeadlineSec = 0;          // read once per reset
};
