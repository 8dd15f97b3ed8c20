// Finding the kit's programs: environment, beside orvix-host, the build tree.
#include "HostPrograms.h"

#include <limits.h>
#include <unistd.h>

#include <cstdlib>

namespace orvix::host {

namespace {

struct KitFileEntry {
    KitFile file;
    const char* environment;
    const char* name;
    const char* buildTreePath;  // relative to <build>/tools/orvix-host
};

const KitFileEntry kKitFiles[] = {
    {KitFile::TakReset, "ORVIX_TAK_RESET", "tak-reset", "../../src/tak-reset"},
    {KitFile::InnerServer, "ORVIX_INNERSERVER", "orvix-innerserver", "../innerserver/orvix-innerserver"},
    {KitFile::ManagerClient, "ORVIX_MANAGERCLIENT", "orvix-managerclient",
     "../managerclient/orvix-managerclient"},
    {KitFile::LibTakCommon, "ORVIX_LIBTAK_COMMON", "libtak_common.so", "../libtak_common/libtak_common.so"},
    {KitFile::TakUtility, "ORVIX_TAKUTILITY", "takutility", "../takutility/takutility"},
};

bool IsFile(const std::string& path) {
    return !path.empty() && access(path.c_str(), R_OK) == 0;
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

std::string FindKitFile(KitFile file, std::string& error) {
    for (const auto& entry : kKitFiles) {
        if (entry.file != file) {
            continue;
        }
        if (const char* env = getenv(entry.environment); env != nullptr && *env != '\0') {
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
        std::string built = OwnDirectory() + "/" + entry.buildTreePath;
        if (IsFile(built)) {
            char resolved[PATH_MAX];
            return realpath(built.c_str(), resolved) != nullptr ? resolved : built;
        }
        error = std::string("cannot find ") + entry.name + " (set " + entry.environment + " or build it)";
        return "";
    }
    error = "unknown kit file";
    return "";
}

}  // namespace orvix::host
