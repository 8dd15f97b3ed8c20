#include "BuiltInAppUtil.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <gio/gunixinputstream.h>
#include <json/json.h>
#include <platform_path.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "ICVConf.h"
#include "TAKConfigHandle.h"
#include "TAKFile.h"
#include "TAKLog.h"
#include "TAKString.h"
#include "TAKUtilityWrapper.h"

namespace {

const char kHomeTestListKey[] = "HOME_TEST_LIST";
const char kTestListKey[] = "RESERVED_16";
const char kUpdatingAppKey[] = "memory/tak/biu_updating_app";
const char kEntrySeparator[] = ";";
const char kFieldSeparator[] = ",";
const char kFileBlanks[] = " \t\r\n";
const char kMarkerPrefix[] = "/tpk-update-";
const char kBackgroundUpdateDir[] = "/background-update/";
const char* const kBackgroundEndings[] = {"_inactive.tpk", "_anytime.tpk", "_on.tpk", "_off.tpk", "_.tpk"};

const size_t kHomeTestFields = 5;
const size_t kCandidateFields = 6;
const size_t kTestListFields = 2;
// How much of a malformed entry its log line shows.
const int kLoggedEntryBytes = 64;

std::string_view Trimmed(std::string_view text, const char* blanks) {
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return std::string_view();
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Splits a list text into entries of fields, keeping only entries with at least `minFields` fields
// (and, when `exact`, no more). `blanks` (may be empty) are trimmed around entries and fields. The
// entries left out are reported by one line naming the first of them.
std::vector<std::vector<std::string>> SplitEntries(const std::string& text, const char* listName,
                                                   size_t minFields, bool exact, const char* blanks) {
    std::vector<std::vector<std::string>> entries;
    size_t skipped = 0;
    std::string firstSkipped;
    TAKString::ForEachPiece(text, kEntrySeparator, [&](std::string_view raw) {
        std::string_view entry = Trimmed(raw, blanks);
        if (entry.empty()) {
            return;
        }
        std::vector<std::string> fields;
        TAKString::ForEachPiece(entry, kFieldSeparator,
                                [&](std::string_view field) { fields.emplace_back(Trimmed(field, blanks)); });
        if (fields.size() < minFields || (exact && fields.size() != minFields)) {
            if (skipped++ == 0) {
                firstSkipped = entry;
            }
            return;
        }
        entries.push_back(std::move(fields));
    });
    if (skipped != 0) {
        TAK_LOGE("%s: skipped %zu entries without %s%zu fields, the first [%.*s]", listName, skipped,
                 exact ? "exactly " : "", minFields, kLoggedEntryBytes, firstSkipped.c_str());
    }
    return entries;
}

std::vector<HOME_TEST_APP> ToHomeTestApps(const std::vector<std::vector<std::string>>& entries,
                                          bool withInstallType) {
    std::vector<HOME_TEST_APP> list;
    list.reserve(entries.size());
    for (const auto& fields : entries) {
        HOME_TEST_APP app{fields[0], fields[1], fields[2], fields[3], fields[4], std::string()};
        if (withInstallType) {
            app.installType = fields[5];
        }
        list.push_back(std::move(app));
    }
    return list;
}

// Reads at most `limit` bytes of a regular file. `absent` tells a missing file from other failures. The
// file is opened without blocking and checked on the open descriptor, so a FIFO or a device put in its
// place can neither stall the reset nor be read.
bool ReadBoundedFile(const std::string& path, size_t limit, std::string& text, bool& absent) {
    text.clear();
    int fd = TAKFile::OpenRegular(path, O_RDONLY);
    absent = fd < 0 && errno == ENOENT;
    if (fd < 0) {
        if (errno == EISDIR || errno == ENXIO) {
            TAK_LOGE("%s is not a regular file", path.c_str());
        } else if (!absent) {
            TAK_LOGE("can not open %s: %s", path.c_str(), g_strerror(errno));
        }
        return false;
    }
    g_autoptr(GInputStream) stream = g_unix_input_stream_new(fd, TRUE);
    // One byte more than allowed tells a file at the limit from one beyond it.
    text.resize(limit + 1);
    gsize got = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_input_stream_read_all(stream, text.data(), text.size(), &got, nullptr, &error)) {
        TAK_LOGE("can not read %s: %s", path.c_str(), error->message);
        text.clear();
        return false;
    }
    if (got > limit) {
        TAK_LOGE("%s is larger than %zu bytes, ignored", path.c_str(), limit);
        text.clear();
        return false;
    }
    text.resize(got);
    return true;
}

bool IsStatusOfUpdate(const std::string& status) {
    return status == "update" || status == "uninstall" || status == "pre_update";
}

// Text after the value is an error. The reader throws when nesting exceeds its depth limit; that stays
// here as a failed parse.
bool ParseJson(const std::string& text, Json::Value& root, std::string& errors) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &root, &errors);
    } catch (const Json::Exception& exception) {
        errors = exception.what();
        return false;
    }
}

