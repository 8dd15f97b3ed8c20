// Reading and writing the host package records.
#include "PackageRecords.h"

#include <glib.h>
#include <json/json.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "orvix_calls.h"
#include "orvix_host.h"
#include "orvix_regular_file.h"

namespace orvix::host {

namespace {

Json::Value AppToJson(const PackageApp& app) {
    Json::Value json(Json::objectValue);
    json["appid"] = app.appId;
    json["metadata"] = Json::Value(Json::arrayValue);
    for (const auto& [key, value] : app.metadata) {
        Json::Value pair(Json::arrayValue);
        pair.append(key);
        pair.append(value);
        json["metadata"].append(pair);
    }
    json["categories"] = Json::Value(Json::arrayValue);
    for (const auto& category : app.categories) {
        json["categories"].append(category);
    }
    return json;
}

std::string Text(const Json::Value& value) {
    return value.isString() ? value.asString() : "";
}

bool AppFromJson(const Json::Value& json, PackageApp& app) {
    if (!json.isObject() || !json["appid"].isString()) {
        return false;
    }
    app.appId = json["appid"].asString();
    for (const auto& pair : json["metadata"]) {
        if (!pair.isArray() || pair.size() != 2) {
            return false;
        }
        app.metadata.emplace_back(Text(pair[0]), Text(pair[1]));
    }
    for (const auto& category : json["categories"]) {
        app.categories.push_back(Text(category));
    }
    return true;
}

bool PackageFromJson(const Json::Value& json, PackageRecord& package) {
    if (!json.isObject() || !json["pkgid"].isString()) {
        return false;
    }
    package.pkgId = json["pkgid"].asString();
    package.version = Text(json["version"]);
    package.type = Text(json["type"]);
    package.removable = !json["removable"].isBool() || json["removable"].asBool();
    package.builtIn = json["builtin"].isBool() && json["builtin"].asBool();
    package.mainApp = Text(json["mainapp"]);
    for (const auto& item : json["apps"]) {
        PackageApp app;
        if (!AppFromJson(item, app)) {
            return false;
        }
        package.apps.push_back(app);
    }
    return true;
}

bool SameApps(const std::vector<PackageApp>& one, const std::vector<PackageApp>& other) {
    return std::equal(
        one.begin(), one.end(), other.begin(), other.end(), [](const PackageApp& a, const PackageApp& b) {
            return a.appId == b.appId && a.metadata == b.metadata && a.categories == b.categories;
        });
}

Json::Value AppsToJson(const std::vector<PackageApp>& apps) {
    Json::Value json(Json::arrayValue);
    for (const auto& app : apps) {
        json.append(AppToJson(app));
    }
    return json;
}

Json::Value PackageToJson(const PackageRecord& package) {
    PackageRecord read;
    bool fromFile = PackageFromJson(package.source, read);
    Json::Value json = fromFile ? package.source : Json::Value(Json::objectValue);
    auto set = [&](const char* key, const Json::Value& value, bool changed) {
        if (!fromFile || changed) {
            json[key] = value;
        }
    };
    set("pkgid", package.pkgId, package.pkgId != read.pkgId);
    set("version", package.version, package.version != read.version);
    set("type", package.type, package.type != read.type);
    set("removable", package.removable, package.removable != read.removable);
    set("builtin", package.builtIn, package.builtIn != read.builtIn);
    set("mainapp", package.mainApp, package.mainApp != read.mainApp);
    set("apps", AppsToJson(package.apps), !SameApps(package.apps, read.apps));
    return json;
}

}  // namespace

std::string PackagesFile() {
    return UnderRoot("var/lib/pkgmgr/packages.json");
}

bool LoadPackages(std::vector<PackageRecord>& packages, std::string& error) {
    packages.clear();
    // Read inside the reset process too (the substitute library): only a regular file, never an open that
    // can wait.
    std::string text;
    if (!orvix::host::ReadRegular(PackagesFile(), text)) {
        if (errno == ENOENT) {
            return true;
        }
        error = PackagesFile() + " cannot be read: " + strerror(errno);
        return false;
    }
    Json::Value root;
    if (!ParseJson(text, root) || !root.isObject() || !root["packages"].isArray()) {
        error = PackagesFile() + " is not a package list";
        return false;
    }
    for (const auto& item : root["packages"]) {
        PackageRecord package;
        if (!PackageFromJson(item, package)) {
            error = PackagesFile() + " holds a malformed package";
            return false;
        }
        package.source = item;
        packages.push_back(std::move(package));
    }
    return true;
}

bool SavePackages(const std::vector<PackageRecord>& packages, std::string& error) {
    Json::Value root(Json::objectValue);
    root["packages"] = Json::Value(Json::arrayValue);
    for (const auto& package : packages) {
        root["packages"].append(PackageToJson(package));
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    std::string text = Json::writeString(builder, root) + "\n";
    std::string path = PackagesFile();
    MakeDirs(path.substr(0, path.rfind('/')));
    return WriteFileAtomically(path, text, &error);
}

std::string PackageLine(const PackageRecord& package) {
    return JsonLine(PackageToJson(package));
}

}  // namespace orvix::host
