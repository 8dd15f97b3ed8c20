// Host service-application framework: one instance per app and root, a GLib main loop on the calling
// thread, launch requests from the command line and from the app's launch channel (orvix_launch.h),
// handed to the app-control callback one at a time, in arrival order.
#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_launch.h"
#include "orvix_process.h"
#include "orvix_regular_file.h"
#include "service_app.h"

namespace {

using orvix::host::LaunchExtras;

const char kTag[] = "ORVIX";

// How long a second instance keeps trying to hand its request to the first one (which may still be
// binding its socket, or shutting down and about to release the lock).
constexpr gint64 kForwardDeadlineUs = 30 * G_USEC_PER_SEC;
constexpr int kForwardIoTimeoutMs = 10000;

// One connection of the launch channel while its frame is read. The socket is non-blocking and read as
// data arrives, so a slow or stuck client never holds up the main loop.
struct Connection {
    int fd = -1;
    guint source = 0;
    char header[orvix::host::kLaunchFrameHeaderSize] = {};
    size_t headerRead = 0;
    std::string payload;
    size_t payloadRead = 0;
};

// Everything below is touched on the thread that runs service_app_main only, except where noted.
// The channel is a plain socket watched by the main context: the process starts faster without the
// GIO socket classes, and it needs nothing they add.
struct Session {
    std::string app;
    service_app_lifecycle_callback_s callbacks{};
    void* userData = nullptr;
    int lockFd = -1;
    int listenFd = -1;
    guint listenSource = 0;
    std::vector<Connection*> connections;
    std::deque<LaunchExtras> pending;
    guint dispatchSource = 0;
    bool dispatching = false;
};

Session g_session;
std::atomic<bool> g_running{false};
std::atomic<bool> g_exitRequested{false};

std::string AppName(const char* argv0) {
    const char* slash = strrchr(argv0, '/');
    return slash != nullptr ? slash + 1 : argv0;
}

LaunchExtras ExtrasFromArguments(int argc, char** argv) {
    LaunchExtras extras;
    for (int i = 1; i < argc; ++i) {
        std::string key;
        std::string value;
        if (!orvix::host::ParseLaunchArgument(argv[i], key, value)) {
            dlog_print(DLOG_ERROR, kTag, "ignoring launch argument [%s]: not KEY=VALUE", argv[i]);
            continue;
        }
        extras.emplace_back(std::move(key), std::move(value));
    }
    return extras;
}

// A launcher that cannot fit the first request on the command line hands it over on an fd instead.
LaunchExtras FirstRequest(int argc, char** argv) {
    const char* fdText = getenv(orvix::host::kLaunchRequestFdEnv);
    if (fdText == nullptr) {
        return ExtrasFromArguments(argc, argv);
    }
    int fd = atoi(fdText);
    unsetenv(orvix::host::kLaunchRequestFdEnv);
    LaunchExtras extras;
    if (!orvix::host::ReadLaunchFrame(fd, extras)) {
        dlog_print(DLOG_ERROR, kTag, "cannot read the launch request from fd %d", fd);
    }
    close(fd);
    return extras;
}

// Tells the launcher that started this process that its request is in good hands.
void SignalLauncher() {
    const char* fdText = getenv(orvix::host::kLaunchReadyFdEnv);
    if (fdText == nullptr) {
        return;
    }
    int fd = atoi(fdText);
    unsetenv(orvix::host::kLaunchReadyFdEnv);
    const char ready = 'Q';
    if (write(fd, &ready, 1) != 1) {
        dlog_print(DLOG_ERROR, kTag, "cannot tell the launcher that the request is queued: %s",
                   strerror(errno));
    }
    close(fd);
}

// The lock on the pid file makes one instance per app and root. A lock on a file that its owner
// unlinked meanwhile is worthless, hence the inode check.
// `refused`: the pid file is not a regular file (a FIFO, a device), so no instance can ever hold it.
int TryLockInstance(const std::string& pidPath, bool& refused) {
    int fd = orvix::host::OpenRegular(pidPath, O_RDWR | O_CREAT, 0644);
    refused = fd < 0 && orvix::host::IsNotRegularError(errno);
    if (fd < 0) {
        return -1;
    }
    struct stat locked {};
    struct stat current {};
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 || fstat(fd, &locked) != 0 ||
        stat(pidPath.c_str(), &current) != 0 || locked.st_ino != current.st_ino ||
        locked.st_dev != current.st_dev) {
        close(fd);
        return -1;
    }
    return fd;
}

