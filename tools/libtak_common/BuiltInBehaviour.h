// The member "builtin" of the behaviour file: how the built-in reset's entry points answer. Parsed once
// per change of the file, so that a reset of a thousand apps does not parse it a thousand times.
//
//   "builtin": {
//     "list": [{"appId": "alpha", "orvixId": "...", "pkgId": "...", "field4": "...", "field5": "...",
//               "field6": "...", "field7": "...", "appType": "", "resetMode": "inactive",
//               "field10": "...", "field11": "...", "baseVersion": "1.0.0",
//               "requires": {"zeta": {"version": "2.0", "pkgid": "pkg.zeta", "builtInApp": false}}}],
//     "dld": {"alpha": {"url": "...", "checksum": "...", "fileSize": 1024, "removable": true,
//                       "requires": {...}, "requiredService": {...}}},
//     "install": {"delay_ms": 20,
//                 "apps": {"alpha": {"terminal": 110, "states": [[101, 50, 0]], "silent": false,
//                                    "also_for": "", "twice": false, "delay_ms": 20}}}}
//
// "list": what GetBuiltInAppListAPI answers, in this order (BuiltInJson.h names the members). Only "appId"
//   is needed; a member that is left out keeps the record's default. An entry that is not an object, has
//   no "appId" or a member the record does not have is left out with a log line. Without "list" the
//   library lists the built-in package records instead; a "list" that is not an array makes the entry
//   point fail. "baseVersion": the version an install of the app leaves in its package record.
// "dld": GetAppsDLDInfoAPI's answer per app id; "id" is the app id unless given. An entry with a member
//   that is not an attribute (or of the wrong kind) is left out with a log line.
// "install": InstallAppAPI's answers. By default one callback, state 110, "delay_ms" after the call. Per
//   app: "terminal" (the last state), "states" (each [state, progress, result], reported before it),
//   "silent" (no callback at all), "also_for" (one more terminal callback naming that app id), "twice"
//   (the terminal callback twice), "delay_ms" (this app's delay).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TAKCommonApi.h"

namespace libtak {

struct BuiltInListEntry {
    OPENAPI_BUILTIN_APP_INFO app;
    bool hasBaseVersion = false;
    std::string baseVersion;
};

struct InstallStep {
    int state;
    int progress;
    int result;
};

struct InstallAnswer {
    int terminal = 110;
    std::vector<InstallStep> states;
    bool silent = false;
    std::string alsoFor;
    bool twice = false;
    int delayMs = 20;
};

struct BuiltInBehaviour {
    bool listGiven = false;
    bool listValid = true;  // false: "list" is there but not an array
    std::vector<BuiltInListEntry> list;
    std::map<std::string, OPENAPI_APP_DLD_INFO> dld;
    int installDelayMs = 20;
    std::map<std::string, InstallAnswer> installs;
    std::map<std::string, size_t> entryIndex;  // app id -> its first entry in `list`

    // The first list entry of the app, or null.
    const BuiltInListEntry* Entry(const std::string& appId) const;
    InstallAnswer InstallFor(const std::string& appId) const;
};

// The behaviour as the file says now.
std::shared_ptr<const BuiltInBehaviour> CurrentBuiltInBehaviour();

}  // namespace libtak
