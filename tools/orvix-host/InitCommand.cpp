// orvix-host init [--apps N] [--builtin M]: makes a fresh root.
//
// Refuses a directory that holds anything but is not a root made by init (no <root>/.orvix-host), and a
// root whose processes still run. Then it empties the root and lays out: the directories of every path
// variable; the service's directories under variables 0, 2, 6 and 27 with a few files in each (so that a
// reset has something to remove); the app database with N downloaded apps (when the data store is
// built); package records for those apps and M built-in apps; the settings the reset process reads;
// <root>/etc/sysinfo.ini with every flag false; <root>/etc/libtak_common.json with its defaults and the
// substitute library; the host takutility at "/bin/takutility" and "/usr/bin/takutility".
#include <dirent.h>
#include <ftw.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "Commands.h"
#include "HostDaemons.h"
#include "HostPrograms.h"
#include "KitCommand.h"
#include "LibTakInstall.h"
#include "PackageRecords.h"
#include "orvix_host.h"
#include "platform_path.h"

#if __has_include("AppDatabaseSeed.h")
#include "AppDatabaseSeed.h"
#define ORVIX_HAVE_APP_DATABASE_SEED 1
#endif

namespace {

using namespace orvix::host;

const char kCommand[] = "init";
const char kInstantResetKey[] = "http://orvix.com/tv/metadata/prefer_instant_reset";

// Directories the resets empty, by path variable, each seeded with a file and a nested directory.
struct ServiceDirectory {
    int variable;
    const char* relative;
};
const ServiceDirectory kServiceDirectories[] = {
    {PLATFORM_PATH_SYSTEM_DATA, "vardell/common"},
    {PLATFORM_PATH_SYSTEM_DATA, "vardell/appupdate"},
    {PLATFORM_PATH_APPS_RW, "vardell/preinstallrecovery"},
    {PLATFORM_PATH_APPS_RW, "vardell/clone"},
    {PLATFORM_PATH_APPS_RW, "vardell/RM"},
    {PLATFORM_PATH_APPS_RW, "vardell/appupdate/package"},
    {PLATFORM_PATH_APPS_RW, "vardell/system_app"},
    {PLATFORM_PATH_HOME_ROOT, "owner/.cache/Apps/WebAppsCache"},
    {PLATFORM_PATH_HOME_ROOT, "owner/apps_rw/xwalk-service"},
};
// Directories that exist but start empty.
const ServiceDirectory kEmptyDirectories[] = {
    {PLATFORM_PATH_SYSTEM_DATA, "vardell/log"},
    {PLATFORM_PATH_APPS_RW, "vardell/takdb_backup"},
    {PLATFORM_PATH_APPS_RW, "vardell/bnr_backup"},
    {PLATFORM_PATH_APPS_RW, "vardell/built_in_app/group_install"},
    {PLATFORM_PATH_APPS_DATA, "background-update"},
};
const int kPathVariables[] = {0, 2, 6, 24, 27, 66, 67, 68, 69, 70, 71, 72, 73, 74};

gint g_apps = 0;
gint g_builtIn = 0;
const GOptionEntry kEntries[] = {
    {"apps", 0, 0, G_OPTION_ARG_INT, &g_apps, "downloaded apps in the database", "N"},
    {"builtin", 0, 0, G_OPTION_ARG_INT, &g_builtIn, "built-in apps in the package records", "M"},
    {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
};

int RemoveEntry(const char* path, const struct stat*, int, struct FTW* ftw) {
    return ftw->level == 0 ? 0 : remove(path);
}

// Empties the root without following symbolic links or crossing into another file system.
bool EmptyRoot(std::string& error) {
    if (nftw(Root().c_str(), RemoveEntry, 32, FTW_DEPTH | FTW_PHYS | FTW_MOUNT) != 0) {
        error = "cannot empty " + Root();
        return false;
    }
    return true;
}

bool IsEmptyOrMissing(const std::string& path) {
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) {
        return errno == ENOENT;
    }
    bool empty = true;
    while (struct dirent* entry = readdir(dir)) {
        empty = empty && (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0);
    }
    closedir(dir);
    return empty;
}

bool MakeLayout(std::string& error) {
    std::vector<std::string> directories = {FixedPath("/usr/lib64"), UnderRoot("etc"),
                                            UnderRoot("bin"),        UnderRoot("usr/bin"),
                                            UnderRoot("var/log"),    UnderRoot("var/lib/pkgmgr"),
                                            PidDirectory()};
    for (int variable : kPathVariables) {
        directories.push_back(PathVariable(variable));
    }
    for (const auto& entry : kEmptyDirectories) {
        directories.push_back(PathVariable(entry.variable) + "/" + entry.relative);
    }
    for (const auto& directory : directories) {
        if (!MakeDirs(directory)) {
            error = "cannot create " + directory;
            return false;
        }
    }
    return true;
}

bool SeedServiceFiles(std::string& error) {
    std::vector<std::string> filled;
    for (const auto& entry : kServiceDirectories) {
        filled.push_back(PathVariable(entry.variable) + "/" + entry.relative);
    }
    for (int variable = PLATFORM_PATH_CONTENT_FIRST; variable <= PLATFORM_PATH_CONTENT_LAST; ++variable) {
        filled.push_back(PathVariable(variable));
    }
    for (const auto& directory : filled) {
        if (!MakeDirs(directory + "/nested") || !WriteFileAtomically(directory + "/sample.dat", "sample\n") ||
            !WriteFileAtomically(directory + "/nested/inner.dat", "inner\n")) {
            error = "cannot fill " + directory;
            return false;
        }
    }
    std::string backup = PathVariable(PLATFORM_PATH_APPS_RW) + "/vardell/bnr_backup/bnr_backup.json";
    if (!WriteFileAtomically(backup, "{}\n")) {
        error = "cannot write " + backup;
        return false;
    }
    return true;
}

// (app id, package id) of every app in the seeded database; made-up ids when there is no database.
std::vector<std::pair<std::string, std::string>> DownloadedApps(int count) {
    std::vector<std::pair<std::string, std::string>> apps;
    std::string database = PathVariable(PLATFORM_PATH_USER_HOME) + "/.vardell.db";
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, "SELECT id, pkgname FROM widgetinfo ORDER BY rowid", -1, &statement,
                           nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) {
            auto text = [statement](int column) {
                const unsigned char* value = sqlite3_column_text(statement, column);
                return std::string(value != nullptr ? reinterpret_cast<const char*>(value) : "");
            };
            std::string pkgId = text(1).empty() ? "org.orvix." + text(0) : text(1);
            apps.emplace_back(text(0), pkgId);
        }
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    if (apps.empty()) {
        for (int i = 1; i <= count; ++i) {
            char id[32];
            snprintf(id, sizeof(id), "app%03d", i);
            apps.emplace_back(id, std::string("org.orvix.") + id);
        }
    }
    return apps;
}

