#include "PkgInfo.h"

#include <memory>
#include <type_traits>

#include "TAKLog.h"

namespace {

struct PkgHandleRelease {
    void operator()(pkgmgrinfo_pkginfo_h handle) const { pkgmgrinfo_pkginfo_destroy_pkginfo(handle); }
};
struct AppHandleRelease {
    void operator()(pkgmgrinfo_appinfo_h handle) const { pkgmgrinfo_appinfo_destroy_appinfo(handle); }
};
using PkgHandle = std::unique_ptr<std::remove_pointer_t<pkgmgrinfo_pkginfo_h>, PkgHandleRelease>;
using AppHandle = std::unique_ptr<std::remove_pointer_t<pkgmgrinfo_appinfo_h>, AppHandleRelease>;

std::string TextOrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

// The walk only has to succeed: it shows that the manager can list the package's apps before the main
// app is opened.
int AppItem(const pkgmgrinfo_appinfo_h, void*) {
    return 0;
}

}  // namespace

IPkgInfo::IPkgInfo(const std::string& pkgName, bool robot) : m_PkgName(pkgName) {
    if (m_PkgName.empty()) {
        TAK_LOGE("strPkgName is empty");
        return;
    }
    if (robot) {
        return;
    }
    if (pkgmgrinfo_pkginfo_get_pkginfo(m_PkgName.c_str(), &m_PkgHandle) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] pkgmgr pkginfo handle.", m_PkgName.c_str());
        m_PkgHandle = nullptr;
    }
}

IPkgInfo::~IPkgInfo() {
    if (m_PkgHandle != nullptr) {
        pkgmgrinfo_pkginfo_destroy_pkginfo(m_PkgHandle);
    }
}

bool IPkgInfo::IsInstalled(const std::string& pkgName, bool robot) {
    if (pkgName.empty()) {
        TAK_LOGD("strPkgName is empty!");
        return false;
    }
    // The robot app space has no look-up here: its packages count as not installed.
    if (robot) {
        return false;
    }
    pkgmgrinfo_pkginfo_h handle = nullptr;
    int ret = pkgmgrinfo_pkginfo_get_pkginfo(pkgName.c_str(), &handle);
    PkgHandle release(handle);
    return ret == PMINFO_R_OK;
}

bool IPkgInfo::GetAppRemovableFlag() {
    bool removable = true;
    if (pkgmgrinfo_pkginfo_is_removable(m_PkgHandle, &removable) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] remvable flag!", m_PkgName.c_str());
        return true;
    }
    TAK_LOGI("App pkg name[%s], removable flag[%d]", m_PkgName.c_str(), removable);
    return removable;
}

bool IPkgInfo::CheckAppVersion(std::string& version) {
    if (m_PkgHandle == nullptr) {
        TAK_LOGE("pkgname[%s] is not installed", m_PkgName.c_str());
        return false;
    }
    char* text = nullptr;
    if (pkgmgrinfo_pkginfo_get_version(m_PkgHandle, &text) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] version!", m_PkgName.c_str());
        return false;
    }
    version = TextOrEmpty(text);
    TAK_LOGI("App pkg name[%s], app version[%s]", m_PkgName.c_str(), version.c_str());
    return true;
}

IPkgAppInfo::IPkgAppInfo(const std::string& pkgName) : m_PkgName(pkgName) {
    std::string mainAppId;
    if (!m_FindMainAppId(mainAppId)) {
        return;
    }
    if (pkgmgrinfo_appinfo_get_appinfo(mainAppId.c_str(), &m_AppHandle) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] appinfo handle!", m_PkgName.c_str());
        m_AppHandle = nullptr;
        return;
    }
    m_GetAppMetadata(m_AppHandle);
    m_GetAppCategories(m_AppHandle);
}

IPkgAppInfo::~IPkgAppInfo() {
    if (m_AppHandle != nullptr) {
        pkgmgrinfo_appinfo_destroy_appinfo(m_AppHandle);
    }
}