enum class Role { Primary, Forwarded, Failed };

// Either this process becomes the instance, or it hands `first` to the one that runs.
Role BecomeInstanceOrForward(const LaunchExtras& first) {
    std::string pidPath = orvix::host::LaunchPidPath(g_session.app);
    if (!orvix::host::MakeDirs(orvix::host::LaunchDir(g_session.app))) {
        dlog_print(DLOG_ERROR, kTag, "cannot create %s", orvix::host::LaunchDir(g_session.app).c_str());
        return Role::Failed;
    }
    gint64 deadline = g_get_monotonic_time() + kForwardDeadlineUs;
    std::string error;
    while (g_get_monotonic_time() < deadline) {
        bool refused = false;
        g_session.lockFd = TryLockInstance(pidPath, refused);
        if (g_session.lockFd >= 0) {
            orvix::host::WritePidFileTo(g_session.lockFd, orvix::host::Identify(getpid()));
            return Role::Primary;
        }
        if (refused) {
            dlog_print(DLOG_ERROR, kTag, "pid file %s is not a regular file: %s", pidPath.c_str(),
                       strerror(errno));
            return Role::Failed;
        }
        auto delivery = orvix::host::DeliverLaunchRequest(g_session.app, first, kForwardIoTimeoutMs, &error);
        if (delivery == orvix::host::LaunchDelivery::Delivered) {
            dlog_print(DLOG_INFO, kTag, "%s already runs: request handed to it", g_session.app.c_str());
            return Role::Forwarded;
        }
        g_usleep(20 * 1000);  // the running instance is starting up or going away
    }
    dlog_print(DLOG_ERROR, kTag, "cannot reach the running %s: %s", g_session.app.c_str(), error.c_str());
    return Role::Failed;
}

void ScheduleDispatch();

// Launch values reach the app as C strings, so a NUL byte would silently cut a value short and could turn
// it into another request ("reset=x\0..." read as "reset=x"). Such a request is refused as a whole.
bool CarriesNulByte(const LaunchExtras& extras) {
    for (const auto& [key, value] : extras) {
        if (key.find('\0') != std::string::npos || value.find('\0') != std::string::npos) {
            dlog_print(DLOG_ERROR, kTag, "refusing a launch request: extra [%s] holds a NUL byte",
                       key.c_str());
            return true;
        }
    }
    return false;
}

gboolean DispatchOne(gpointer) {
    g_session.dispatchSource = 0;
    // A callback that iterates the main context itself must not see the next request before it returns.
    if (g_session.dispatching || g_exitRequested || g_session.pending.empty()) {
        return G_SOURCE_REMOVE;
    }
    LaunchExtras extras = std::move(g_session.pending.front());
    g_session.pending.pop_front();
    if (CarriesNulByte(extras)) {
        ScheduleDispatch();
        return G_SOURCE_REMOVE;
    }
    app_control_h request = nullptr;
    app_control_create(&request);
    for (const auto& [key, value] : extras) {
        app_control_add_extra_data(request, key.c_str(), value.c_str());
    }
    if (g_session.callbacks.app_control != nullptr) {
        g_session.dispatching = true;
        g_session.callbacks.app_control(request, g_session.userData);
        g_session.dispatching = false;
    }
    app_control_destroy(request);
    ScheduleDispatch();
    return G_SOURCE_REMOVE;
}

void ScheduleDispatch() {
    if (g_session.dispatchSource == 0 && !g_session.pending.empty()) {
        g_session.dispatchSource = g_idle_add_full(G_PRIORITY_DEFAULT, DispatchOne, nullptr, nullptr);
    }
}

