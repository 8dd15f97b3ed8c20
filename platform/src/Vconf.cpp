// Host settings store. Every key is one file below the host root: persistent "db/" keys under
// <root>/var/lib/vconf/, volatile "memory/" keys under <root>/run/vconf/, the key's own path below that.
//
// A key file holds "<type> <length>\n" and then exactly <length> bytes of value text. The length makes a
// truncated or foreign file detectable: it reads as a failed get, never as a shorter value. Every set
// writes a temporary file beside the key and renames it over the key, so a reader in any process sees
// the old value or the new one, never a mix.
//
// Change notification: one file monitor per watched key directory, run on a private watcher thread;
// each change is handed to the default main context of this process, where the callback runs with the
// value read at that moment. Asynchronous sets are written by one worker thread in submission order.
// Both threads are joined when the process exits.
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"
#include "vconf.h"

struct _keynode_t {
    std::string name;
    int type = VCONF_TYPE_NONE;
    int intValue = 0;  // int and bool keys
    double dblValue = 0;
    std::string strValue;
};

namespace {

const char kLogTag[] = "VCONF";
const size_t kMaxKeyLength = 256;
const size_t kMaxValueBytes = 4 * 1024 * 1024;

struct TypeName {
    int type;
    const char* name;
};
const TypeName kTypeNames[] = {
    {VCONF_TYPE_INT, "int"},
    {VCONF_TYPE_BOOL, "bool"},
    {VCONF_TYPE_DOUBLE, "double"},
    {VCONF_TYPE_STRING, "string"},
};

const char* NameOfType(int type) {
    for (const auto& entry : kTypeNames) {
        if (entry.type == type) {
            return entry.name;
        }
    }
    return nullptr;
}

int TypeOfName(const std::string& name) {
    for (const auto& entry : kTypeNames) {
        if (name == entry.name) {
            return entry.type;
        }
    }
    return VCONF_TYPE_NONE;
}

// ---- keys and files ----------------------------------------------------------------------------------

bool ValidComponent(const std::string& component) {
    // A leading dot is reserved for the temporary files written beside the keys.
    if (component.empty() || component.front() == '.') {
        return false;
    }
    for (char c : component) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

bool ValidKey(const char* key) {
    if (key == nullptr || strlen(key) > kMaxKeyLength) {
        return false;
    }
    std::string text(key);
    if (text.rfind("db/", 0) != 0 && text.rfind("memory/", 0) != 0) {
        return false;
    }
    size_t begin = 0;
    while (true) {
        size_t end = text.find('/', begin);
        if (!ValidComponent(text.substr(begin, end == std::string::npos ? end : end - begin))) {
            return false;
        }
        if (end == std::string::npos) {
            return true;
        }
        begin = end + 1;
    }
}

// The file of a valid key.
std::string KeyFile(const std::string& key) {
    const char* base = key.rfind("db/", 0) == 0 ? "var/lib/vconf/" : "run/vconf/";
    return orvix::host::UnderRoot(base + key);
}

std::string DirOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}
std::string BaseOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The value text of a node, as stored in the file.
std::string ValueText(const _keynode_t& node) {
    switch (node.type) {
        case VCONF_TYPE_INT:
            return std::to_string(node.intValue);
        case VCONF_TYPE_BOOL:
            return node.intValue != 0 ? "1" : "0";
        case VCONF_TYPE_DOUBLE:
            return orvix::host::ShortestDoubleText(node.dblValue);
        default:
            return node.strValue;
    }
}

bool ParseInt(const std::string& text, int& value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long parsed = strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < INT_MIN || parsed > INT_MAX) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

bool ParseDouble(const std::string& text, double& value) {
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    double parsed = strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(parsed)) {
        return false;
    }
    value = parsed;
    return true;
}

