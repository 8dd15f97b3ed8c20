#include "TAKUtil.h"

#include <cctype>
#include <cstdio>

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>
#include <vconf.h>

#include "AppDBInfo.h"
#include "AppDLDInfo.h"
#include "ICVConf.h"
#include "TAKFile.h"
#include "TAKLog.h"
#include "TAKString.h"

namespace {

const char kDefaultAppsKey[] = "RESERVED_11";
const char kGeneralAppsKey[] = "RESERVED_3";
const char kResetTypeKey[] = "RESET_TYPE";

// The number at the front of one version component, read from `pos` up to the next '.'. Moves `pos`
// past the component and its dot. Saturates rather than overflows.
unsigned long long NextComponent(const std::string& version, size_t& pos) {
    unsigned long long number = 0;
    bool inDigits = true;
    while (pos < version.size() && version[pos] != '.') {
        unsigned char c = static_cast<unsigned char>(version[pos]);
        if (inDigits && isdigit(c)) {
            number = number > 1000000000000ULL ? number : number * 10 + (c - '0');
        } else {
            inDigits = false;
        }
        ++pos;
    }
    if (pos < version.size()) {
        ++pos;
    }
    return number;
}

// name="value" after a blank, the way every attribute of the download-info file is written.
void AppendAttribute(std::string& text, const char* name, const std::string& value) {
    text += ' ';
    text += name;
    text += "=\"";
    text += value;
    text += '"';
}

void AppendRequirement(std::string& text, const char* element, const OPENAPI_REQUIRE_INFO& requirement,
                       bool withBuiltInFlag) {
    text += '<';
    text += element;
    AppendAttribute(text, "id", requirement.id);
    AppendAttribute(text, "version", requirement.version);
    AppendAttribute(text, "pkgid", requirement.pkgid);
    if (withBuiltInFlag) {
        AppendAttribute(text, "builtInApp", requirement.builtInApp ? "true" : "false");
    }
    text += ">\n</";
    text += element;
    text += ">\n";
}

std::string AppElement(const OPENAPI_APP_DLD_INFO& app) {
    std::string text = "<app";
    for (const TAKDLDInfo::Attribute& attribute : TAKDLDInfo::kAttributes) {
        AppendAttribute(text, attribute.name, TAKDLDInfo::ValueText(app, attribute));
    }
    text += ">\n";
    for (const auto& entry : app.requires) {
        AppendRequirement(text, "requires", entry.second, false);
    }
    for (const auto& entry : app.requiredService) {
        AppendRequirement(text, "requiredService", entry.second, true);
    }
    text += "</app>\n";
    return text;
}

// Write errors are not detected: the caller only learns whether the file could be opened.
void WriteText(FILE* file, const std::string& text) {
    fwrite(text.data(), 1, text.size(), file);
}

}  // namespace

int CTAKUtil::CompareVersion(const std::string& a, const std::string& b) {
    size_t posA = 0;
    size_t posB = 0;
    while (posA < a.size() || posB < b.size()) {
        unsigned long long left = NextComponent(a, posA);
        unsigned long long right = NextComponent(b, posB);
        if (left != right) {
            return left < right ? -1 : 1;
        }
    }
    return 0;
}

bool CTAKUtil::GetPreinstallApps(int type, std::map<std::string, std::string>& apps) {
    apps.clear();
    const char* key = nullptr;
    if (type == 0) {
        key = kDefaultAppsKey;
    } else if (type == 1) {
        key = kGeneralAppsKey;
    } else {
        TAK_LOGE("unknown preinstall type %d", type);
        return false;
    }
    std::string list;
    if (!CAppDBInfo::GetConfigTable(key, list)) {
        TAK_LOGE("can not read %s", key);
        return false;
    }
    ParsePreinstallApps(type, list, apps);
    TAK_LOGD("%s: %zu preinstalled apps", key, apps.size());
    return true;
}

void CTAKUtil::ParsePreinstallApps(int type, const std::string& list,
                                   std::map<std::string, std::string>& apps) {
    apps.clear();
    for (const auto& entry : TAKString::SplitStringToList(list, ",", true)) {
        size_t colon = (type == 0) ? entry.find(':') : std::string::npos;
        if (colon == std::string::npos) {
            apps[entry] = "";
        } else {
            apps[entry.substr(0, colon)] = entry.substr(colon + 1);
        }
    }
}

int CTAKUtil::GetCallbackTimeoutSec() {
    const char* key = CALLBACK_TIMEOUT_KEY;
    int seconds = 0;
    // Absent is the normal case on a TV and leaves no error line; text or a fraction is logged there.
    if (!ICVConf::GetOptional(key, seconds)) {
        return 0;
    }
    if (seconds < 0 || seconds > MAX_CALLBACK_TIMEOUT_SEC) {
        TAK_LOGE("%s = %d is outside 0..%d: no deadline", key, seconds, MAX_CALLBACK_TIMEOUT_SEC);
        return 0;
    }
    return seconds;
}

int CTAKUtil::GetTAKUninstallReason(int reason) {
    std::string resetType;
    if (!CAppDBInfo::GetConfigTable(kResetTypeKey, resetType)) {
        TAK_LOGE("can not read %s", kResetTypeKey);
        return reason;
    }
    if (resetType == "1") {
        reason = 9;
    } else if (resetType == "2") {
        reason = 10;
    }
    TAK_LOGD("%s [%s], uninstall reason %d", kResetTypeKey, resetType.c_str(), reason);
    return reason;
}

bool CTAKUtil::WriteAppsDLDXml(const std::string& path, std::map<std::string, OPENAPI_APP_DLD_INFO>& apps) {
    TAK_LOGD("save app DLD info to %s.", path.c_str());
    // Not fopen: a FIFO or a device at the path would hold the task in open() for good.
    int fd = TAKFile::OpenRegular(path, O_RDWR | O_CREAT | O_TRUNC, 0666);
    FILE* file = fd >= 0 ? fdopen(fd, "w+") : nullptr;
    if (file == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        TAK_LOGD("failed to open xml file");
        return false;
    }
    WriteText(file, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<list>\n");
    for (const auto& entry : apps) {
        WriteText(file, AppElement(entry.second));
    }
    WriteText(file, "</list>\n");
    fclose(file);
    return true;
}
