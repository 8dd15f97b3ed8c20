// The least tak-reset has to have done when its first launch request reaches the dispatcher, with
// nothing else: the C++ runtime with jsoncpp, GLib and GIO loaded, the app database opened read-only,
// and the file monitor of the update marker running. bench/startup.sh times it like the other two
// programs, so that a reader can tell the cost of these from the cost of the process's own frame.
// Says "ready" on standard output once there, then idles until standard input closes.
#include <gio/gio.h>
#include <json/json.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main() {
    const char* root = getenv("ORVIX_HOST_ROOT");
    if (root == nullptr) {
        fprintf(stderr, "startup_floor: ORVIX_HOST_ROOT is not set\n");
        return 1;
    }
    sqlite3* db = nullptr;
    std::string database = std::string(root) + "/home/owner/.vardell.db";
    if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) !=
        SQLITE_OK) {
        fprintf(stderr, "startup_floor: cannot open %s\n", database.c_str());
        sqlite3_close(db);
        return 1;
    }
    std::string marker = std::string(root) + "/run/tak_update_app";
    GFile* file = g_file_new_for_path(marker.c_str());
    GFileMonitor* monitor = g_file_monitor_file(file, G_FILE_MONITOR_NONE, nullptr, nullptr);
    Json::Value request(Json::objectValue);
    request["reset"] = "startup_bench";
    printf("ready\n");
    fflush(stdout);
    char buffer[64];
    while (read(STDIN_FILENO, buffer, sizeof(buffer)) > 0) {
    }
    g_clear_object(&monitor);
    g_object_unref(file);
    sqlite3_close(db);
    return request.isMember("reset") ? 0 : 1;
}
