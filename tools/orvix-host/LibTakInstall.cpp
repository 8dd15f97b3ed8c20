// Putting the substitute common library in place.
#include "LibTakInstall.h"

#include <glib.h>
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "ElfSymbols.h"
#include "HostPrograms.h"
#include "orvix_host.h"

namespace orvix::host {

namespace {

bool ReadBehaviour(Json::Value& behaviour, std::string& error) {
    std::ifstream in(LibTakBehaviourFile());
    if (!in) {
        behaviour = Json::Value(Json::objectValue);
        return true;
    }
    Json::CharReaderBuilder builder;
    std::string errors;
    if (!Json::parseFromStream(builder, in, &behaviour, &errors) || !behaviour.isObject()) {
        error = LibTakBehaviourFile() + " is not a JSON object";
        return false;
    }
    return true;
}

bool CopyFile(const std::string& from, const std::string& to, std::string& error) {
    gchar* contents = nullptr;
    gsize size = 0;
    if (!g_file_get_contents(from.c_str(), &contents, &size, nullptr)) {
        error = "cannot read " + from;
        return false;
    }
    std::string data(contents, size);
    g_free(contents);
    return WriteFileAtomically(to, data, &error);
}

bool InstallPresent(const Json::Value& behaviour, std::string& notes, std::string& error) {
    std::string built = FindKitFile(KitFile::LibTakCommon, error);
    if (built.empty()) {
        return false;
    }
    std::set<std::string> absent;
    for (const auto& name : behaviour["absent"]) {
        if (name.isString()) {
            absent.insert(name.asString());
        }
    }
    std::string staging = InstalledLibTak() + ".new";
    std::set<std::string> removed;
    if (!CopyFile(built, staging, error) || !RemoveDynamicSymbols(staging, absent, removed, error)) {
        unlink(staging.c_str());
        return false;
    }
    for (const auto& name : absent) {
        if (removed.count(name) == 0) {
            notes += "libtak_common.so does not export " + name + "; nothing to remove\n";
        }
    }
    chmod(staging.c_str(), 0755);
    if (rename(staging.c_str(), InstalledLibTak().c_str()) != 0) {
        error = "cannot put " + InstalledLibTak() + " in place";
        unlink(staging.c_str());
        return false;
    }
    return true;
}

}  // namespace

std::string LibTakBehaviourFile() {
    return UnderRoot("etc/libtak_common.json");
}

std::string InstalledLibTak() {
    return FixedPath("/usr/lib64") + "/libtak_common.so";
}

bool WriteDefaultLibTakBehaviour(std::string& error) {
    const char kDefaults[] = R"({
  "library": "present",
  "absent": [],
  "delay_ms": {},
  "results": {},
  "binder": {"delay_ms": 100, "never": false},
  "monitor": {"interval_ms": 20, "states": [[100, 0, 0], [100, 50, 0], [100, 100, 0], [110, 100, 0]]}
}
)";
    MakeDirs(UnderRoot("etc"));
    return WriteFileAtomically(LibTakBehaviourFile(), kDefaults, &error);
}

bool InstallLibTak(std::string& notes, std::string& error) {
    Json::Value behaviour;
    if (!ReadBehaviour(behaviour, error)) {
        return false;
    }
    MakeDirs(FixedPath("/usr/lib64"));
    std::string mode = behaviour["library"].isString() ? behaviour["library"].asString() : "present";
    if (mode == "missing") {
        unlink(InstalledLibTak().c_str());
        return true;
    }
    if (mode == "broken") {
        return WriteFileAtomically(InstalledLibTak(), "this is not a shared library\n", &error);
    }
    if (mode != "present") {
        error = "\"library\" must be \"present\", \"missing\" or \"broken\", not \"" + mode + "\"";
        return false;
    }
    return InstallPresent(behaviour, notes, error);
}

}  // namespace orvix::host
