// Watches of settings keys, served on the library's watcher thread.
#include "LibTakSettingsWatch.h"

#include <vconf.h>

#include <cstdlib>

#include "LibTak.h"
#include "orvix_host.h"

struct CLibTakSettingsWatch::SWatch {
    std::string key;
    std::string dir;
    std::string base;
    TAK_VCONF_CHANGE_CB callback = nullptr;
    GFileMonitor* monitor = nullptr;
};

namespace {

const size_t kMaxKeyLength = 256;

bool ValidComponent(const std::string& component) {
    if (component.empty() || component.front() == '.') {
        return false;
    }
    for (char c : component) {
        if (!g_ascii_isalnum(c) && c != '_' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

// Where the store keeps the key (the kit's settings store in this library's own copy keeps the rule to
// itself, so the library repeats it).
std::string KeyFile(const std::string& key) {
    const char* base = key.rfind("db/", 0) == 0 ? "var/lib/vconf/" : "run/vconf/";
    return orvix::host::UnderRoot(base + key);
}

// The key's value as it is now, typed as it is stored; false when it cannot be read.
bool ReadValue(const std::string& key, VCONF_VALUE& value) {
    if (vconf_get_int(key.c_str(), &value.intValue) == VCONF_OK) {
        value.type = VCONF_TYPE_INT;
        return true;
    }
    int flag = 0;
    if (vconf_get_bool(key.c_str(), &flag) == VCONF_OK) {
        value.type = VCONF_TYPE_BOOL;
        value.boolValue = flag != 0;
        return true;
    }
    if (vconf_get_dbl(key.c_str(), &value.doubleValue) == VCONF_OK) {
        value.type = VCONF_TYPE_DOUBLE;
        return true;
    }
    if (char* text = vconf_get_str(key.c_str())) {
        value.type = VCONF_TYPE_STRING;
        value.stringValue = text;
        free(text);
        return true;
    }
    return false;
}

Json::Value ValueToJson(const VCONF_VALUE& value) {
    switch (value.type) {
        case VCONF_TYPE_INT:
            return Json::Value(value.intValue);
        case VCONF_TYPE_BOOL:
            return Json::Value(value.boolValue);
        case VCONF_TYPE_DOUBLE:
            return Json::Value(value.doubleValue);
        default:
            return Json::Value(value.stringValue);
    }
}

}  // namespace

CLibTakSettingsWatch& CLibTakSettingsWatch::Get() {
    static CLibTakSettingsWatch watch;
    return watch;
}

CLibTakSettingsWatch::~CLibTakSettingsWatch() {
    {
        std::lock_guard<std::mutex> lock(m_tLock);
        if (!m_tThread.joinable()) {
            return;
        }
        m_bStopping = true;  // from here on nothing new reaches the thread
    }
    if (std::this_thread::get_id() == m_tThreadId) {
        // The process ends from inside a callback: the thread cannot join itself.
        m_RemoveAll();
        m_tThread.detach();
        return;
    }
    m_CallOnThread([this] {
        m_RemoveAll();
        g_main_loop_quit(m_pLoop);
        return true;
    });
    m_tThread.join();
    g_main_loop_unref(m_pLoop);
    g_main_context_unref(m_pContext);
}

bool CLibTakSettingsWatch::ValidKey(const std::string& key) {
    if (key.size() > kMaxKeyLength || (key.rfind("db/", 0) != 0 && key.rfind("memory/", 0) != 0)) {
        return false;
    }
    size_t begin = 0;
    for (;;) {
        size_t end = key.find('/', begin);
        if (!ValidComponent(key.substr(begin, end == std::string::npos ? end : end - begin))) {
            return false;
        }
        if (end == std::string::npos) {
            return true;
        }
        begin = end + 1;
    }
}

bool CLibTakSettingsWatch::Watch(const std::string& key, TAK_VCONF_CHANGE_CB callback) {
    if (callback == nullptr || !ValidKey(key)) {
        return false;
    }
    return m_OnWatcherThread([this, &key, callback] { return m_Add(key, callback); });
}

bool CLibTakSettingsWatch::Unwatch(const std::string& key) {
    {
        std::lock_guard<std::mutex> lock(m_tLock);
        if (!m_tThread.joinable()) {
            return false;  // nothing was ever watched
        }
    }
    return m_OnWatcherThread([this, &key] { return m_Remove(key); });
}

bool CLibTakSettingsWatch::m_StartLocked() {
    if (m_bStopping) {
        return false;
    }
    if (m_tThread.joinable()) {
        return true;
    }
    m_pContext = g_main_context_new();
    m_pLoop = g_main_loop_new(m_pContext, FALSE);
    m_tThread = std::thread([context = m_pContext, loop = m_pLoop] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(context);
    });
    m_tThreadId = m_tThread.get_id();
    return true;
}

bool CLibTakSettingsWatch::m_OnWatcherThread(const std::function<bool()>& job) {
    bool here = false;
    {
        std::lock_guard<std::mutex> lock(m_tLock);
        if (!m_StartLocked()) {
            return false;
        }
        here = std::this_thread::get_id() == m_tThreadId;
    }
    return here ? job() : m_CallOnThread(job);
}

// Only `this` travels through the main context; the call itself is handed over under m_tLock, so that
// the two threads share nothing that their own locks do not order.
bool CLibTakSettingsWatch::m_CallOnThread(const std::function<bool()>& job) {
    SCall call{&job};
    std::unique_lock<std::mutex> lock(m_tLock);
    m_Calls.push_back(&call);
    g_main_context_invoke(m_pContext, &CLibTakSettingsWatch::s_Serve, this);
    m_tServed.wait(lock, [&call] { return call.finished; });
    return call.result;
}

gboolean CLibTakSettingsWatch::s_Serve(gpointer self) {
    static_cast<CLibTakSettingsWatch*>(self)->m_Serve();
    return G_SOURCE_REMOVE;
}

void CLibTakSettingsWatch::m_Serve() {
    std::unique_lock<std::mutex> lock(m_tLock);
    while (!m_Calls.empty()) {
        SCall* call = m_Calls.front();
        m_Calls.pop_front();
        lock.unlock();
        bool result = (*call->job)();
        lock.lock();
        call->result = result;
        call->finished = true;
    }
    m_tServed.notify_all();
}

bool CLibTakSettingsWatch::m_Add(const std::string& key, TAK_VCONF_CHANGE_CB callback) {
    auto found = m_Watches.find(key);
    if (found != m_Watches.end()) {
        found->second->callback = callback;
        return true;
    }
    auto watch = std::make_unique<SWatch>();
    std::string path = KeyFile(key);
    watch->key = key;
    watch->dir = path.substr(0, path.rfind('/'));
    watch->base = path.substr(path.rfind('/') + 1);
    watch->callback = callback;
    if (!orvix::host::MakeDirs(watch->dir)) {
        libtak::LogError("cannot make %s to watch %s", watch->dir.c_str(), key.c_str());
        return false;
    }
    g_autoptr(GFile) dir = g_file_new_for_path(watch->dir.c_str());
    g_autoptr(GError) error = nullptr;
    watch->monitor = g_file_monitor_directory(dir, G_FILE_MONITOR_WATCH_MOVES, nullptr, &error);
    if (watch->monitor == nullptr) {
        libtak::LogError("cannot watch %s: %s", watch->dir.c_str(), error->message);
        return false;
    }
    g_signal_connect(watch->monitor, "changed", G_CALLBACK(&CLibTakSettingsWatch::s_Changed), watch.get());
    m_Watches[key] = std::move(watch);
    return true;
}

bool CLibTakSettingsWatch::m_Remove(const std::string& key) {
    auto found = m_Watches.find(key);
    if (found == m_Watches.end()) {
        return false;
    }
    GFileMonitor* monitor = found->second->monitor;
    g_signal_handlers_disconnect_by_data(monitor, found->second.get());
    g_file_monitor_cancel(monitor);
    g_object_unref(monitor);
    m_Watches.erase(found);
    return true;
}

void CLibTakSettingsWatch::m_RemoveAll() {
    while (!m_Watches.empty()) {
        m_Remove(m_Watches.begin()->first);
    }
}

// A set replaces the key's file by a rename within its directory; an editor may also write it in place.
// The store's temporary files (names starting with a dot) and other keys of the directory are not ours.
void CLibTakSettingsWatch::s_Changed(GFileMonitor*, GFile* file, GFile* otherFile, GFileMonitorEvent event,
                                     gpointer data) {
    GFile* changed = nullptr;
    if (event == G_FILE_MONITOR_EVENT_RENAMED) {
        changed = otherFile;
    } else if (event == G_FILE_MONITOR_EVENT_MOVED_IN || event == G_FILE_MONITOR_EVENT_CHANGES_DONE_HINT) {
        changed = file;
    }
    if (changed == nullptr) {
        return;
    }
    const auto* watch = static_cast<const SWatch*>(data);
    g_autofree char* name = g_file_get_basename(changed);
    if (name == nullptr || watch->base != name) {
        return;
    }
    // The callback may drop this very watch; nothing of it is used after the call.
    std::string key = watch->key;
    TAK_VCONF_CHANGE_CB callback = watch->callback;
    VCONF_VALUE value;
    if (!ReadValue(key, value)) {
        return;
    }
    Json::Value args(Json::arrayValue);
    args.append(key);
    args.append(ValueToJson(value));
    libtak::RecordCallback(TAK_API_REGISTER_VCONF_CHANGE_CB, args);
    callback(key, value);
}
