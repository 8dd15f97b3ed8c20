// CBuiltInAppUtil: the lists of Home test packages and the background-update checks that the built-in
// app reset consults. Stateless: every operation reads its source (configuration table, settings key,
// file) afresh, so any thread may call. The Parse/Assemble functions are pure and never log more than one
// line per call, whatever the size of their input; the others wrap them around one read and, for the
// test list, one write.
//
// List texts. Entries are separated by ";", fields by ","; empty entries (";;", a trailing ";") are
// skipped silently; fields may be empty; bytes are carried as they are (no UTF-8 check).
//   HOME_TEST_LIST   (configuration table) appId,pkgId,version,groupType,groupTag
//   candidate file   appId,pkgId,version,groupType,groupTag,installType
//   RESERVED_16      (configuration table) appId,pkgId  -- the test-app list this class keeps
// An entry with fewer fields than its list defines is skipped; all the skipped entries of one text are
// reported by one log line (a corrupted megabyte must not become a million log lines). Extra fields
// after the defined ones are ignored, so that a later writer may append fields without hiding a package
// from the reset. The test list defines exactly two fields: an entry with more or fewer is not one of
// ours, is skipped, and is gone after the next write.
// The candidate file is a file someone may have edited: blanks, tabs, CR and LF around its records and
// fields are dropped. The table texts are written by programs and are taken byte for byte.
#pragma once

#include <string>
#include <vector>

#include "TAKCommonApi.h"

// One Home test package: an installed one (HOME_TEST_LIST, no install type) or a candidate.
struct HOME_TEST_APP {
    std::string appId;
    std::string pkgId;
    std::string version;
    std::string groupType;
    std::string groupTag;
    std::string installType;
};

class CBuiltInAppUtil {
public:
    using HOME_TEST_APP = ::HOME_TEST_APP;

    // One entry of the test-app list (RESERVED_16).
    struct TEST_APP {
        std::string appId;
        std::string pkgId;
        bool operator==(const TEST_APP& other) const { return appId == other.appId && pkgId == other.pkgId; }
    };

    // Candidate files above this size are refused unread.
    static constexpr size_t kMaxCandidateFileSize = 1024 * 1024;

    // The installed Home test packages from the configuration table key "HOME_TEST_LIST". The list is
    // replaced; an empty value gives an empty list. False (empty list, a log line) when the key cannot
    // be read.
    static bool GetHomeTestAppDBInfo(std::vector<HOME_TEST_APP>& list);

    // The Home test candidates from the file at `path`. The list is replaced. An absent file is the
    // normal case of a device without candidates: empty list, a debug line, true. A file that cannot be
    // read, is not a regular file or is larger than kMaxCandidateFileSize: empty list, a log line, false.
    static bool GetP0TestChangeList(const std::string& path, std::vector<HOME_TEST_APP>& list);

    // True exactly when "memory/tak/biu_updating_app" says that `pkgId` is being updated in the
    // background now (see ParseUpdatingApp). Otherwise the leftovers of an update of the app are cleaned
    // up and the answer is false: the marker <path 27>/tpk-update-<pkgId> and the downloaded packages
    // <path 6>/background-update/<appId>{_inactive,_anytime,_on,_off,_}.tpk, each only if it exists.
    // All of them are removed through the privileged utility: they belong to the installer, not to this
    // service. An id that is empty or holds "/", ".." or a NUL byte would name another file; it is
    // refused with a log line and its files are left alone.
    static bool CheckUpdating(const std::string& appId, const std::string& pkgId);

    // True when no package of `waitingList` is being updated any more (an empty list logs "waiting list
    // is empty"); false, logging "skip the event", while the package being updated is one of them.
    static bool CheckWaitingList(const std::vector<std::string>& waitingList);

    // Removes from the test-app list every entry whose package id is `pkgId` or whose app id is `appId`
    // (an uninstalled package takes all its apps along; an app id names one app whatever its package).
    // An empty id matches nothing; both empty, or an id holding "," or ";", is refused (false, a log
    // line). The list is written back only when it changed. False with a log line when the read or the
    // write fails.
    static bool RemoveFromTestList(const std::string& pkgId, const std::string& appId);

    // Records `app` (its appId and pkgId) in the test-app list: an entry with the same app id is replaced
    // in place (later duplicates of it are dropped), otherwise the entry is appended. Empty ids or ids
    // holding "," or ";" are refused (false, a log line). Written back only when the text changed; false
    // with a log line when the read or the write fails.
    static bool UpdateTestList(const OPENAPI_BUILTIN_APP_INFO& app);

    // The parsers and the writer behind the operations above.
    static std::vector<HOME_TEST_APP> ParseHomeTestList(const std::string& text);
    static std::vector<HOME_TEST_APP> ParseP0TestChangeList(const std::string& text);
    static std::vector<TEST_APP> ParseTestList(const std::string& text);
    static std::string AssembleTestList(const std::vector<TEST_APP>& list);

    // The package named by the JSON text of "memory/tak/biu_updating_app": an object whose string
    // member "status" is "update", "uninstall" or "pre_update", whose string member "value" is "start"
    // and whose string member "pkgname" is not empty. True with `pkgname` set when the text says so;
    // otherwise false, `pkgname` cleared and one log line (invalid JSON, a missing member or one of
    // another type, or simply no update under way). Text after the object is an error; an empty text is
    // the store's "nothing under way".
    static bool ParseUpdatingApp(const std::string& jsonText, std::string& pkgname);
};
