// One place for every path of the host kit: the root, the path-variable table and the remapping of
// the device's fixed absolute paths.
#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "orvix_host.h"
#include "platform_path.h"

namespace {

struct VariableEntry {
    int variable;
    const char* relative;
};

// The table the README documents. Variable 7 is not below the root: it is the machine's search path.
const VariableEntry kVariables[] = {
    {0, "home"},
    {2, "opt/usr/data"},
    {6, "opt/usr/apps"},
    {24, "home/owner"},
    {27, "opt/usr/share"},
    {66, "home/owner/content/Documents"},
    {67, "home/owner/content/Downloads"},
    {68, "home/owner/content/Images"},
    {69, "home/owner/content/Sounds"},
    {70, "home/owner/content/Videos"},
    {71, "home/owner/content/Camera"},
    {72, "home/owner/content/Games"},
    {73, "home/owner/content/Others"},
    {74, "home/owner/content/Cache"},
};

const char kSystemSearchPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// Device paths that live below the root on the host. The system programs (/bin/rm, /bin/cp, ...)
// are the machine's own and are not listed.
const char* const kRemappedPrefixes[] = {"/usr/lib64", "/run", "/etc", "/bin/takutility",
                                         "/usr/bin/takutility"};

std::mutex g_rootMutex;  // guards g_root and g_interned
std::string g_root;
// Texts handed out as const char* must stay valid for the process's life, even after SetRoot.
std::unordered_map<std::string, std::unique_ptr<std::string>> g_interned;

std::string DefaultRoot() {
    if (const char* env = getenv("ORVIX_HOST_ROOT"); env != nullptr && *env != '\0') {
        return env;
    }
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg != nullptr && *xdg != '\0') {
        return std::string(xdg) + "/orvix-host";
    }
    const char* home = getenv("HOME");
    return std::string(home != nullptr ? home : "/tmp") + "/.local/share/orvix-host";
}

std::string StripTrailingSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

// Every program of the root sees one root: a relative one would name another place for a process that
// runs in another directory (the kit starts its daemons in their own).
std::string Absolute(const std::string& path) {
    g_autofree gchar* absolute = g_canonicalize_filename(path.c_str(), nullptr);
    return StripTrailingSlash(absolute);
}

const char* Intern(const std::string& text) {
    std::lock_guard<std::mutex> lock(g_rootMutex);
    auto& slot = g_interned[text];
    if (!slot) {
        slot = std::make_unique<std::string>(text);
    }
    return slot->c_str();
}

bool HasPrefix(const std::string& path, const char* prefix) {
    size_t n = strlen(prefix);
    if (path.compare(0, n, prefix) != 0) {
        return false;
    }
    return path.size() == n || path[n] == '/';
}

}  // namespace

namespace orvix::host {

std::string Root() {
    std::lock_guard<std::mutex> lock(g_rootMutex);
    if (g_root.empty()) {
        g_root = Absolute(DefaultRoot());
    }
    return g_root;
}

void SetRoot(const std::string& root) {
    std::lock_guard<std::mutex> lock(g_rootMutex);
    g_root = Absolute(root);
    setenv("ORVIX_HOST_ROOT", g_root.c_str(), 1);
}

std::string UnderRoot(const std::string& relative) {
    if (relative.empty()) {
        return Root();
    }
    return Root() + (relative.front() == '/' ? "" : "/") + relative;
}

std::string PathVariable(int variable) {
    if (variable == PLATFORM_PATH_SYSTEM_BIN) {
        return kSystemSearchPath;
    }
    for (const auto& entry : kVariables) {
        if (entry.variable == variable) {
            return UnderRoot(entry.relative);
        }
    }
    return "";
}

std::string FixedPath(const std::string& devicePath) {
    if (devicePath.empty() || devicePath.front() != '/') {
        return devicePath;
    }
    for (const char* prefix : kRemappedPrefixes) {
        if (HasPrefix(devicePath, prefix)) {
            return Root() + devicePath;
        }
    }
    return devicePath;
}

bool MakeDirs(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        partial = path.substr(0, pos);
        if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
    }
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool WriteFileAtomically(const std::string& path, const std::string& text, std::string* error) {
    GError* gerror = nullptr;
    if (g_file_set_contents(path.c_str(), text.data(), static_cast<gssize>(text.size()), &gerror)) {
        return true;
    }
    if (error != nullptr) {
        *error = std::string("cannot write ") + path + ": " + gerror->message;
    }
    g_error_free(gerror);
    return false;
}

std::string ShortestDoubleText(double value) {
    char text[64];
    for (int precision = 15; precision <= 17; ++precision) {
        snprintf(text, sizeof(text), "%.*g", precision, value);
        if (strtod(text, nullptr) == value) {
            break;
        }
    }
    return text;
}

}  // namespace orvix::host

extern "C" const char* platform_path_get(int variable) {
    std::string path = orvix::host::PathVariable(variable);
    return path.empty() ? nullptr : Intern(path);
}

extern "C" const char* platform_path_fixed(const char* device_path) {
    if (device_path == nullptr) {
        return nullptr;
    }
    return Intern(orvix::host::FixedPath(device_path));
}
