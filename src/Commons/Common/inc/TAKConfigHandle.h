// CTAKConfigHandle: the hook table through which the shared code reaches the configuration table. A
// process installs its functions once at start, before any use (the reset process installs
// CAppDBInfo's); a forwarding call whose hook is not set returns false.
#pragma once

#include <string>

class CTAKConfigHandle {
public:
    typedef bool (*GetConfigTableHandle)(const std::string& name, std::string& value);
    typedef bool (*UpdateConfigTableHandle)(const std::string& name, const std::string& value);
    typedef bool (*GetAppSyncConfigHandle)(std::string& value);
    typedef bool (*UpdateAppSyncConfigHandle)(const std::string& value);

    static void SetGetConfigTableHandle(GetConfigTableHandle handle) { s_pGetConfigTable = handle; }
    static void SetUpdateConfigTableHandle(UpdateConfigTableHandle handle) { s_pUpdateConfigTable = handle; }
    static void SetGetAppSyncConfigHandle(GetAppSyncConfigHandle handle) { s_pGetAppSyncConfig = handle; }
    static void SetUpdateAppSyncConfigHandle(UpdateAppSyncConfigHandle handle) {
        s_pUpdateAppSyncConfig = handle;
    }

    static bool GetConfigTable(const std::string& name, std::string& value);
    static bool UpdateConfigTable(const std::string& name, const std::string& value);
    static bool GetAppSyncConfig(std::string& value);
    static bool UpdateAppSyncConfig(const std::string& value);

private:
    static GetConfigTableHandle s_pGetConfigTable;
    static UpdateConfigTableHandle s_pUpdateConfigTable;
    static GetAppSyncConfigHandle s_pGetAppSyncConfig;
    static UpdateAppSyncConfigHandle s_pUpdateAppSyncConfig;
};
