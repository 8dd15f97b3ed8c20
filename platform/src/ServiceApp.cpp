// Host service-application framework: one instance per app and root, a GLib main loop on the calling
// thread, launch requests from the command line and from the app's launch channel (orvix_launch.h),
// handed to the app-control callback one at a time, in arrival order.
#include <errno.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <gio/gunixsocketaddress.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_launch.h"
#include "orvix_process.h"
#include "service_app.h"

namespace {

using orvix::host::LaunchExtras;

const char kTag[] = "ORVIX";

// How long a second instance keeps trying to hand its request to the first one (which may still be
// binding its socket, or shutting down and about to release the lock).
constexpr gint64 kForwardDeadlineUs = 30 * G_USEC_PER_SEC;
constexpr int kForwardIoTimeoutMs = 10000;

// Everything below is touched on the thread that runs service_app_main only, except where noted.
struct Session {
    std::string app;
    service_app_lifecycle_callback_s callbacks{};
    void* userData = nullptr;
    int lockFd = -1;
    GSocketService* service = nullptr;
    GCancellable* cancellable = nullptr;
    std::deque<LaunchExtras> pending;
    guint dispatchSource = 0;
    bool dispatching = false;
    int openConnections = 0;
};

Session g_session;
std::atomic<bool> g_running{false};
std::atomic<bool> g_exitRequested{false};

// One connection of the launch channel while its frame is read.
struct Connection {
    GSocketConnection* connection = nullptr;
    char header[8] = {};
    std::string payload;
};

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
int TryLockInstance(const std::string& pidPath) {
    int fd = open(pidPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
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
        g_session.lockFd = TryLockInstance(pidPath);
        if (g_session.lockFd >= 0) {
            orvix::host::WritePidFileTo(g_session.lockFd, orvix::host::Identify(getpid()));
            return Role::Primary;
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

gboolean DispatchOne(gpointer) {
    g_session.dispatchSource = 0;
    // A callback that iterates the main context itself must not see the next request before it returns.
    if (g_session.dispatching || g_exitRequested || g_session.pending.empty()) {
        return G_SOURCE_REMOVE;
    }
    LaunchExtras extras = std::move(g_session.pending.front());
    g_session.pending.pop_front();
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
    g_io_stream_close(G_IO_STREAM(c->connection), nullptr, nullptr);
    g_object_unref(c->connection);
    delete c;
    --g_session.openConnections;
}

void Answer(Connection* c, char answer) {
    GOutputStream* out = g_io_stream_get_output_stream(G_IO_STREAM(c->connection));
    g_output_stream_write_all(out, &answer, 1, nullptr, nullptr, nullptr);
}

void OnPayload(GObject* stream, GAsyncResult* result, gpointer data) {
    auto* c = static_cast<Connection*>(data);
    gsize read = 0;
    GError* error = nullptr;
    bool complete = g_input_stream_read_all_finish(G_INPUT_STREAM(stream), result, &read, &error) &&
                    read == c->payload.size();
    g_clear_error(&error);
    LaunchExtras extras;
    if (!complete || !orvix::host::DecodeLaunchPayload(c->payload, extras)) {
        dlog_print(DLOG_ERROR, kTag, "dropping a malformed launch request");
        CloseConnection(c);
        return;
    }
    if (g_exitRequested) {
        Answer(c, 'R');
    } else {
        g_session.pending.push_back(std::move(extras));
        ScheduleDispatch();
        Answer(c, 'Q');
    }
    CloseConnection(c);
}

void ReadPayload(Connection* c) {
    GInputStream* in = g_io_stream_get_input_stream(G_IO_STREAM(c->connection));
    g_input_stream_read_all_async(in, c->payload.data(), c->payload.size(), G_PRIORITY_DEFAULT,
                                  g_session.cancellable, OnPayload, c);
}

void OnHeader(GObject* stream, GAsyncResult* result, gpointer data) {
    auto* c = static_cast<Connection*>(data);
    gsize read = 0;
    GError* error = nullptr;
    bool complete = g_input_stream_read_all_finish(G_INPUT_STREAM(stream), result, &read, &error) &&
                    read == sizeof(c->header);
    g_clear_error(&error);
    guint32 size = 0;
    memcpy(&size, c->header + 4, sizeof(size));
    size = GUINT32_FROM_LE(size);
    if (!complete || memcmp(c->header, "OLR1", 4) != 0 || size > orvix::host::kLaunchMaxPayload) {
        dlog_print(DLOG_ERROR, kTag, "dropping a launch connection without a valid frame header");
        CloseConnection(c);
        return;
    }
    c->payload.resize(size);
    ReadPayload(c);
}

gboolean OnIncoming(GSocketService*, GSocketConnection* connection, GObject*, gpointer) {
    auto* c = new Connection();
    c->connection = G_SOCKET_CONNECTION(g_object_ref(connection));
    ++g_session.openConnections;
    GInputStream* in = g_io_stream_get_input_stream(G_IO_STREAM(connection));
    g_input_stream_read_all_async(in, c->header, sizeof(c->header), G_PRIORITY_DEFAULT, g_session.cancellable,
                                  OnHeader, c);
    return TRUE;
}

bool StartChannel() {
    std::string path = orvix::host::LaunchSocketPath(g_session.app);
    if (path.size() >= sizeof(((struct sockaddr_un*)nullptr)->sun_path)) {
        dlog_print(DLOG_ERROR, kTag, "cannot listen on %s: the root's path is too long for a socket",
                   path.c_str());
        return false;
    }
    unlink(path.c_str());  // left by an instance that died; we hold the lock, so it is not in use
    g_session.cancellable = g_cancellable_new();
    g_session.service = g_socket_service_new();
    GSocketAddress* address = g_unix_socket_address_new(path.c_str());
    GError* error = nullptr;
    bool ok =
        g_socket_listener_add_address(G_SOCKET_LISTENER(g_session.service), address, G_SOCKET_TYPE_STREAM,
                                      G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, &error);
    g_object_unref(address);
    if (!ok) {
        dlog_print(DLOG_ERROR, kTag, "cannot listen on %s: %s", path.c_str(), error->message);
        g_error_free(error);
        return false;
    }
    g_signal_connect(g_session.service, "incoming", G_CALLBACK(OnIncoming), nullptr);
    g_socket_service_start(g_session.service);
    return true;
}

// Nobody can deliver to this instance any more; reads under way are cancelled (their clients see no
// acknowledgement and start a new instance once this one has released the lock).
void StopChannel() {
    if (g_session.service != nullptr) {
        g_socket_service_stop(g_session.service);
        g_socket_listener_close(G_SOCKET_LISTENER(g_session.service));
        unlink(orvix::host::LaunchSocketPath(g_session.app).c_str());
    }
    if (g_session.cancellable != nullptr) {
        g_cancellable_cancel(g_session.cancellable);
    }
    while (g_session.openConnections > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_clear_object(&g_session.service);
    g_clear_object(&g_session.cancellable);
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
