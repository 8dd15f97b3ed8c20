// Package-manager information: look-ups of installed packages and of their apps. On the host the answers
// come from the package records under the host root (<root>/var/lib/pkgmgr/packages.json).
//
// Handles are opaque and owned by the caller, who releases them with the matching destroy call. Strings
// returned through out-parameters belong to the handle they were read from and stay valid until that
// handle is destroyed. Calls may be made from any thread; a handle is used by one thread at a time.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PMINFO_R_OK 0
#define PMINFO_R_ERROR (-1)   // not found, or the record cannot answer
#define PMINFO_R_EINVAL (-2)  // a missing argument

typedef struct pkgmgrinfo_pkginfo_s* pkgmgrinfo_pkginfo_h;
typedef struct pkgmgrinfo_appinfo_s* pkgmgrinfo_appinfo_h;

// Per-item callbacks of the iterations: return 0 to go on, a negative value to stop. Stopping is not a
// failure of the iteration. The app handle given to an app-list callback is valid only during the call.
typedef int (*pkgmgrinfo_app_list_cb)(const pkgmgrinfo_appinfo_h handle, void* user_data);
typedef int (*pkgmgrinfo_app_metadata_list_cb)(const char* metadata_key, const char* metadata_value,
                                               void* user_data);
typedef int (*pkgmgrinfo_app_category_list_cb)(const char* category_name, void* user_data);

// Opens an installed package; PMINFO_R_ERROR when no such package is installed.
int pkgmgrinfo_pkginfo_get_pkginfo(const char* pkgid, pkgmgrinfo_pkginfo_h* handle);
int pkgmgrinfo_pkginfo_destroy_pkginfo(pkgmgrinfo_pkginfo_h handle);
// PMINFO_R_ERROR when the package cannot tell its flag.
int pkgmgrinfo_pkginfo_is_removable(pkgmgrinfo_pkginfo_h handle, bool* removable);
// PMINFO_R_OK with NULL for a package that has no version.
int pkgmgrinfo_pkginfo_get_version(pkgmgrinfo_pkginfo_h handle, char** version);
// PMINFO_R_ERROR for a package without a main app.
int pkgmgrinfo_pkginfo_get_mainappid(pkgmgrinfo_pkginfo_h handle, char** mainappid);

// Calls `app_func` for every app of the package, in declaration order.
int pkgmgrinfo_appinfo_get_list(pkgmgrinfo_pkginfo_h handle, pkgmgrinfo_app_list_cb app_func,
                                void* user_data);

// Opens an app by its app id, whichever package declares it.
int pkgmgrinfo_appinfo_get_appinfo(const char* appid, pkgmgrinfo_appinfo_h* handle);
int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle);

// Metadata in declaration order; a key may come more than once. A value declared without text is NULL.
int pkgmgrinfo_appinfo_foreach_metadata(pkgmgrinfo_appinfo_h handle,
                                        pkgmgrinfo_app_metadata_list_cb metadata_func, void* user_data);
// The value of `metadata_key` (the last one declared when the key comes more than once); PMINFO_R_ERROR
// when the app has no such key. A value declared without text comes back as NULL with PMINFO_R_OK.
int pkgmgrinfo_appinfo_get_metadata_value(pkgmgrinfo_appinfo_h handle, const char* metadata_key,
                                          char** metadata_value);

int pkgmgrinfo_appinfo_foreach_category(pkgmgrinfo_appinfo_h handle,
                                        pkgmgrinfo_app_category_list_cb category_func, void* user_data);

#ifdef __cplusplus
}
#endif
