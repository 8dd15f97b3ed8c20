#include "ICSystemInfo.h"

#include <system_info.h>

#include "TAKLog.h"

bool ICSystemInfo::GetAOTBoard() {
    return m_GetFlag("android_on_orvix.support");
}

bool ICSystemInfo::GetKorbitBoard() {
    return m_GetFlag("robot_product.support");
}

bool ICSystemInfo::IsDangbeiStoreSupported() {
    return m_GetFlag("dangbei_store.support");
}

bool ICSystemInfo::m_GetFlag(const char* key) {
    bool value = false;
    int ret = system_info_get_platform_bool(key, &value);
    if (ret != SYSTEM_INFO_ERROR_NONE) {
        TAK_LOGE("system_info_get_platform_bool(%s) failed, ret %d", key, ret);
        return false;
    }
    TAK_LOGD("%s is %d", key, value);
    return value;
}
