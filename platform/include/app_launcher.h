// App launcher library.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Terminates every running app. On the host it logs the call and records it (who "launcher", caller,
// reason, time) as one JSON line in <root>/var/log/calls.jsonl.
int tak_terminate_allApps_internal(const char* caller, const char* reason);

#ifdef __cplusplus
}
#endif
