// orvix-host launch [--extra-file KEY=PATH]... [--] KEY=VALUE ...: hands one launch request to tak-reset.
//
// The request goes through the launch channel to the running instance (orvix_launch.h). When none runs,
// launch starts one in the background (own session, standard output and error appended to
// <root>/var/log/APP.log, which is also its platform log; DBUS_SYSTEM_BUS_ADDRESS of the root's private
// bus), with the request on its command line, or on an fd when it is too large for a command line. In
// both cases launch prints one line (queued to the running instance, or started, with the pid and the
// log) and exits 0 once the request is queued by the instance. --extra-file adds an extra whose value is
// the content of a file (for values a command line cannot carry); those extras come after the KEY=VALUE
// ones. With ORVIX_EXEC_PREFIX set (HostPrograms.h), the new instance is started through that command.
//
// Refused, with one line on standard error and nothing started: no extras at all, a malformed argument
// (no '=', or an empty key), a request tak-reset would not serve as meant (read as tak-reset-plan reads
// one: an unknown key or reset value, a number that is not one; --raw sends it as given), an uninitialised
// root, an ORVIX_EXEC_PREFIX that names no executable, or a new
// instance while the root's bus is not up (exit status 2, bad input). reset=end while no instance runs starts
// one with it, as the platform does: that instance does only the common library's clean-up and exits, and the
// line says so.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "HostDaemons.h"
#include "HostPrograms.h"
#include "KitCommand.h"
#include "PlanRequest.h"
#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_launch.h"

namespace {

using namespace orvix::host;

const char kCommand[] = "launch";
constexpr gint64 kDeliveryDeadlineUs = 60 * G_USEC_PER_SEC;
constexpr int kIoTimeoutMs = 20000;
constexpr int kReadyTimeoutMs = 30000;
// Below the kernel's limit of one argument (32 pages), and far below the whole command line's.
constexpr size_t kMaxArgumentBytes = 100 * 1024;
constexpr size_t kMaxCommandLineBytes = 1024 * 1024;

bool FitsCommandLine(const std::vector<std::string>& arguments) {
    size_t total = 0;
    for (const auto& argument : arguments) {
        if (argument.size() > kMaxArgumentBytes) {
            return false;
        }
        total += argument.size() + 1;
    }
    return total <= kMaxCommandLineBytes;
}

// The request on an fd of its own, for a request the command line cannot carry.
int RequestFd(const LaunchExtras& extras, std::string& error) {
    int fd = memfd_create("launch-request", MFD_CLOEXEC);
    std::string frame = EncodeLaunchFrame(extras);
    if (fd < 0 || write(fd, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()) ||
        lseek(fd, 0, SEEK_SET) != 0) {
        error = std::string("cannot hand the request over: ") + strerror(errno);
        if (fd >= 0) {
            close(fd);
        }
        return -1;
    }
    return fd;
}

enum class Start { Ready, Gone, Failed };

// Waits for the byte the new instance writes once the request is queued (or handed to another
// instance that won the race); end of file means it died first.
Start AwaitReady(int fd) {
    struct pollfd pfd = {fd, POLLIN, 0};
    int rc;
    do {
        rc = poll(&pfd, 1, kReadyTimeoutMs);
    } while (rc < 0 && errno == EINTR);
    char byte = 0;
    if (rc > 0 && read(fd, &byte, 1) == 1) {
        return Start::Ready;
    }
    return rc > 0 ? Start::Gone : Start::Failed;
}

// `command`: the program, after the words of ORVIX_EXEC_PREFIX when it runs through an emulator.
Start StartInstance(const std::vector<std::string>& command, const std::string& app,
                    const LaunchExtras& extras, pid_t& pid, std::string& error) {
    std::vector<std::string> arguments;
    for (const auto& [key, value] : extras) {
        arguments.push_back(key + "=" + value);
    }
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        error = "cannot make a pipe";
        return Start::Failed;
    }
    SpawnOptions options;
    options.argv = command;
    options.setEnvironment = {{"ORVIX_HOST_ROOT", Root()},
                              {"DBUS_SYSTEM_BUS_ADDRESS", BusAddress()},
                              {"ORVIX_LOG_FILE", LogFile(app)},
                              {kLaunchReadyFdEnv, std::to_string(ready[1])}};
    options.unsetEnvironment = {kLaunchRequestFdEnv};
    options.logFile = LogFile(app);
    options.passFds = {ready[1]};
    int requestFd = -1;
    if (FitsCommandLine(arguments)) {
        options.argv.insert(options.argv.end(), arguments.begin(), arguments.end());
    } else if ((requestFd = RequestFd(extras, error)) >= 0) {
        options.setEnvironment.emplace_back(kLaunchRequestFdEnv, std::to_string(requestFd));
        options.passFds.push_back(requestFd);
    }
    pid = (requestFd >= 0 || FitsCommandLine(arguments)) ? SpawnDetached(options, error) : 0;
    close(ready[1]);
    if (requestFd >= 0) {
        close(requestFd);
    }
    if (pid > 0) {
        WritePidFile(PidDirectory() + "/app." + app + "." + std::to_string(pid) + ".pid", Identify(pid));
    }
    Start started = pid > 0 ? AwaitReady(ready[0]) : Start::Failed;
    close(ready[0]);
    if (started == Start::Failed && error.empty()) {
        error = app + " did not take the request (see " + LogFile(app) + ")";
    }
    return started;
}