bool ParseValue(const std::string& valueText, _keynode_t& node) {
    switch (node.type) {
        case VCONF_TYPE_INT:
            return ParseInt(valueText, node.intValue);
        case VCONF_TYPE_BOOL:
            if (valueText != "0" && valueText != "1") {
                return false;
            }
            node.intValue = valueText == "1";
            return true;
        case VCONF_TYPE_DOUBLE:
            return ParseDouble(valueText, node.dblValue);
        case VCONF_TYPE_STRING:
            node.strValue = valueText;
            return true;
        default:
            return false;
    }
}

// A key file that is a FIFO or a device is refused with one line, without waiting in open(). A missing
// key, or a directory (the parent of other keys), is simply not set.
bool ReadAll(const std::string& path, std::string& content) {
    int fd = orvix::host::OpenRegular(path, O_RDONLY | O_NOFOLLOW);
    if (fd < 0) {
        if (errno == ENXIO) {
            dlog_print(DLOG_ERROR, kLogTag, "key file %s is not a regular file, not read", path.c_str());
        }
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || static_cast<size_t>(st.st_size) > kMaxValueBytes + 64) {
        close(fd);
        return false;
    }
    content.resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < content.size()) {
        ssize_t n = read(fd, &content[done], content.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
    close(fd);
    content.resize(done);
    return true;
}

// Parses "<type> <length>\n<value>". Anything else, or a value of another length, is refused.
bool Decode(const std::string& content, _keynode_t& node) {
    size_t newline = content.find('\n');
    size_t blank = content.find(' ');
    if (newline == std::string::npos || blank == std::string::npos || blank > newline) {
        return false;
    }
    node.type = TypeOfName(content.substr(0, blank));
    int length = 0;
    if (node.type == VCONF_TYPE_NONE || !ParseInt(content.substr(blank + 1, newline - blank - 1), length) ||
        length < 0 || content.size() - newline - 1 != static_cast<size_t>(length)) {
        return false;
    }
    std::string valueText = content.substr(newline + 1);
    // A string is kept as a C string by the interface: an embedded NUL means the file is not ours.
    if (valueText.find('\0') != std::string::npos) {
        return false;
    }
    return ParseValue(valueText, node);
}

std::string Encode(const _keynode_t& node) {
    std::string valueText = ValueText(node);
    return std::string(NameOfType(node.type)) + " " + std::to_string(valueText.size()) + "\n" + valueText;
}

// Reads a key; false when it is missing, unreadable or not a well-formed key file.
bool Load(const char* key, _keynode_t& node) {
    if (!ValidKey(key)) {
        return false;
    }
    std::string content;
    if (!ReadAll(KeyFile(key), content) || !Decode(content, node)) {
        return false;
    }
    node.name = key;
    return true;
}

bool WriteFully(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

// One atomic write: a temporary file beside the key, renamed over it.
int Store(const _keynode_t& node) {
    std::string path = KeyFile(node.name);
    std::string dir = DirOf(path);
    if (!orvix::host::MakeDirs(dir)) {
        dlog_print(DLOG_ERROR, kLogTag, "cannot create %s: %s", dir.c_str(), strerror(errno));
        return VCONF_ERROR;
    }
    std::string temp = dir + "/." + BaseOf(path) + ".XXXXXX";
    int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) {
        dlog_print(DLOG_ERROR, kLogTag, "cannot write %s: %s", dir.c_str(), strerror(errno));
        return VCONF_ERROR;
    }
    bool written = WriteFully(fd, Encode(node)) && fchmod(fd, 0644) == 0;
    written = close(fd) == 0 && written;
    if (!written || rename(temp.c_str(), path.c_str()) != 0) {
        dlog_print(DLOG_ERROR, kLogTag, "cannot write key %s: %s", node.name.c_str(), strerror(errno));
        unlink(temp.c_str());
        return VCONF_ERROR;
    }
    return VCONF_OK;
}

bool MakeNode(const char* key, int type, _keynode_t& node) {
    if (!ValidKey(key)) {
        dlog_print(DLOG_ERROR, kLogTag, "invalid key %s", key != nullptr ? key : "(null)");
        return false;
    }
    node.name = key;
    node.type = type;
    return true;
}

// ---- asynchronous sets -------------------------------------------------------------------------------

class AsyncWriter {
public:
    ~AsyncWriter() { Stop(); }

    bool Submit(_keynode_t node, vconf_async_cb callback, void* userData) {
        std::lock_guard<std::mutex> lock(m_QueueLock);
        if (m_bStopping) {
            return false;
        }
        if (!m_Thread.joinable()) {
            m_Thread = std::thread(&AsyncWriter::Run, this);
        }
        m_Jobs.push_back(Job{std::move(node), callback, userData});
        m_Wake.notify_one();
        return true;
    }

    // Writes what is queued, then joins the worker.
    void Stop() {
        {
            std::lock_guard<std::mutex> lock(m_QueueLock);
            m_bStopping = true;
            m_Wake.notify_one();
        }
        if (m_Thread.joinable() && m_Thread.get_id() != std::this_thread::get_id()) {
            m_Thread.join();
        }
    }

private:
    struct Job {
        _keynode_t node;
        vconf_async_cb callback;
        void* userData;
    };

    void Run() {
        while (true) {
            Job job;
            {
                std::unique_lock<std::mutex> lock(m_QueueLock);
                m_Wake.wait(lock, [this] { return m_bStopping || !m_Jobs.empty(); });
                if (m_Jobs.empty()) {
                    return;
                }
                job = std::move(m_Jobs.front());
                m_Jobs.pop_front();
            }
            int result = Store(job.node);
            if (job.callback != nullptr) {
                job.callback(result, &job.node, job.userData);
            }
        }
    }

    std::mutex m_QueueLock;  // guards m_Jobs, m_bStopping and the start of m_Thread
    std::condition_variable m_Wake;
    std::deque<Job> m_Jobs;
    bool m_bStopping = false;
    std::thread m_Thread;
};

// ---- change notification -----------------------------------------------------------------------------

class Watcher {
public:
    int Add(const char* key, vconf_callback_fn callback, void* userData) {
        std::string path = KeyFile(key);
        std::string dir = DirOf(path);
        if (!orvix::host::MakeDirs(dir)) {
            return VCONF_ERROR;
        }
        std::unique_lock<std::mutex> lock(m_WatchLock);
        if (!StartLocked()) {
            return VCONF_ERROR;
        }
        unsigned long id = ++m_LastId;
        m_Watches[id] = Watch{key, dir, BaseOf(path), callback, userData};
        if (!RunOnWatcherThread(lock, Request{true, dir})) {
            m_Watches.erase(id);
            return VCONF_ERROR;
        }
        return VCONF_OK;
    }

    int Remove(const char* key, vconf_callback_fn callback) {
        std::unique_lock<std::mutex> lock(m_WatchLock);
        std::vector<std::string> dirs;
        for (auto it = m_Watches.begin(); it != m_Watches.end();) {
            if (it->second.key == key && it->second.callback == callback) {
                dirs.push_back(it->second.dir);
                it = m_Watches.erase(it);
            } else {
                ++it;
            }
        }
        for (const std::string& dir : dirs) {
            RunOnWatcherThread(lock, Request{false, dir});
        }
        return dirs.empty() ? VCONF_ERROR : VCONF_OK;
    }

    ~Watcher() {
        Stop();
        if (m_Loop != nullptr) {
            g_main_loop_unref(m_Loop);
        }
        if (m_Context != nullptr) {
            g_main_context_unref(m_Context);
        }
    }

    void Stop() {
        std::thread thread;
        {
            std::lock_guard<std::mutex> lock(m_WatchLock);
            if (!m_Thread.joinable()) {
                return;
            }
            m_bStopping = true;
            thread = std::move(m_Thread);
            m_Served.notify_all();
        }
        g_main_context_invoke(m_Context, &Watcher::s_Quit, this);
        thread.join();
        std::lock_guard<std::mutex> lock(m_WatchLock);
        for (auto& [dir, monitor] : m_Monitors) {
            g_file_monitor_cancel(monitor.monitor);
            g_object_unref(monitor.monitor);
        }
        m_Monitors.clear();
    }

private:
    struct Watch {
        std::string key;
        std::string dir;
        std::string base;
        vconf_callback_fn callback;
        void* userData;
    };
    struct Monitor {
        GFileMonitor* monitor;
        int users;
    };
    // Monitors are created and dropped on the watcher thread, so that their events arrive there.
    struct Request {
        bool add;
        std::string dir;
    };

    bool StartLocked() {
        if (m_Thread.joinable()) {
            return true;
        }
        if (m_bStopping) {
            return false;
        }
        if (m_Context == nullptr) {
            m_Context = g_main_context_new();
            m_Loop = g_main_loop_new(m_Context, FALSE);
        }
        m_Thread = std::thread([this] {
            g_main_context_push_thread_default(m_Context);
            g_main_loop_run(m_Loop);
            g_main_context_pop_thread_default(m_Context);
        });
        return true;
    }

    // Queues a request for the watcher thread and waits for its answer. Everything the two threads
    // share goes through m_WatchLock; only `this` travels through the main context.
    bool RunOnWatcherThread(std::unique_lock<std::mutex>& lock, Request request) {
        unsigned long ticket = ++m_LastTicket;
        m_Requests.push_back({ticket, std::move(request)});
        g_main_context_invoke(m_Context, &Watcher::s_ServeRequests, this);
        m_Served.wait(lock, [&] { return m_Answers.count(ticket) != 0 || !m_Thread.joinable(); });
        auto answer = m_Answers.find(ticket);
        if (answer == m_Answers.end()) {
            return false;
        }
        bool ok = answer->second;
        m_Answers.erase(answer);
        return ok;
    }

    static gboolean s_ServeRequests(gpointer self) {
        static_cast<Watcher*>(self)->ServeRequests();
        return G_SOURCE_REMOVE;
    }

    static gboolean s_Quit(gpointer self) {
        g_main_loop_quit(static_cast<Watcher*>(self)->m_Loop);
        return G_SOURCE_REMOVE;
    }

    void ServeRequests() {
        std::lock_guard<std::mutex> lock(m_WatchLock);
        while (!m_Requests.empty()) {
            auto [ticket, request] = std::move(m_Requests.front());
            m_Requests.pop_front();
            m_Answers[ticket] = request.add ? AddMonitorLocked(request.dir) : DropMonitorLocked(request.dir);
        }
        m_Served.notify_all();
    }

    bool AddMonitorLocked(const std::string& dir) {
        auto it = m_Monitors.find(dir);
        if (it != m_Monitors.end()) {
            ++it->second.users;
            return true;
        }
        GFile* file = g_file_new_for_path(dir.c_str());
        GError* error = nullptr;
        GFileMonitor* monitor = g_file_monitor_directory(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, &error);
        g_object_unref(file);
        if (monitor == nullptr) {
            dlog_print(DLOG_ERROR, kLogTag, "cannot watch %s: %s", dir.c_str(), error->message);
            g_error_free(error);
            return false;
        }
        g_signal_connect(monitor, "changed", G_CALLBACK(&Watcher::s_Changed), this);
        m_Monitors[dir] = Monitor{monitor, 1};
        return true;
    }

    bool DropMonitorLocked(const std::string& dir) {
        auto it = m_Monitors.find(dir);
        if (it == m_Monitors.end()) {
            return false;
        }
        if (--it->second.users == 0) {
            g_file_monitor_cancel(it->second.monitor);
            g_object_unref(it->second.monitor);
            m_Monitors.erase(it);
        }
        return true;
    }

    // A key changes by a rename onto it (every set of this store) or by a write in place that ends
    // (someone else's editor); the temporary files, whose names start with a dot, are ignored.
    static void s_Changed(GFileMonitor*, GFile* file, GFile* otherFile, GFileMonitorEvent event,
                          gpointer self) {
        GFile* changed = nullptr;
        if (event == G_FILE_MONITOR_EVENT_RENAMED) {
            changed = otherFile;
        } else if (event == G_FILE_MONITOR_EVENT_MOVED_IN ||
                   event == G_FILE_MONITOR_EVENT_CHANGES_DONE_HINT) {
            changed = file;
        }
        if (changed == nullptr) {
            return;
        }
        char* path = g_file_get_path(changed);
        if (path != nullptr) {
            static_cast<Watcher*>(self)->Announce(path);
            g_free(path);
        }
    }

    // Hands the change to the default main context of the process, one delivery per matching watch.
    void Announce(const std::string& path) {
        std::string dir = DirOf(path);
        std::string base = BaseOf(path);
        std::lock_guard<std::mutex> lock(m_WatchLock);
        for (const auto& [id, watch] : m_Watches) {
            if (watch.dir == dir && watch.base == base) {
                m_Deliveries.push_back(id);
                g_main_context_invoke(nullptr, &Watcher::s_Deliver, this);
            }
        }
    }

    static gboolean s_Deliver(gpointer self) {
        static_cast<Watcher*>(self)->DeliverOne();
        return G_SOURCE_REMOVE;
    }

    // Runs on the default main context. A watch removed in the meantime is not called.
    void DeliverOne() {
        Watch watch;
        {
            std::lock_guard<std::mutex> lock(m_WatchLock);
            if (m_Deliveries.empty()) {
                return;
            }
            unsigned long id = m_Deliveries.front();
            m_Deliveries.pop_front();
            auto it = m_Watches.find(id);
            if (it == m_Watches.end()) {
                return;
            }
            watch = it->second;
        }
        _keynode_t node;
        if (Load(watch.key.c_str(), node)) {
            watch.callback(&node, watch.userData);
        }
    }

    std::mutex m_WatchLock;  // guards every member below but the GLib context and loop
    std::condition_variable m_Served;
    std::map<unsigned long, Watch> m_Watches;
    std::map<std::string, Monitor> m_Monitors;  // touched on the watcher thread only, and after it ended
    std::deque<std::pair<unsigned long, Request>> m_Requests;
    std::map<unsigned long, bool> m_Answers;
    std::deque<unsigned long> m_Deliveries;
    unsigned long m_LastId = 0;
    unsigned long m_LastTicket = 0;
    bool m_bStopping = false;
    std::thread m_Thread;
    GMainContext* m_Context = nullptr;
    GMainLoop* m_Loop = nullptr;
};

// Deliveries may still sit in the default main context when the process ends, so the two objects
// are never destroyed at exit; their threads are joined then. A copy of the kit inside a library that
// is unloaded frees them (orvix::host::ReleaseSettingsAtUnload): the library's code, and with it any
// delivery that could still reach them, goes with it.
AsyncWriter* g_AsyncWriter = new AsyncWriter;
Watcher* g_Watcher = new Watcher;

struct ThreadsJoinedAtExit {
    ~ThreadsJoinedAtExit() {
        if (g_AsyncWriter != nullptr) {
            g_AsyncWriter->Stop();
        }
        if (g_Watcher != nullptr) {
            g_Watcher->Stop();
        }
    }
} g_ThreadsJoinedAtExit;

int SetNow(const char* key, int type, const _keynode_t& value) {
    _keynode_t node = value;
    if (!MakeNode(key, type, node)) {
        return VCONF_ERROR;
    }
    return Store(node);
}

int SetLater(const char* key, int type, _keynode_t node, vconf_async_cb callback, void* userData) {
    if (!MakeNode(key, type, node)) {
        return VCONF_ERROR;
    }
    return g_AsyncWriter->Submit(std::move(node), callback, userData) ? VCONF_OK : VCONF_ERROR;
}

_keynode_t IntNode(int value) {
    _keynode_t node;
    node.intValue = value;
    return node;
}

_keynode_t BoolNode(int value) {
    return IntNode(value != 0 ? 1 : 0);
}

_keynode_t DoubleNode(double value) {
    _keynode_t node;
    node.dblValue = value;
    return node;
}

_keynode_t StringNode(const char* value) {
    _keynode_t node;
    node.strValue = value;
    return node;
}

int GetNumber(const char* key, int type, int* value) {
    _keynode_t node;
    if (value == nullptr || !Load(key, node) || node.type != type) {
        return VCONF_ERROR;
    }
    *value = node.intValue;
    return VCONF_OK;
}

}  // namespace