// The string member `name`, or null when it is missing or of another type.
const Json::Value* StringMember(const Json::Value& object, const char* name) {
    const Json::Value* member = object.find(name, name + strlen(name));
    return member != nullptr && member->isString() ? member : nullptr;
}

// The package being updated now, or "" when none is (or the setting cannot tell).
std::string UpdatingPackage() {
    std::string text;
    std::string pkgname;
    if (ICVConf::Get(kUpdatingAppKey, text)) {
        CBuiltInAppUtil::ParseUpdatingApp(text, pkgname);
    }
    return pkgname;
}

// An id that names exactly one file when pasted after a directory and a prefix.
bool IsSafeFileId(const std::string& id, const char* what) {
    if (id.empty() || id.find('/') != std::string::npos || id.find("..") != std::string::npos ||
        id.find('\0') != std::string::npos) {
        TAK_LOGE("%s [%s] can not name an update file, nothing removed", what, id.c_str());
        return false;
    }
    return true;
}

void RemoveIfExists(const std::string& path) {
    if (!TAKFile::Exists(path)) {
        return;
    }
    int result = ITAKUtility::RemoveFile(path);
    if (result != 0) {
        TAK_LOGE("can not remove %s, result %d", path.c_str(), result);
    }
}

void RemoveUpdateMarker(const std::string& pkgId) {
    const char* dataRoot = platform_path_get(PLATFORM_PATH_APPS_RW);
    if (dataRoot == nullptr) {
        TAK_LOGE("no data root for the update marker of %s", pkgId.c_str());
        return;
    }
    RemoveIfExists(dataRoot + std::string(kMarkerPrefix) + pkgId);
}

void RemoveBackgroundPackages(const std::string& appId) {
    const char* appsData = platform_path_get(PLATFORM_PATH_APPS_DATA);
    if (appsData == nullptr) {
        TAK_LOGE("no apps data directory for the background packages of %s", appId.c_str());
        return;
    }
    std::string stem = appsData + std::string(kBackgroundUpdateDir) + appId;
    for (const char* ending : kBackgroundEndings) {
        RemoveIfExists(stem + ending);
    }
}

// An id that can stand in a test-list entry without splitting it.
bool IsListableId(const std::string& id) {
    return id.find_first_of(std::string(kEntrySeparator) + kFieldSeparator) == std::string::npos;
}

bool ReadTestList(std::string& text) {
    if (!CTAKConfigHandle::GetConfigTable(kTestListKey, text)) {
        TAK_LOGE("can not read %s", kTestListKey);
        return false;
    }
    return true;
}

// Writes the list back unless its text is `original` already. The line names the change, not the whole
// list: the list grows with every app a reset records, and one line per app must not grow with it.
bool WriteTestList(const std::vector<CBuiltInAppUtil::TEST_APP>& list, const std::string& original,
                   const std::string& change) {
    std::string text = CBuiltInAppUtil::AssembleTestList(list);
    if (text == original) {
        return true;
    }
    if (!CTAKConfigHandle::UpdateConfigTable(kTestListKey, text)) {
        TAK_LOGE("can not write %s (%s, %zu entries)", kTestListKey, change.c_str(), list.size());
        return false;
    }
    TAK_LOGI("%s: %s, %zu entries now", kTestListKey, change.c_str(), list.size());
    return true;
}

}  // namespace

std::vector<HOME_TEST_APP> CBuiltInAppUtil::ParseHomeTestList(const std::string& text) {
    return ToHomeTestApps(SplitEntries(text, kHomeTestListKey, kHomeTestFields, false, ""), false);
}

std::vector<HOME_TEST_APP> CBuiltInAppUtil::ParseP0TestChangeList(const std::string& text) {
    return ToHomeTestApps(SplitEntries(text, "candidate list", kCandidateFields, false, kFileBlanks), true);
}

std::vector<CBuiltInAppUtil::TEST_APP> CBuiltInAppUtil::ParseTestList(const std::string& text) {
    std::vector<TEST_APP> list;
    for (auto& fields : SplitEntries(text, kTestListKey, kTestListFields, true, "")) {
        list.push_back({std::move(fields[0]), std::move(fields[1])});
    }
    return list;
}

std::string CBuiltInAppUtil::AssembleTestList(const std::vector<TEST_APP>& list) {
    std::vector<std::string> entries;
    entries.reserve(list.size());
    for (const TEST_APP& app : list) {
        entries.push_back(app.appId + kFieldSeparator + app.pkgId);
    }
    return TAKString::AssembleListToString(entries, kEntrySeparator);
}

