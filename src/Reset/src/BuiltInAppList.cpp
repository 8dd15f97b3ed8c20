#include "BuiltInAppList.h"

#include <platform_path.h>

#include "BuiltInAppUtil.h"
#include "PkgInfo.h"
#include "TAKLog.h"
#include "TAKUtil.h"

const char* const CBuiltInAppList::INSTANT_RESET_KEY = "http://orvix.com/tv/metadata/prefer_instant_reset";
const char* const CBuiltInAppList::INSTANT_RESET_VALUE = "true";
const char* const CBuiltInAppList::ROBOT_APP_TYPE = "ROBOTAPP";

namespace {

const char kCandidateFile[] = "built_in_app/group_install/p0testcandidate.xml";

// The requirement on `pkgid` that decides whether the app stays: the first one in key order.
const OPENAPI_REQUIRE_INFO* FirstRequirementOn(const OPENAPI_BUILTIN_APP_INFO& app,
                                               const std::string& pkgid) {
    for (const auto& require : app.requires) {
        if (require.second.pkgid == pkgid) {
            return &require.second;
        }
    }
    return nullptr;
}

}  // namespace

bool CBuiltInAppList::LiveQuery::InstalledVersion(const std::string& pkgId, std::string& version) {
    IPkgInfo package(pkgId, false);
    return package.CheckAppVersion(version);
}

bool CBuiltInAppList::LiveQuery::IsInstalled(const std::string& pkgId, bool robot) {
    return IPkgInfo::IsInstalled(pkgId, robot);
}

bool CBuiltInAppList::LiveQuery::MetadataValue(const OPENAPI_BUILTIN_APP_INFO& app, bool robot,
                                               const std::string& key, std::string& value) {
    if (robot) {
        return IPkgAppInfo::GetMetadataByOrvixID(app.orvixId, key, value, true);
    }
    IPkgAppInfo appInfo(app.pkgId);
    return appInfo.FindMetadataValue(key, value);
}

bool CBuiltInAppList::LiveQuery::IsRemovable(const std::string& pkgId, bool robot) {
    IPkgInfo package(pkgId, robot);
    return package.GetAppRemovableFlag();
}

bool CBuiltInAppList::LiveQuery::IsUpdating(const std::string& appId, const std::string& pkgId) {
    return CBuiltInAppUtil::CheckUpdating(appId, pkgId);
}

void CBuiltInAppList::LiveQuery::HomeTestList(std::vector<HOME_TEST_APP>& list) {
    CBuiltInAppUtil::GetHomeTestAppDBInfo(list);
}

void CBuiltInAppList::LiveQuery::CandidateList(const std::string& path, std::vector<HOME_TEST_APP>& list) {
    CBuiltInAppUtil::GetP0TestChangeList(path, list);
}

std::string CBuiltInAppList::CandidateFilePath() {
    const char* dataRoot = platform_path_get(PLATFORM_PATH_APPS_RW);
    return std::string(dataRoot != nullptr ? dataRoot : "") + "/vardell/" + kCandidateFile;
}

void CBuiltInAppList::RemoveHomeBasePkg(const std::string& homeBasePkgId, BUILTIN_APP_LIST& list) {
    TAK_LOGI("Home base pkg %s", homeBasePkgId.c_str());
    if (m_pObserver != nullptr) {
        m_pObserver->OnHomePackage(HOME_BASE_PACKAGE, homeBasePkgId);
    }
    RemoveFromBuiltInList(homeBasePkgId, list);
}

void CBuiltInAppList::RemoveHomeTestVersion(BUILTIN_APP_LIST& list) {
    std::vector<HOME_TEST_APP> installed;
    m_rQuery.HomeTestList(installed);
    for (const HOME_TEST_APP& test : installed) {
        TAK_LOGI("check Home installed test pkg %s", test.pkgId.c_str());
        if (m_pObserver != nullptr) {
            m_pObserver->OnHomePackage(HOME_INSTALLED_TEST, test.pkgId);
        }
        RemoveFromBuiltInList(test.pkgId, list);
    }
    std::vector<HOME_TEST_APP> candidates;
    m_rQuery.CandidateList(CandidateFilePath(), candidates);
    for (const HOME_TEST_APP& candidate : candidates) {
        TAK_LOGI("check Home test candidate pkg %s", candidate.pkgId.c_str());
        if (m_pObserver != nullptr) {
            m_pObserver->OnHomePackage(HOME_TEST_CANDIDATE, candidate.pkgId);
        }
        RemoveFromBuiltInList(candidate.pkgId, list);
    }
}

