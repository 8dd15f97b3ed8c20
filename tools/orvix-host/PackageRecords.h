// The package records of the host package manager: <root>/var/lib/pkgmgr/packages.json.
//
//   {"packages": [
//     {"pkgid": "org.orvix.app001", "version": "1.0.0", "type": "tpk", "removable": true,
//      "builtin": false, "mainapp": "app001",
//      "apps": [{"appid": "app001",
//                "metadata": [["http://orvix.com/tv/metadata/prefer_instant_reset", "true"], ...],
//                "categories": ["http://orvix.com/category/app"]}]}]}
//
// Metadata are [key, value] pairs in declaration order; a key may come twice (the later one wins for a
// reader that builds a map). The file is replaced atomically on every change.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace orvix::host {

struct PackageApp {
    std::string appId;
    std::vector<std::pair<std::string, std::string>> metadata;
    std::vector<std::string> categories;
};

struct PackageRecord {
    std::string pkgId;
    std::string version = "1.0.0";
    std::string type = "tpk";
    bool removable = true;
    bool builtIn = false;
    std::string mainApp;
    std::vector<PackageApp> apps;
    // The record as read from the file (null for a new one). A rewrite starts from it and changes only
    // the fields that were changed, so what the fields above cannot say survives: a missing removable
    // flag, version or main app, a null metadata value, members of a hand-written record.
    Json::Value source;
};

std::string PackagesFile();

// A missing file is an empty list; a file that is not a package list is an error.
bool LoadPackages(std::vector<PackageRecord>& packages, std::string& error);
bool SavePackages(const std::vector<PackageRecord>& packages, std::string& error);

// One package as one JSON line (for `pkg list`).
std::string PackageLine(const PackageRecord& package);

}  // namespace orvix::host
