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
//   "uninstall": {...}                      UninstallAppAPI (UninstallApi.cpp)
//   "builtin":  {"list": [...], "dld": {...}, "install": {...}}  the built-in reset's entry points
//               (BuiltInBehaviour.h); a listed app's unnamed fields 4 to 7, 10 and 11 are "field4",
//               "field5", "field6", "field7", "field10" and "field11" (BuiltInJson.h)
#pragma once

#include <app_control.h>
#include <json/json.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#define LIBTAK_EXPORT extern "C" __attribute__((visibility("default")))

namespace libtak {

// The extra data of a request, as [key, value] pairs in the order they were added (keys whose value
// cannot be read are left out). Read during the call: the request lives only until the call returns.
std::vector<std::pair<std::string, std::string>> ReadExtras(app_control_h request);

// The whole behaviour file (null when missing or not JSON).
Json::Value Behaviour();

// The same without a copy: the object stays the same until the file's text changes, so a caller may keep
// what it derived from it for as long as it gets the same object back.
std::shared_ptr<const Json::Value> SharedBehaviour();

// What an entry point makes of the behaviour file, made again only when the file's text changed: `make`
// runs once per version of the file. One cache per type T.
template <typename T>
std::shared_ptr<const T> DerivedBehaviour(std::shared_ptr<const T> (*make)(const Json::Value& file)) {
    static std::mutex s_tLock;  // guards the two below
    static std::shared_ptr<const Json::Value> s_pSeenFile;
    static std::shared_ptr<const T> s_pMade;
    std::shared_ptr<const Json::Value> file = SharedBehaviour();
    std::lock_guard<std::mutex> lock(s_tLock);
    if (file != s_pSeenFile || s_pMade == nullptr) {
        s_pMade = make(*file);
        s_pSeenFile = file;
    }
    return s_pMade;
}

// One line of the library's own on the platform log (tag "libtak_common"): what it refused and why.
void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One member of the behaviour file's object `section` for `entryPoint`, or `fallback`.
int IntSetting(const char* section, const char* entryPoint, int fallback);

// Records one call (who "libtak_common"; `extra`'s members are added to the record) and then waits the
// entry point's configured delay.
void Enter(const char* entryPoint, const Json::Value& args = Json::Value(Json::arrayValue),
           const Json::Value& extra = Json::Value());

// The package records are one file: the library's threads that change it take turns with this lock.
std::mutex& PackageRecordsLock();

// Records a callback the library makes into its caller ("<EntryPoint>:callback").
void RecordCallback(const char* entryPoint, const Json::Value& args);

}  // namespace libtak
