// Host package manager: answers the pkgmgr-info look-ups from the package records
// <root>/var/lib/pkgmgr/packages.json that `orvix-host init` and `orvix-host pkg` write.
//
// The records are parsed into an immutable store, indexed by package id and by app id, and kept until
// the file changes: each look-up compares the file's identity (device, inode, size, modification and
// change times) with that of the version it parsed, so a rewrite by another process is seen by the next
// look-up while an unchanged file costs one stat(). Handles hold the store they were opened on, so a
// reload never frees what a handle still points at.
//
// Beyond the writer's format, the manager reads a few things the way a device's database can hold them:
// a package without "removable" cannot tell its flag, one whose "version" is not a text cannot tell its
// version and one without a version has none; a package without "mainapp" has no main app; a metadata
// value null was declared without text. A missing file holds no packages; a file that cannot be read or
// is not a package list also holds none, and says so in one log line per version of the file.
#include <glib.h>
#include <json/json.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dlog.h"
#include "orvix_file_stamp.h"
#include "orvix_host.h"
#include "orvix_pkgmgr.h"
#include "orvix_regular_file.h"
#include "pkgmgr-info.h"

namespace {

const char kTag[] = "ORVIX";

struct MetadataEntry {
    std::string key;
    std::string value;
    bool hasValue = true;
};

struct AppEntry {
    std::string appId;
    std::vector<MetadataEntry> metadata;  // declaration order, repeated keys kept
    std::vector<std::string> categories;
};

struct PackageEntry {
    std::string pkgId;
    std::string version;
    bool hasVersion = false;
    bool versionReadable = true;
    bool removable = true;
    bool removableReadable = false;
    std::string mainApp;
    bool hasMainApp = false;
    std::vector<AppEntry> apps;
};

// Filled once, then only read (by any number of threads); the indexes and their keys point into
// `packages`.
struct Store {
    std::vector<PackageEntry> packages;
    std::unordered_map<std::string_view, const PackageEntry*> byPkgId;
    std::unordered_map<std::string_view, const AppEntry*> byAppId;
};

}  // namespace

struct pkgmgrinfo_pkginfo_s {
    std::shared_ptr<const Store> store;
    const PackageEntry* package;
};

struct pkgmgrinfo_appinfo_s {
    std::shared_ptr<const Store> store;
    const AppEntry* app;
};

namespace {

using orvix::host::FileStamp;
using orvix::host::StampOf;

std::mutex g_storeMutex;  // guards g_store and g_storeStamp
std::shared_ptr<const Store> g_store;
FileStamp g_storeStamp;

std::atomic<unsigned long> g_loads{0};
std::atomic<long> g_openHandles{0};

bool ParseMetadata(const Json::Value& pair, MetadataEntry& entry) {
    if (!pair.isArray() || pair.size() != 2 || !pair[0].isString() ||
        !(pair[1].isString() || pair[1].isNull())) {
        return false;
    }
    entry.key = pair[0].asString();
    entry.hasValue = pair[1].isString();
    entry.value = entry.hasValue ? pair[1].asString() : std::string();
    return true;
}

// An optional member must be an array when it is there.
bool OptionalArray(const Json::Value& object, const char* name) {
    return !object.isMember(name) || object[name].isArray();
}

bool ParseApp(const Json::Value& json, AppEntry& app) {
    if (!json.isObject() || !json["appid"].isString() || !OptionalArray(json, "metadata") ||
        !OptionalArray(json, "categories")) {
        return false;
    }
    app.appId = json["appid"].asString();
    for (const auto& pair : json["metadata"]) {
        MetadataEntry entry;
        if (!ParseMetadata(pair, entry)) {
            return false;
        }
        app.metadata.push_back(std::move(entry));
    }
    for (const auto& category : json["categories"]) {
        if (!category.isString()) {
            return false;
        }
        app.categories.push_back(category.asString());
    }
    return true;
}

void ParsePackageFlags(const Json::Value& json, PackageEntry& package) {
    const Json::Value& version = json["version"];
    package.hasVersion = !version.isNull();
    package.versionReadable = version.isNull() || version.isString();
    package.version = version.isString() ? version.asString() : std::string();
    package.removableReadable = json["removable"].isBool();
    package.removable = !package.removableReadable || json["removable"].asBool();
    package.hasMainApp = json["mainapp"].isString();
    package.mainApp = package.hasMainApp ? json["mainapp"].asString() : std::string();
}

bool ParsePackage(const Json::Value& json, PackageEntry& package) {
    if (!json.isObject() || !json["pkgid"].isString() || !OptionalArray(json, "apps")) {
        return false;
    }
    package.pkgId = json["pkgid"].asString();
    ParsePackageFlags(json, package);
    for (const auto& item : json["apps"]) {
        AppEntry app;
        if (!ParseApp(item, app)) {
            return false;
        }
        package.apps.push_back(std::move(app));
    }
    return true;
}

// Only once `packages` is complete, so that the pointers stay valid. A package id or an app id that
// comes twice answers with its first record.
void Index(Store& store) {
    store.byPkgId.reserve(store.packages.size());
    store.byAppId.reserve(store.packages.size());
    for (const PackageEntry& package : store.packages) {
        store.byPkgId.emplace(package.pkgId, &package);
        for (const AppEntry& app : package.apps) {
            store.byAppId.emplace(app.appId, &app);
        }
    }
}

bool ParseStore(const char* text, size_t length, Store& store, std::string& problem) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    // The reader throws instead of failing on some inputs (nesting beyond its depth limit); an
    // exception must not leave the C interface.
    try {
        if (!reader->parse(text, text + length, &root, &problem)) {
            return false;
        }
    } catch (const Json::Exception& error) {
        problem = error.what();
        return false;
    }
    if (!root.isObject() || !root["packages"].isArray()) {
        problem = "no \"packages\" list";
        return false;
    }
    store.packages.reserve(root["packages"].size());
    for (const auto& item : root["packages"]) {
        PackageEntry package;
        if (!ParsePackage(item, package)) {
            problem = "a malformed package record (number " + std::to_string(store.packages.size() + 1) + ")";
            return false;
        }
        store.packages.push_back(std::move(package));
    }
    return true;
}

