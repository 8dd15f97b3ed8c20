// CTAKAppInfoHandle: the hook table through which the shared code reaches app records without knowing
// which process it runs in. A process installs its app-data functions once at start, before any use
// (the reset process installs CAppDBInfo's); a forwarding call whose hook is not set returns false or
// an empty result.
#pragma once

#include <list>
#include <map>
#include <string>

#include "AppInfo.h"

class CTAKAppInfoHandle {
public:
    typedef bool (*SetInfoHandle)(_APPINFO_T& info, bool flag);
    typedef bool (*GetInfoByIDHandle)(const std::string& id, _APPINFO_T& info, bool onlyUsable);
    typedef bool (*GetInfoByRuntitleHandle)(const std::string& runTitle, _APPINFO_T& info, bool onlyUsable);
    typedef bool (*RemoveAppHandle)(const std::string& id);
    typedef bool (*GetPkgTypeHandle)(std::map<std::string, std::string>& types);
    typedef std::list<_APPINFO_T> (*GetAllAppHandle)();
    typedef std::string (*GetAllAppStringHandle)();
    typedef bool (*GetUSBAppHandle)(std::list<_APPINFO_T>& apps);
    typedef bool (*GetUnavailableUSBAppHandle)(std::list<_APPINFO_T>& apps);

    static void SetSetInfoHandle(SetInfoHandle handle) { s_pSetInfo = handle; }
    static void SetGetInfoByIDHandle(GetInfoByIDHandle handle) { s_pGetInfoByID = handle; }
    static void SetGetInfoByRuntitleHandle(GetInfoByRuntitleHandle handle) { s_pGetInfoByRuntitle = handle; }
    static void SetRemoveAppHandle(RemoveAppHandle handle) { s_pRemoveApp = handle; }
    static void SetGetPkgTypeHandle(GetPkgTypeHandle handle) { s_pGetPkgType = handle; }
    static void SetGetAllAppHandle(GetAllAppHandle handle) { s_pGetAllApp = handle; }
    static void SetGetAllAppStringHandle(GetAllAppStringHandle handle) { s_pGetAllAppString = handle; }
    static void SetGetUSBAppHandle(GetUSBAppHandle handle) { s_pGetUSBApp = handle; }
    static void SetGetUnavailableUSBAppHandle(GetUnavailableUSBAppHandle handle) {
        s_pGetUnavailableUSBApp = handle;
    }

    static bool SetAppInfo(_APPINFO_T& info, bool flag);
    static bool GetAppInfoById(const std::string& id, _APPINFO_T& info, bool onlyUsable);
    static bool GetAppInfoByRunTitle(const std::string& runTitle, _APPINFO_T& info, bool onlyUsable);
    static bool RemoveApp(const std::string& id);
    static bool GetAppPkgTypeInfo(std::map<std::string, std::string>& types);
    static std::list<_APPINFO_T> GetAllAppList();
    static std::string GetAllAppString();
    static bool GetUsbAppsInfo(std::list<_APPINFO_T>& apps);
    static bool GetUnAvailableUsbAppsInfo(std::list<_APPINFO_T>& apps);

private:
    static SetInfoHandle s_pSetInfo;
    static GetInfoByIDHandle s_pGetInfoByID;
    static GetInfoByRuntitleHandle s_pGetInfoByRuntitle;
    static RemoveAppHandle s_pRemoveApp;
    static GetPkgTypeHandle s_pGetPkgType;
    static GetAllAppHandle s_pGetAllApp;
    static GetAllAppStringHandle s_pGetAllAppString;
    static GetUSBAppHandle s_pGetUSBApp;
    static GetUnavailableUSBAppHandle s_pGetUnavailableUSBApp;
};