namespace orvix::host {

bool IsSettingsKey(const char* key) {
    return ValidKey(key);
}

void ReleaseSettingsAtUnload() {
    delete g_AsyncWriter;  // its destructor joins the writer once the queued writes are done
    g_AsyncWriter = nullptr;
    delete g_Watcher;
    g_Watcher = nullptr;
}

}  // namespace orvix::host

extern "C" {

const char* vconf_keynode_get_name(keynode_t* node) {
    return node != nullptr ? node->name.c_str() : nullptr;
}

int vconf_keynode_get_type(keynode_t* node) {
    return node != nullptr ? node->type : VCONF_TYPE_NONE;
}

int vconf_keynode_get_int(keynode_t* node) {
    return node != nullptr ? node->intValue : 0;
}

int vconf_keynode_get_bool(keynode_t* node) {
    return node != nullptr ? node->intValue : 0;
}

double vconf_keynode_get_dbl(keynode_t* node) {
    return node != nullptr ? node->dblValue : 0;
}

char* vconf_keynode_get_str(keynode_t* node) {
    if (node == nullptr || node->type != VCONF_TYPE_STRING) {
        return nullptr;
    }
    return &node->strValue[0];
}

int vconf_get_int(const char* key, int* value) {
    return GetNumber(key, VCONF_TYPE_INT, value);
}

int vconf_get_bool(const char* key, int* value) {
    return GetNumber(key, VCONF_TYPE_BOOL, value);
}

int vconf_get_dbl(const char* key, double* value) {
    _keynode_t node;
    if (value == nullptr || !Load(key, node) || node.type != VCONF_TYPE_DOUBLE) {
        return VCONF_ERROR;
    }
    *value = node.dblValue;
    return VCONF_OK;
}

char* vconf_get_str(const char* key) {
    _keynode_t node;
    if (!Load(key, node) || node.type != VCONF_TYPE_STRING) {
        return nullptr;
    }
    return strdup(node.strValue.c_str());
}

int vconf_set_int(const char* key, int value) {
    return SetNow(key, VCONF_TYPE_INT, IntNode(value));
}

int vconf_set_bool(const char* key, int value) {
    return SetNow(key, VCONF_TYPE_BOOL, BoolNode(value));
}

int vconf_set_dbl(const char* key, double value) {
    if (!std::isfinite(value)) {
        return VCONF_ERROR;
    }
    return SetNow(key, VCONF_TYPE_DOUBLE, DoubleNode(value));
}

int vconf_set_str(const char* key, const char* value) {
    if (value == nullptr) {
        return VCONF_ERROR;
    }
    return SetNow(key, VCONF_TYPE_STRING, StringNode(value));
}

int vconf_set_int_async(const char* key, int value, vconf_async_cb cb, void* user_data) {
    return SetLater(key, VCONF_TYPE_INT, IntNode(value), cb, user_data);
}

int vconf_set_bool_async(const char* key, int value, vconf_async_cb cb, void* user_data) {
    return SetLater(key, VCONF_TYPE_BOOL, BoolNode(value), cb, user_data);
}

int vconf_set_str_async(const char* key, const char* value, vconf_async_cb cb, void* user_data) {
    if (value == nullptr) {
        return VCONF_ERROR;
    }
    return SetLater(key, VCONF_TYPE_STRING, StringNode(value), cb, user_data);
}

int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data) {
    if (!ValidKey(key) || cb == nullptr) {
        return VCONF_ERROR;
    }
    return g_Watcher->Add(key, cb, user_data);
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb) {
    if (!ValidKey(key) || cb == nullptr) {
        return VCONF_ERROR;
    }
    return g_Watcher->Remove(key, cb);
}

}  // extern "C"
