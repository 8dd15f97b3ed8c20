// Starting, finding and stopping the kit's processes.
#include "HostDaemons.h"

#include <dirent.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "orvix_host.h"
#include "orvix_launch.h"

extern char** environ;

namespace orvix::host {

namespace {

constexpr gint64 kTermGraceUs = 5 * G_USEC_PER_SEC;
constexpr gint64 kKillWaitUs = 10 * G_USEC_PER_SEC;

std::vector<std::string> ChildEnvironment(const SpawnOptions& options) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text = *entry;
        std::string name = text.substr(0, text.find('='));
        bool replaced = false;
        for (const auto& unset : options.unsetEnvironment) {
            replaced = replaced || unset == name;
        }
        for (const auto& [key, value] : options.setEnvironment) {
            replaced = replaced || key == name;
        }
        if (!replaced) {
            environment.push_back(text);
        }
    }
    for (const auto& [key, value] : options.setEnvironment) {
        environment.push_back(key + "=" + value);
    }
    return environment;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

void ScanPidDirectory(const std::string& directory, const char* suffix, bool serviceApps,
                      std::vector<KitProcess>& found) {
    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return;
    }
    while (struct dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.size() <= strlen(suffix) ||
            name.compare(name.size() - strlen(suffix), strlen(suffix), suffix) != 0) {
            continue;
        }
        KitProcess process;
        process.name = name.substr(0, name.size() - strlen(suffix));
        process.pidFile = directory + "/" + name;
        // "app.*" records are service apps started by launch.
        process.serviceApp = serviceApps || name.rfind("app.", 0) == 0;
        if (ReadPidFile(process.pidFile, process.id) && IsRunning(process.id)) {
            found.push_back(process);
        }
    }
    closedir(dir);
}

// A process started by the kit leads its own group; a service app started by hand may not.
void Signal(const KitProcess& process, int signal) {
    if (!IsRunning(process.id)) {
        return;
    }
    if (getpgid(process.id.pid) == process.id.pid) {
        kill(-process.id.pid, signal);
    } else {
        kill(process.id.pid, signal);
    }
}

bool WaitGone(const std::vector<KitProcess>& processes, gint64 deadline) {
    while (true) {
        bool anyLeft = false;
        for (const auto& process : processes) {
            anyLeft = anyLeft || IsRunning(process.id);
        }
        if (!anyLeft) {
            return true;
        }
        if (g_get_monotonic_time() >= deadline) {
            return false;
        }
        g_usleep(10 * 1000);
    }
}

}  // namespace

std::string RootMarker() {
    return UnderRoot(".orvix-host");
}

bool IsInitialisedRoot() {
    return access(RootMarker().c_str(), F_OK) == 0;
}

std::string PidDirectory() {
    return UnderRoot("run/pids");
}

std::string EnvFile() {
    return UnderRoot("run/env");
}

std::string BusSocketPath() {
    return UnderRoot("run/dbus/system_bus_socket");
}

std::string BusAddress() {
    return "unix:path=" + BusSocketPath();
}

std::string LogFile(const std::string& name) {
    return UnderRoot("var/log/" + name + ".log");
}

std::string PidFileOf(const std::string& name) {
    return PidDirectory() + "/" + name + ".pid";
}

bool IsRecordedRunning(const std::string& name, ProcessId* id) {
    ProcessId found;
    if (!ReadPidFile(PidFileOf(name), found) || !IsRunning(found)) {
        return false;
    }
    if (id != nullptr) {
        *id = found;
    }
    return true;
}

bool IsBusUp() {
    return IsRecordedRunning("dbus-daemon") && access(BusSocketPath().c_str(), F_OK) == 0;
}

pid_t SpawnDetached(const SpawnOptions& options, std::string& error) {
    std::vector<std::string> argv = options.argv;
    std::vector<std::string> environment = ChildEnvironment(options);
    std::vector<char*> argvPointers = Pointers(argv);
    std::vector<char*> environmentPointers = Pointers(environment);
    int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    int output = options.logFile.empty()
                     ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                     : open(options.logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (input < 0 || output < 0) {
        error = "cannot open the log " + options.logFile + ": " + strerror(errno);
        close(input);
        close(output);
        return 0;
    }
    pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        setsid();
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        for (int fd : options.passFds) {
            fcntl(fd, F_SETFD, 0);
        }
        execve(argvPointers[0], argvPointers.data(), environmentPointers.data());
        _exit(127);
    }
    close(input);
    close(output);
    if (pid < 0) {
        error = std::string("cannot fork: ") + strerror(errno);
        return 0;
    }
    return pid;
}

