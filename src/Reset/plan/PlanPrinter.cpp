#include "PlanPrinter.h"

#include <glib.h>
#include <json/json.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>

namespace {

void Add(std::string& out, const char* format, ...) G_GNUC_PRINTF(2, 3);

void Add(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    g_autofree gchar* text = g_strdup_vprintf(format, args);
    va_end(args);
    out += text;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

const char* YesNo(bool value) {
    return value ? "yes" : "no";
}

const char* HomePackageName(CBuiltInAppList::HomePackageKind kind) {
    switch (kind) {
        case CBuiltInAppList::HOME_BASE_PACKAGE:
            return "base";
        case CBuiltInAppList::HOME_INSTALLED_TEST:
            return "installed test";
        case CBuiltInAppList::HOME_TEST_CANDIDATE:
            return "candidate";
    }
    return "";
}

const char* SkipReasonName(CBuiltInAppList::SkipReason reason) {
    switch (reason) {
        case CBuiltInAppList::SKIP_NOT_INSTALLED:
            return "not installed";
        case CBuiltInAppList::SKIP_NO_INSTANT_RESET:
            return "no instant reset";
        case CBuiltInAppList::SKIP_NOT_REMOVABLE:
            return "not removable";
    }
    return "";
}

// A setting's value as shown: text quoted, a value that could not be read as "unset".
std::string SettingValue(bool text, bool known, const std::string& value) {
    if (!known) {
        return "unset";
    }
    return text ? Quoted(value) : value;
}

std::string ResultWhen(const RESET_PLAN_T& plan) {
    if (plan.resultAtEnd) {
        return "when the reset ends";
    }
    if (plan.resultAtTaskEnd) {
        return "only when its task is ended (a later request or reset=end)";
    }
    return "never";
}

std::string CallerData(const RESET_PLAN_T& plan) {
    // A Corvane reset keeps no caller data and reports none.
    if (plan.request.GetKind() == CPlanRequest::KIND_CORVANE_RESET) {
        return "no user data";
    }
    return "user data " + std::to_string(plan.request.GetUserData());
}

std::string RemovalText(const PLAN_REMOVAL_T& removal) {
    if (removal.ownPackage) {
        return "is the Home package " + removal.byPackage;
    }
    return "requires " + removal.byPackage + " >= " + removal.requiredVersion + ", installed " +
           (removal.versionKnown ? removal.installedVersion : "version unknown");
}

std::string RequiresText(const PLAN_LISTED_T& app) {
    std::string text;
    for (const OPENAPI_REQUIRE_INFO& require : app.requires) {
        text += (text.empty() ? "  requires " : ", ") + require.id + " [" + require.pkgid +
                " >= " + require.version + "]";
    }
    return text;
}

void AddList(std::string& out, const char* title, const std::vector<std::string>& lines) {
    if (lines.empty()) {
        return;
    }
    Add(out, "\n%s:\n", title);
    for (const std::string& line : lines) {
        Add(out, "  - %s\n", line.c_str());
    }
}

void TextApps(std::string& out, const RESET_PLAN_T& plan) {
    if (!plan.uninstallsApps) {
        return;
    }
    auto uninstall = static_cast<size_t>(std::count_if(plan.apps.begin(), plan.apps.end(),
                                                       [](const PLAN_APP_T& app) { return app.uninstall; }));
    Add(out, "\nApps in uninstall order: %zu (%zu uninstall, %zu keep)\n", plan.apps.size(), uninstall,
        plan.apps.size() - uninstall);
    if (plan.apps.empty()) {
        return;
    }
    Add(out, "  %5s  %-9s  %-17s  %s\n", "#", "action", "rule", "app id");
    // One row per app of maybe ten thousand: formatted into a buffer on the stack, the id appended as is.
    out.reserve(out.size() + plan.apps.size() * 64);
    char row[64];
    size_t position = 0;
    for (const PLAN_APP_T& app : plan.apps) {
        int length = snprintf(row, sizeof(row), "  %5zu  %-9s  %-17s  ", ++position,
                              app.uninstall ? "uninstall" : "keep", CPlanPrinter::AppRule(plan, app).c_str());
        out.append(row, std::min(static_cast<size_t>(std::max(length, 0)), sizeof(row) - 1));
        out += app.appId;
        out += '\n';
    }
}

void TextCleanUp(std::string& out, const RESET_PLAN_T& plan) {
    if (plan.cleanUp.empty()) {
        return;
    }
    Add(out, "\nClean-up in order:\n  %-20s  %7s  %12s  %s\n", "action", "files", "bytes", "path");
    for (const PLAN_CLEANUP_T& entry : plan.cleanUp) {
        const char* action = CPlanPrinter::CleanUpAction(entry.step.action);
        if (entry.step.action == RESET_CLEANUP_RESET_USER_DATA) {
            Add(out, "  %-20s  %7s  %12s  %s\n", action, "-", "-", "inner server \"reset_app_user_data\"");
        } else if (entry.step.action == RESET_CLEANUP_DELETE_NOTIFICATIONS) {
            Add(out, "  %-20s  %7s  %12s  %s\n", action, "-", "-",
                entry.runs ? "DeleteAllInstallNotificationsAPI"
                           : "no DeleteAllInstallNotificationsAPI: skipped");
        } else if (!entry.exists) {
            Add(out, "  %-20s  %7s  %12s  %s\n", action, "absent", "", entry.step.path.c_str());
        } else {
            Add(out, "  %-20s  %7lld  %12lld  %s\n", action, entry.files, entry.bytes,
                entry.step.path.c_str());
        }
    }
}

void TextSettings(std::string& out, const RESET_PLAN_T& plan) {
    if (plan.settings.empty()) {
        return;
    }
    size_t width = 0;
    for (const PLAN_SETTING_T& setting : plan.settings) {
        width = std::max(width, setting.key.size());
    }
    Add(out, "\nSettings written (old -> new):\n");
    for (const PLAN_SETTING_T& setting : plan.settings) {
        Add(out, "  %-*s  %s -> %s\n", static_cast<int>(width), setting.key.c_str(),
            SettingValue(setting.text, setting.oldKnown, setting.oldValue).c_str(),
            SettingValue(setting.text, true, setting.newValue).c_str());
    }
}

void TextCondition(std::string& out, const RESET_PLAN_T& plan) {
    Add(out, "\nCondition: %s (%s %s, %s %d)\n",
        plan.conditionPasses ? "passes" : "fails, the reset is skipped",
        "db/built-in-app-upgrader/server_upgrade", plan.serverUpgrade ? "true" : "false",
        "db/built-in-app-upgrader/reset", plan.resetInProcess);
}

void TextLibraryList(std::string& out, const RESET_PLAN_T& plan) {
    if (!plan.listed) {
        return;
    }
    Add(out, "\nLibrary list for caller \"%s\": %zu\n", plan.request.GetClient().caller_process_name.c_str(),
        plan.libraryList.size());
    size_t position = 0;
    for (const PLAN_LISTED_T& app : plan.libraryList) {
        Add(out, "  %5zu  %s [%s]%s%s\n", ++position, app.appId.c_str(), app.pkgId.c_str(),
            app.appType.empty() ? "" : (" " + app.appType).c_str(), RequiresText(app).c_str());
    }
}

void TextAssembly(std::string& out, const RESET_PLAN_T& plan) {
    if (!plan.listed) {
        return;
    }
    Add(out, "\nHome packages checked:\n");
    for (const PLAN_HOME_PACKAGE_T& home : plan.homePackages) {
        Add(out, "  %-14s  %s\n", HomePackageName(home.kind), Quoted(home.pkgId).c_str());
    }
    Add(out, "\nRemoved: %zu\n", plan.removals.size());
    for (const PLAN_REMOVAL_T& removal : plan.removals) {
        Add(out, "  %s [%s]: %s\n", removal.appId.c_str(), removal.pkgId.c_str(),
            RemovalText(removal).c_str());
    }
    Add(out, "\nMoves: %zu\n", plan.moves.size());
    for (const PLAN_MOVE_T& move : plan.moves) {
        Add(out, "  add require app %s before app %s\n", move.appId.c_str(), move.before.c_str());
    }
}

void TextOrder(std::string& out, const RESET_PLAN_T& plan) {
    if (!plan.listed) {
        return;
    }
    auto install = static_cast<size_t>(std::count_if(
        plan.order.begin(), plan.order.end(),
        [&](const PLAN_BUILTIN_APP_T& app) { return CPlanPrinter::BuiltInRule(plan, app).empty(); }));
    Add(out, "\nReset order: %zu (%zu install, %zu keep)\n", plan.order.size(), install,
        plan.order.size() - install);
    if (!plan.order.empty()) {
        Add(out, "  %5s  %-7s  %-26s  %s\n", "#", "action", "rule", "app id [package]");
    }
    size_t position = 0;
    for (const PLAN_BUILTIN_APP_T& app : plan.order) {
        std::string rule = CPlanPrinter::BuiltInRule(plan, app);
        if (app.reason == CBuiltInAppList::SKIP_NO_INSTANT_RESET && !app.install && app.metadataRead) {
            rule += " (" + Quoted(app.metadata) + ")";
        }
        Add(out, "  %5zu  %-7s  %-26s  %s [%s]%s\n", ++position, rule.empty() ? "install" : "keep",
            rule.c_str(), app.appId.c_str(), app.pkgId.c_str(),
            app.updating ? " (updating in the background)" : "");
    }
    if (!plan.waitingList.empty()) {
        std::string waiting;
        for (const std::string& pkgId : plan.waitingList) {
            waiting += (waiting.empty() ? "" : ", ") + pkgId;
        }
        Add(out, "\nWaiting list: %s\n", waiting.c_str());
    }
}

void TextProgress(std::string& out, const RESET_PLAN_T& plan) {
    if (!plan.request.IsService() || !plan.request.IsBuiltIn()) {
        return;
    }
    const _CLIENT_INFO_T& client = plan.request.GetClient();
    if (client.method.empty()) {
        Add(out, "\nProgress: none (the request names no method)\n");
        return;
    }
    std::string states;
    if (!plan.conditionPasses) {
        states = "500 with 0, then 502";
    } else if (!plan.listed) {
        states = "502 only when its task is ended";
    } else {
        auto count = std::count_if(plan.order.begin(), plan.order.end(),
                                   [](const PLAN_BUILTIN_APP_T& app) { return app.install; });
        states = "500 with " + std::to_string(count) + ", 501 after each install, 502 at the end";
    }
    Add(out, "\nProgress to managerclient.%s, method \"%s\": %s\n", client.obj.c_str(), client.method.c_str(),
        states.c_str());
}

Json::Value Nullable(bool known, const Json::Value& value) {
    return known ? value : Json::Value(Json::nullValue);
}

Json::Value SettingJson(const PLAN_SETTING_T& setting, bool known, const std::string& value) {
    if (!known) {
        return Json::Value(Json::nullValue);
    }
    if (setting.text) {
        return Json::Value(value);
    }
    return Json::Value(static_cast<Json::Int64>(g_ascii_strtoll(value.c_str(), nullptr, 10)));
}

Json::Value RuleJson(const std::string& rule) {
    return rule.empty() ? Json::Value(Json::nullValue) : Json::Value(rule);
}

void JsonApps(Json::Value& root, const RESET_PLAN_T& plan) {
    root["uninstallWalk"] = !plan.uninstallsApps ? "none" : (plan.walkRuns ? "runs" : "stops");
    Json::Value& apps = root["apps"] = Json::Value(Json::arrayValue);
    for (const PLAN_APP_T& app : plan.apps) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = app.appId;
        entry["action"] = app.uninstall ? "uninstall" : "keep";
        entry["rule"] = RuleJson(CPlanPrinter::AppRule(plan, app));
        entry["appType"] = app.appType;
        entry["front"] = app.front;
        apps.append(entry);
    }
    Json::Value& cleanUp = root["cleanUp"] = Json::Value(Json::arrayValue);
    for (const PLAN_CLEANUP_T& step : plan.cleanUp) {
        Json::Value entry(Json::objectValue);
        entry["action"] = CPlanPrinter::CleanUpAction(step.step.action);
        entry["runs"] = step.runs;
        if (step.step.action != RESET_CLEANUP_RESET_USER_DATA &&
            step.step.action != RESET_CLEANUP_DELETE_NOTIFICATIONS) {
            entry["path"] = step.step.path;
            entry["exists"] = step.exists;
            entry["files"] = static_cast<Json::Int64>(step.files);
            entry["bytes"] = static_cast<Json::Int64>(step.bytes);
        }
        cleanUp.append(entry);
    }
}

void JsonBuiltIn(Json::Value& root, const RESET_PLAN_T& plan) {
    Json::Value& condition = root["condition"];
    condition["passes"] = plan.conditionPasses;
    condition["serverUpgrade"] = plan.serverUpgrade;
    condition["resetInProcess"] = plan.resetInProcess;
    root["libraryList"] = Json::Value(plan.listed ? Json::arrayValue : Json::nullValue);
    for (const PLAN_LISTED_T& app : plan.libraryList) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = app.appId;
        entry["pkgId"] = app.pkgId;
        entry["appType"] = app.appType;
        entry["requires"] = Json::Value(Json::arrayValue);
        for (const OPENAPI_REQUIRE_INFO& require : app.requires) {
            Json::Value required(Json::objectValue);
            required["appId"] = require.id;
            required["pkgId"] = require.pkgid;
            required["version"] = require.version;
            entry["requires"].append(required);
        }
        root["libraryList"].append(entry);
    }
    root["homeBasePkgId"] = plan.homeBasePkgId;
    root["homePackages"] = Json::Value(Json::arrayValue);
    for (const PLAN_HOME_PACKAGE_T& home : plan.homePackages) {
        Json::Value entry(Json::objectValue);
        entry["kind"] = HomePackageName(home.kind);
        entry["pkgId"] = home.pkgId;
        root["homePackages"].append(entry);
    }
    root["removed"] = Json::Value(Json::arrayValue);
    for (const PLAN_REMOVAL_T& removal : plan.removals) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = removal.appId;
        entry["pkgId"] = removal.pkgId;
        entry["byPackage"] = removal.byPackage;
        entry["reason"] = removal.ownPackage ? "Home package" : "requires a newer version";
        entry["requiredVersion"] = Nullable(!removal.ownPackage, removal.requiredVersion);
        entry["installedVersion"] = Nullable(removal.versionKnown, removal.installedVersion);
        root["removed"].append(entry);
    }
    root["moves"] = Json::Value(Json::arrayValue);
    for (const PLAN_MOVE_T& move : plan.moves) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = move.appId;
        entry["before"] = move.before;
        root["moves"].append(entry);
    }
    root["apps"] = Json::Value(Json::arrayValue);
    for (const PLAN_BUILTIN_APP_T& app : plan.order) {
        std::string rule = CPlanPrinter::BuiltInRule(plan, app);
        Json::Value entry(Json::objectValue);
        entry["appId"] = app.appId;
        entry["pkgId"] = app.pkgId;
        entry["action"] = rule.empty() ? "install" : "keep";
        entry["rule"] = RuleJson(rule);
        entry["metadata"] = Nullable(app.metadataRead, app.metadata);
        entry["updating"] = app.updating;
        root["apps"].append(entry);
    }
    root["waitingList"] = Json::Value(Json::arrayValue);
    for (const std::string& pkgId : plan.waitingList) {
        root["waitingList"].append(pkgId);
    }
    const _CLIENT_INFO_T& client = plan.request.GetClient();
    if (plan.request.IsService() && !client.method.empty()) {
        root["progress"]["obj"] = client.obj;
        root["progress"]["method"] = client.method;
    } else {
        root["progress"] = Json::Value(Json::nullValue);
    }
}