bool SeedDatabase(int apps, std::string& error) {
#ifdef ORVIX_HAVE_APP_DATABASE_SEED
    if (!SeedAppDatabase(apps)) {
        error = "cannot create the app database";
        return false;
    }
#else
    (void)apps;
    (void)error;
    fprintf(stderr, "orvix-host init: this build has no app database; none created\n");
#endif
    return true;
}

PackageRecord MakePackage(const std::string& appId, const std::string& pkgId, bool builtIn) {
    PackageRecord package;
    package.pkgId = pkgId;
    package.version = builtIn ? "2.0.0" : "1.0.0";
    package.builtIn = builtIn;
    package.mainApp = appId;
    PackageApp app;
    app.appId = appId;
    app.metadata.emplace_back(kInstantResetKey, builtIn ? "true" : "false");
    app.categories.push_back(builtIn ? "http://orvix.com/category/builtin" : "http://orvix.com/category/app");
    package.apps.push_back(app);
    return package;
}

bool SeedPackages(int apps, int builtIn, std::string& error) {
    std::vector<PackageRecord> packages;
    for (const auto& [appId, pkgId] : DownloadedApps(apps)) {
        packages.push_back(MakePackage(appId, pkgId, false));
    }
    for (int i = 1; i <= builtIn; ++i) {
        char id[32];
        snprintf(id, sizeof(id), "builtin%03d", i);
        packages.push_back(MakePackage(id, std::string("org.orvix.") + id, true));
    }
    return SavePackages(packages, error);
}

