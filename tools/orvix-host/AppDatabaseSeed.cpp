#include "AppDatabaseSeed.h"

#include <smack.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <orvix_host.h>
#include <platform_path.h>

#include "AppInfo.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "WidgetInfoDB.h"

namespace {

const char* const kFixedApps[] = {"3201903017943", "3201904018125", "3202001019917"};

const char* const kTitles[] = {
    "News Today",   "Weather Live",  "Video Stream", "Music Box",     "Kids Cartoons", "Fitness Coach",
    "Game Arena",   "Cooking Club",  "Travel Guide", "Sports Center", "Photo Frame",   "Radio World",
    "Movie Night",  "Yoga Flow",     "Chess Master", "Language Lab",  "Stock Ticker",  "Podcast Hub",
    "Karaoke Star", "Nature Sounds", "Art Gallery",  "Comedy Clips",  "Drama Series",  "Science Box",
};
const char* const kCategories[] = {"video", "news", "music", "game", "kids", "lifestyle"};
const char* const kRatings[] = {"all", "7+", "12+", "16+"};

// The entry of a fixed list that an app number (never negative) falls on.
template <size_t N>
const char* Cycle(const char* const (&items)[N], int index) {
    return items[static_cast<size_t>(index) % N];
}

constexpr int kDefaultNativeType = 4;
constexpr int kInstalledState = 3;

std::string Slug(const std::string& title) {
    std::string slug;
    for (char c : title) {
        if (c != ' ') {
            slug += static_cast<char>(tolower(static_cast<unsigned char>(c)));
        }
    }
    return slug;
}

std::string Title(int index) {
    std::string title = Cycle(kTitles, index);
    int round = index / static_cast<int>(sizeof(kTitles) / sizeof(kTitles[0]));
    return round == 0 ? title : title + " " + std::to_string(round + 1);
}

std::string AppId(int index, int total, const std::string& title) {
    if (total >= 3 && index < 3) {
        return kFixedApps[index];
    }
    if (index % 5 == 4) {
        static const char kLetters[] = "AbCdEfGhJkMnPqRsTuVwXyZ";
        std::string prefix;
        for (int k = 0, value = index * 7919; k < 6; ++k, value /= 7) {
            prefix += (k % 2 == 0) ? kLetters[static_cast<size_t>(value) % (sizeof(kLetters) - 1)]
                                   : static_cast<char>('0' + value % 10);
        }
        std::string name = title;
        name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
        return prefix + "." + name;
    }
    // At least eight digits after the prefix, as 10,000,000 has eight already.
    return "32021" + std::to_string(10000000 + index * 37);
}

_APPINFO_T MakeApp(int index, int total) {
    _APPINFO_T app;
    const std::string title = Title(index);
    const std::string slug = Slug(title);
    app.id = AppId(index, total, title);
    app.app_index = index + 1;
    app.title = title;
    app.pkgname = "org.orvix." + slug;
    app.install_path = "/opt/usr/apps/" + app.pkgname;
    app.icon_path = app.install_path + "/shared/res/icon.png";
    app.pannel_icon_path = app.install_path + "/shared/res/panel.png";
    app.firstscreen_icon_path = app.install_path + "/shared/res/first.png";
    app.resources_path = app.install_path + "/res/wgt";
    app.version = "1." + std::to_string(index % 5) + "." + std::to_string(index % 13);
    app.size = std::to_string(2000000 + index * 104729LL % 90000000);
    app.install_date = std::to_string(1700000000 + index * 3600);
    app.launch_date = index % 4 == 0 ? "" : std::to_string(1710000000 + index * 600);
    app.icon_updated_date = app.install_date;
    app.run_title = slug;
    app.orvix_id = "orvix-" + std::to_string(100000 + index);
    app.widget_category = Cycle(kCategories, index);
    app.rating = Cycle(kRatings, index);
    app.pkg_type = index % 3 == 0 ? "tpk" : "wgt";
    app.duid = "duid-" + std::to_string(900000 + index);

    app.app_type = index % 10 == 3 ? kDefaultNativeType : 1 + index % 3;
    app.is_removable = app.app_type != kDefaultNativeType;
    app.reserved_tinyint_1 = index % 7 == 5 ? 1 : 0;
    app.reserved_tinyint_2 = index % 9 == 6 ? 1 : 0;
    app.is_usb_app = index % 17 == 8;
    app.is_app_available = !(app.is_usb_app && index % 34 == 25);
    app.install_state = kInstalledState;
    app.is_need_reset = false;
    app.is_display = true;
    app.is_network = index % 2 == 0;
    app.is_hidden = index % 11 == 10;
    app.is_lock = index % 13 == 12;
    app.is_auto_update = true;
    app.use_count = (index * 31) % 50;
    app.takorder = index;
    app.install_type = 1;
    app.install_source_type = 1 + index % 2;
    app.limit_age = index % 4 * 4;
    return app;
}

std::map<std::string, std::string> Configuration(const std::vector<_APPINFO_T>& apps) {
    std::map<std::string, std::string> rows;
    for (int slot = 1; slot <= 40; ++slot) {
        rows["RESERVED_" + std::to_string(slot)] = "slot " + std::to_string(slot);
    }
    for (unsigned i = 0; i < CTAKConfig::RESET_KEY_COUNT; ++i) {
        rows[CTAKConfig::RESET_KEYS[i]] = "seeded";
    }
    rows["SYNC_STATE"] = "1";
    rows["UNINSTALLED_APPS_INFO"] = "[]";
    rows["PRIORITY_LIST_ETAG"] = "W/\"5f2c-1\"";
    rows["HOME_PRIORITY_LIST_ETAG"] = "W/\"91aa-7\"";
    rows["GOOGLECAST_STATUS"] = "on";
    rows["RESET_TYPE"] = "0";
    rows["KORBIT_SYNC_STATE"] = "0";
    rows["HOME_TEST_LIST"] = "";
    // The built-in reset's lists (test apps, apps reset) start empty, as on a TV never reset.
    rows["RESERVED_16"] = "";
    rows["RESERVED_17"] = "";

    std::string defaults;
    std::string general;
    int generalCount = 0;
    for (const auto& app : apps) {
        if (app.app_type == kDefaultNativeType) {
            defaults += app.id + ":1,";
        } else if (generalCount < 2 && app.app_index % 15 == 8) {
            general += (generalCount++ == 0 ? "" : ",") + app.id;
        }
    }
    // A preinstalled app that is no longer on the TV.
    rows["RESERVED_11"] = defaults + "3201700000001:1";
    rows["RESERVED_3"] = general;
    return rows;
}

bool Fail(const std::string& what, sqlite3* db) {
    fprintf(stderr, "orvix-host: %s: %s\n", what.c_str(), db != nullptr ? sqlite3_errmsg(db) : "no database");
    return false;
}

bool InsertApps(sqlite3* db, const std::vector<_APPINFO_T>& apps) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, CWidgetInfoDB::InsertSql().c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        return Fail("cannot prepare the app insert", db);
    }
    bool ok = true;
    for (const auto& app : apps) {
        ok = ok && CWidgetInfoDB::BindRow(stmt, app) && sqlite3_step(stmt) == SQLITE_DONE;
        sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    return ok || Fail("cannot insert the apps", db);
}