bool CBuiltInAppUtil::ParseUpdatingApp(const std::string& jsonText, std::string& pkgname) {
    pkgname.clear();
    if (jsonText.empty()) {
        TAK_LOGD("no background update under way");
        return false;
    }
    Json::Value root;
    std::string errors;
    if (!ParseJson(jsonText, root, errors) || !root.isObject()) {
        TAK_LOGE("updating app is not a JSON object: %s", errors.c_str());
        return false;
    }
    const Json::Value* status = StringMember(root, "status");
    const Json::Value* value = StringMember(root, "value");
    const Json::Value* name = StringMember(root, "pkgname");
    if (status == nullptr || value == nullptr || name == nullptr) {
        TAK_LOGE("updating app lacks a string status, value or pkgname");
        return false;
    }
    if (!IsStatusOfUpdate(status->asString()) || value->asString() != "start" || name->asString().empty()) {
        TAK_LOGD("no background update under way (status [%s] value [%s] pkgname [%s])", status->asCString(),
                 value->asCString(), name->asCString());
        return false;
    }
    pkgname = name->asString();
    return true;
}

bool CBuiltInAppUtil::GetHomeTestAppDBInfo(std::vector<HOME_TEST_APP>& list) {
    list.clear();
    std::string text;
    if (!CTAKConfigHandle::GetConfigTable(kHomeTestListKey, text)) {
        TAK_LOGE("can not read %s", kHomeTestListKey);
        return false;
    }
    list = ParseHomeTestList(text);
    TAK_LOGD("%s: %zu installed test packages", kHomeTestListKey, list.size());
    return true;
}

bool CBuiltInAppUtil::GetP0TestChangeList(const std::string& path, std::vector<HOME_TEST_APP>& list) {
    list.clear();
    std::string text;
    bool absent = false;
    if (!ReadBoundedFile(path, kMaxCandidateFileSize, text, absent)) {
        if (absent) {
            TAK_LOGD("no test candidate file %s", path.c_str());
        }
        return absent;
    }
    list = ParseP0TestChangeList(text);
    TAK_LOGD("%s: %zu test candidates", path.c_str(), list.size());
    return true;
}

bool CBuiltInAppUtil::CheckUpdating(const std::string& appId, const std::string& pkgId) {
    std::string updating = UpdatingPackage();
    if (!updating.empty() && updating == pkgId) {
        TAK_LOGN("%s[%s] is being updated in the background", appId.c_str(), pkgId.c_str());
        return true;
    }
    if (IsSafeFileId(pkgId, "package")) {
        RemoveUpdateMarker(pkgId);
    }
    if (IsSafeFileId(appId, "app")) {
        RemoveBackgroundPackages(appId);
    }
    return false;
}

bool CBuiltInAppUtil::CheckWaitingList(const std::vector<std::string>& waitingList) {
    if (waitingList.empty()) {
        TAK_LOGI("waiting list is empty");
        return true;
    }
    std::string updating = UpdatingPackage();
    if (!updating.empty() &&
        std::find(waitingList.begin(), waitingList.end(), updating) != waitingList.end()) {
        TAK_LOGI("skip the event");
        return false;
    }
    return true;
}

bool CBuiltInAppUtil::RemoveFromTestList(const std::string& pkgId, const std::string& appId) {
    if ((pkgId.empty() && appId.empty()) || !IsListableId(pkgId) || !IsListableId(appId)) {
        TAK_LOGE("refused to remove [%s][%s] from %s", appId.c_str(), pkgId.c_str(), kTestListKey);
        return false;
    }
    std::string original;
    if (!ReadTestList(original)) {
        return false;
    }
    std::vector<TEST_APP> list = ParseTestList(original);
    list.erase(std::remove_if(list.begin(), list.end(),
                              [&](const TEST_APP& entry) {
                                  return (!pkgId.empty() && entry.pkgId == pkgId) ||
                                         (!appId.empty() && entry.appId == appId);
                              }),
               list.end());
    return WriteTestList(list, original, "removed [" + appId + "][" + pkgId + "]");
}

bool CBuiltInAppUtil::UpdateTestList(const OPENAPI_BUILTIN_APP_INFO& app) {
    if (app.appId.empty() || app.pkgId.empty() || !IsListableId(app.appId) || !IsListableId(app.pkgId)) {
        TAK_LOGE("refused to record [%s][%s] in %s", app.appId.c_str(), app.pkgId.c_str(), kTestListKey);
        return false;
    }
    std::string original;
    if (!ReadTestList(original)) {
        return false;
    }
    std::vector<TEST_APP> list = ParseTestList(original);
    auto found = std::find_if(list.begin(), list.end(),
                              [&](const TEST_APP& entry) { return entry.appId == app.appId; });
    std::string change = "recorded " + app.appId + kFieldSeparator + app.pkgId;
    if (found == list.end()) {
        list.push_back({app.appId, app.pkgId});
        return WriteTestList(list, original, change);
    }
    found->pkgId = app.pkgId;
    list.erase(std::remove_if(found + 1, list.end(),
                              [&](const TEST_APP& entry) { return entry.appId == app.appId; }),
               list.end());
    return WriteTestList(list, original, change);
}
