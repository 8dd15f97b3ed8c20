// Host system information: board and feature flags in <root>/etc/sysinfo.ini, group [flags], one
// "name=true|false" line each. The file is read on every query so that `orvix-host sysinfo set` takes
// effect for the next request of a running process; a missing file, group or key reads as false.
#include <glib.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "dlog.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"
#include "system_info.h"

namespace {

const char kTag[] = "ORVIX";
const char kFlagsGroup[] = "flags";

int ReadFlag(const char* key, bool* value) {
    if (key == nullptr || *key == '\0' || value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    *value = false;
    std::string path = orvix::host::UnderRoot("etc/sysinfo.ini");
    std::string text;
    if (!orvix::host::ReadRegular(path, text)) {
        if (errno != ENOENT) {
            dlog_print(DLOG_ERROR, kTag, "cannot read %s, flag %s reads as false: %s", path.c_str(), key,
                       strerror(errno));
        }
        return SYSTEM_INFO_ERROR_NONE;
    }
    g_autoptr(GKeyFile) file = g_key_file_new();
    if (!g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ||
        !g_key_file_has_key(file, kFlagsGroup, key, nullptr)) {
        return SYSTEM_INFO_ERROR_NONE;
    }
    g_autoptr(GError) error = nullptr;
    *value = g_key_file_get_boolean(file, kFlagsGroup, key, &error);
    if (error != nullptr) {
        dlog_print(DLOG_ERROR, kTag, "flag %s in %s is not true or false: %s", key, path.c_str(),
                   error->message);
    }
    return SYSTEM_INFO_ERROR_NONE;
}

}  // namespace

extern "C" int system_info_get_platform_bool(const char* key, bool* value) {
    return ReadFlag(key, value);
}

extern "C" int system_info_get_custom_bool(const char* key, bool* value) {
    return ReadFlag(key, value);
}
