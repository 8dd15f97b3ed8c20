// Reading and writing the host package records.
#include "PackageRecords.h"

#include <glib.h>
#include <json/json.h>

#include <fstream>

#include "orvix_calls.h"
#include "orvix_host.h"

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

Json::Value PackageToJson(const PackageRecord& package) {
    Json::Value json(Json::objectValue);
    json["pkgid"] = package.pkgId;
    json["version"] = package.version;
    json["type"] = package.type;
    json["removable"] = package.removable;
    json["builtin"] = package.builtIn;
    json["mainapp"] = package.mainApp;
    json["apps"] = Json::Value(Json::arrayValue);
    for (const auto& app : package.apps) {
        json["apps"].append(AppToJson(app));
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

}  // namespace

std::string PackagesFile() {
    return UnderRoot("var/lib/pkgmgr/packages.json");
}

bool LoadPackages(std::vector<PackageRecord>& packages, std::string& error) {
    packages.clear();
    std::ifstream in(PackagesFile());
    if (!in) {
        return true;
    }
    Json::Value root;
    Json::CharReaderBuilder builder;
    std::string errors;
    if (!Json::parseFromStream(builder, in, &root, &errors) || !root.isObject() ||
        !root["packages"].isArray()) {
        error = PackagesFile() + " is not a package list";
        return false;
    }
    for (const auto& item : root["packages"]) {
        PackageRecord package;
        if (!PackageFromJson(item, package)) {
            error = PackagesFile() + " holds a malformed package";
            return false;
        }
        packages.push_back(package);
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