bool InsertConfiguration(sqlite3* db, const std::map<std::string, std::string>& rows) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db, "insert into " TAK_CONFIG_TABLE_NAME " values(?, ?)", -1, &stmt, nullptr) !=
        SQLITE_OK) {
        return Fail("cannot prepare the configuration insert", db);
    }
    bool ok = true;
    for (const auto& row : rows) {
        sqlite3_bind_text(stmt, 1, row.first.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(stmt, 2, row.second.c_str(), -1, SQLITE_STATIC);
        ok = ok && sqlite3_step(stmt) == SQLITE_DONE;
        sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    return ok || Fail("cannot insert the configuration", db);
}

bool WriteDatabase(const std::string& path, const std::vector<_APPINFO_T>& apps) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
        SQLITE_OK) {
        Fail("cannot create " + path, db);
        sqlite3_close(db);
        return false;
    }
    bool ok = TAKDBSchema::Create(db) && sqlite3_exec(db, "begin", nullptr, nullptr, nullptr) == SQLITE_OK &&
              InsertApps(db, apps) && InsertConfiguration(db, Configuration(apps)) &&
              sqlite3_exec(db, "commit", nullptr, nullptr, nullptr) == SQLITE_OK;
    if (!ok) {
        Fail("cannot fill " + path, db);
    }
    return sqlite3_close(db) == SQLITE_OK && ok;
}

bool CopyFile(const std::string& from, const std::string& to) {
    FILE* in = fopen(from.c_str(), "rb");
    FILE* out = fopen(to.c_str(), "wb");
    bool ok = in != nullptr && out != nullptr;
    char buffer[65536];
    size_t length = 0;
    while (ok && (length = fread(buffer, 1, sizeof(buffer), in)) > 0) {
        ok = fwrite(buffer, 1, length, out) == length;
    }
    ok = ok && !ferror(in);
    if (in != nullptr) {
        fclose(in);
    }
    if (out != nullptr) {
        ok = fclose(out) == 0 && ok;
    }
    return ok;
}

}  // namespace

bool SeedAppDatabase(int apps) {
    if (apps < 0) {
        fprintf(stderr, "orvix-host: the number of apps cannot be negative\n");
        return false;
    }
    const std::string path = CTAKDBConnection::GetDBPath();
    const std::string backupDir = CTAKDBConnection::GetBackupDir();
    if (!orvix::host::MakeDirs(orvix::host::PathVariable(PLATFORM_PATH_USER_HOME)) ||
        !orvix::host::MakeDirs(backupDir)) {
        fprintf(stderr, "orvix-host: cannot create the database directories\n");
        return false;
    }
    unlink(CTAKDBConnection::GetJournalPath().c_str());
    unlink(path.c_str());
    std::vector<_APPINFO_T> records;
    records.reserve(static_cast<size_t>(apps));
    for (int i = 0; i < apps; ++i) {
        records.push_back(MakeApp(i, apps));
    }
    if (!WriteDatabase(path, records)) {
        unlink(path.c_str());
        return false;
    }
    smack_setlabel(path.c_str(), "User::Home", SMACK_LABEL_ACCESS);
    if (!CopyFile(path, backupDir + ".vardell.db")) {
        fprintf(stderr, "orvix-host: cannot copy the database into %s\n", backupDir.c_str());
        return false;
    }
    return true;
}
