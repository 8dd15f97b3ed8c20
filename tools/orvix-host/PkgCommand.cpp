// orvix-host pkg add|remove|list: edits the host package records (PackageRecords.h).
//
//   pkg add PKGID [--version V] [--removable true|false] [--builtin] [--type T] [--app APPID]...
//           [--main APPID] [--meta KEY=VALUE]... [--category C]...
//       adds the package, or replaces the one with that id. Without --app it has one app named PKGID;
//       the main app is --main or the first app; --meta (in the order given) and --category belong to
//       the main app.
//   pkg remove PKGID     removes it (exit 1 when there is none)
//   pkg list             one JSON object a line
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Commands.h"
#include "KitCommand.h"
#include "PackageRecords.h"

namespace {

using namespace orvix::host;

const char kCommand[] = "pkg";

struct AddOptions {
    gchar* version = nullptr;
    gchar* removable = nullptr;
    gboolean builtIn = FALSE;
    gchar* type = nullptr;
    gchar** apps = nullptr;
    gchar* main = nullptr;
    gchar** metadata = nullptr;
    gchar** categories = nullptr;

    ~AddOptions() {
        g_free(version);
        g_free(removable);
        g_free(type);
        g_strfreev(apps);
        g_free(main);
        g_strfreev(metadata);
        g_strfreev(categories);
    }
};

bool BuildPackage(const std::string& pkgId, const AddOptions& options, PackageRecord& package,
                  std::string& error) {
    package.pkgId = pkgId;
    package.version = options.version != nullptr ? options.version : "1.0.0";
    package.type = options.type != nullptr ? options.type : "tpk";
    package.builtIn = options.builtIn;
    if (options.removable != nullptr && strcmp(options.removable, "true") != 0 &&
        strcmp(options.removable, "false") != 0) {
        error = "--removable must be true or false";
        return false;
    }
    package.removable = options.removable == nullptr || strcmp(options.removable, "true") == 0;
    for (gchar** app = options.apps; app != nullptr && *app != nullptr; ++app) {
        package.apps.push_back(PackageApp{*app, {}, {}});
    }
    if (package.apps.empty()) {
        package.apps.push_back(PackageApp{pkgId, {}, {}});
    }
    package.mainApp = options.main != nullptr ? options.main : package.apps.front().appId;
    PackageApp* main = nullptr;
    for (auto& app : package.apps) {
        main = app.appId == package.mainApp ? &app : main;
    }
    if (main == nullptr) {
        error = "--main " + package.mainApp + " is not one of the package's apps";
        return false;
    }
    for (gchar** item = options.metadata; item != nullptr && *item != nullptr; ++item) {
        const char* eq = strchr(*item, '=');
        if (eq == nullptr || eq == *item) {
            error = std::string("malformed --meta '") + *item + "' (expected KEY=VALUE)";
            return false;
        }
        main->metadata.emplace_back(std::string(*item, static_cast<size_t>(eq - *item)), std::string(eq + 1));
    }
    for (gchar** item = options.categories; item != nullptr && *item != nullptr; ++item) {
        main->categories.push_back(*item);
    }
    return true;
}

// The options of add, bound to `options`.
std::vector<GOptionEntry> AddEntries(AddOptions& options) {
    return {
        {"version", 0, 0, G_OPTION_ARG_STRING, &options.version, "add: package version (1.0.0)", "V"},
        {"removable", 0, 0, G_OPTION_ARG_STRING, &options.removable, "add: removable flag (true)",
         "true|false"},
        {"builtin", 0, 0, G_OPTION_ARG_NONE, &options.builtIn, "add: a built-in package", nullptr},
        {"type", 0, 0, G_OPTION_ARG_STRING, &options.type, "add: package type (tpk)", "T"},
        {"app", 0, 0, G_OPTION_ARG_STRING_ARRAY, &options.apps, "add: an app of the package (PKGID)",
         "APPID"},
        {"main", 0, 0, G_OPTION_ARG_STRING, &options.main, "add: the main app (the first app)", "APPID"},
        {"meta", 0, 0, G_OPTION_ARG_STRING_ARRAY, &options.metadata,
         "add: metadata of the main app, in order", "KEY=VALUE"},
        {"category", 0, 0, G_OPTION_ARG_STRING_ARRAY, &options.categories, "add: a category of the main app",
         "C"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
}

const char kDetails[] =
    "add PKGID adds the package, or replaces the one with that id; remove PKGID removes it (exit status 1\n"
    "when there is none); list prints one JSON object a line.";

int Add(int argc, char** argv) {
    AddOptions options;
    std::vector<GOptionEntry> entries = AddEntries(options);
    int status = 0;
    if (!ParseOptions(kCommand, entries.data(), argc, argv, status)) {
        return status;
    }
    if (argc != 2 || argv[1][0] == '\0') {
        return UsageError(kCommand, "expected: pkg add PKGID [options]");
    }
    std::string error;
    PackageRecord package;
    if (!BuildPackage(argv[1], options, package, error)) {
        return UsageError(kCommand, error);
    }
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::vector<PackageRecord> packages;
    if (!LoadPackages(packages, error)) {
        return Failure(kCommand, error);
    }
    bool replaced = false;
    for (auto& existing : packages) {
        if (existing.pkgId == package.pkgId) {
            existing = package;
            replaced = true;
        }
    }
    if (!replaced) {
        packages.push_back(package);
    }
    return SavePackages(packages, error) ? 0 : Failure(kCommand, error);
}

int Remove(const std::string& pkgId) {
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::vector<PackageRecord> packages;
    std::string error;
    if (!LoadPackages(packages, error)) {
        return Failure(kCommand, error);
    }
    size_t before = packages.size();
    std::vector<PackageRecord> kept;
    for (const auto& package : packages) {
        if (package.pkgId != pkgId) {
            kept.push_back(package);
        }
    }
    if (kept.size() == before) {
        return Failure(kCommand, "no package " + pkgId);
    }
    return SavePackages(kept, error) ? 0 : Failure(kCommand, error);
}

int List() {
    if (!RequireInitialisedRoot(kCommand)) {
        return kUsageError;
    }
    std::vector<PackageRecord> packages;
    std::string error;
    if (!LoadPackages(packages, error)) {
        return Failure(kCommand, error);
    }
    for (const auto& package : packages) {
        printf("%s\n", PackageLine(package).c_str());
    }
    return 0;
}

}  // namespace

int RunPkg(int argc, char** argv) {
    if (AsksForHelp(argc, argv)) {
        AddOptions options;
        return ShowHelp(kCommand, AddEntries(options).data(), kDetails);
    }
    if (argc >= 2 && strcmp(argv[1], "add") == 0) {
        return Add(argc - 1, argv + 1);
    }
    if (argc == 3 && strcmp(argv[1], "remove") == 0) {
        return Remove(argv[2]);
    }
    if (argc == 2 && strcmp(argv[1], "list") == 0) {
        return List();
    }
    return UsageError(kCommand, "expected: pkg add PKGID [options] | pkg remove PKGID | pkg list");
}