bool ReadExtraFiles(gchar** extraFiles, LaunchExtras& extras, std::string& error) {
    for (gchar** item = extraFiles; item != nullptr && *item != nullptr; ++item) {
        std::string key;
        std::string path;
        if (!ParseLaunchArgument(*item, key, path)) {
            error = std::string("malformed --extra-file '") + *item + "' (expected KEY=PATH)";
            return false;
        }
        gchar* contents = nullptr;
        gsize size = 0;
        if (!g_file_get_contents(path.c_str(), &contents, &size, nullptr)) {
            error = "cannot read " + path;
            return false;
        }
        extras.emplace_back(key, std::string(contents, size));
        g_free(contents);
    }
    return true;
}

bool EndsTheInstance(const LaunchExtras& extras) {
    for (const auto& [key, value] : extras) {
        if (key == "reset" && value == "end") {
            return true;
        }
    }
    return false;
}

// The pid of the instance that runs now, or 0.
pid_t RunningInstance(const std::string& app) {
    ProcessId id;
    return ReadPidFile(LaunchPidPath(app), id) && IsRunning(id) ? id.pid : 0;
}

// `pid`: the instance seen before the delivery, since one that was asked to end may be gone already.
int Queued(const std::string& app, pid_t pid) {
    printf("queued to the running %s (pid %d); its log: %s\n", app.c_str(), static_cast<int>(pid),
           LogFile(app).c_str());
    return 0;
}

// `pid`: the process started; the instance that runs now is named instead when there is one (a racing
// instance may have taken the request), since an "end" may have ended the started one already.
int Started(const std::string& app, pid_t pid, const LaunchExtras& extras) {
    pid_t running = RunningInstance(app);
    pid = running != 0 ? running : pid;
    const char* what = EndsTheInstance(extras)
                           ? "with reset=end: it does only the common library's clean-up and exits"
                           : "with the request";
    printf("started %s (pid %d) %s; its log: %s\n", app.c_str(), static_cast<int>(pid), what,
           LogFile(app).c_str());
    return 0;
}

// A request that would start an instance which cannot work starts nothing.
int RefuseToStart() {
    if (!IsBusUp()) {
        return UsageError(
            kCommand, "the bus of " + Root() + " is not up (run orvix-host up first); " + "nothing started");
    }
    return 0;
}

