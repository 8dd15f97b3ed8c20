#include "ICVConf.h"

#include <glib.h>

#include <cstdlib>

#include "TAKLog.h"

namespace {

// The access token stored here must never reach the log, whatever the operation.
const char kSecretKey[] = "db/comss/atoken";

bool IsSecret(const std::string& key) {
    return key == kSecretKey;
}

bool SetResult(const std::string& key, int ret) {
    if (ret != VCONF_OK) {
        TAK_LOGE("Failed to set vconf value key=(%s)", key.c_str());
        return false;
    }
    return true;
}

}  // namespace

ICVConf::ICVConf() {
    TAK_LOGD("ICVConf");
}

ICVConf::~ICVConf() {
    TAK_LOGD("~ICVConf");
}

bool ICVConf::Get(const std::string& key, std::string& value) {
    value.clear();
    char* text = vconf_get_str(key.c_str());
    if (text == nullptr) {
        TAK_LOGE("Failed to get vconf value key=(%s)", key.c_str());
        return false;
    }
    value = text;
    free(text);
    if (!IsSecret(key)) {
        TAK_LOGI("vconf key=(%s) value=(%s).", key.c_str(), value.c_str());
    }
    return true;
}

bool ICVConf::Get(const std::string& key, int& value) {
    int stored = 0;
    if (vconf_get_int(key.c_str(), &stored) != VCONF_OK) {
        TAK_LOGE("Failed to get vconf value key=(%s)", key.c_str());
        return false;
    }
    value = stored;
    TAK_LOGI("vconf key=(%s) value=(%d).", key.c_str(), value);
    return true;
}

bool ICVConf::Get(const std::string& key, bool& value) {
    int stored = 0;
    if (vconf_get_bool(key.c_str(), &stored) != VCONF_OK) {
        TAK_LOGE("Failed to get vconf value key=(%s)", key.c_str());
        return false;
    }
    value = stored != 0;
    TAK_LOGI("vconf key=(%s) value=(%d).", key.c_str(), stored);
    return true;
}

bool ICVConf::GetOptional(const std::string& key, int& value) {
    int stored = 0;
    if (vconf_get_int(key.c_str(), &stored) == VCONF_OK) {
        value = stored;
        TAK_LOGI("vconf key=(%s) value=(%d).", key.c_str(), value);
        return true;
    }
    g_autofree char* text = vconf_get_str(key.c_str());
    double number = 0;
    if (text != nullptr) {
        TAK_LOGE("vconf key=(%s) holds text [%s], not a number", key.c_str(), IsSecret(key) ? "..." : text);
    } else if (vconf_get_dbl(key.c_str(), &number) == VCONF_OK) {
        TAK_LOGE("vconf key=(%s) = %g is not a whole number", key.c_str(), number);
    } else {
        TAK_LOGD("vconf key=(%s) is not set", key.c_str());
    }
    return false;
}

bool ICVConf::Set(const std::string& key, const std::string& value, bool sync) {
    if (!IsSecret(key)) {
        TAK_LOGI("vconf key=(%s) value=(%s).", key.c_str(), value.c_str());
    }
    if (sync) {
        return SetResult(key, vconf_set_str(key.c_str(), value.c_str()));
    }
    return SetResult(key, vconf_set_str_async(key.c_str(), value.c_str(), ResponseCB, nullptr));
}

bool ICVConf::Set(const std::string& key, const char* value, bool sync) {
    if (value == nullptr) {
        TAK_LOGE("Failed to set vconf value key=(%s)", key.c_str());
        return false;
    }
    return Set(key, std::string(value), sync);
}

bool ICVConf::Set(const std::string& key, char* value, bool sync) {
    return Set(key, static_cast<const char*>(value), sync);
}

bool ICVConf::Set(const std::string& key, int value, bool sync) {
    TAK_LOGI("vconf key=(%s) value=(%d).", key.c_str(), value);
    if (sync) {
        return SetResult(key, vconf_set_int(key.c_str(), value));
    }
    return SetResult(key, vconf_set_int_async(key.c_str(), value, ResponseCB, nullptr));
}

bool ICVConf::Set(const std::string& key, bool value, bool sync) {
    int stored = value ? 1 : 0;
    TAK_LOGI("vconf key=(%s) value=(%d).", key.c_str(), stored);
    if (sync) {
        return SetResult(key, vconf_set_bool(key.c_str(), stored));
    }
    return SetResult(key, vconf_set_bool_async(key.c_str(), stored, ResponseCB, nullptr));
}

void ICVConf::ResponseCB(int result, keynode_t* node, void* /*userData*/) {
    const char* name = vconf_keynode_get_name(node);
    if (name == nullptr) {
        name = "";
    }
    if (result != 0) {
        TAK_LOGE("failed to set (%s:%d)", name, vconf_keynode_get_int(node));
        return;
    }
    switch (vconf_keynode_get_type(node)) {
        case VCONF_TYPE_INT:
            TAK_LOGI("succeeded to set key = %s, value = %d(int)\n", name, vconf_keynode_get_int(node));
            break;
        case VCONF_TYPE_BOOL:
            TAK_LOGI("succeeded to set key = %s, value = %d(bool)\n", name, vconf_keynode_get_bool(node));
            break;
        case VCONF_TYPE_STRING: {
            const char* text = vconf_keynode_get_str(node);
            TAK_LOGI("succeeded to set key = %s, value = %s(string)\n", name,
                     IsSecret(name) ? "" : (text != nullptr ? text : ""));
            break;
        }
        default:
            TAK_LOGI("Unknown Type(%d)\n", vconf_keynode_get_type(node));
            break;
    }
}