std::shared_ptr<const Store> LoadStore(const FileStamp& stamp) {
    auto store = std::make_shared<Store>();
    if (stamp.statError == ENOENT) {
        return store;
    }
    std::string text;
    ++g_loads;
    if (!orvix::host::ReadRegular(stamp.path, text)) {
        if (errno != ENOENT) {
            dlog_print(DLOG_ERROR, kTag, "package records cannot be read, no packages: %s: %s",
                       stamp.path.c_str(), strerror(errno));
        }
        return store;
    }
    std::string problem;
    if (!ParseStore(text.data(), text.size(), *store, problem)) {
        dlog_print(DLOG_ERROR, kTag, "package records %s are not a package list, no packages: %s",
                   stamp.path.c_str(), problem.c_str());
        return std::make_shared<Store>();
    }
    Index(*store);
    return store;
}

// The store of the file as it is now; parsed again only when the file changed since the last look-up.
std::shared_ptr<const Store> CurrentStore() {
    // Taken before the read: a change made while reading gives a stamp that no longer matches, and the
    // next look-up reads again, so a stale store is never kept.
    FileStamp stamp = StampOf(orvix::host::UnderRoot("var/lib/pkgmgr/packages.json"));
    std::shared_ptr<const Store> replaced;  // freed after the lock is given up, when no handle holds it
    std::lock_guard<std::mutex> lock(g_storeMutex);
    if (g_store == nullptr || !(stamp == g_storeStamp)) {
        replaced = std::exchange(g_store, LoadStore(stamp));
        g_storeStamp = stamp;
    }
    return g_store;
}

bool Missing(const char* text) {
    return text == nullptr || *text == '\0';
}

char* Text(const std::string& text) {
    return const_cast<char*>(text.c_str());
}

}  // namespace

namespace orvix::host {

unsigned long PackageRecordLoads() {
    return g_loads.load();
}

long OpenPackageHandles() {
    return g_openHandles.load();
}

}  // namespace orvix::host

