// Tracing markers on the host: each trace_begin and trace_end is one event of the Chrome trace-event format
// ("B" and "E" phases, microseconds since the epoch) appended to <root>/var/log/tak-reset.trace.json, which
// Perfetto and chrome://tracing open as it is. The file is a JSON array whose closing bracket never comes:
// both tools accept that, so the file stays readable however the process ends. Every event is one write(2)
// on a descriptor opened for appending, so events of threads and processes sharing the file never mix.
//
// Nothing is written, and nothing is formatted, while ORVIX_HOST_ROOT is unset: a process outside a kit
// root pays one getenv. A root without a var/log directory gets no trace (and no directory) either.
#include <fcntl.h>
#include <glib.h>
#include <json/json.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <string>

#include "dlog.h"
#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"
#include "ttrace.h"

namespace {

const char kLogTag[] = "TRACE";
const char kOpening[] = "[\n";
const size_t kMaxName = 1024;  // a marker's text is cut there

std::mutex g_traceLock;  // guards the three below
std::string g_root;      // the root g_fd belongs to; the file follows a change of root
int g_fd = -1;
bool g_warned = false;  // a failure in g_root was logged: one line per root, not one per marker

// The file is created with its opening bracket already in it (a private file linked into place), so a
// process appending to it never finds it empty, whichever process made it.
bool CreateWithOpening(const std::string& path) {
    std::string temporary = path + ".XXXXXX";
    int fd = g_mkstemp_full(temporary.data(), O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool written = write(fd, kOpening, sizeof(kOpening) - 1) == static_cast<ssize_t>(sizeof(kOpening) - 1);
    bool linked =
        close(fd) == 0 && written && (link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST);
    int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return linked;
}

// The descriptor of the trace file in `root`, -1 when there is none to write. A FIFO or a device in its
// place is refused without waiting in open(). Called with g_traceLock held.
int OpenFor(const std::string& root) {
    std::string dir = root + "/var/log";
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        return -1;  // not a root the kit laid out (yet): no trace, and nothing to say
    }
    std::string path = dir + "/tak-reset.trace.json";
    int fd = orvix::host::OpenRegular(path, O_WRONLY | O_APPEND);
    if (fd < 0 && errno == ENOENT && CreateWithOpening(path)) {
        fd = orvix::host::OpenRegular(path, O_WRONLY | O_APPEND);
    }
    if (fd < 0 && !g_warned) {
        g_warned = true;
        dlog_print(DLOG_WARN, kLogTag, "cannot open the trace file %s: %s; no trace events", path.c_str(),
                   strerror(errno));
    }
    return fd;
}

// The descriptor to append to, opened again when the root changed or the file was removed (a root made
// anew at the same place). Called with g_traceLock held.
int Descriptor(const std::string& root) {
    struct stat st {};
    if (root != g_root || (g_fd >= 0 && (fstat(g_fd, &st) != 0 || st.st_nlink == 0))) {
        if (g_fd >= 0) {
            close(g_fd);
            g_fd = -1;
        }
        if (root != g_root) {
            g_root = root;
            g_warned = false;
        }
    }
    if (g_fd < 0) {
        g_fd = OpenFor(root);
    }
    return g_fd;
}

void Append(const char* phase, const char* name) {
    const char* env = getenv("ORVIX_HOST_ROOT");
    if (env == nullptr || *env == '\0') {
        return;
    }
    std::string root = orvix::host::Root();
    std::lock_guard<std::mutex> lock(g_traceLock);
    int fd = Descriptor(root);
    if (fd < 0) {
        return;
    }
    Json::Value event(Json::objectValue);
    if (name != nullptr) {
        // A marker's text may hold any bytes, and a cut one half a character: the file stays UTF-8.
        g_autofree gchar* valid = g_utf8_make_valid(name, -1);
        event["name"] = valid;
    }
    event["cat"] = "platform";
    event["ph"] = phase;
    event["pid"] = static_cast<Json::Int>(getpid());
    event["tid"] = static_cast<Json::Int64>(syscall(SYS_gettid));
    event["ts"] = static_cast<Json::Int64>(g_get_real_time());
    std::string line = orvix::host::JsonLine(event) + ",\n";
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()) && !g_warned) {
        g_warned = true;
        dlog_print(DLOG_WARN, kLogTag, "cannot write a trace event: %s", strerror(errno));
    }
}

}  // namespace

extern "C" void trace_begin(const char* fmt, ...) {
    const char* env = getenv("ORVIX_HOST_ROOT");
    if (env == nullptr || *env == '\0' || fmt == nullptr) {
        return;
    }
    char name[kMaxName];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(name, sizeof(name), fmt, ap);
    va_end(ap);
    Append("B", n < 0 ? "" : name);
}

extern "C" void trace_end(void) {
    Append("E", nullptr);
}
