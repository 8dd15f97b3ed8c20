#include "TAKAppInfoHandle.h"

CTAKAppInfoHandle::SetInfoHandle CTAKAppInfoHandle::s_pSetInfo = nullptr;
CTAKAppInfoHandle::GetInfoByIDHandle CTAKAppInfoHandle::s_pGetInfoByID = nullptr;
CTAKAppInfoHandle::GetInfoByRuntitleHandle CTAKAppInfoHandle::s_pGetInfoByRuntitle = nullptr;
CTAKAppInfoHandle::RemoveAppHandle CTAKAppInfoHandle::s_pRemoveApp = nullptr;
CTAKAppInfoHandle::GetPkgTypeHandle CTAKAppInfoHandle::s_pGetPkgType = nullptr;
CTAKAppInfoHandle::GetAllAppHandle CTAKAppInfoHandle::s_pGetAllApp = nullptr;
CTAKAppInfoHandle::GetAllAppStringHandle CTAKAppInfoHandle::s_pGetAllAppString = nullptr;
CTAKAppInfoHandle::GetUSBAppHandle CTAKAppInfoHandle::s_pGetUSBApp = nullptr;
CTAKAppInfoHandle::GetUnavailableUSBAppHandle CTAKAppInfoHandle::s_pGetUnavailableUSBApp = nullptr;

bool CTAKAppInfoHandle::SetAppInfo(_APPINFO_T& info, bool flag) {
    return s_pSetInfo != nullptr && s_pSetInfo(info, flag);
}

bool CTAKAppInfoHandle::GetAppInfoById(const std::string& id, _APPINFO_T& info, bool onlyUsable) {
    return s_pGetInfoByID != nullptr && s_pGetInfoByID(id, info, onlyUsable);
}

bool CTAKAppInfoHandle::GetAppInfoByRunTitle(const std::string& runTitle, _APPINFO_T& info, bool onlyUsable) {
    return s_pGetInfoByRuntitle != nullptr && s_pGetInfoByRuntitle(runTitle, info, onlyUsable);
}

bool CTAKAppInfoHandle::RemoveApp(const std::string& id) {
    return s_pRemoveApp != nullptr && s_pRemoveApp(id);
}

bool CTAKAppInfoHandle::GetAppPkgTypeInfo(std::map<std::string, std::string>& types) {
    return s_pGetPkgType != nullptr && s_pGetPkgType(types);
}

std::list<_APPINFO_T> CTAKAppInfoHandle::GetAllAppList() {
    return s_pGetAllApp != nullptr ? s_pGetAllApp() : std::list<_APPINFO_T>();
}

std::string CTAKAppInfoHandle::GetAllAppString() {
    return s_pGetAllAppString != nullptr ? s_pGetAllAppString() : std::string();
}

bool CTAKAppInfoHandle::GetUsbAppsInfo(std::list<_APPINFO_T>& apps) {
    return s_pGetUSBApp != nullptr && s_pGetUSBApp(apps);
}

bool CTAKAppInfoHandle::GetUnAvailableUsbAppsInfo(std::list<_APPINFO_T>& apps) {
    return s_pGetUnavailableUSBApp != nullptr && s_pGetUnavailableUSBApp(apps);
}
