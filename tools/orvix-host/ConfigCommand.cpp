// orvix-host config: the configuration table ("TAKConfigTable") of the root's app database.
//
//   config get KEY          prints the value; reads the database file directly, read-only, so it works
//                           whether the bus is up or not (the stand-in daemon writes whole transactions,
//                           a reader sees the value before or after one)
//   config set KEY VALUE    asks the stand-in daemon for "update_config_table", the way the reset process
//                           changes the table; a key without a row gets one
//
// KEY is letters, digits and '_' (the table's keys, "HOME_TEST_LIST", "RESERVED_17"); VALUE any UTF-8
// text, also empty. Bad input (missing or extra arguments, a malformed key, an uninitialised root, for set
// a bus that is not up): one line on standard error, exit status 2, nothing changed. A key with no row
// (get), a database that cannot be read or a daemon that refuses: one line, exit status 1.
#include <gio/gio.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "HostDaemons.h"
#include "KitCommand.h"
#include "ProcessDbus.h"
#include "TAKConfig.h"
#include "orvix_host.h"
#include "platform_path.h"

namespace {

using namespace orvix::host;

const char kCommand[] = "config";
const char kUsage[] = "usage: orvix-host config get KEY | config set KEY VALUE";
const size_t kMaxKeyLength = 256;
const int kBusyTimeoutMs = 5000;
const int kCallTimeoutMs = 20000;

bool ValidKey(const char* key) {
    size_t length = strlen(key);
    if (length == 0 || length > kMaxKeyLength) {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        if (!g_ascii_isalnum(key[i]) && key[i] != '_') {
            return false;
        }
    }
    return true;
}

// Checks the arguments of get (1) or set (2): the count and the key.
int CheckArguments(int argc, char** argv, int expected) {
    if (argc != expected) {
        return UsageError(kCommand, argc < expected
                                        ? std::string("missing KEY") + (expected == 2 ? " or VALUE" : "")
                                        : std::string("too many arguments"));
    }
    if (!ValidKey(argv[0])) {
        return UsageError(kCommand, std::string("malformed KEY '") + argv[0] + "' (letters, digits and '_')");
    }
    if (expected == 2 && !g_utf8_validate(argv[1], -1, nullptr)) {
        return UsageError(kCommand, "VALUE is not UTF-8 text");
    }
    return RequireInitialisedRoot(kCommand) ? 0 : kUsageError;
}

std::string DatabasePath() {
    return PathVariable(PLATFORM_PATH_USER_HOME) + "/.vardell.db";
}

// 0 and `value` when the key has a row; 1 with one line otherwise.
int ReadConfig(const char* key, std::string& value) {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    int status = 1;
    std::string problem;
    if (sqlite3_open_v2(DatabasePath().c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(db, kBusyTimeoutMs) != SQLITE_OK ||
        sqlite3_prepare_v2(db, "select value from " TAK_CONFIG_TABLE_NAME " where name = ?", -1, &statement,
                           nullptr) != SQLITE_OK ||
        sqlite3_bind_text(statement, 1, key, -1, SQLITE_TRANSIENT) != SQLITE_OK) {
        problem = "cannot read " + DatabasePath() + ": " + (db != nullptr ? sqlite3_errmsg(db) : "no memory");
    } else if (int step = sqlite3_step(statement); step == SQLITE_ROW) {
        const unsigned char* text = sqlite3_column_text(statement, 0);
        value = text != nullptr ? reinterpret_cast<const char*>(text) : "";
        status = 0;
    } else if (step == SQLITE_DONE) {
        problem = std::string("no key ") + key + " in " TAK_CONFIG_TABLE_NAME;
    } else {
        problem = "cannot read " + DatabasePath() + ": " + sqlite3_errmsg(db);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return status == 0 ? 0 : Failure(kCommand, problem);
}

int Get(int argc, char** argv) {
    if (int bad = CheckArguments(argc, argv, 1)) {
        return bad;
    }
    std::string value;
    if (int failed = ReadConfig(argv[0], value)) {
        return failed;
    }
    printf("%s\n", value.c_str());
    return 0;
}

// The daemon's answer to update_config_table: 1 done, 0 refused; -1 (and `error`) when there is none.
int UpdateThroughDaemon(const char* key, const char* value, std::string& error) {
    g_autoptr(GError) failure = nullptr;
    g_autoptr(GDBusConnection) bus = g_dbus_connection_new_for_address_sync(
        BusAddress().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &failure);
    if (bus == nullptr) {
        error = std::string("cannot reach the bus: ") + failure->message;
        return -1;
    }
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE, "update_config_table",
        g_variant_new("(ss)", key, value), G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs,
        nullptr, &failure);
    if (reply == nullptr) {
        error = std::string("update_config_table failed: ") + failure->message;
        return -1;
    }
    int result = 0;
    g_variant_get(reply, "(i)", &result);
    return result;
}

int Set(int argc, char** argv) {
    if (int bad = CheckArguments(argc, argv, 2)) {
        return bad;
    }
    if (access(BusSocketPath().c_str(), F_OK) != 0) {
        return UsageError(kCommand, "the bus of " + Root() + " is not up (run orvix-host up first)");
    }
    std::string error;
    int result = UpdateThroughDaemon(argv[0], argv[1], error);
    if (result < 0) {
        return Failure(kCommand, error);
    }
    if (result != 1) {
        return Failure(kCommand, std::string("the inner server did not update ") + argv[0]);
    }
    return 0;
}

}  // namespace

int RunConfig(int argc, char** argv) {
    if (AsksForHelp(argc, argv)) {
        return ShowHelp(
            kCommand, nullptr,
            "get KEY prints a value of TAKConfigTable (read from the database file; exit status 1 "
            "for a key\nwithout a row); set KEY VALUE changes it through the inner server (needs "
            "up).\nKEY: letters, digits and '_', e.g. HOME_TEST_LIST, RESERVED_16.");
    }
    if (argc < 2) {
        return UsageError(kCommand, kUsage);
    }
    if (strcmp(argv[1], "get") == 0) {
        return Get(argc - 2, argv + 2);
    }
    if (strcmp(argv[1], "set") == 0) {
        return Set(argc - 2, argv + 2);
    }
    return UsageError(kCommand, std::string("unknown action '") + argv[1] + "'; " + kUsage);
}
