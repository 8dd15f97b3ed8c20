// CTAKUtil: small utilities of the service that need the app data or compare versions.
#pragma once

#include <map>
#include <string>

#include "TAKCommonApi.h"

class CTAKUtil {
public:
    // Orders two dotted numeric versions: negative when `a` is lower, 0 when equal, positive when
    // higher. Components compare as numbers ("1.10" is above "1.9"); a missing component counts as 0
    // ("1.2" equals "1.2.0"); a component's leading digits are its number, so "2b" counts as 2 and a
    // component without digits as 0.
    static int CompareVersion(const std::string& a, const std::string& b);

    // Preinstalled apps from the configuration table. Type 0 ("default/native" apps) reads
    // "RESERVED_11", a list of "appid:value" entries separated by ","; type 1 ("general" apps) reads
    // "RESERVED_3", a list of app ids separated by ",", each mapped to an empty value. The map is
    // cleared first; empty entries are skipped; an entry without ":" maps to an empty value. False
    // for another type or when the key cannot be read.
    static bool GetPreinstallApps(int type, std::map<std::string, std::string>& apps);
    // The parse of one such list text, as GetPreinstallApps does it; `type` 0 splits entries at their
    // first ":", any other type keeps whole entries as keys with empty values.
    static void ParsePreinstallApps(int type, const std::string& list,
                                    std::map<std::string, std::string>& apps);

    // The uninstall reason code sent with a reset's uninstall requests: the configuration value
    // "RESET_TYPE" "1" gives 9 and "2" gives 10; any other value, or none, leaves `reason` as it is.
    static int GetTAKUninstallReason(int reason);

    // The deadline for an install or uninstall callback, in seconds, from the setting
    // "db/tak/reset_callback_timeout_sec"; 0 means none. An absent key or 0 is no deadline, silently; a
    // key that holds text or another type, a negative number or one above MAX_CALLBACK_TIMEOUT_SEC is no
    // deadline too, with one log line, since a typo must not end a reset early.
    static constexpr const char* CALLBACK_TIMEOUT_KEY = "db/tak/reset_callback_timeout_sec";
    static constexpr int MAX_CALLBACK_TIMEOUT_SEC = 86400;
    static int GetCallbackTimeoutSec();

    // Writes the download information of `apps`, in key order, to `path` as a flat XML list, replacing
    // the file. Values go out exactly as stored: nothing is escaped, so a quote in a title makes a file
    // that strict XML readers refuse. False only when the file cannot be opened; write errors are not
    // detected.
    static bool WriteAppsDLDXml(const std::string& path, std::map<std::string, OPENAPI_APP_DLD_INFO>& apps);
};
