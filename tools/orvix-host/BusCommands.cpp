// orvix-host up | down | client OBJ [--foreground]: the private system bus and the stand-ins on it.
//
// up      starts, for the root, a private dbus-daemon (configuration <root>/etc/dbus/system.conf, socket
//         <root>/run/dbus/system_bus_socket) and the stand-in inner server, unless they already run;
//         prints "export DBUS_SYSTEM_BUS_ADDRESS=..." and writes the same line to <root>/run/env.
// down    stops every process the kit started for the root (service apps such as tak-reset included,
//         with whatever they started) and removes their pid files, sockets and <root>/run/env.
// client  starts a manager client for OBJ in the background (log var/log/managerclient.OBJ.log, one line
//         per progress step), or with --foreground in place of orvix-host, drawing progress bars on the
//         terminal (its own log lines still go to its log file); a background client of the same name
//         is then stopped first, so that this one owns its bus name. Without --foreground, a client
//         that runs is left alone.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "Commands.h"
#include "HostDaemons.h"
#include "HostPrograms.h"
#include "KitCommand.h"
#include "orvix_host.h"
#include "orvix_launch.h"

extern char** environ;

namespace {

using namespace orvix::host;

constexpr int kStartTimeoutMs = 20000;
const char kInnerServerName[] = "org.orvix.tv.vardell.innerserver";

std::string BusConfigFile() {
    return UnderRoot("etc/dbus/system.conf");
}

// A system bus in all but its policy: everything is allowed, since only the root's own processes
// reach its socket.
std::string BusConfig() {
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>system</type>\n"
           "  <listen>" +
           BusAddress() +
           "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow user=\"*\"/>\n"
           "    <allow own=\"*\"/>\n"
           "    <allow send_type=\"method_call\"/>\n"
           "    <allow send_type=\"method_return\"/>\n"
           "    <allow send_type=\"error\"/>\n"
           "    <allow send_type=\"signal\"/>\n"
           "    <allow receive_type=\"method_call\"/>\n"
           "    <allow receive_type=\"method_return\"/>\n"
           "    <allow receive_type=\"error\"/>\n"
           "    <allow receive_type=\"signal\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
}

// Reads the line dbus-daemon prints once it listens.
bool ReadLine(int fd, int timeoutMs, std::string& line) {
    gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(timeoutMs) * 1000;
    char c = 0;
    while (g_get_monotonic_time() < deadline) {
        struct pollfd pfd = {fd, POLLIN, 0};
        if (poll(&pfd, 1, 100) <= 0) {
            continue;
        }
        if (read(fd, &c, 1) != 1) {
            return false;
        }
        if (c == '\n') {
            return true;
        }
        line += c;
    }
    return false;
}

bool StartBus(std::string& error) {
    MakeDirs(UnderRoot("etc/dbus"));
    MakeDirs(UnderRoot("run/dbus"));
    unlink(BusSocketPath().c_str());
    if (BusSocketPath().size() >= 108) {
        error = "the root's path is too long for a bus socket (" + BusSocketPath() + ")";
        return false;
    }
    if (!WriteFileAtomically(BusConfigFile(), BusConfig())) {
        error = "cannot write " + BusConfigFile();
        return false;
    }
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        error = "cannot make a pipe";
        return false;
    }
    SpawnOptions options;
    options.argv = {"/usr/bin/dbus-daemon", "--nofork", "--config-file=" + BusConfigFile(),
                    "--print-address=" + std::to_string(pipeFds[1])};
    options.logFile = LogFile("dbus-daemon");
    options.passFds = {pipeFds[1]};
    pid_t pid = SpawnDetached(options, error);
    close(pipeFds[1]);
    std::string address;
    bool ready = pid > 0 && ReadLine(pipeFds[0], kStartTimeoutMs, address);
    close(pipeFds[0]);
    if (pid > 0 && !WritePidFile(PidFileOf("dbus-daemon"), Identify(pid))) {
        error = "cannot write " + PidFileOf("dbus-daemon");
        return false;
    }
    if (!ready) {
        error = error.empty() ? "dbus-daemon did not start (see " + LogFile("dbus-daemon") + ")" : error;
        return false;
    }
    return true;
}

