// System information: board and feature flags. On the host they are read from <root>/etc/sysinfo.ini.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SYSTEM_INFO_ERROR_NONE 0
#define SYSTEM_INFO_ERROR_INVALID_PARAMETER (-22)

int system_info_get_platform_bool(const char* key, bool* value);
int system_info_get_custom_bool(const char* key, bool* value);

#ifdef __cplusplus
}
#endif
