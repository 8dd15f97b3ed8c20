#include "ResetPlan.h"

#include <dlfcn.h>
#include <ftw.h>
#include <glib.h>
#include <platform_path.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "AppDBInfo.h"
#include "BuiltInResetRules.h"
#include "ICSystemInfo.h"
#include "ICVConf.h"
#include "PlanQuery.h"
#include "RunningReset.h"
#include "TAKCommonApi.h"
#include "TAKCommonHandle.h"
#include "TAKConfigHandle.h"
#include "TAKDBConnection.h"
#include "TAKDBTable.h"
#include "TAKUtil.h"

namespace {

std::string LibraryPath() {
    return std::string(platform_path_fixed("/usr/lib64")) + "/libtak_common.so";
}

RESET_KIND_E AppsKind(CPlanRequest::Kind kind) {
    switch (kind) {
        case CPlanRequest::KIND_SERVICE_RESET:
            return RESET_KIND_SERVICE;
        case CPlanRequest::KIND_CORVANE_RESET:
            return RESET_KIND_CORVANE;
        default:
            return RESET_KIND_APP;
    }
}

// What a directory walk that removes everything below a directory would remove: no link followed, no
// other file system entered, as the directory utility walks. nftw passes no user data, so the totals
// live here; the plan is made on one thread.
struct DirTotals {
    long long files = 0;
    long long bytes = 0;
};
DirTotals g_Totals;

int CountEntry(const char* /*path*/, const struct stat* info, int type, struct FTW* where) {
    if (where->level == 0 || type == FTW_D || type == FTW_DP || type == FTW_DNR) {
        return 0;
    }
    ++g_Totals.files;
    if (type == FTW_F && S_ISREG(info->st_mode)) {
        g_Totals.bytes += info->st_size;
    }
    return 0;
}

void Measure(PLAN_CLEANUP_T& entry) {
    struct stat info {};
    if (entry.step.path.empty() || lstat(entry.step.path.c_str(), &info) != 0) {
        return;
    }
    entry.exists = true;
    if (entry.step.action == RESET_CLEANUP_REMOVE_FILE) {
        entry.files = 1;
        entry.bytes = S_ISREG(info.st_mode) ? info.st_size : 0;
        return;
    }
    // A link in place of the directory is not entered.
    if (!S_ISDIR(info.st_mode)) {
        return;
    }
    g_Totals = DirTotals();
    nftw(entry.step.path.c_str(), CountEntry, 32, FTW_PHYS | FTW_MOUNT);
    entry.files = g_Totals.files;
    entry.bytes = g_Totals.bytes;
}

// Both tables the reset reads, in one statement that touches only their first pages (counting rows would
// walk the whole app table); false with the database's own words when it cannot.
bool ProbeTables(std::string& error) {
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    sqlite3* db = connection != nullptr ? connection->GetConnection() : nullptr;
    if (db == nullptr) {
        error = "no connection";
        return false;
    }
    std::lock_guard<std::mutex> lock(CTAKDBTable::Mutex);
    sqlite3_stmt* stmt = nullptr;
    int ret = sqlite3_prepare_v2(
        db, "select (select 1 from widgetinfo limit 1), (select 1 from TAKConfigTable limit 1)", -1, &stmt,
        nullptr);
    if (ret == SQLITE_OK) {
        ret = sqlite3_step(stmt);
    }
    if (ret != SQLITE_ROW) {
        error = sqlite3_errmsg(db);
    }
    sqlite3_finalize(stmt);
    return ret == SQLITE_ROW;
}

std::string SettingText(const RESET_SETTING_T& write) {
    return write.text ? write.value : std::to_string(write.number);
}

RESET_SETTING_T NumberSetting(const char* key, int number) {
    RESET_SETTING_T write;
    write.key = key;
    write.number = number;
    return write;
}

}  // namespace

CResetPlan::CResetPlan(const CPlanRequest& request) {
    m_tPlan.request = request;
}

void CResetPlan::Prepare() {
    static std::once_flag once;
    std::call_once(once, [] {
        // Reads only: a plan must not be able to reach a write of the app data.
        CTAKConfigHandle::SetGetConfigTableHandle(CAppDBInfo::GetConfigTable);
        CTAKConfigHandle::SetGetAppSyncConfigHandle(CAppDBInfo::GetAppSyncConfig);
        CTAKDBConnection::GetInstance(false);
        CTAKCommonHandle::OpenLibrary();
    });
}

bool CResetPlan::Build() {
    Prepare();
    m_tPlan.aotBoard = ICSystemInfo::GetAOTBoard();
    m_tPlan.korbitBoard = ICSystemInfo::GetKorbitBoard();
    if (m_LibraryLoaded()) {
        ++m_nSourcesRead;
    } else {
        m_tPlan.problems.push_back("the common library " + LibraryPath() + " could not be loaded");
    }
    if (m_tPlan.request.IsBuiltIn()) {
        m_PlanBuiltInReset();
    } else {
        m_PlanAppsReset();
    }
    m_PlanDeadline();
    m_PlanRunningProcess();
    return m_nSourcesRead > 0;
}