std::vector<std::pair<std::string, std::string>> StandInEnvironment() {
    return {{"ORVIX_HOST_ROOT", Root()}, {"DBUS_SYSTEM_BUS_ADDRESS", BusAddress()}};
}

bool StartStandIn(const std::string& name, const std::vector<std::string>& argv, const std::string& busName,
                  std::string& error) {
    SpawnOptions options;
    options.argv = argv;
    options.setEnvironment = StandInEnvironment();
    options.unsetEnvironment = {"NOTIFY_SOCKET", "ORVIX_LOG_FILE"};
    options.logFile = LogFile(name);
    pid_t pid = SpawnDetached(options, error);
    if (pid <= 0) {
        return false;
    }
    ProcessId id = Identify(pid);
    if (!WritePidFile(PidFileOf(name), id)) {
        error = "cannot write " + PidFileOf(name);
        return false;
    }
    return WaitForBusName(BusAddress(), busName, id, kStartTimeoutMs, error);
}

// Stand-ins of a bus that is gone cannot serve the new one.
void StopStandIns() {
    std::vector<KitProcess> standIns;
    for (const auto& process : RunningKitProcesses()) {
        if (!process.serviceApp && process.name != "dbus-daemon") {
            standIns.push_back(process);
        }
    }
    std::string ignored;
    StopProcesses(standIns, ignored);
}

// Stops the background client `name`, so that a foreground one can own its bus name. Calls made in the
// moment between the two find no client, as they would while any client restarts.
bool TakeOver(const std::string& name, const ProcessId& running, const std::string& busName,
              std::string& error) {
    KitProcess process;
    process.name = name;
    process.pidFile = PidFileOf(name);
    process.id = running;
    if (!StopProcesses({process}, error) ||
        !WaitForBusNameReleased(BusAddress(), busName, kStartTimeoutMs, error)) {
        return false;
    }
    unlink(process.pidFile.c_str());
    printf("%s ran in the background (pid %d): stopped; this terminal shows its progress from now on\n",
           name.c_str(), static_cast<int>(running.pid));
    fflush(stdout);
    return true;
}

}  // namespace

