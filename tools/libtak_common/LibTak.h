// Shared pieces of the substitute common library: exporting, recording and the behaviour file.
//
// Behaviour: <root>/etc/libtak_common.json, read at every call so that a test can change it while the
// process runs. Every member is optional:
//   "absent":   ["StartBoostAppFWAPI", ...]  entry points removed from the installed copy (orvix-host)
//   "library":  "present" | "missing" | "broken"  what `orvix-host libtak apply` installs
//   "delay_ms": {"EntryPoint": ms}          the entry point returns only after this long
//   "results":  {"EntryPoint": int}         what an entry point that returns an int returns (default 0)
//   "binder":   {"delay_ms": 100, "never": false}  when the communicator binder callback comes
//   "monitor":  {"interval_ms": 20, "states": [[state, progress, result], ...]}  install monitoring
#pragma once

#include <json/json.h>

#include <string>

#define LIBTAK_EXPORT extern "C" __attribute__((visibility("default")))

namespace libtak {

// The whole behaviour file (null when missing or not JSON).
Json::Value Behaviour();

// One member of the behaviour file's object `section` for `entryPoint`, or `fallback`.
int IntSetting(const char* section, const char* entryPoint, int fallback);

// Records one call (who "libtak_common") and then waits the entry point's configured delay.
void Enter(const char* entryPoint, const Json::Value& args = Json::Value(Json::arrayValue));

// Records a callback the library makes into its caller ("<EntryPoint>:callback").
void RecordCallback(const char* entryPoint, const Json::Value& args);

}  // namespace libtak