void CloseConnection(Connection* c) {
    if (c->source != 0) {
        g_source_remove(c->source);
    }
    close(c->fd);
    auto& all = g_session.connections;
    all.erase(std::remove(all.begin(), all.end(), c), all.end());
    delete c;
}

void Answer(Connection* c, char answer) {
    // One byte into a socket nobody has written to yet: it always fits.
    if (send(c->fd, &answer, 1, MSG_NOSIGNAL) != 1) {
        dlog_print(DLOG_ERROR, kTag, "cannot acknowledge a launch request: %s", strerror(errno));
    }
}

// Reads what is there into `buffer` up to `size`; false when the peer is gone or the socket failed.
bool ReadAvailable(int fd, char* buffer, size_t size, size_t& done) {
    while (done < size) {
        ssize_t n = read(fd, buffer + done, size - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
    return true;
}

// False when the header is not one of ours; sizes the payload buffer otherwise.
bool AcceptHeader(Connection* c) {
    size_t size = 0;
    if (!orvix::host::DecodeLaunchFrameHeader(c->header, size)) {
        return false;
    }
    c->payload.resize(size);
    return true;
}

enum class Progress { Waiting, Done, Failed };

// Takes in what has arrived of the frame; logs why a connection is given up.
Progress ReadFrame(Connection* c) {
    if (c->headerRead < sizeof(c->header)) {
        bool open = ReadAvailable(c->fd, c->header, sizeof(c->header), c->headerRead);
        if (open && c->headerRead < sizeof(c->header)) {
            return Progress::Waiting;
        }
        if (!open || !AcceptHeader(c)) {
            dlog_print(DLOG_ERROR, kTag, "dropping a launch connection without a valid frame header");
            return Progress::Failed;
        }
    }
    if (!ReadAvailable(c->fd, c->payload.data(), c->payload.size(), c->payloadRead)) {
        dlog_print(DLOG_ERROR, kTag, "dropping a malformed launch request");
        return Progress::Failed;
    }
    return c->payloadRead == c->payload.size() ? Progress::Done : Progress::Waiting;
}

void Deliver(Connection* c) {
    LaunchExtras extras;
    if (!orvix::host::DecodeLaunchPayload(c->payload, extras)) {
        dlog_print(DLOG_ERROR, kTag, "dropping a malformed launch request");
        return;
    }
    if (g_exitRequested) {
        Answer(c, 'R');
        return;
    }
    g_session.pending.push_back(std::move(extras));
    ScheduleDispatch();
    Answer(c, 'Q');
}

gboolean OnReadable(gint, GIOCondition, gpointer data) {
    auto* c = static_cast<Connection*>(data);
    Progress progress = ReadFrame(c);
    if (progress == Progress::Waiting) {
        return G_SOURCE_CONTINUE;
    }
    if (progress == Progress::Done) {
        Deliver(c);
    }
    c->source = 0;  // goes away with the G_SOURCE_REMOVE below
    CloseConnection(c);
    return G_SOURCE_REMOVE;
}

gboolean OnIncoming(gint listenFd, GIOCondition, gpointer) {
    for (;;) {
        int fd = accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0 && (errno == EINTR || errno == ECONNABORTED)) {
            continue;
        }
        if (fd < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                dlog_print(DLOG_ERROR, kTag, "cannot accept a launch connection: %s", strerror(errno));
            }
            return G_SOURCE_CONTINUE;
        }
        auto* c = new Connection();
        c->fd = fd;
        c->source = g_unix_fd_add(fd, G_IO_IN, OnReadable, c);
        g_session.connections.push_back(c);
    }
}

