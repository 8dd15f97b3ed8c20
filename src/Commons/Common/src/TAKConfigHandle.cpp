#include "TAKConfigHandle.h"

CTAKConfigHandle::GetConfigTableHandle CTAKConfigHandle::s_pGetConfigTable = nullptr;
CTAKConfigHandle::UpdateConfigTableHandle CTAKConfigHandle::s_pUpdateConfigTable = nullptr;
CTAKConfigHandle::GetAppSyncConfigHandle CTAKConfigHandle::s_pGetAppSyncConfig = nullptr;
CTAKConfigHandle::UpdateAppSyncConfigHandle CTAKConfigHandle::s_pUpdateAppSyncConfig = nullptr;

bool CTAKConfigHandle::GetConfigTable(const std::string& name, std::string& value) {
    return s_pGetConfigTable != nullptr && s_pGetConfigTable(name, value);
}

bool CTAKConfigHandle::UpdateConfigTable(const std::string& name, const std::string& value) {
    return s_pUpdateConfigTable != nullptr && s_pUpdateConfigTable(name, value);
}

bool CTAKConfigHandle::GetAppSyncConfig(std::string& value) {
    return s_pGetAppSyncConfig != nullptr && s_pGetAppSyncConfig(value);
}

bool CTAKConfigHandle::UpdateAppSyncConfig(const std::string& value) {
    return s_pUpdateAppSyncConfig != nullptr && s_pUpdateAppSyncConfig(value);
}