// Kept for the manager clients: the resets that report them nothing are known only from here. A request
// that cannot be recorded is still delivered; the line on standard error says why.
void RecordLaunched(const LaunchExtras& extras) {
    Json::Value request(Json::objectValue);
    for (const auto& [key, value] : extras) {
        request[key] = value;
    }
    RecordLaunch(request);
}

int Deliver(const std::vector<std::string>& command, const LaunchExtras& extras) {
    const std::string& program = command.back();
    std::string app = program.substr(program.rfind('/') + 1);
    MakeDirs(PidDirectory());
    gint64 deadline = g_get_monotonic_time() + kDeliveryDeadlineUs;
    std::string error;
    while (g_get_monotonic_time() < deadline) {
        pid_t running = RunningInstance(app);
        LaunchDelivery delivery = DeliverLaunchRequest(app, extras, kIoTimeoutMs, &error);
        if (delivery == LaunchDelivery::Delivered) {
            RecordLaunched(extras);
            return Queued(app, running != 0 ? running : RunningInstance(app));
        }
        if (delivery == LaunchDelivery::NoInstance) {
            if (int refused = RefuseToStart()) {
                return refused;
            }
            error.clear();
            pid_t pid = 0;
            Start started = StartInstance(command, app, extras, pid, error);
            if (started == Start::Ready) {
                RecordLaunched(extras);
                return Started(app, pid, extras);
            }
            if (started == Start::Failed) {
                return Failure(kCommand, error);
            }
        }
        g_usleep(20 * 1000);  // an instance is shutting down, or one that raced us died
    }
    return Failure(kCommand, "cannot deliver the request: " + error);
}

// A request tak-reset would ignore, or read otherwise than meant, is a mistake of the caller's.
bool CheckRequest(const LaunchExtras& extras, std::string& error) {
    std::vector<std::string> arguments;
    for (const auto& [key, value] : extras) {
        arguments.push_back(key + "=" + value);
    }
    CPlanRequest request(CPlanRequest::PURPOSE_LAUNCH);
    if (request.Parse(arguments, error)) {
        return true;
    }
    error += "; nothing started (--raw sends a request as given)";
    return false;
}

}  // namespace

int RunLaunch(int argc, char** argv) {
    gchar** extraFiles = nullptr;
    gboolean raw = FALSE;
    const GOptionEntry entries[] = {
        {"raw", 0, 0, G_OPTION_ARG_NONE, &raw,
         "send the request as given, without checking its keys and values", nullptr},
        {"extra-file", 'f', 0, G_OPTION_ARG_FILENAME_ARRAY, &extraFiles,
         "an extra whose value is the content of PATH (any size and bytes); repeatable", "KEY=PATH"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    int status = 0;
    if (!ParseOptions(kCommand, entries, argc, argv, status)) {
        return status;
    }
    LaunchExtras extras;
    if (argc < 2 && extraFiles == nullptr) {
        return UsageError(kCommand, "expected at least one KEY=VALUE (reset=tak_app_reset, say)");
    }
    for (int i = 1; i < argc; ++i) {
        std::string key;
        std::string value;
        if (!ParseLaunchArgument(argv[i], key, value)) {
            g_strfreev(extraFiles);
            return UsageError(kCommand,
                              std::string("malformed argument '") + argv[i] + "' (expected KEY=VALUE)");
        }
        extras.emplace_back(key, value);
    }
    std::string error;
    bool filesRead = ReadExtraFiles(extraFiles, extras, error);
    g_strfreev(extraFiles);
    if (!filesRead || (!raw && !CheckRequest(extras, error))) {
        return UsageError(kCommand, error);
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::vector<std::string> command;
    if (!DeviceExecPrefix(command, error)) {
        return UsageError(kCommand, error);
    }
    std::string program = FindKitFile(KitFile::TakReset, error);
    if (program.empty()) {
        return Failure(kCommand, error);
    }
    command.push_back(program);
    return Deliver(command, extras);
}
