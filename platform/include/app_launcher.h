// App launcher library.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Terminates every running app. On the host it records the call (caller, reason, time) as one JSON line
// in <root>/var/log/launcher.log and logs it.
int tak_terminate_allApps_internal(const char* caller, const char* reason);

#ifdef __cplusplus
}
#endif