extern "C" int pkgmgrinfo_pkginfo_get_pkginfo(const char* pkgid, pkgmgrinfo_pkginfo_h* handle) {
    if (Missing(pkgid) || handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    *handle = nullptr;
    std::shared_ptr<const Store> store = CurrentStore();
    auto found = store->byPkgId.find(pkgid);
    if (found == store->byPkgId.end()) {
        return PMINFO_R_ERROR;
    }
    *handle = new (std::nothrow) pkgmgrinfo_pkginfo_s{std::move(store), found->second};
    if (*handle == nullptr) {
        return PMINFO_R_ERROR;
    }
    ++g_openHandles;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_pkginfo_destroy_pkginfo(pkgmgrinfo_pkginfo_h handle) {
    if (handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    delete handle;
    --g_openHandles;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_pkginfo_is_removable(pkgmgrinfo_pkginfo_h handle, bool* removable) {
    if (handle == nullptr || removable == nullptr) {
        return PMINFO_R_EINVAL;
    }
    if (!handle->package->removableReadable) {
        return PMINFO_R_ERROR;
    }
    *removable = handle->package->removable;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_pkginfo_get_version(pkgmgrinfo_pkginfo_h handle, char** version) {
    if (handle == nullptr || version == nullptr) {
        return PMINFO_R_EINVAL;
    }
    const PackageEntry& package = *handle->package;
    if (!package.versionReadable) {
        return PMINFO_R_ERROR;
    }
    *version = package.hasVersion ? Text(package.version) : nullptr;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_pkginfo_get_mainappid(pkgmgrinfo_pkginfo_h handle, char** mainappid) {
    if (handle == nullptr || mainappid == nullptr) {
        return PMINFO_R_EINVAL;
    }
    if (!handle->package->hasMainApp) {
        return PMINFO_R_ERROR;
    }
    *mainappid = Text(handle->package->mainApp);
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_appinfo_get_list(pkgmgrinfo_pkginfo_h handle, pkgmgrinfo_app_list_cb app_func,
                                           void* user_data) {
    if (handle == nullptr || app_func == nullptr) {
        return PMINFO_R_EINVAL;
    }
    for (const AppEntry& app : handle->package->apps) {
        pkgmgrinfo_appinfo_s item{handle->store, &app};
        if (app_func(&item, user_data) < 0) {
            break;
        }
    }
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_appinfo_get_appinfo(const char* appid, pkgmgrinfo_appinfo_h* handle) {
    if (Missing(appid) || handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    *handle = nullptr;
    std::shared_ptr<const Store> store = CurrentStore();
    auto found = store->byAppId.find(appid);
    if (found == store->byAppId.end()) {
        return PMINFO_R_ERROR;
    }
    *handle = new (std::nothrow) pkgmgrinfo_appinfo_s{std::move(store), found->second};
    if (*handle == nullptr) {
        return PMINFO_R_ERROR;
    }
    ++g_openHandles;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle) {
    if (handle == nullptr) {
        return PMINFO_R_EINVAL;
    }
    delete handle;
    --g_openHandles;
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_appinfo_foreach_metadata(pkgmgrinfo_appinfo_h handle,
                                                   pkgmgrinfo_app_metadata_list_cb metadata_func,
                                                   void* user_data) {
    if (handle == nullptr || metadata_func == nullptr) {
        return PMINFO_R_EINVAL;
    }
    for (const MetadataEntry& entry : handle->app->metadata) {
        const char* value = entry.hasValue ? entry.value.c_str() : nullptr;
        if (metadata_func(entry.key.c_str(), value, user_data) < 0) {
            break;
        }
    }
    return PMINFO_R_OK;
}

extern "C" int pkgmgrinfo_appinfo_get_metadata_value(pkgmgrinfo_appinfo_h handle, const char* metadata_key,
                                                     char** metadata_value) {
    if (handle == nullptr || metadata_key == nullptr || metadata_value == nullptr) {
        return PMINFO_R_EINVAL;
    }
    const std::vector<MetadataEntry>& metadata = handle->app->metadata;
    for (auto entry = metadata.rbegin(); entry != metadata.rend(); ++entry) {
        if (entry->key == metadata_key) {
            *metadata_value = entry->hasValue ? Text(entry->value) : nullptr;
            return PMINFO_R_OK;
        }
    }
    return PMINFO_R_ERROR;
}

extern "C" int pkgmgrinfo_appinfo_foreach_category(pkgmgrinfo_appinfo_h handle,
                                                   pkgmgrinfo_app_category_list_cb category_func,
                                                   void* user_data) {
    if (handle == nullptr || category_func == nullptr) {
        return PMINFO_R_EINVAL;
    }
    for (const std::string& category : handle->app->categories) {
        if (category_func(category.c_str(), user_data) < 0) {
            break;
        }
    }
    return PMINFO_R_OK;
}
