// CLibTakSettingsWatch: the library's watches of keys of the host settings store (RegisterVconfChangeCBAPI).
//
// A key is one file of the store (<root>/var/lib/vconf/<key> or <root>/run/vconf/<key>), replaced by a
// rename at every set, from whichever process. Each watched key has a file monitor on its directory. The
// monitors live on the library's own watcher thread, with a GMainContext of its own: the callbacks run
// there, never on the caller's thread and never on the default main context of the process that loaded
// the library (the reset process runs its own loop there).
//
// Life cycle: the watcher thread starts with the first watch. Watch and Unwatch are served on that
// thread, so when Unwatch returns no callback of that key runs or will run. Both may be called from a
// callback (they are then served at once). Destroying the object (unloading the library, the end of the
// process) drops every watch and joins the thread.
//
// Locks: m_tLock guards the start of the thread, the stop flag and the calls waiting for the thread; the
// watches themselves are touched by the watcher thread only (and by the destructor after it was joined).
#pragma once

#include <gio/gio.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "TAKCommonApi.h"

class CLibTakSettingsWatch {
public:
    static CLibTakSettingsWatch& Get();

    ~CLibTakSettingsWatch();

    // Watches `key` (a valid key of the store), replacing the key's earlier callback. False when the key
    // or its directory cannot be watched.
    bool Watch(const std::string& key, TAK_VCONF_CHANGE_CB callback);
    // False when the key was not watched.
    bool Unwatch(const std::string& key);

    // The settings store's rule for keys: "db/" or "memory/" and components of letters, digits, '_', '-'
    // and '.', none empty or starting with a dot.
    static bool ValidKey(const std::string& key);

private:
    struct SWatch;

    CLibTakSettingsWatch() = default;
    // A call waiting for the watcher thread; `finished` and `result` are guarded by m_tLock.
    struct SCall {
        const std::function<bool()>* job;
        bool finished = false;
        bool result = false;
    };

    // Runs `job` on the watcher thread (at once when called there) and returns its result.
    bool m_OnWatcherThread(const std::function<bool()>& job);
    bool m_CallOnThread(const std::function<bool()>& job);
    void m_Serve();
    static gboolean s_Serve(gpointer self);
    bool m_StartLocked();
    bool m_Add(const std::string& key, TAK_VCONF_CHANGE_CB callback);
    bool m_Remove(const std::string& key);
    void m_RemoveAll();

    static void s_Changed(GFileMonitor* monitor, GFile* file, GFile* otherFile, GFileMonitorEvent event,
                          gpointer watch);

    std::mutex m_tLock;
    std::condition_variable m_tServed;
    std::deque<SCall*> m_Calls;
    bool m_bStopping = false;
    std::thread m_tThread;
    std::thread::id m_tThreadId;  // written before the thread runs anything of ours
    GMainContext* m_pContext = nullptr;
    GMainLoop* m_pLoop = nullptr;
    std::map<std::string, std::unique_ptr<SWatch>> m_Watches;  // watcher thread only
};