// Opens the package only for as long as it takes to learn its main app; the id is copied because the
// handle owns the text.
bool IPkgAppInfo::m_FindMainAppId(std::string& mainAppId) {
    pkgmgrinfo_pkginfo_h handle = nullptr;
    if (m_PkgName.empty() || pkgmgrinfo_pkginfo_get_pkginfo(m_PkgName.c_str(), &handle) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] pkgmgr appinfo handle.", m_PkgName.c_str());
        return false;
    }
    PkgHandle package(handle);
    if (pkgmgrinfo_appinfo_get_list(handle, AppItem, this) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app pkgname[%s] pkgmgr appinfo handle.", m_PkgName.c_str());
        return false;
    }
    char* text = nullptr;
    if (pkgmgrinfo_pkginfo_get_mainappid(handle, &text) != PMINFO_R_OK || text == nullptr || *text == '\0') {
        TAK_LOGE("Failed to get app pkgname[%s] main app id.", m_PkgName.c_str());
        return false;
    }
    mainAppId = text;
    TAK_LOGI("pkgname[%s] main app id [%s]", m_PkgName.c_str(), mainAppId.c_str());
    return true;
}

void IPkgAppInfo::m_GetAppMetadata(pkgmgrinfo_appinfo_h appHandle) {
    if (appHandle == nullptr) {
        TAK_LOGE("Fail to get pkgmgr appinfo handle!");
        return;
    }
    if (pkgmgrinfo_appinfo_foreach_metadata(appHandle, s_MetadataItem, this) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app metadata!");
    }
}

int IPkgAppInfo::s_MetadataItem(const char* key, const char* value, void* user_data) {
    auto* self = static_cast<IPkgAppInfo*>(user_data);
    if (self == nullptr) {
        TAK_LOGE("Fail to get IPkgAppInfo instance!");
        return -1;
    }
    self->metadata[TextOrEmpty(key)] = TextOrEmpty(value);
    return 0;
}

void IPkgAppInfo::m_GetAppCategories(pkgmgrinfo_appinfo_h appHandle) {
    if (pkgmgrinfo_appinfo_foreach_category(appHandle, s_CategoryItem, this) != PMINFO_R_OK) {
        TAK_LOGE("Failed to get app categories!");
    }
}

int IPkgAppInfo::s_CategoryItem(const char* category, void* user_data) {
    static_cast<IPkgAppInfo*>(user_data)->m_Categories.push_back(TextOrEmpty(category));
    return 0;
}

bool IPkgAppInfo::FindMetadataValue(const std::string& key, std::string& value) {
    auto found = metadata.find(key);
    if (found == metadata.end()) {
        TAK_LOGD("Not find pkgname[%s] meatadata key[%s].", m_PkgName.c_str(), key.c_str());
        return false;
    }
    value = found->second;
    TAK_LOGI("Find pkgname[%s] metadata key=[%s], value=[%s]", m_PkgName.c_str(), key.c_str(), value.c_str());
    return true;
}

bool IPkgAppInfo::GetMetadataByOrvixID(const std::string& appId, const std::string& key, std::string& value,
                                       bool robot) {
    if (appId.empty()) {
        TAK_LOGD("strOrvixID is empty!");
        return false;
    }
    pkgmgrinfo_appinfo_h handle = nullptr;
    if (robot || pkgmgrinfo_appinfo_get_appinfo(appId.c_str(), &handle) != PMINFO_R_OK) {
        TAK_LOGD("Failed to get app [%s] info!", appId.c_str());
        return false;
    }
    AppHandle app(handle);
    char* text = nullptr;
    if (pkgmgrinfo_appinfo_get_metadata_value(handle, key.c_str(), &text) != PMINFO_R_OK) {
        TAK_LOGD("Failed to get app [%s] metadata[%s]!", appId.c_str(), key.c_str());
        return false;
    }
    value = TextOrEmpty(text);
    TAK_LOGI("App [%s], metadata[%s] value[%s]", appId.c_str(), key.c_str(), value.c_str());
    return true;
}
