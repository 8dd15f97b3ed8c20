// CResetPlan: what one reset would do on this device, worked out without doing any of it.
//
// The plan reads what the reset reads (the app database over the read-only connection, the settings,
// the package records, the common library's built-in list, the directories it would empty) and takes
// every decision from the code the reset runs (CAppsResetRules, CBuiltInResetRules, CBuiltInAppList).
// It writes no setting, sends nothing over the bus and calls no library entry point that installs,
// uninstalls or watches; the only library call is "GetBuiltInAppListAPI", a query.
//
// The plan assumes a fresh tak-reset process: state that a running process carries from an earlier
// request (a service reset's flag kept for a later Corvane reset, a Corvane reset in progress) is not
// visible from outside it.
//
// What cannot be read is recorded as a problem and planned around, as the reset itself would go on
// (no database: no apps; no library: the flow stops where the reset would stop). Build is false only
// when nothing at all could be read.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "AppsResetRules.h"
#include "BuiltInAppList.h"
#include "PlanRequest.h"

// One app of an apps or Corvane reset, in uninstall order.
struct PLAN_APP_T {
    std::string appId;
    int appType = 0;
    bool front = false;                        // placed at the front of the list
    RESET_KEEP_RULE_E rule = RESET_KEEP_NONE;  // why it is kept
    bool uninstall = false;                    // an uninstall request goes out for it
};

// One clean-up step with what it would remove now.
struct PLAN_CLEANUP_T {
    RESET_CLEANUP_STEP step;
    bool exists = false;  // the path is there (a directory, or the file)
    long long files = 0;  // entries that would go, directories not counted
    long long bytes = 0;  // sizes of the regular files among them
    bool runs = true;     // false: the library lacks the entry point of a call step
};

// One settings key the reset writes.
struct PLAN_SETTING_T {
    std::string key;
    bool text = false;
    bool oldKnown = false;  // the current value could be read
    std::string oldValue;
    std::string newValue;
};

// One app of the library's built-in list, in the library's order.
struct PLAN_LISTED_T {
    std::string appId;
    std::string pkgId;
    std::string appType;
    std::vector<OPENAPI_REQUIRE_INFO>
    requires;  // in key order
};

// A Home package checked before the assembly.
struct PLAN_HOME_PACKAGE_T {
    CBuiltInAppList::HomePackageKind kind;
    std::string pkgId;
};

// A built-in app taken off the list because of a Home package.
struct PLAN_REMOVAL_T {
    std::string appId;
    std::string pkgId;
    std::string byPackage;    // the Home package
    bool ownPackage = false;  // the app is of that package; else it requires a newer one
    std::string requiredVersion;
    bool versionKnown = false;
    std::string installedVersion;
};

// "add require app <appId> before app <before>".
struct PLAN_MOVE_T {
    std::string appId;
    std::string before;
};

// One app of the assembled built-in list, in reset order.
struct PLAN_BUILTIN_APP_T {
    std::string appId;
    std::string pkgId;
    bool install = false;
    CBuiltInAppList::SkipReason reason = CBuiltInAppList::SKIP_NOT_INSTALLED;  // when not installed
    bool metadataRead = false;  // the instant-reset value that was read, for SKIP_NO_INSTANT_RESET
    std::string metadata;
    bool updating = false;  // its package is being updated in the background
};

struct RESET_PLAN_T {
    CPlanRequest request;
    bool aotBoard = false;
    bool korbitBoard = false;
    std::vector<std::string> problems;  // what could not be read
    std::vector<std::string> notes;     // how the flow goes beyond the tables

    // Apps and Corvane resets.
    bool uninstallsApps = false;  // the reset has an uninstall walk
    bool walkRuns = false;        // ... and the library lets it send requests
    std::vector<PLAN_APP_T> apps;
    bool cleanUpRuns = false;
    std::vector<PLAN_CLEANUP_T> cleanUp;

    // Built-in resets.
    bool serverUpgrade = true;
    int resetInProcess = 0;
    bool conditionPasses = false;
    bool listed = false;    // the library was asked for its list
    bool installs = false;  // the library can install
    std::string homeBasePkgId;
    std::vector<PLAN_LISTED_T> libraryList;
    std::vector<PLAN_HOME_PACKAGE_T> homePackages;
    std::vector<PLAN_REMOVAL_T> removals;
    std::vector<PLAN_MOVE_T> moves;
    std::vector<PLAN_BUILTIN_APP_T> order;
    std::vector<std::string> waitingList;

    std::vector<PLAN_SETTING_T> settings;  // first write order, final value
    std::string resultName;
    bool resultAtEnd = false;      // reported when the reset reaches its end
    bool resultAtTaskEnd = false;  // reported only when the task is ended (a later request or "end")
};

class CResetPlan : private CBuiltInAppList::Observer {
public:
    explicit CResetPlan(const CPlanRequest& request);

    // Works the plan out; false when nothing could be read at all.
    bool Build();
    const RESET_PLAN_T& Get() const { return m_tPlan; }

    // The process-wide set-up the plan needs once: the read-only database connection, the read hooks of
    // the app data (never the write hooks), the common library.
    static void Prepare();

private:
    // A note when the deadline setting gives up on unanswered requests.
    void m_PlanDeadline();
    // Notes on the tak-reset that already runs, whose state changes what this request does.
    void m_PlanRunningProcess();
    void m_PlanAppsReset();
    void m_PlanBuiltInReset();
    // Whether the app database answers; names it as a problem when not.
    bool m_ProbeDatabase();
    void m_PlanApps(RESET_KIND_E kind, std::list<_APPINFO_T>&& apps, int factoryReset);
    void m_PlanCleanUp(RESET_KIND_E kind);
    void m_PlanAppsSettings(RESET_KIND_E kind, int factoryReset);
    void m_PlanBuiltInList();
    void m_AddSetting(const RESET_SETTING_T& write);
    bool m_LibraryLoaded();

    void OnHomePackage(CBuiltInAppList::HomePackageKind kind, const std::string& pkgId) override;
    void OnRemoved(const OPENAPI_BUILTIN_APP_INFO& app, const std::string& pkgid,
                   const OPENAPI_REQUIRE_INFO* require, bool versionKnown,
                   const std::string& installedVersion) override;
    void OnMoved(const OPENAPI_BUILTIN_APP_INFO& required, const OPENAPI_BUILTIN_APP_INFO& app) override;
    void OnSkipped(const OPENAPI_BUILTIN_APP_INFO& app, CBuiltInAppList::SkipReason reason,
                   const std::string* metadata) override;
    void OnAccepted(const OPENAPI_BUILTIN_APP_INFO& app, bool updating) override;

    RESET_PLAN_T m_tPlan;
    int m_nSourcesRead = 0;  // sources that answered: database, library, directories
};