int RunUp(int argc, char** argv) {
    const char kCommand[] = "up";
    if (AsksForHelp(argc, argv)) {
        return ShowHelp(
            kCommand, nullptr,
            "Starts a private dbus-daemon (socket <root>/run/dbus/system_bus_socket) and the stand-in\n"
            "inner server unless they run, and writes the export line to <root>/run/env as well.\n"
            "Running it again is harmless and restarts what died.");
    }
    if (argc > 1) {
        return UsageError(kCommand, std::string("unexpected argument '") + argv[1] + "'");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::string error;
    MakeDirs(PidDirectory());
    if (!IsBusUp()) {
        StopStandIns();
        if (!StartBus(error)) {
            return Failure(kCommand, error);
        }
    }
    if (!IsRecordedRunning("innerserver")) {
        std::string program = FindKitFile(KitFile::InnerServer, error);
        if (program.empty() || !StartStandIn("innerserver", {program}, kInnerServerName, error)) {
            return Failure(kCommand, error);
        }
    }
    std::string line = "export DBUS_SYSTEM_BUS_ADDRESS=" + BusAddress() + "\n";
    if (!WriteFileAtomically(EnvFile(), line)) {
        return Failure(kCommand, "cannot write " + EnvFile());
    }
    fputs(line.c_str(), stdout);
    return 0;
}

int RunDown(int argc, char** argv) {
    const char kCommand[] = "down";
    if (AsksForHelp(argc, argv)) {
        return ShowHelp(
            kCommand, nullptr,
            "Stops tak-reset, the manager clients, the inner server and the bus of the root with\n"
            "their process groups, and removes their pid files, sockets and <root>/run/env.");
    }
    if (argc > 1) {
        return UsageError(kCommand, std::string("unexpected argument '") + argv[1] + "'");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::vector<KitProcess> processes = RunningKitProcesses();
    std::string error;
    bool stopped = StopProcesses(processes, error);
    if (!stopped) {
        // The files stay, so that a later down still finds what runs.
        return Failure(kCommand, error);
    }
    for (const auto& process : processes) {
        unlink(process.pidFile.c_str());
        if (process.serviceApp) {
            unlink(LaunchSocketPath(process.name).c_str());
        }
    }
    RemoveStalePidFiles();
    unlink(EnvFile().c_str());
    unlink(BusSocketPath().c_str());
    // A service app is recorded twice (by launch and by its own lock file).
    std::set<pid_t> stoppedPids;
    for (const auto& process : processes) {
        stoppedPids.insert(process.id.pid);
    }
    printf("stopped %zu process(es) of %s\n", stoppedPids.size(), Root().c_str());
    return 0;
}

int RunClient(int argc, char** argv) {
    const char kCommand[] = "client";
    gboolean foreground = FALSE;
    const GOptionEntry entries[] = {
        {"foreground", 0, 0, G_OPTION_ARG_NONE, &foreground,
         "run here and draw progress on this terminal (takes over a background client OBJ; its log stays in "
         "var/log/managerclient.OBJ.log; Ctrl-C ends it)",
         nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    int status = 0;
    if (!ParseOptions(kCommand, entries, argc, argv, status)) {
        return status;
    }
    if (argc != 2) {
        return UsageError(kCommand, "expected one object name: client OBJ [--foreground]");
    }
    std::string obj = argv[1];
    bool valid = !obj.empty() && !g_ascii_isdigit(obj[0]);
    for (char c : obj) {
        valid = valid && (g_ascii_isalnum(c) || c == '_');
    }
    if (!valid) {
        return UsageError(kCommand,
                          "OBJ '" + obj + "' must be letters, digits and '_', not starting with a digit");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    if (!IsBusUp()) {
        return UsageError(kCommand, "the bus of " + Root() + " is not up (run orvix-host up first)");
    }
    std::string error;
    std::string program = FindKitFile(KitFile::ManagerClient, error);
    if (program.empty()) {
        return Failure(kCommand, error);
    }
    std::string name = "managerclient." + obj;
    ProcessId running;
    if (IsRecordedRunning(name, &running)) {
        if (!foreground) {
            printf(
                "%s already runs (pid %d; its progress: orvix-host log %s); "
                "orvix-host client %s --foreground takes it over on this terminal\n",
                name.c_str(), static_cast<int>(running.pid), name.c_str(), obj.c_str());
            return 0;
        }
        if (!TakeOver(name, running, "org.orvix.tv.vardell.managerclient." + obj, error)) {
            return Failure(kCommand, error);
        }
    }
    if (foreground) {
        // The pid stays the same across exec, so down finds the client under this record.
        WritePidFile(PidFileOf(name), Identify(getpid()));
        for (const auto& [key, value] : StandInEnvironment()) {
            setenv(key.c_str(), value.c_str(), 1);
        }
        unsetenv("NOTIFY_SOCKET");
        // The terminal shows the progress alone; the client's own log lines go where a background
        // client's go.
        setenv("ORVIX_LOG_FILE", LogFile(name).c_str(), 1);
        execl(program.c_str(), program.c_str(), obj.c_str(), static_cast<char*>(nullptr));
        return Failure(kCommand, "cannot run " + program + ": " + strerror(errno));
    }
    if (!StartStandIn(name, {program, obj}, "org.orvix.tv.vardell.managerclient." + obj, error)) {
        return Failure(kCommand, error);
    }
    printf("%s runs\n", name.c_str());
    return 0;
}