Json::Value Strings(const std::vector<std::string>& lines) {
    Json::Value array(Json::arrayValue);
    for (const std::string& line : lines) {
        array.append(line);
    }
    return array;
}

}  // namespace

std::string CPlanPrinter::AppRule(const RESET_PLAN_T& plan, const PLAN_APP_T& app) {
    if (app.rule != RESET_KEEP_NONE) {
        return CAppsResetRules::KeepRuleName(app.rule);
    }
    return (app.uninstall || plan.walkRuns) ? "" : "no UninstallAppAPI";
}

std::string CPlanPrinter::BuiltInRule(const RESET_PLAN_T& plan, const PLAN_BUILTIN_APP_T& app) {
    if (!app.install) {
        return SkipReasonName(app.reason);
    }
    return plan.installs ? "" : "no InstallAppAPI";
}

const char* CPlanPrinter::CleanUpAction(RESET_CLEANUP_ACTION_E action) {
    switch (action) {
        case RESET_CLEANUP_EMPTY_DIR:
            return "empty";
        case RESET_CLEANUP_REMOVE_DIR:
            return "remove";
        case RESET_CLEANUP_REMOVE_FILE:
            return "remove file";
        case RESET_CLEANUP_RESET_USER_DATA:
            return "reset app user data";
        case RESET_CLEANUP_DELETE_NOTIFICATIONS:
            return "delete notifications";
    }
    return "";
}