void CResetPlan::m_PlanRunningProcess() {
    CRunningReset running;
    running.Read();
    if (running.Pid() == 0) {
        return;
    }
    const std::string process = "tak-reset (pid " + std::to_string(running.Pid()) + ")";
    m_tPlan.notes.push_back(process +
                            " already runs: the request goes to it, and this plan is that of a freshly "
                            "started one");
    const CPlanRequest::Kind kind = m_tPlan.request.GetKind();
    if (!running.CorvaneResetAt().empty()) {
        const std::string ran = process + " ran a Corvane reset at " + running.CorvaneResetAt() + " UTC";
        if (kind == CPlanRequest::KIND_CORVANE_RESET) {
            m_tPlan.notes.push_back(ran +
                                    ": it refuses this one, which then does nothing and reports no result");
        } else if (!m_tPlan.request.IsBuiltIn() && m_tPlan.aotBoard) {
            m_tPlan.notes.push_back(ran + ": on this board it ends this reset the Corvane way");
        }
    }
    if (m_tPlan.request.IsBuiltIn() && m_tPlan.resetInProcess != 0) {
        m_tPlan.notes.push_back("a built-in reset is marked in process (" +
                                std::string(CBuiltInResetRules::RESET_IN_PROCESS_KEY) + " = " +
                                std::to_string(m_tPlan.resetInProcess) +
                                ", never cleared): this request stops "
                                "one that " +
                                process +
                                " has under way, which then reports its result, and is "
                                "skipped itself");
    }
}

void CResetPlan::m_PlanDeadline() {
    const int seconds = CTAKUtil::GetCallbackTimeoutSec();
    if (seconds <= 0) {
        return;
    }
    const char* what = m_tPlan.request.IsBuiltIn() ? "an install" : "an uninstall";
    m_tPlan.notes.push_back(std::string(what) + " not answered within " + std::to_string(seconds) +
                            " s of its own request counts as failed (" + CTAKUtil::CALLBACK_TIMEOUT_KEY +
                            ")");
}

