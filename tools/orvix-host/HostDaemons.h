// The processes orvix-host starts for a root and the files it keeps about them:
//   <root>/.orvix-host             marks a root made by `orvix-host init` (only such a root is ever wiped)
//   <root>/run/pids/NAME.pid       "PID STARTTIME" of every process the kit started (orvix_process.h)
//   <root>/run/APP/APP.pid         the lock and pid file of a running service app (orvix_launch.h)
//   <root>/run/env                 "export DBUS_SYSTEM_BUS_ADDRESS=..." of the private bus
//   <root>/run/dbus/               the private bus: its configuration and socket
//   <root>/var/log/NAME.log        standard output and error of each process
// Every process is started in a session and process group of its own, so that stopping it also stops
// whatever it started.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "orvix_process.h"

namespace orvix::host {

std::string RootMarker();
bool IsInitialisedRoot();
std::string PidDirectory();
std::string EnvFile();
std::string BusSocketPath();
// The address of the root's private bus (whether it runs or not).
std::string BusAddress();
std::string LogFile(const std::string& name);
// <root>/run/pids/NAME.pid
std::string PidFileOf(const std::string& name);
// True when the process recorded as NAME runs; its identity goes to `id` when given.
bool IsRecordedRunning(const std::string& name, ProcessId* id = nullptr);
// True when the root's private bus runs and listens.
bool IsBusUp();

struct SpawnOptions {
    std::vector<std::string> argv;
    std::vector<std::pair<std::string, std::string>> setEnvironment;
    std::vector<std::string> unsetEnvironment;
    std::string logFile;       // standard output and error are appended here; empty: /dev/null
    std::vector<int> passFds;  // handed to the child under the same numbers
};

// Starts a program detached from orvix-host (own session, standard input /dev/null). 0 on failure.
pid_t SpawnDetached(const SpawnOptions& options, std::string& error);

struct KitProcess {
    std::string name;
    std::string pidFile;
    ProcessId id;
    bool serviceApp = false;
};

// Every recorded process of the root that still runs.
std::vector<KitProcess> RunningKitProcesses();

// Removes the records in <root>/run/pids of processes that no longer run.
void RemoveStalePidFiles();

// Stops `processes` with their process groups: service apps with SIGKILL at once (they may ignore
// SIGTERM), the others with SIGTERM and, after a grace period, SIGKILL. True when none is left.
bool StopProcesses(const std::vector<KitProcess>& processes, std::string& error);

// Waits until `name` has an owner on the bus at `address`; false after `timeoutMs` or once `owner`
// (the process expected to take it) is gone.
bool WaitForBusName(const std::string& address, const std::string& name, const ProcessId& owner,
                    int timeoutMs, std::string& error);
// Waits until `name` has no owner on the bus at `address`; false after `timeoutMs`.
bool WaitForBusNameReleased(const std::string& address, const std::string& name, int timeoutMs,
                            std::string& error);

}  // namespace orvix::host
