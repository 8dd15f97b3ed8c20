// Platform path configuration: numbered path variables and the device's fixed absolute paths.
// The host kit maps every one of them below the host root (see orvix_host.h).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum platform_path_variable {
    PLATFORM_PATH_HOME_ROOT = 0,      // root of the per-owner home directories
    PLATFORM_PATH_SYSTEM_DATA = 2,    // system-wide writable data directory
    PLATFORM_PATH_APPS_DATA = 6,      // applications' shared data (background updates)
    PLATFORM_PATH_SYSTEM_BIN = 7,     // the system binary search path (a PATH value)
    PLATFORM_PATH_USER_HOME = 24,     // the owner's home directory
    PLATFORM_PATH_APPS_RW = 27,       // data root for applications, also the backup root
    PLATFORM_PATH_CONTENT_FIRST = 66, // 66 to 74: the owner's nine content directories
    PLATFORM_PATH_CONTENT_LAST = 74,
};

// The directory of a path variable, or NULL for a variable the platform does not know.
// The text stays valid for the life of the process.
const char* platform_path_get(int variable);

// The place of one of the device's fixed absolute paths ("/usr/lib64", "/run/...", "/etc/release",
// "/bin/takutility", "/usr/bin/takutility"). Other paths come back unchanged. Valid for the process's life.
const char* platform_path_fixed(const char* device_path);

#ifdef __cplusplus
}
#endif
