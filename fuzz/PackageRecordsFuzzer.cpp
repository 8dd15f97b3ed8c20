// The host package manager's records file (<root>/var/lib/pkgmgr/packages.json) as anything may have
// left it: each input becomes the file, then the look-ups the reset makes run against it. No input may
// crash or throw, and every handle must be given back.
#include <json/json.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "TAKDir.h"
#include "orvix_host.h"
#include "orvix_pkgmgr.h"
#include "pkgmgr-info.h"

namespace {

std::string g_root;
std::string g_recordsPath;

// The first package id and app id the input names, when it is JSON at all, so that look-ups hit records.
void FirstIds(const std::string& text, std::string& pkgId, std::string& appId) {
    Json::CharReaderBuilder builder;
    builder["stackLimit"] = 200;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &root, nullptr) || !root.isObject()) {
            return;
        }
    } catch (const Json::Exception&) {
        return;
    }
    // Value::operator[] throws on a value of another type, so each step checks first.
    const Json::Value& packages = root["packages"];
    if (!packages.isArray() || packages.empty() || !packages[0].isObject()) {
        return;
    }
    const Json::Value& package = packages[0];
    if (package["pkgid"].isString()) {
        pkgId = package["pkgid"].asString();
    }
    const Json::Value& apps = package["apps"];
    if (apps.isArray() && !apps.empty() && apps[0].isObject() && apps[0]["appid"].isString()) {
        appId = apps[0]["appid"].asString();
    }
}

void LookUpPackage(const std::string& pkgId) {
    pkgmgrinfo_pkginfo_h package = nullptr;
    if (pkgmgrinfo_pkginfo_get_pkginfo(pkgId.c_str(), &package) != PMINFO_R_OK) {
        return;
    }
    bool removable = false;
    char* text = nullptr;
    pkgmgrinfo_pkginfo_is_removable(package, &removable);
    pkgmgrinfo_pkginfo_get_version(package, &text);
    pkgmgrinfo_pkginfo_get_mainappid(package, &text);
    int apps = 0;
    pkgmgrinfo_appinfo_get_list(
        package,
        [](const pkgmgrinfo_appinfo_h, void* count) {
            ++*static_cast<int*>(count);
            return 0;
        },
        &apps);
    TAK_FUZZ_CHECK(pkgmgrinfo_pkginfo_destroy_pkginfo(package) == PMINFO_R_OK);
}

void LookUpApp(const std::string& appId) {
    pkgmgrinfo_appinfo_h app = nullptr;
    if (pkgmgrinfo_appinfo_get_appinfo(appId.c_str(), &app) != PMINFO_R_OK) {
        return;
    }
    size_t seen = 0;
    pkgmgrinfo_appinfo_foreach_metadata(
        app,
        [](const char* key, const char* value, void* total) {
            *static_cast<size_t*>(total) += strlen(key) + (value != nullptr ? strlen(value) : 0);
            return 0;
        },
        &seen);
    char* value = nullptr;
    pkgmgrinfo_appinfo_get_metadata_value(app, "http://orvix.com/tv/metadata/prefer_instant_reset", &value);
    pkgmgrinfo_appinfo_foreach_category(
        app,
        [](const char* name, void* total) {
            *static_cast<size_t*>(total) += strlen(name);
            return 0;
        },
        &seen);
    TAK_FUZZ_CHECK(pkgmgrinfo_appinfo_destroy_appinfo(app) == PMINFO_R_OK);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("ORVIX_LOG_FILE", "/dev/null", 1);
    char pattern[] = "/tmp/fuzz-pkgmgr-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        abort();
    }
    g_root = pattern;
    // libFuzzer ends a timed run with exit(), so the temporary root goes with it.
    atexit([] { TAKDir::RemoveAllFiles(g_root, true, false); });
    orvix::host::SetRoot(g_root);
    g_recordsPath = orvix::host::UnderRoot("var/lib/pkgmgr/packages.json");
    TAK_FUZZ_CHECK(orvix::host::MakeDirs(orvix::host::UnderRoot("var/lib/pkgmgr")));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // The manager parses a file again only when it sees another version of it; rewriting until it did
    // makes sure every input is parsed (two rewrites within one clock tick can look alike).
    unsigned long loads = orvix::host::PackageRecordLoads();
    for (int attempt = 0; attempt < 3 && orvix::host::PackageRecordLoads() == loads; ++attempt) {
        std::ofstream(g_recordsPath, std::ios::binary | std::ios::trunc) << text;
        pkgmgrinfo_pkginfo_h probe = nullptr;
        if (pkgmgrinfo_pkginfo_get_pkginfo("-", &probe) == PMINFO_R_OK) {
            pkgmgrinfo_pkginfo_destroy_pkginfo(probe);
        }
    }
    std::string pkgId = "p";
    std::string appId = "a";
    FirstIds(text, pkgId, appId);
    LookUpPackage(pkgId);
    LookUpApp(appId);
    TAK_FUZZ_CHECK(orvix::host::OpenPackageHandles() == 0);
    return 0;
}