void CBuiltInAppList::RemoveFromBuiltInList(const std::string& pkgid, BUILTIN_APP_LIST& list) {
    std::string installedVersion;
    bool versionKnown = m_rQuery.InstalledVersion(pkgid, installedVersion);
    for (auto it = list.begin(); it != list.end();) {
        if (it->pkgId == pkgid) {
            TAK_LOGN("remove Home base/test pkg %s from general biu list", pkgid.c_str());
            if (m_pObserver != nullptr) {
                m_pObserver->OnRemoved(*it, pkgid, nullptr, versionKnown, installedVersion);
            }
            it = list.erase(it);
            continue;
        }
        const OPENAPI_REQUIRE_INFO* require = FirstRequirementOn(*it, pkgid);
        if (require == nullptr ||
            (versionKnown && CTAKUtil::CompareVersion(installedVersion, require->version) >= 0)) {
            ++it;
            continue;
        }
        TAK_LOGN("remove %s because it requires higher Home base/test pkg version than installed version",
                 it->appId.c_str());
        if (m_pObserver != nullptr) {
            m_pObserver->OnRemoved(*it, pkgid, require, versionKnown, installedVersion);
        }
        it = list.erase(it);
    }
}

void CBuiltInAppList::AssembleBuiltInList(BUILTIN_APP_LIST& list, Observer* observer) {
    BUILTIN_APP_LIST work;
    work.swap(list);
    list.reserve(work.size());
    // Taking entries from the front one by one would move the whole array each time; walking an index
    // and marking taken entries keeps a 2,000-app list cheap. `taken` marks entries already placed.
    std::vector<bool> taken(work.size(), false);
    for (size_t current = 0; current < work.size(); ++current) {
        if (taken[current]) {
            continue;
        }
        taken[current] = true;
        for (const auto& require : work[current].requires) {
            const std::string& key = require.first;
            if (key.empty()) {
                continue;
            }
            for (size_t candidate = current + 1; candidate < work.size(); ++candidate) {
                if (taken[candidate] || work[candidate].appId != key) {
                    continue;
                }
                TAK_LOGI("add require app %s before app %s", work[candidate].appId.c_str(),
                         work[current].appId.c_str());
                if (observer != nullptr) {
                    observer->OnMoved(work[candidate], work[current]);
                }
                taken[candidate] = true;
                list.push_back(std::move(work[candidate]));
                break;
            }
        }
        list.push_back(std::move(work[current]));
    }
}

bool CBuiltInAppList::CheckResetCondition(const OPENAPI_BUILTIN_APP_INFO& app,
                                          std::vector<std::string>& waitingList) {
    const bool robot = app.appType == ROBOT_APP_TYPE;
    const char* appId = app.appId.c_str();
    const char* pkgId = app.pkgId.c_str();
    if (!m_rQuery.IsInstalled(app.pkgId, robot)) {
        TAK_LOGN("%s[%s] not installed, skip it", appId, pkgId);
        m_Skipped(app, SKIP_NOT_INSTALLED, nullptr);
        return false;
    }
    std::string value;
    bool found = m_rQuery.MetadataValue(app, robot, INSTANT_RESET_KEY, value);
    if (!found || value != INSTANT_RESET_VALUE) {
        TAK_LOGN("%s[%s] not support instant reset, skip it", appId, pkgId);
        m_Skipped(app, SKIP_NO_INSTANT_RESET, found ? &value : nullptr);
        return false;
    }
    if (!m_rQuery.IsRemovable(app.pkgId, robot)) {
        TAK_LOGN("%s[%s] not removable, skip it", appId, pkgId);
        m_Skipped(app, SKIP_NOT_REMOVABLE, nullptr);
        return false;
    }
    bool updating = m_rQuery.IsUpdating(app.appId, app.pkgId);
    if (updating) {
        waitingList.push_back(app.pkgId);
    }
    if (m_pObserver != nullptr) {
        m_pObserver->OnAccepted(app, updating);
    }
    return true;
}

void CBuiltInAppList::m_Skipped(const OPENAPI_BUILTIN_APP_INFO& app, SkipReason reason,
                                const std::string* metadata) {
    if (m_pObserver != nullptr) {
        m_pObserver->OnSkipped(app, reason, metadata);
    }
}
