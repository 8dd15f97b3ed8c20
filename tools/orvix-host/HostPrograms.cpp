// Finding the kit's programs: environment, beside orvix-host, the build tree.
#include "HostPrograms.h"

#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>

#include "orvix_regular_file.h"

namespace orvix::host {

namespace {

#ifndef ORVIX_KIT_LIBDIR_FROM_BINDIR
#define ORVIX_KIT_LIBDIR_FROM_BINDIR "../lib/tak-reset"
#endif

struct KitFileEntry {
    KitFile file;
    const char* environment;
    const char* name;
    const char* installedPath;  // relative to orvix-host's directory when not beside it; nullptr: none
    const char* buildTreePath;  // relative to <build>/tools/orvix-host
};

const KitFileEntry kKitFiles[] = {
    {KitFile::TakReset, "ORVIX_TAK_RESET", "tak-reset", nullptr, "../../src/tak-reset"},
    {KitFile::InnerServer, "ORVIX_INNERSERVER", "orvix-innerserver", nullptr,
     "../innerserver/orvix-innerserver"},
    {KitFile::ManagerClient, "ORVIX_MANAGERCLIENT", "orvix-managerclient", nullptr,
     "../managerclient/orvix-managerclient"},
    {KitFile::LibTakCommon, "ORVIX_LIBTAK_COMMON", "libtak_common.so",
     ORVIX_KIT_LIBDIR_FROM_BINDIR "/libtak_common.so", "../libtak_common/libtak_common.so"},
    {KitFile::TakUtility, "ORVIX_TAKUTILITY", "takutility", nullptr, "../takutility/takutility"},
};

constexpr char kExecPrefixVariable[] = "ORVIX_EXEC_PREFIX";
constexpr char kLibTakVariable[] = "ORVIX_LIBTAK";

const char* NonEmptyVariable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

bool IsReadableRegularFile(const char* path) {
    int fd = OpenRegular(path, O_RDONLY);
    return fd >= 0 && close(fd) == 0;
}

bool IsFile(const std::string& path) {
    return !path.empty() && access(path.c_str(), R_OK) == 0;
}

std::string Resolved(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

}  // namespace

std::string OwnDirectory() {
    char buffer[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    if (n <= 0) {
        return ".";
    }
    std::string path(buffer, static_cast<size_t>(n));
    return path.substr(0, path.rfind('/'));
}

bool DeviceExecPrefix(std::vector<std::string>& words, std::string& error) {
    words.clear();
    const char* value = getenv(kExecPrefixVariable);
    g_auto(GStrv) parts = g_strsplit_set(value != nullptr ? value : "", " \t", -1);
    for (gchar** part = parts; *part != nullptr; ++part) {
        if (**part != '\0') {
            words.emplace_back(*part);
        }
    }
    if (words.empty()) {
        return true;
    }
    g_autofree gchar* program = g_find_program_in_path(words.front().c_str());
    if (program == nullptr) {
        error = std::string(kExecPrefixVariable) + " starts with " + words.front() +
                ", which is not an executable found in PATH";
        words.clear();
        return false;
    }
    words.front() = program;
    return true;
}

bool CheckLibTakVariable(std::string& error) {
    const char* chosen = NonEmptyVariable(kLibTakVariable);
    if (chosen == nullptr || IsReadableRegularFile(chosen)) {
        return true;
    }
    error = std::string(kLibTakVariable) + " names " + chosen + ", which is not a readable regular file";
    return false;
}

std::string FindKitFile(KitFile file, std::string& error) {
    for (const auto& entry : kKitFiles) {
        if (entry.file != file) {
            continue;
        }
        if (const char* chosen = NonEmptyVariable(kLibTakVariable); file == KitFile::LibTakCommon && chosen) {
            return CheckLibTakVariable(error) ? chosen : "";
        }
        if (const char* env = NonEmptyVariable(entry.environment)) {
            if (IsFile(env)) {
                return env;
            }
            error = std::string(entry.environment) + " names " + env + ", which does not exist";
            return "";
        }
        std::string beside = OwnDirectory() + "/" + entry.name;
        if (IsFile(beside)) {
            return beside;
        }
        std::string installed =
            entry.installedPath != nullptr ? OwnDirectory() + "/" + entry.installedPath : "";
        if (IsFile(installed)) {
            return Resolved(installed);
        }
        std::string built = OwnDirectory() + "/" + entry.buildTreePath;
        if (IsFile(built)) {
            return Resolved(built);
        }
        error = std::string("cannot find ") + entry.name + " (set " + entry.environment + " or build it)";
        return "";
    }
    error = "unknown kit file";
    return "";
}

}  // namespace orvix::host
