// HostFixture: a GoogleTest fixture that runs tests against the real host platform kit.
//
// SetUp makes a fresh temporary root (ORVIX_HOST_ROOT, also set for this test process through
// orvix::host::SetRoot), runs `orvix-host init` with InitArguments() and, unless StartsBus() is false,
// `orvix-host up`. The kit (orvix-host, TAK_ORVIX_HOST, and the programs it finds beside it) is this build
// tree's, a native one's when this build is for another processor, or an installed kit's when it is built
// against a system's platform modules; tak-reset is
// TAK_BINARY_DIR/src/tak-reset unless ORVIX_TAK_RESET names another program (orvix-host honours it too).
// Programs built for the device start through ORVIX_EXEC_PREFIX (DeviceArgv), as the kit starts them.
// TearDown prints the tak-reset log, the stand-ins' logs and the recorded calls when the test failed,
// runs `orvix-host down`, checks that no process of the root is left, and removes the root (kept when
// ORVIX_KEEP_ROOT is set). A GLib critical in the log of any process of the root fails the test.
//
// Waiting is always bounded: WaitUntil polls a condition until it holds or the time-out passes.
// Test programs that use the fixture depend on the `orvix_kit` build target (tests/CMakeLists.txt adds
// it to every test program).
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TempDir.h"
#include "TestLog.h"
#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_launch.h"
#include "orvix_process.h"

#ifndef TAK_KIT_DIR
#define TAK_KIT_DIR TAK_BINARY_DIR
#endif

namespace orvix::test {

using namespace std::chrono_literals;

struct RunResult {
    int status = -1;  // exit status, or -1 when the program could not run or did not exit normally
    std::string out;
    std::string err;
};

// Polls `condition` every few milliseconds until it holds or `timeout` passes; the last answer.
inline bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 20s) {
    for (auto deadline = std::chrono::steady_clock::now() + timeout; !condition();) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

// `argv` of a program built for the device, after the words of ORVIX_EXEC_PREFIX (the emulator of another
// processor, say); RunProgram looks its first word up in PATH.
inline std::vector<std::string> DeviceArgv(std::vector<std::string> argv) {
    const char* prefix = getenv("ORVIX_EXEC_PREFIX");
    g_auto(GStrv) words = g_strsplit_set(prefix != nullptr ? prefix : "", " \t", -1);
    argv.insert(argv.begin(), words, words + g_strv_length(words));
    argv.erase(std::remove(argv.begin(), argv.end(), ""), argv.end());
    return argv;
}

// Runs a program to its end with extra environment variables.
inline RunResult RunProgram(const std::vector<std::string>& argv,
                            const std::vector<std::pair<std::string, std::string>>& environment = {}) {
    std::vector<gchar*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<gchar*>(arg.c_str()));
    }
    args.push_back(nullptr);
    g_auto(GStrv) envp = g_get_environ();
    for (const auto& [key, value] : environment) {
        envp = g_environ_setenv(envp, key.c_str(), value.c_str(), TRUE);
    }
    gint waitStatus = 0;
    g_autoptr(GError) error = nullptr;
    // A loaded machine running sanitizer builds may refuse a fork for a moment; that is not the test's fault.
    for (int attempt = 0; attempt < 5; ++attempt, std::this_thread::sleep_for(100ms)) {
        g_clear_error(&error);
        g_autofree gchar* out = nullptr;
        g_autofree gchar* err = nullptr;
        if (g_spawn_sync(nullptr, args.data(), envp, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out, &err,
                         &waitStatus, &error)) {
            std::string signal =
                WIFSIGNALED(waitStatus) ? "\nended by signal " + std::to_string(WTERMSIG(waitStatus)) : "";
            return {WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1, out, err + signal};
        }
        if (!g_error_matches(error, G_SPAWN_ERROR, G_SPAWN_ERROR_FORK) &&
            !g_error_matches(error, G_SPAWN_ERROR, G_SPAWN_ERROR_NOMEM)) {
            break;
        }
    }
    return {-1, "", error->message};
}

