// The decisions of the apps and Corvane resets on their own (CAppsResetRules). The clean-up steps show in
// the plan texts and the reset tests.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "AppsResetRules.h"

namespace {

_APPINFO_T App(const std::string& id, int type = 1, bool disableReset = false, bool front = false) {
    _APPINFO_T app;
    app.id = id;
    app.app_type = type;
    app.reserved_tinyint_1 = disableReset ? 1 : 0;
    app.reserved_tinyint_2 = front ? 1 : 0;
    return app;
}

std::vector<std::string> Ids(const std::list<_APPINFO_T>& apps) {
    std::vector<std::string> ids;
    for (const auto& app : apps) {
        ids.push_back(app.id);
    }
    return ids;
}

// "key=value" (text quoted, "~" marks a write handed to the store's worker) for each write.
std::vector<std::string> Writes(const std::vector<RESET_SETTING_T>& settings) {
    std::vector<std::string> writes;
    for (const auto& setting : settings) {
        std::string value = setting.text ? "\"" + setting.value + "\"" : std::to_string(setting.number);
        writes.push_back(setting.key + (setting.sync ? "=" : "~") + value);
    }
    return writes;
}

}  // namespace

TEST(TheAppsResetKeepRule, TakesTheFirstMatchingRule) {
    const CAppsResetRules::AppMap defaults = {{"listed", "1"}};
    const CAppsResetRules::AppMap general = {{"general", ""}, {"3201903017943", ""}};
    struct Case {
        _APPINFO_T app;
        bool aot, service;
        RESET_KEEP_RULE_E rule;
    };
    // The plan texts show each rule taking an app; these are its edges.
    const Case cases[] = {
        {App("listed", 2, true), true, true, RESET_KEEP_DEFAULT_NATIVE},
        {App("general", 3), false, true, RESET_KEEP_NONE},
        {App("3201903017943"), true, true, RESET_KEEP_GENERAL_APP},
        {App("3201904018125"), false, true, RESET_KEEP_FIXED_ID},
        {App("3202001019917"), false, false, RESET_KEEP_NONE},
        {App("32020010199170"), false, true, RESET_KEEP_NONE},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.app.id + (test.aot ? " aot" : "") + (test.service ? " service" : ""));
        EXPECT_EQ(CAppsResetRules(test.aot, test.service, defaults, general).KeepRule(test.app), test.rule);
    }
}

TEST(TheUninstallOrder, PutsFrontPlacedAppsFirstInReverseOfTheirFetchedOrder) {
    const struct {
        std::vector<_APPINFO_T> fetched;
        std::vector<std::string> order;
    } cases[] = {
        {{}, {}},
        {{App("a"), App("b")}, {"a", "b"}},
        {{App("a"), App("f1", 1, false, true), App("b"), App("f2", 1, false, true),
          App("f3", 1, false, true)},
         {"f3", "f2", "f1", "a", "b"}},
        {{App("dup"), App("dup", 1, false, true), App("dup")}, {"dup", "dup", "dup"}},
    };
    for (const auto& test : cases) {
        std::list<_APPINFO_T> fetched(test.fetched.begin(), test.fetched.end());
        EXPECT_EQ(Ids(CAppsResetRules::UninstallOrder(std::move(fetched))), test.order);
    }
}

TEST(TheResetSettings, AreWrittenAtTheirStagesInOrder) {
    using W = std::vector<std::string>;
    const char* sync = "db/tak/app_sync_status=0";
    const char* boot = "memory/tak/boot_status~0";
    const char* change = "memory/tak/app_change=1";
    const W corvaneStart = {"memory/tak/app_group_list_ready~0",
                            "memory/tak/andrioid_group_list_ready~0",
                            "db/appinfoviewer/auto_update_off_applist=\"\"",
                            "db/tak/btgid=\"\"",
                            "db/tak/app_canary_id_list~\"\"",
                            "db/tak/app_canary_internal_test=0"};
    const struct {
        RESET_KIND_E kind;
        bool aot;
        bool korbit;
        int factoryReset;
        W start, records, cleanUp, result;
    } cases[] = {
        {RESET_KIND_APP, false, false, 1, {sync, boot}, {change}, {}, {"db/tak/factory_reset=0"}},
        {RESET_KIND_APP, true, true, 2, {boot}, {change}, {}, {"db/tak/factory_reset=0"}},
        {RESET_KIND_APP, false, false, 0, {sync, boot}, {change}, {}, {}},
        {RESET_KIND_SERVICE, false, false, 1, {sync, boot}, {change}, {}, {}},
        {RESET_KIND_CORVANE, true, false, 1, corvaneStart, {change, sync, boot}, {change}, {}},
        {RESET_KIND_CORVANE, true, true, 0, corvaneStart, {change, boot}, {change}, {}},
        {RESET_KIND_CORVANE, false, false, 0, corvaneStart, {}, {sync, boot, change}, {}},
        {RESET_KIND_CORVANE, false, true, 1, corvaneStart, {}, {boot, change}, {}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(CAppsResetRules::ResultName(test.kind)) + (test.aot ? " aot" : "") +
                     (test.korbit ? " korbit" : "") + " factory " + std::to_string(test.factoryReset));
        auto at = [&](RESET_STAGE_E stage) {
            return Writes(
                CAppsResetRules::Settings(test.kind, stage, test.aot, test.korbit, test.factoryReset));
        };
        EXPECT_EQ(at(RESET_STAGE_START), test.start);
        EXPECT_EQ(at(RESET_STAGE_RECORDS_RESET), test.records);
        EXPECT_EQ(at(RESET_STAGE_CLEAN_UP), test.cleanUp);
        EXPECT_EQ(at(RESET_STAGE_RESULT), test.result);
    }
}