bool StartChannel() {
    std::string path = orvix::host::LaunchSocketPath(g_session.app);
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        dlog_print(DLOG_ERROR, kTag, "cannot listen on %s: the root's path is too long for a socket",
                   path.c_str());
        return false;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    unlink(path.c_str());  // left by an instance that died; we hold the lock, so it is not in use
    g_session.listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (g_session.listenFd < 0 ||
        bind(g_session.listenFd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(g_session.listenFd, SOMAXCONN) != 0) {
        dlog_print(DLOG_ERROR, kTag, "cannot listen on %s: %s", path.c_str(), strerror(errno));
        return false;
    }
    g_session.listenSource = g_unix_fd_add(g_session.listenFd, G_IO_IN, OnIncoming, nullptr);
    return true;
}

// Nobody can deliver to this instance any more; requests still being read are dropped (their clients
// see no acknowledgement and start a new instance once this one has released the lock).
void StopChannel() {
    if (g_session.listenSource != 0) {
        g_source_remove(g_session.listenSource);
        g_session.listenSource = 0;
    }
    if (g_session.listenFd >= 0) {
        close(g_session.listenFd);
        g_session.listenFd = -1;
        unlink(orvix::host::LaunchSocketPath(g_session.app).c_str());
    }
    while (!g_session.connections.empty()) {
        CloseConnection(g_session.connections.back());
    }
    if (g_session.dispatchSource != 0) {
        g_source_remove(g_session.dispatchSource);
        g_session.dispatchSource = 0;
    }
    if (!g_session.pending.empty()) {
        dlog_print(DLOG_INFO, kTag, "exiting with %zu launch request(s) not handled",
                   g_session.pending.size());
        g_session.pending.clear();
    }
}

void ReleaseInstance() {
    if (g_session.lockFd >= 0) {
        unlink(orvix::host::LaunchPidPath(g_session.app).c_str());
        close(g_session.lockFd);  // releases the lock only after the file is gone
        g_session.lockFd = -1;
    }
}

// The loop is a plain iteration on the default context rather than a GMainLoop: a quit that comes from
// another thread just before the loop starts would be lost by g_main_loop_run, the flag is not.
void RunLoop() {
    while (!g_exitRequested) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

int RunInstance(const LaunchExtras& first) {
    if (!StartChannel()) {
        StopChannel();
        ReleaseInstance();
        return SERVICE_APP_ERROR_INVALID_CONTEXT;
    }
    if (g_session.callbacks.create != nullptr && !g_session.callbacks.create(g_session.userData)) {
        dlog_print(DLOG_ERROR, kTag, "the create callback failed; %s does not start", g_session.app.c_str());
        StopChannel();
        ReleaseInstance();
        return SERVICE_APP_ERROR_INVALID_CONTEXT;
    }
    g_session.pending.push_back(first);
    ScheduleDispatch();
    SignalLauncher();
    RunLoop();
    StopChannel();
    if (g_session.callbacks.terminate != nullptr) {
        g_session.callbacks.terminate(g_session.userData);
    }
    ReleaseInstance();
    return SERVICE_APP_ERROR_NONE;
}

}  // namespace

extern "C" int service_app_main(int argc, char** argv, service_app_lifecycle_callback_s* callback,
                                void* user_data) {
    if (argc < 1 || argv == nullptr || argv[0] == nullptr || callback == nullptr) {
        return SERVICE_APP_ERROR_INVALID_PARAMETER;
    }
    if (g_running.exchange(true)) {
        return SERVICE_APP_ERROR_ALREADY_RUNNING;
    }
    g_exitRequested = false;
    g_session = Session();
    g_session.app = AppName(argv[0]);
    g_session.callbacks = *callback;
    g_session.userData = user_data;

    LaunchExtras first = FirstRequest(argc, argv);
    int result = SERVICE_APP_ERROR_NONE;
    switch (BecomeInstanceOrForward(first)) {
        case Role::Primary:
            result = RunInstance(first);
            break;
        case Role::Forwarded:
            SignalLauncher();
            break;
        case Role::Failed:
            result = SERVICE_APP_ERROR_INVALID_CONTEXT;
            break;
    }
    g_running = false;
    return result;
}

extern "C" void service_app_exit(void) {
    g_exitRequested = true;
    g_main_context_wakeup(nullptr);
}