std::vector<KitProcess> RunningKitProcesses() {
    std::vector<KitProcess> found;
    ScanPidDirectory(PidDirectory(), ".pid", false, found);
    DIR* run = opendir(UnderRoot("run").c_str());
    if (run != nullptr) {
        while (struct dirent* entry = readdir(run)) {
            std::string app = entry->d_name;
            if (app == "." || app == ".." || app == "pids") {
                continue;
            }
            std::string pidFile = LaunchPidPath(app);
            KitProcess process;
            process.name = app;
            process.pidFile = pidFile;
            process.serviceApp = true;
            if (ReadPidFile(pidFile, process.id) && IsRunning(process.id)) {
                found.push_back(process);
            }
        }
        closedir(run);
    }
    return found;
}

void RemoveStalePidFiles() {
    DIR* dir = opendir(PidDirectory().c_str());
    if (dir == nullptr) {
        return;
    }
    while (struct dirent* entry = readdir(dir)) {
        std::string path = PidDirectory() + "/" + entry->d_name;
        ProcessId id;
        if (entry->d_name[0] != '.' && ReadPidFile(path, id) && !IsRunning(id)) {
            unlink(path.c_str());
        }
    }
    closedir(dir);
}

bool StopProcesses(const std::vector<KitProcess>& processes, std::string& error) {
    for (const auto& process : processes) {
        Signal(process, process.serviceApp ? SIGKILL : SIGTERM);
    }
    if (!WaitGone(processes, g_get_monotonic_time() + kTermGraceUs)) {
        for (const auto& process : processes) {
            Signal(process, SIGKILL);
        }
    }
    if (!WaitGone(processes, g_get_monotonic_time() + kKillWaitUs)) {
        error = "some processes did not stop:";
        for (const auto& process : processes) {
            if (IsRunning(process.id)) {
                error += " " + process.name + "(" + std::to_string(process.id.pid) + ")";
            }
        }
        return false;
    }
    return true;
}

namespace {

GDBusConnection* ConnectTo(const std::string& address, std::string& error) {
    g_autoptr(GError) gerror = nullptr;
    GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &gerror);
    if (connection == nullptr) {
        error = std::string("cannot connect to the bus: ") + gerror->message;
    }
    return connection;
}

bool NameHasOwner(GDBusConnection* connection, const std::string& name) {
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
        g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
        nullptr);
    gboolean has = FALSE;
    if (reply != nullptr) {
        g_variant_get(reply, "(b)", &has);
    }
    return has;
}

// Polls the owner of `name` until it is `wanted`, `keepWaiting` says stop, or the time-out passes.
bool WaitForOwnership(const std::string& address, const std::string& name, bool wanted,
                      const std::function<bool()>& keepWaiting, int timeoutMs, std::string& error) {
    g_autoptr(GDBusConnection) connection = ConnectTo(address, error);
    if (connection == nullptr) {
        return false;
    }
    gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(timeoutMs) * 1000;
    bool reached = NameHasOwner(connection, name) == wanted;
    while (!reached && keepWaiting() && g_get_monotonic_time() < deadline) {
        g_usleep(10 * 1000);
        reached = NameHasOwner(connection, name) == wanted;
    }
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    return reached;
}

}  // namespace

bool WaitForBusName(const std::string& address, const std::string& name, const ProcessId& owner,
                    int timeoutMs, std::string& error) {
    bool owned = WaitForOwnership(
        address, name, true, [&owner] { return IsRunning(owner); }, timeoutMs, error);
    if (!owned && error.empty()) {
        error = name + " did not appear on the bus (see the program's log under var/log)";
    }
    return owned;
}

bool WaitForBusNameReleased(const std::string& address, const std::string& name, int timeoutMs,
                            std::string& error) {
    bool released = WaitForOwnership(
        address, name, false, [] { return true; }, timeoutMs, error);
    if (!released && error.empty()) {
        error = name + " is still owned on the bus";
    }
    return released;
}

}  // namespace orvix::host
