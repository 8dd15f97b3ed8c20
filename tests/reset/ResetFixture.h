// What the apps-reset integration tests share: a root with no seeded apps (each test installs exactly the
// apps it needs through the stand-in daemon), settings and configuration helpers, and readers of what the
// reset did (uninstall requests, results, log lines, files).
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "AppDBInfo.h"
#include "HostFixture.h"
#include "orvix_host.h"

namespace reset_test {

struct AppSpec {
    std::string id;
    int type = 1;
    bool disableReset = false;
    bool front = false;
};

class ResetFixture : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }

    void TearDown() override {
        if (m_bus != nullptr) {
            g_object_unref(m_bus);
            m_bus = nullptr;
        }
        HostFixture::TearDown();
    }

    // One call to the stand-in daemon; its "(i)" answer, or -1.
    int InnerServer(const char* method, GVariant* parameters) {
        if (m_bus == nullptr) {
            m_bus = ConnectToBus();
        }
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            m_bus, "org.orvix.tv.vardell.innerserver", "/org/orvix/tv/vardell/innerserver",
            "org.orvix.tv.vardell.innerserver.interface", method, parameters, G_VARIANT_TYPE("(i)"),
            G_DBUS_CALL_FLAGS_NONE, 20000, nullptr, &error);
        int result = -1;
        if (reply != nullptr) {
            g_variant_get(reply, "(i)", &result);
            g_variant_unref(reply);
        }
        EXPECT_EQ(error, nullptr) << method << ": " << (error != nullptr ? error->message : "");
        g_clear_error(&error);
        return result;
    }

    void AddApps(const std::vector<AppSpec>& apps) {
        int index = 1;
        for (const AppSpec& spec : apps) {
            _APPINFO_T app;
            app.id = spec.id;
            app.app_index = index++;
            app.title = "App " + spec.id;
            app.pkgname = "org.test." + std::to_string(app.app_index);
            app.app_type = spec.type;
            app.reserved_tinyint_1 = spec.disableReset ? 1 : 0;
            app.reserved_tinyint_2 = spec.front ? 1 : 0;
            app.install_state = 3;
            std::string json = CAppDBInfo::m_MakeAppInfoJson(app);
            ASSERT_EQ(InnerServer("set_app_info", g_variant_new("(isi)", 2, json.c_str(), 0)), 1) << spec.id;
        }
    }

    // Plain apps named <prefix>000, <prefix>001, ...
    void AddPlainApps(const std::string& prefix, int count) {
        std::vector<AppSpec> apps;
        for (int i = 0; i < count; ++i) {
            char id[64];
            snprintf(id, sizeof(id), "%s%03d", prefix.c_str(), i);
            apps.push_back({id});
        }
        AddApps(apps);
    }

    void SetConfig(const std::string& key, const std::string& value) {
        ASSERT_EQ(InnerServer("update_config_table", g_variant_new("(ss)", key.c_str(), value.c_str())), 1);
    }

    void SetSetting(const std::string& type, const std::string& key, const std::string& value) const {
        orvix::test::RunResult set = Host({"settings", "set", "-t", type, key, value});
        ASSERT_EQ(set.status, 0) << set.err;
    }

    std::string Setting(const std::string& key) const {
        orvix::test::RunResult get = Host({"settings", "get", key});
        EXPECT_EQ(get.status, 0) << key << ": " << get.err;
        std::string value = get.out;
        while (!value.empty() && value.back() == '\n') {
            value.pop_back();
        }
        return value;
    }

    // The app ids of the uninstall requests, in the order they were made.
    std::vector<std::string> Requested() const {
        std::vector<std::string> ids;
        for (const auto& call : CallsOf("libtak_common", "UninstallAppAPI")) {
            ids.push_back(call["args"][0]["appkey"].asString());
        }
        return ids;
    }

    // "process_result" calls with one result name.
    std::vector<Json::Value> Results(const std::string& name) const {
        std::vector<Json::Value> results;
        for (const auto& call : CallsOf("innerserver", "process_result")) {
            if (call["args"][0].asString() == name) {
                results.push_back(call);
            }
        }
        return results;
    }

    bool WaitForResult(const std::string& name, size_t count = 1) const {
        return orvix::test::WaitUntil([&] { return Results(name).size() >= count; },
                                      std::chrono::seconds(60));
    }

    // Launches a reset and fails the test when the request is not delivered.
    void Start(const std::vector<std::string>& extras) const {
        orvix::test::RunResult launched = Launch(extras);
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

    size_t CountInLog(const std::string& text) const {
        std::string log = TakResetLog();
        size_t count = 0;
        for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
            ++count;
        }
        return count;
    }

    // Where a text first appears in the log (npos when it does not).
    size_t LogPosition(const std::string& text) const { return TakResetLog().find(text); }

    static std::string ServiceDir(int variable, const std::string& sub) {
        return orvix::host::PathVariable(variable) + "/vardell/" + sub;
    }

    static bool Exists(const std::string& path) {
        struct stat st {};
        return lstat(path.c_str(), &st) == 0;
    }

    // True when the directory exists and holds nothing.
    static bool IsEmptyDir(const std::string& path) {
        GDir* dir = g_dir_open(path.c_str(), 0, nullptr);
        if (dir == nullptr) {
            return false;
        }
        bool empty = g_dir_read_name(dir) == nullptr;
        g_dir_close(dir);
        return empty;
    }

    static void Plant(const std::string& path) {
        orvix::host::MakeDirs(path.substr(0, path.rfind('/')));
        std::ofstream(path) << "planted\n";
    }

private:
    GDBusConnection* m_bus = nullptr;
};

}  // namespace reset_test