std::string CPlanPrinter::Text(const RESET_PLAN_T& plan) {
    std::string out;
    Add(out, "Plan of %s (nothing has been changed)\n", plan.request.GetReset().c_str());
    if (plan.request.IsBuiltIn()) {
        TextCondition(out, plan);
        TextLibraryList(out, plan);
        TextAssembly(out, plan);
        TextOrder(out, plan);
        TextProgress(out, plan);
    } else {
        Add(out, "Board: runs Android apps: %s; robot product: %s\n", YesNo(plan.aotBoard),
            YesNo(plan.korbitBoard));
        TextApps(out, plan);
        TextCleanUp(out, plan);
    }
    TextSettings(out, plan);
    Add(out, "\nResult: %s 1, %s, %s\n", Quoted(plan.resultName).c_str(), CallerData(plan).c_str(),
        ResultWhen(plan).c_str());
    AddList(out, "Notes", plan.notes);
    AddList(out, "Could not read", plan.problems);
    return out;
}

std::string CPlanPrinter::Json(const RESET_PLAN_T& plan) {
    Json::Value root(Json::objectValue);
    root["reset"] = plan.request.GetReset();
    root["board"]["androidApps"] = plan.aotBoard;
    root["board"]["robotProduct"] = plan.korbitBoard;
    if (plan.request.IsBuiltIn()) {
        JsonBuiltIn(root, plan);
    } else {
        JsonApps(root, plan);
    }
    root["settings"] = Json::Value(Json::arrayValue);
    for (const PLAN_SETTING_T& setting : plan.settings) {
        Json::Value entry(Json::objectValue);
        entry["key"] = setting.key;
        entry["old"] = SettingJson(setting, setting.oldKnown, setting.oldValue);
        entry["new"] = SettingJson(setting, true, setting.newValue);
        root["settings"].append(entry);
    }
    Json::Value& result = root["result"];
    result["name"] = plan.resultName;
    result["value"] = 1;
    result["userdata"] = plan.request.GetKind() == CPlanRequest::KIND_CORVANE_RESET
                             ? Json::Value(Json::nullValue)
                             : Json::Value(static_cast<Json::Int64>(plan.request.GetUserData()));
    result["when"] = plan.resultAtEnd ? "end" : (plan.resultAtTaskEnd ? "task end" : "never");
    root["notes"] = Strings(plan.notes);
    root["problems"] = Strings(plan.problems);

    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, root) + "\n";
}
