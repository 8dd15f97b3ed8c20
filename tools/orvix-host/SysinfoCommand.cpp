// orvix-host sysinfo set FLAG true|false | get FLAG | list: the board and feature flags that
// system_info_get_platform_bool reads, in <root>/etc/sysinfo.ini, group [flags].
// Flags the reset process asks: android_on_orvix.support, robot_product.support, dangbei_store.support.
#include <glib.h>
#include <system_info.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "KitCommand.h"
#include "orvix_host.h"

const std::vector<const char*>& orvix::host::SystemFlags() {
    static const std::vector<const char*> flags = {"android_on_orvix.support", "robot_product.support",
                                                   "dangbei_store.support"};
    return flags;
}

namespace {

using namespace orvix::host;

const char kCommand[] = "sysinfo";
const char kGroup[] = "flags";

std::string SysinfoFile() {
    return UnderRoot("etc/sysinfo.ini");
}

// Flag names become key-file keys: no '=', brackets, blanks or line breaks.
bool IsValidFlag(const std::string& flag) {
    if (flag.empty()) {
        return false;
    }
    for (char c : flag) {
        if (c == '=' || c == '[' || c == ']' || g_ascii_isspace(c) || g_ascii_iscntrl(c)) {
            return false;
        }
    }
    return true;
}

bool IsKnownFlag(const std::string& flag) {
    for (const char* known : SystemFlags()) {
        if (flag == known) {
            return true;
        }
    }
    return false;
}

std::string KnownFlagList() {
    std::string list;
    for (const char* known : SystemFlags()) {
        list += (list.empty() ? "" : ", ") + std::string(known);
    }
    return list;
}

int SetFlag(const std::string& flag, const std::string& value) {
    if (!IsValidFlag(flag)) {
        return UsageError(kCommand, "'" + flag + "' is not a flag name");
    }
    if (value != "true" && value != "false") {
        return UsageError(kCommand, "the value must be true or false, not '" + value + "'");
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    // Set all the same: a flag of a newer reset process is worth trying, a typo is worth a word.
    if (!IsKnownFlag(flag)) {
        fprintf(stderr, "orvix-host %s: '%s' is no flag the reset process asks (%s); set all the same\n",
                kCommand, flag.c_str(), KnownFlagList().c_str());
    }
    GKeyFile* file = g_key_file_new();
    GError* error = nullptr;
    g_key_file_load_from_file(file, SysinfoFile().c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
    g_key_file_set_boolean(file, kGroup, flag.c_str(), value == "true");
    bool saved = g_key_file_save_to_file(file, SysinfoFile().c_str(), &error);
    g_key_file_free(file);
    if (!saved) {
        std::string message = error->message;
        g_error_free(error);
        return Failure(kCommand, "cannot write " + SysinfoFile() + ": " + message);
    }
    return 0;
}

int GetFlag(const std::string& flag) {
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    bool value = false;
    if (system_info_get_platform_bool(flag.c_str(), &value) != SYSTEM_INFO_ERROR_NONE) {
        return UsageError(kCommand, "'" + flag + "' is not a flag name");
    }
    printf("%s\n", value ? "true" : "false");
    return 0;
}

int ListFlags() {
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    GKeyFile* file = g_key_file_new();
    g_key_file_load_from_file(file, SysinfoFile().c_str(), G_KEY_FILE_NONE, nullptr);
    gchar** keys = g_key_file_get_keys(file, kGroup, nullptr, nullptr);
    for (gchar** key = keys; key != nullptr && *key != nullptr; ++key) {
        bool value = false;
        system_info_get_platform_bool(*key, &value);
        printf("%s=%s\n", *key, value ? "true" : "false");
    }
    g_strfreev(keys);
    g_key_file_free(file);
    return 0;
}

}  // namespace

int RunSysinfo(int argc, char** argv) {
    if (AsksForHelp(argc, argv)) {
        return ShowHelp(
            kCommand, nullptr,
            "set FLAG true|false writes a flag of <root>/etc/sysinfo.ini, get FLAG prints one, list "
            "prints all.\nFlags the reset process asks: android_on_orvix.support, "
            "robot_product.support,\ndangbei_store.support; a missing flag reads false.");
    }
    if (argc == 4 && strcmp(argv[1], "set") == 0) {
        return SetFlag(argv[2], argv[3]);
    }
    if (argc == 3 && strcmp(argv[1], "get") == 0) {
        return GetFlag(argv[2]);
    }
    if (argc == 2 && strcmp(argv[1], "list") == 0) {
        return ListFlags();
    }
    return UsageError(kCommand, "expected: sysinfo set FLAG true|false | sysinfo get FLAG | sysinfo list");
}
