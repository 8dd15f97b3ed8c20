// CAppsResetRules: the decisions of an apps reset (app or service kind) and of a Corvane reset, apart
// from the task that carries them out.
//
// What such a reset does depends only on the app records, the preinstalled-app lists, the board and
// a few settings: the uninstall order, which apps the walk keeps and why, the directories the clean-up
// empties or removes, the settings each step writes and the result it reports. Those decisions live
// here, so that the reset task and the plan command (which predicts a reset without changing anything)
// take them from the same code. Nothing here writes, posts or reports; the keep rule logs the line the
// uninstall walk has always logged for a kept app, and a path variable the platform does not know is
// logged as the clean-up has always logged it.
//
// Stateless apart from the references the keep rule holds; any thread may call.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "AppInfo.h"

enum RESET_KIND_E {
    RESET_KIND_APP,      // "tak_app_reset"
    RESET_KIND_SERVICE,  // "tak_service_reset"
    RESET_KIND_CORVANE,  // "corvane_reset"
};

// Why the uninstall walk keeps an app; the first rule that matches wins, in this order.
enum RESET_KEEP_RULE_E {
    RESET_KEEP_NONE = 0,        // uninstalled
    RESET_KEEP_DEFAULT_NATIVE,  // app type 4, or listed as a default/native preinstalled app
    RESET_KEEP_DISABLE_RESET,   // its disable-reset flag is set
    RESET_KEEP_GENERAL_APP,     // a general preinstalled app, on a board that runs Android apps
    RESET_KEEP_FIXED_ID,        // one of the three apps a service reset must keep
};

// The points of a reset at which it writes settings.
enum RESET_STAGE_E {
    RESET_STAGE_START,          // first thing in AppsReset / CorvaneReset
    RESET_STAGE_RECORDS_RESET,  // in the entry, right after the app records were reset
    RESET_STAGE_CLEAN_UP,       // start of the Corvane clean-up, after the records of a board without
                                // Android apps were reset there
    RESET_STAGE_RESULT,         // after the directories, just before the result is reported
};

// One settings write.
struct RESET_SETTING_T {
    std::string key;
    bool text = false;  // a string key; else an integer key
    int number = 0;     // the value of an integer key
    std::string value;  // the value of a string key
    bool sync = true;   // written before the call returns; else handed to the store's worker
};

enum RESET_CLEANUP_ACTION_E {
    RESET_CLEANUP_EMPTY_DIR,             // TAKDir::RemoveAllFiles(path, false, false)
    RESET_CLEANUP_REMOVE_DIR,            // TAKDir::RemoveAllFiles(path, true, false): emptied, then gone
    RESET_CLEANUP_REMOVE_FILE,           // ITAKUtility::RemoveFile(path)
    RESET_CLEANUP_RESET_USER_DATA,       // CResetDbus::ResetAppsUserData()
    RESET_CLEANUP_DELETE_NOTIFICATIONS,  // "DeleteAllInstallNotificationsAPI", when the library has it
};

// One step of the clean-up that ends a reset. The log texts are complete lines (info level); a step
// whose path is empty (its path variable is not configured) only logs them.
struct RESET_CLEANUP_STEP {
    RESET_CLEANUP_ACTION_E action;
    std::string path;
    std::string logBefore;  // logged before the step when not empty
    std::string logAfter;   // logged after it when not empty; for the notifications only when they were
                            // deleted
};

class CAppsResetRules {
public:
    using AppMap = std::map<std::string, std::string>;

    // int: 1 right after a factory reset, until an app reset ends that state.
    static const char* const FACTORY_RESET_KEY;

    // The keep rule of one walk. The maps are the default/native (type 0) and general (type 1)
    // preinstalled apps as the reset read them; they must outlive the object. `serviceReset` is the
    // task's flag, which a Corvane reset inherits from a service reset earlier in the same process.
    CAppsResetRules(bool aotBoard, bool serviceReset, const AppMap& defaultApps, const AppMap& generalApps);

    // The rule that keeps `app`, logged as the walk logs it; RESET_KEEP_NONE (nothing logged) when the
    // app is to be uninstalled.
    RESET_KEEP_RULE_E KeepRule(const _APPINFO_T& app) const;

    // "default/native", "disable reset", "general app", "fixed id"; "" for RESET_KEEP_NONE.
    static const char* KeepRuleName(RESET_KEEP_RULE_E rule);

    // The uninstall order of the apps as fetched: the fetched order, except that front-placed apps go
    // first, in reverse of their fetched order. The nodes are moved, not copied.
    static std::list<_APPINFO_T> UninstallOrder(std::list<_APPINFO_T>&& fetched);

    // Whether the reset uninstalls apps at all: a Corvane reset only on a board that runs Android apps.
    static bool UninstallsApps(RESET_KIND_E kind, bool aotBoard);
    // Whether the general preinstalled apps are read: always in a Corvane reset, in an apps reset only
    // right after a factory reset ("db/tak/factory_reset" reads 1).
    static bool ReadsGeneralApps(RESET_KIND_E kind, int factoryReset);
    // Whether the reset's result stage ends the factory-reset state (only an app reset does), so that
    // "db/tak/factory_reset" needs reading there.
    static bool EndsFactoryReset(RESET_KIND_E kind);

    // The settings written at one stage, in order. `korbitBoard` spares "db/tak/app_sync_status";
    // `factoryReset` is the value "db/tak/factory_reset" holds when the stage runs.
    static std::vector<RESET_SETTING_T> Settings(RESET_KIND_E kind, RESET_STAGE_E stage, bool aotBoard,
                                                 bool korbitBoard, int factoryReset);

    // The clean-up steps, in order, with their paths resolved now.
    static std::vector<RESET_CLEANUP_STEP> CleanUpSteps(RESET_KIND_E kind);

    // The name the result is reported under.
    static const char* ResultName(RESET_KIND_E kind);

    // The apps a service reset keeps whatever else they are.
    static bool IsFixedId(const std::string& id);

private:
    const bool m_bAOTBoard;
    const bool m_bServiceReset;
    const AppMap& m_rDefaultApps;
    const AppMap& m_rGeneralApps;
};
