// What the apps-reset integration tests share: a root with no seeded apps (each test installs exactly the
// apps it needs through the stand-in daemon), settings helpers, and readers of what the reset did.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "AppDBInfo.h"
#include "HostFixture.h"
#include "PlatformLog.h"
#include "orvix_host.h"

namespace reset_test {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct TestApp {
    std::string id;
    int type = 1;
    bool disableReset = false;
    bool front = false;
};

using orvix::test::Count;

class ResetFixture : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }

    // One call to the stand-in daemon; its "(i)" answer, or -1. One connection serves a whole test, as
    // connecting is slow next to a call.
    int InnerServer(const char* method, GVariant* parameters) const {
        if (!m_bus) {
            m_bus.reset(ConnectToBus());
        }
        g_autoptr(GError) error = nullptr;
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            m_bus.get(), "org.orvix.tv.vardell.innerserver", "/org/orvix/tv/vardell/innerserver",
            "org.orvix.tv.vardell.innerserver.interface", method, parameters, G_VARIANT_TYPE("(i)"),
            G_DBUS_CALL_FLAGS_NONE, 20000, nullptr, &error);
        EXPECT_EQ(error, nullptr) << method << ": " << (error != nullptr ? error->message : "");
        int result = -1;
        if (reply != nullptr) {
            g_variant_get(reply, "(i)", &result);
        }
        return result;
    }

    // Installs one app record through the stand-in daemon (`index` numbers its package); true when the
    // daemon took it.
    bool AddApp(const TestApp& wanted, int index) const {
        _APPINFO_T app;
        app.id = wanted.id;
        app.app_index = index;
        app.title = "App " + wanted.id;
        app.pkgname = "org.test." + std::to_string(app.app_index);
        app.app_type = wanted.type;
        app.reserved_tinyint_1 = wanted.disableReset ? 1 : 0;
        app.reserved_tinyint_2 = wanted.front ? 1 : 0;
        app.install_state = 3;
        std::string json = CAppDBInfo::m_MakeAppInfoJson(app);
        return InnerServer("set_app_info", g_variant_new("(isi)", 2, json.c_str(), 0)) == 1;
    }

    void AddApps(const std::vector<TestApp>& apps) const {
        int index = 1;
        for (const TestApp& wanted : apps) {
            ASSERT_TRUE(AddApp(wanted, index++)) << wanted.id;
        }
    }

    void SetConfig(const std::string& key, const std::string& value) const {
        ASSERT_EQ(InnerServer("update_config_table", g_variant_new("(ss)", key.c_str(), value.c_str())), 1);
    }

    void SetSetting(const std::string& type, const std::string& key, const std::string& value) const {
        orvix::test::RunResult set = Host({"settings", "set", "-t", type, key, value});
        ASSERT_EQ(set.status, 0) << set.err;
    }

    std::string Setting(const std::string& key) const {
        orvix::test::RunResult get = Host({"settings", "get", key});
        EXPECT_EQ(get.status, 0) << key << ": " << get.err;
        return get.out.substr(0, get.out.find_last_not_of('\n') + 1);
    }

    // A built-in package pkg.APPID whose main app is APPID.
    void AddBuiltIn(const std::string& appId, const std::string& version = "2.0.0",
                    const std::string& removable = "true", const std::string& instantReset = "true") const {
        orvix::test::RunResult added =
            Host({"pkg", "add", "pkg." + appId, "--builtin", "--version", version, "--removable", removable,
                  "--app", appId, "--main", appId, "--meta",
                  "http://orvix.com/tv/metadata/prefer_instant_reset=" + instantReset});
        ASSERT_EQ(added.status, 0) << added.err;
    }

    // An entry of the library's built-in list, requiring each of `required` (app id, version).
    static Json::Value BuiltInEntry(const std::string& appId,
                                    const std::vector<std::pair<std::string, std::string>>& required = {}) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = appId;
        entry["pkgId"] = "pkg." + appId;
        entry["orvixId"] = appId + ".orvix";
        entry["baseVersion"] = "1.0.0";
        for (const auto& [id, version] : required) {
            entry["requires"][id]["version"] = version;
            entry["requires"][id]["pkgid"] = "pkg." + id;
        }
        return entry;
    }

    // The substitute library's behaviour: an uninstall of each of `apps` answers after `delayMs` and
    // fails (the app stays installed); the `silent` ones are never answered.
    static Json::Value FailingUninstalls(int delayMs, const Lines& apps, const Lines& silent = {}) {
        Json::Value behaviour(Json::objectValue);
        behaviour["uninstall"]["delay_ms"] = delayMs;
        for (const std::string& app : apps) {
            behaviour["uninstall"]["apps"][app]["fail"] = true;
            behaviour["uninstall"]["apps"][app]["delay_ms"] = delayMs;
        }
        for (const std::string& app : silent) {
            behaviour["uninstall"]["apps"][app]["silent"] = true;
        }
        return behaviour;
    }

    // The library reads its behaviour file at every call: a running process takes a change at once.
    void ChangeLibTakBehaviour(const Json::Value& behaviour) const {
        std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
            << orvix::host::JsonLine(behaviour) << "\n";
    }

    // The app ids of the install requests, in the order they were made (the app key is the first extra).
    Lines Installed() const {
        Lines ids;
        for (const auto& call : CallsOf("libtak_common", "InstallAppAPI")) {
            ids.push_back(call["args"][0][0][1].asString());
        }
        return ids;
    }

    // The app ids of the uninstall requests, in the order they were made.
    Lines Requested() const {
        Lines ids;
        for (const auto& call : CallsOf("libtak_common", "UninstallAppAPI")) {
            ids.push_back(call["args"][0]["appkey"].asString());
        }
        return ids;
    }

    // The arguments of one recorder's calls of a method, as JSON lines.
    Lines ArgsOf(const std::string& who, const std::string& method) const {
        Lines args;
        for (const auto& call : CallsOf(who, method)) {
            args.push_back(orvix::host::JsonLine(call["args"]));
        }
        return args;
    }

    // The "process_result" calls with one result name.
    Lines Results(const std::string& name) const {
        Lines results;
        for (const auto& line : ArgsOf("innerserver", "process_result")) {
            if (line.rfind("[\"" + name + "\",", 0) == 0) {
                results.push_back(line);
            }
        }
        return results;
    }
    // The one result line a reset reports.
    static Lines One(const std::string& name, const std::string& cookie) {
        return {"[\"" + name + "\",1,\"" + cookie + "\",\"\"]"};
    }

    bool WaitForResult(const std::string& name, size_t count = 1) const {
        return orvix::test::WaitUntil([&] { return Results(name).size() >= count; },
                                      std::chrono::seconds(60));
    }

    void Start(const std::vector<std::string>& extras, bool raw = false) const {
        orvix::test::RunResult launched = Launch(extras, raw);
        ASSERT_EQ(launched.status, 0) << launched.err;
    }

    // "end", then waits until the process has gone: everything the process was going to do is done.
    // The process's standard error goes to its log, so a sanitizer report would show there.
    void EndProcess() const {
        Start({"reset=end"});
        ASSERT_TRUE(WaitForAppExit(std::chrono::seconds(60))) << "tak-reset did not exit after reset=end";
        EXPECT_EQ(CountInLog("Sanitizer"), 0u);
        EXPECT_EQ(CountInLog("runtime error:"), 0u);
    }

    // Starts a reset, waits for its result (the count-th one), then ends the process.
    void RunToEnd(const std::vector<std::string>& extras, const std::string& result, size_t count = 1) const {
        Start(extras);
        EXPECT_TRUE(!HasFatalFailure() && WaitForResult(result, count)) << "no " << result;
        EndProcess();
    }

    size_t CountInLog(const std::string& text) const { return Count(TakResetLog(), text); }
    // Warning-level lines of the log that hold `text`: what a support engineer's W filter shows.
    size_t CountWarnings(const std::string& text) const {
        size_t n = 0;
        for (const auto& line : orvix::test::PlatformLogLines(TakResetLog())) {
            n += line.text.find(" W/TAK(") != std::string::npos && line.text.find(text) != std::string::npos;
        }
        return n;
    }
    // Where a text first appears in the log (npos when it does not).
    size_t LogPosition(const std::string& text) const { return TakResetLog().find(text); }

    static std::string DatabasePath() { return orvix::host::PathVariable(24) + "/.vardell.db"; }
    // The first column of what `sql` reads from (or, `write`, does to) the app database, with a connection of
    // the test's own that waits (up to 10 s) for a writer's lock, as any reader would.
    static Lines Rows(const std::string& sql, bool write = false) {
        Lines rows;
        sqlite3* db = nullptr;
        const int mode = write ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
        if (sqlite3_open_v2(DatabasePath().c_str(), &db, mode, nullptr) == SQLITE_OK &&
            sqlite3_busy_timeout(db, 10000) == SQLITE_OK) {
            sqlite3_exec(
                db, sql.c_str(),
                [](void* out, int, char** values, char**) {
                    static_cast<Lines*>(out)->emplace_back(values[0] != nullptr ? values[0] : "");
                    return 0;
                },
                &rows, nullptr);
        }
        sqlite3_close(db);
        return rows;
    }

    static std::string ServiceDir(int variable, const std::string& sub) {
        return orvix::host::PathVariable(variable) + "/vardell/" + sub;
    }

    static bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }
    // True when the directory exists and holds nothing.
    static bool IsEmptyDir(const std::string& path) {
        std::error_code error;
        return fs::is_directory(path, error) && fs::is_empty(path, error);
    }
    static void Plant(const std::string& path) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << "planted\n";
    }

    // The directories a reset empties: those of every reset, and "system_app/" of a Corvane reset.
    static std::vector<std::string> ResetDirectories(bool corvane) {
        std::vector<std::string> dirs = {
            ServiceDir(2, "common"), ServiceDir(2, "appupdate"), ServiceDir(27, "preinstallrecovery"),
            ServiceDir(27, "clone"), ServiceDir(27, "RM"),       ServiceDir(27, "appupdate/package")};
        if (corvane) {
            dirs.push_back(ServiceDir(27, "system_app"));
        }
        for (int variable = 66; variable <= 74; ++variable) {
            dirs.push_back(orvix::host::PathVariable(variable));
        }
        return dirs;
    }
    // Every file and directory of the root but those under a path of `skipped`: path -> its mode, and a
    // file's size and modification time.
    std::map<std::string, std::string> Snapshot(const std::vector<std::string>& skipped) const {
        std::map<std::string, std::string> files;
        std::error_code error;
        for (auto it = fs::recursive_directory_iterator(Root(), error); !error && it != fs::end(it);
             it.increment(error)) {
            const std::string path = it->path().string();
            struct stat info {};
            if (std::any_of(skipped.begin(), skipped.end(),
                            [&](const std::string& prefix) { return path.rfind(prefix, 0) == 0; })) {
                it.disable_recursion_pending();
            } else if (lstat(path.c_str(), &info) == 0) {
                files[path] = std::to_string(info.st_mode);
                files[path] += S_ISDIR(info.st_mode) ? ""
                                                     : " " + std::to_string(info.st_size) + " bytes at " +
                                                           std::to_string(info.st_mtim.tv_sec) + "." +
                                                           std::to_string(info.st_mtim.tv_nsec);
            }
        }
        return files;
    }

    // Its directories are empty, and the backup file is gone.
    static void ExpectEmptied(bool corvane) {
        for (const auto& dir : ResetDirectories(corvane)) {
            EXPECT_TRUE(IsEmptyDir(dir)) << dir;
        }
        EXPECT_FALSE(Exists(ServiceDir(27, "bnr_backup/bnr_backup.json")));
    }

private:
    mutable std::unique_ptr<GDBusConnection, void (*)(gpointer)> m_bus{nullptr, g_object_unref};
};

}  // namespace reset_test