class HostFixture : public ::testing::Test {
protected:
    static std::string BinaryDir() { return TAK_BINARY_DIR; }
    static std::string KitDir() { return TAK_KIT_DIR; }
    static std::string OrvixHostPath() { return TAK_ORVIX_HOST; }
    static std::string TakResetPath() {
        const char* custom = getenv("ORVIX_TAK_RESET");
        return custom != nullptr && *custom != '\0' ? custom : BinaryDir() + "/src/tak-reset";
    }
    // The app name of the program that `launch` starts (its file name).
    static std::string AppName() {
        std::string path = TakResetPath();
        return path.substr(path.rfind('/') + 1);
    }

    virtual std::vector<std::string> InitArguments() const { return {"--apps", "3", "--builtin", "2"}; }
    virtual bool StartsBus() const { return true; }

    void SetUp() override {
        std::string pattern = orvix::test::TempPattern("orvix-test-");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr) << "cannot make a temporary root";
        m_root = pattern;
        orvix::host::SetRoot(m_root);
        std::vector<std::string> init = InitArguments();
        init.insert(init.begin(), "init");
        RunResult made = Host(init);
        ASSERT_EQ(made.status, 0) << "orvix-host init failed: " << made.err;
        made = StartsBus() ? Host({"up"}) : made;
        ASSERT_EQ(made.status, 0) << "orvix-host up failed: " << made.err;
    }

    // Prints the logs when the test failed, and checks that `orvix-host down` leaves no process of the root
    // behind.
    void TearDown() override {
        if (m_root.empty()) {
            return;
        }
        // GLib only prints a critical and goes on, so a broken call would pass unseen.
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(m_root + "/var/log", error)) {
            std::string text = entry.path().extension() == ".log" ? ReadWholeFile(entry.path()) : "";
            size_t at = text.find("CRITICAL **");
            EXPECT_EQ(at, std::string::npos)
                << entry.path() << ": " << text.substr(std::min(at, text.size()), 300);
        }
        for (const std::string& path :
             {LogPath(AppName()), orvix::host::CallsFile(), LogPath("innerserver")}) {
            std::string text = HasFailure() ? ReadWholeFile(path) : "";
            fprintf(stderr, "%s", text.empty() ? "" : ("----- " + path + " -----\n" + text + "\n").c_str());
        }
        std::vector<orvix::host::ProcessId> processes = RunningFrom("");
        RunResult down = Host({"down"});
        EXPECT_EQ(down.status, 0) << "orvix-host down failed: " << down.err;
        for (const auto& process : processes) {
            EXPECT_FALSE(orvix::host::IsRunning(process)) << process.pid << " outlived orvix-host down";
        }
        if (getenv("ORVIX_KEEP_ROOT") == nullptr) {
            RunProgram({"/bin/rm", "-rf", m_root});
        }
    }

    const std::string& Root() const { return m_root; }

    // `orvix-host ARGS...` for this root, unless `environment` names another.
    RunResult Host(const std::vector<std::string>& args,
                   std::vector<std::pair<std::string, std::string>> environment = {}) const {
        std::vector<std::string> argv = {OrvixHostPath()};
        argv.insert(argv.end(), args.begin(), args.end());
        environment.insert(environment.begin(), {"ORVIX_HOST_ROOT", m_root});
        return RunProgram(argv, environment);
    }

    // `orvix-host launch EXTRAS...`: the request is queued by tak-reset when this returns status 0. `raw`:
    // sent as given, for a request that is wrong on purpose or meant for another app.
    RunResult Launch(const std::vector<std::string>& extras, bool raw = false) const {
        std::vector<std::string> args = raw ? std::vector<std::string>{"launch", "--raw", "--"}
                                            : std::vector<std::string>{"launch", "--"};
        args.insert(args.end(), extras.begin(), extras.end());
        return Host(args);
    }

    std::string BusAddress() const { return "unix:path=" + m_root + "/run/dbus/system_bus_socket"; }

    // A private connection to the root's bus (the caller unrefs it); fails the test when there is none.
    GDBusConnection* ConnectToBus() const {
        g_autoptr(GError) error = nullptr;
        GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
            BusAddress().c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        EXPECT_NE(connection, nullptr) << (error != nullptr ? error->message : "");
        return connection;
    }

    // The calls of one recorder ("innerserver", "managerclient.OBJ", "libtak_common", "launcher"),
    // optionally of one method only, in order; a line still being written is left out.
    std::vector<Json::Value> CallsOf(const std::string& who, const std::string& method = "") const {
        std::vector<Json::Value> selected;
        std::istringstream text(ReadWholeFile(orvix::host::CallsFile()));
        std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        for (std::string line; std::getline(text, line) && !text.eof();) {
            Json::Value call;
            if (reader->parse(line.data(), line.data() + line.size(), &call, nullptr) &&
                call["who"].asString() == who && (method.empty() || call["method"].asString() == method)) {
                selected.push_back(call);
            }
        }
        return selected;
    }

    // The methods of one recorder's calls, in order.
    std::vector<std::string> MethodsOf(const std::string& who) const {
        std::vector<std::string> methods;
        for (const auto& call : CallsOf(who)) {
            methods.push_back(call["method"].asString());
        }
        return methods;
    }

    bool WaitForCall(const std::string& who, const std::string& method,
                     std::chrono::milliseconds timeout = 20s, size_t count = 1) const {
        return WaitUntil([&] { return CallsOf(who, method).size() >= count; }, timeout);
    }

    std::string LogPath(const std::string& program) const { return m_root + "/var/log/" + program + ".log"; }
    std::string TakResetLog() const { return ReadWholeFile(LogPath(AppName())); }

    bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout = 20s) const {
        return WaitUntil([&] { return TakResetLog().find(text) != std::string::npos; }, timeout);
    }

    // Whether an instance of the app runs: its own pid file names a live one, or `launch` started one that
    // has not gone yet. The app removes its pid file before its last log lines, so the file alone would call
    // an app that is still finishing gone.
    bool AppRunning() const { return !RunningFrom("app." + AppName() + ".").empty(); }

    // Waits until the app has left (after "reset=end", say).
    bool WaitForAppExit(std::chrono::milliseconds timeout = 30s) const {
        return WaitUntil([&] { return !AppRunning(); }, timeout);
    }

    // <root>/etc/libtak_common.json, then `orvix-host libtak apply` (the next tak-reset loads the result).
    void SetLibTakBehaviour(const Json::Value& behaviour) const {
        std::ofstream(m_root + "/etc/libtak_common.json", std::ios::trunc)
            << orvix::host::JsonLine(behaviour) << "\n";
        RunResult applied = Host({"libtak", "apply"});
        ASSERT_EQ(applied.status, 0) << applied.err;
    }

    void SetSystemFlag(const std::string& flag, bool value) const {
        RunResult set = Host({"sysinfo", "set", flag, value ? "true" : "false"});
        ASSERT_EQ(set.status, 0) << set.err;
    }

private:
    // The live processes that the launch pid file and the pid files under <root>/run/pids whose names start
    // with `prefix` name.
    std::vector<orvix::host::ProcessId> RunningFrom(const std::string& prefix) const {
        std::vector<std::string> files = {orvix::host::LaunchPidPath(AppName())};
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(m_root + "/run/pids", error)) {
            if (entry.path().filename().string().rfind(prefix, 0) == 0) {
                files.push_back(entry.path().string());
            }
        }
        std::vector<orvix::host::ProcessId> running;
        for (const auto& file : files) {
            orvix::host::ProcessId id;
            if (orvix::host::ReadPidFile(file, id) && orvix::host::IsRunning(id)) {
                running.push_back(id);
            }
        }
        return running;
    }

    std::string m_root;
};

}  // namespace orvix::test