// The settings the reset process reads, at the values of a TV that has not been reset.
bool SeedSettings(std::string& error) {
    struct IntSetting {
        const char* key;
        int value;
    };
    const IntSetting ints[] = {
        {"db/tak/factory_reset", 0},
        {"db/tak/app_sync_status", 1},
        {"memory/tak/boot_status", 1},
        {"memory/tak/app_change", 0},
        {"memory/tak/app_group_list_ready", 1},
        {"memory/tak/andrioid_group_list_ready", 1},
        {"db/tak/app_canary_internal_test", 0},
        {"db/built-in-app-upgrader/reset", 0},
        {"memory/setting-sync/aot_svc_ready", 2},
        {"db/menu/time-to-take-action", 0},
    };
    const char* const strings[] = {"db/appinfoviewer/auto_update_off_applist",
                                   "db/tak/btgid",
                                   "db/tak/app_canary_id_list",
                                   "memory/tak/biu_updating_app",
                                   "db/home/homeversion_pkg_id",
                                   "memory/tak/file_smack"};
    bool ok = vconf_set_bool("db/built-in-app-upgrader/server_upgrade", 1) == VCONF_OK;
    for (const auto& setting : ints) {
        ok = vconf_set_int(setting.key, setting.value) == VCONF_OK && ok;
    }
    for (const char* key : strings) {
        ok = vconf_set_str(key, "") == VCONF_OK && ok;
    }
    if (!ok) {
        error = "cannot write the default settings";
    }
    return ok;
}

bool SeedSystemInfo(std::string& error) {
    std::string text = "[flags]\n";
    for (const char* flag : SystemFlags()) {
        text += std::string(flag) + "=false\n";
    }
    if (!WriteFileAtomically(UnderRoot("etc/sysinfo.ini"), text)) {
        error = "cannot write " + UnderRoot("etc/sysinfo.ini");
        return false;
    }
    return true;
}

bool InstallTakUtility(std::string& error) {
    std::string built = FindKitFile(KitFile::TakUtility, error);
    if (built.empty()) {
        return false;
    }
    std::ifstream in(built, std::ios::binary);
    std::string binary((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (const char* devicePath : {"/bin/takutility", "/usr/bin/takutility"}) {
        std::string target = FixedPath(devicePath);
        std::string staging = target + ".new";
        if (!WriteFileAtomically(staging, binary) || chmod(staging.c_str(), 0755) != 0 ||
            rename(staging.c_str(), target.c_str()) != 0) {
            error = "cannot install " + target;
            return false;
        }
    }
    return true;
}

// The root directory itself, made with its parents; says why when it cannot be.
bool MakeRoot(std::string& error) {
    if (g_mkdir_with_parents(Root().c_str(), 0755) != 0) {
        error = "cannot create the root " + Root() + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool CheckRootCanBeWiped(std::string& error) {
    if (!RootIsDirectoryOrMissing(error)) {
        return false;
    }
    if (!IsInitialisedRoot() && !IsEmptyOrMissing(Root())) {
        error = Root() + " holds files but was not made by orvix-host init; refusing to empty it";
        return false;
    }
    if (!RunningKitProcesses().empty()) {
        error = "processes of " + Root() + " still run (orvix-host down stops them)";
        return false;
    }
    return true;
}

}  // namespace

int RunInit(int argc, char** argv) {
    g_apps = 0;
    g_builtIn = 0;
    int status = 0;
    if (!ParseOptions(kCommand, kEntries, argc, argv, status)) {
        return status;
    }
    if (argc > 1) {
        return UsageError(kCommand, std::string("unexpected argument '") + argv[1] + "'");
    }
    if (g_apps < 0 || g_apps > 100000 || g_builtIn < 0 || g_builtIn > 10000) {
        return UsageError(kCommand, "--apps must be 0 to 100000 and --builtin 0 to 10000");
    }
    std::string error;
    if (!CheckLibTakVariable(error) || !CheckRootCanBeWiped(error)) {
        return UsageError(kCommand, error);
    }
    std::string notes;
    bool ok = MakeRoot(error) && EmptyRoot(error) && WriteFileAtomically(RootMarker(), "orvix-host root\n") &&
              MakeLayout(error) && SeedServiceFiles(error) && SeedDatabase(g_apps, error) &&
              SeedPackages(g_apps, g_builtIn, error) && SeedSettings(error) && SeedSystemInfo(error) &&
              WriteDefaultLibTakBehaviour(error) && InstallLibTak(notes, error) && InstallTakUtility(error);
    if (!ok) {
        return Failure(kCommand, error.empty() ? "cannot initialise " + Root() : error);
    }
    fputs(notes.c_str(), stderr);
    printf("initialised %s: %d downloaded apps, %d built-in apps\n", Root().c_str(), g_apps, g_builtIn);
    return 0;
}