bool CResetPlan::m_LibraryLoaded() {
    void* handle = dlopen(LibraryPath().c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    dlclose(handle);
    return true;
}

bool CResetPlan::m_ProbeDatabase() {
    const std::string path = CTAKDBConnection::GetDBPath();
    if (CTAKDBConnection::GetInstance(false) == nullptr) {
        m_tPlan.problems.push_back(g_file_test(path.c_str(), G_FILE_TEST_EXISTS)
                                       ? "the app database " + path + " cannot be opened"
                                       : "there is no app database at " + path);
        return false;
    }
    std::string error;
    if (!ProbeTables(error)) {
        m_tPlan.problems.push_back("the app database " + path + " cannot be read: " + error);
        return false;
    }
    ++m_nSourcesRead;
    return true;
}

void CResetPlan::m_PlanAppsReset() {
    const RESET_KIND_E kind = AppsKind(m_tPlan.request.GetKind());
    int factoryReset = 0;
    ICVConf::Get(CAppsResetRules::FACTORY_RESET_KEY, factoryReset);
    std::list<_APPINFO_T> apps;
    if (m_ProbeDatabase()) {
        apps = CAppDBInfo::GetAllAppList();
    }

    const bool canUninstall = CTAKCommonHandle::Find<TAK_INSTALL_API>(TAK_API_UNINSTALL_APP) != nullptr;
    m_tPlan.uninstallsApps = CAppsResetRules::UninstallsApps(kind, m_tPlan.aotBoard);
    m_tPlan.walkRuns = m_tPlan.uninstallsApps && canUninstall;
    m_tPlan.cleanUpRuns = !m_tPlan.uninstallsApps || canUninstall;
    if (m_tPlan.uninstallsApps) {
        m_PlanApps(kind, std::move(apps), factoryReset);
    } else {
        m_tPlan.notes.push_back("the board runs no Android apps: no app is uninstalled");
    }
    if (m_tPlan.uninstallsApps && m_tPlan.aotBoard) {
        m_tPlan.notes.push_back(
            "the board runs Android apps: the uninstalls wait until the service's binder "
            "exists");
    }
    if (m_tPlan.cleanUpRuns) {
        m_PlanCleanUp(kind);
    } else {
        m_tPlan.notes.push_back(
            "the common library has no UninstallAppAPI: the reset stops before its first "
            "uninstall request; nothing is uninstalled or cleaned up");
    }
    m_PlanAppsSettings(kind, factoryReset);

    m_tPlan.resultName = CAppsResetRules::ResultName(kind);
    m_tPlan.resultAtEnd = m_tPlan.cleanUpRuns;
    // Only an app reset that never reached its clean-up still answers, once its task is ended.
    m_tPlan.resultAtTaskEnd = !m_tPlan.cleanUpRuns && kind == RESET_KIND_APP;
}

void CResetPlan::m_PlanApps(RESET_KIND_E kind, std::list<_APPINFO_T>&& apps, int factoryReset) {
    CAppsResetRules::AppMap defaultApps;
    CAppsResetRules::AppMap generalApps;
    CTAKUtil::GetPreinstallApps(0, defaultApps);
    if (CAppsResetRules::ReadsGeneralApps(kind, factoryReset)) {
        CTAKUtil::GetPreinstallApps(1, generalApps);
    }
    CAppsResetRules rules(m_tPlan.aotBoard, kind == RESET_KIND_SERVICE, defaultApps, generalApps);
    std::list<_APPINFO_T> ordered = CAppsResetRules::UninstallOrder(std::move(apps));
    m_tPlan.apps.reserve(ordered.size());
    for (const _APPINFO_T& app : ordered) {
        PLAN_APP_T planned;
        planned.appId = app.id;
        planned.appType = app.app_type;
        planned.front = app.reserved_tinyint_2 != 0;
        planned.rule = rules.KeepRule(app);
        planned.uninstall = planned.rule == RESET_KEEP_NONE && m_tPlan.walkRuns;
        m_tPlan.apps.push_back(std::move(planned));
    }
}

void CResetPlan::m_PlanCleanUp(RESET_KIND_E kind) {
    bool anyPath = false;
    for (RESET_CLEANUP_STEP& step : CAppsResetRules::CleanUpSteps(kind)) {
        PLAN_CLEANUP_T entry;
        entry.step = std::move(step);
        if (entry.step.action == RESET_CLEANUP_DELETE_NOTIFICATIONS) {
            entry.runs =
                CTAKCommonHandle::Find<TAK_VOID_API>(TAK_API_DELETE_ALL_INSTALL_NOTIFICATIONS) != nullptr;
        }
        Measure(entry);
        anyPath = anyPath || entry.exists;
        m_tPlan.cleanUp.push_back(std::move(entry));
    }
    if (anyPath) {
        ++m_nSourcesRead;
    }
}

void CResetPlan::m_PlanAppsSettings(RESET_KIND_E kind, int factoryReset) {
    std::vector<RESET_STAGE_E> stages = {RESET_STAGE_START, RESET_STAGE_RECORDS_RESET};
    if (m_tPlan.cleanUpRuns) {
        stages.push_back(RESET_STAGE_CLEAN_UP);
        stages.push_back(RESET_STAGE_RESULT);
    }
    for (RESET_STAGE_E stage : stages) {
        for (const RESET_SETTING_T& write :
             CAppsResetRules::Settings(kind, stage, m_tPlan.aotBoard, m_tPlan.korbitBoard, factoryReset)) {
            m_AddSetting(write);
        }
    }
}

void CResetPlan::m_AddSetting(const RESET_SETTING_T& write) {
    auto known = std::find_if(m_tPlan.settings.begin(), m_tPlan.settings.end(),
                              [&](const PLAN_SETTING_T& setting) { return setting.key == write.key; });
    if (known != m_tPlan.settings.end()) {
        known->newValue = SettingText(write);
        return;
    }
    PLAN_SETTING_T setting;
    setting.key = write.key;
    setting.text = write.text;
    setting.newValue = SettingText(write);
    if (write.text) {
        setting.oldKnown = ICVConf::Get(write.key, setting.oldValue);
    } else {
        int old = 0;
        setting.oldKnown = ICVConf::Get(write.key, old);
        setting.oldValue = setting.oldKnown ? std::to_string(old) : "";
    }
    m_tPlan.settings.push_back(std::move(setting));
}

void CResetPlan::m_PlanBuiltInReset() {
    const bool service = m_tPlan.request.IsService();
    m_tPlan.resultName = CBuiltInResetRules::ResultName(service);
    // The Home test list comes from the database.
    m_ProbeDatabase();
    CBuiltInResetRules::ReadCondition(m_tPlan.serverUpgrade, m_tPlan.resetInProcess);
    m_tPlan.conditionPasses =
        CBuiltInResetRules::ConditionPasses(m_tPlan.serverUpgrade, m_tPlan.resetInProcess);
    if (!m_tPlan.conditionPasses) {
        m_tPlan.notes.push_back(
            "the server upgrade is not allowed or a built-in reset is in process: this "
            "reset is skipped");
        m_tPlan.resultAtEnd = true;
        return;
    }
    m_AddSetting(NumberSetting(CBuiltInResetRules::RESET_IN_PROCESS_KEY,
                               CBuiltInResetRules::ResetInProcessValue(service)));
    m_PlanBuiltInList();
}

void CResetPlan::m_PlanBuiltInList() {
    auto pfGetList = CTAKCommonHandle::Find<TAK_GET_BUILTIN_APP_LIST_API>(TAK_API_GET_BUILTIN_APP_LIST);
    if (pfGetList == nullptr) {
        m_tPlan.notes.push_back(
            "the common library has no GetBuiltInAppListAPI: the reset stops after its "
            "condition check");
        m_tPlan.resultAtTaskEnd = true;
        return;
    }
    RESET_SETTING_T btgid;
    btgid.key = CBuiltInResetRules::BTGID_KEY;
    btgid.text = true;
    m_AddSetting(btgid);

    BUILTIN_APP_LIST apps;
    if (!pfGetList(apps, m_tPlan.request.GetClient().caller_process_name)) {
        m_tPlan.problems.push_back("GetBuiltInAppListAPI failed; planned with the " +
                                   std::to_string(apps.size()) + " apps it listed");
    }
    m_tPlan.listed = true;
    for (const OPENAPI_BUILTIN_APP_INFO& app : apps) {
        PLAN_LISTED_T listed{app.appId, app.pkgId, app.appType, {}};
        for (const auto& require : app.requires) {
            listed.requires.push_back(require.second);
            listed.requires.back().id = require.first;
        }
        m_tPlan.libraryList.push_back(std::move(listed));
    }

    ICVConf::Get(CBuiltInResetRules::HOME_BASE_PKG_KEY, m_tPlan.homeBasePkgId);
    CPlanQuery query;
    CBuiltInResetRules::InstantResetList(std::move(apps), m_tPlan.homeBasePkgId, query, m_tPlan.waitingList,
                                         this);

    m_tPlan.installs = CTAKCommonHandle::Find<TAK_INSTALL_API>(TAK_API_INSTALL_APP) != nullptr;
    if (!m_tPlan.installs) {
        m_tPlan.notes.push_back(
            "the common library has no InstallAppAPI: every app is passed over, none is "
            "installed");
    }
    if (!m_tPlan.waitingList.empty()) {
        m_tPlan.notes.push_back("the installs start once the background update of " +
                                query.UpdatingPackage() + " has ended");
    }
    bool anyInstalled =
        std::any_of(m_tPlan.order.begin(), m_tPlan.order.end(), [](const PLAN_BUILTIN_APP_T& app) {
            return app.install || app.reason != CBuiltInAppList::SKIP_NOT_INSTALLED;
        });
    if (!m_tPlan.order.empty() && !anyInstalled) {
        m_tPlan.problems.push_back(
            "no package of the built-in list is known to the package manager (are the "
            "package records missing?)");
    }
    m_tPlan.resultAtEnd = true;
}

void CResetPlan::OnHomePackage(CBuiltInAppList::HomePackageKind kind, const std::string& pkgId) {
    m_tPlan.homePackages.push_back(PLAN_HOME_PACKAGE_T{kind, pkgId});
}

void CResetPlan::OnRemoved(const OPENAPI_BUILTIN_APP_INFO& app, const std::string& pkgid,
                           const OPENAPI_REQUIRE_INFO* require, bool versionKnown,
                           const std::string& installedVersion) {
    PLAN_REMOVAL_T removal;
    removal.appId = app.appId;
    removal.pkgId = app.pkgId;
    removal.byPackage = pkgid;
    removal.ownPackage = require == nullptr;
    removal.requiredVersion = require != nullptr ? require->version : "";
    removal.versionKnown = versionKnown;
    removal.installedVersion = installedVersion;
    m_tPlan.removals.push_back(std::move(removal));
}

void CResetPlan::OnMoved(const OPENAPI_BUILTIN_APP_INFO& required, const OPENAPI_BUILTIN_APP_INFO& app) {
    m_tPlan.moves.push_back(PLAN_MOVE_T{required.appId, app.appId});
}

void CResetPlan::OnSkipped(const OPENAPI_BUILTIN_APP_INFO& app, CBuiltInAppList::SkipReason reason,
                           const std::string* metadata) {
    PLAN_BUILTIN_APP_T planned;
    planned.appId = app.appId;
    planned.pkgId = app.pkgId;
    planned.reason = reason;
    planned.metadataRead = metadata != nullptr;
    planned.metadata = metadata != nullptr ? *metadata : "";
    m_tPlan.order.push_back(std::move(planned));
}

void CResetPlan::OnAccepted(const OPENAPI_BUILTIN_APP_INFO& app, bool updating) {
    PLAN_BUILTIN_APP_T planned;
    planned.appId = app.appId;
    planned.pkgId = app.pkgId;
    planned.install = true;
    planned.updating = updating;
    m_tPlan.order.push_back(std::move(planned));
}
