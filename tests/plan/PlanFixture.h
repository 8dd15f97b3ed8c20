// What the plan tests share: a host root (from the apps-reset fixture, with its readers of what a reset
// did) and a runner of the plan command on it.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "../reset/ResetFixture.h"

namespace plan_test {

class PlanFixture : public reset_test::ResetFixture {
protected:
    static std::string PlanPath() { return BinaryDir() + "/src/tak-reset-plan"; }

    // tak-reset-plan ARGS... on this root, with the platform log dropped below errors; the root is written
    // as "<root>" in what it prints.
    orvix::test::RunResult Plan(const std::vector<std::string>& args) const {
        std::vector<std::string> argv = {PlanPath()};
        argv.insert(argv.end(), args.begin(), args.end());
        orvix::test::RunResult plan = orvix::test::RunProgram(
            orvix::test::DeviceArgv(argv), {{"ORVIX_HOST_ROOT", Root()}, {"ORVIX_LOG_LEVEL", "E"}});
        for (std::string* text : {&plan.out, &plan.err}) {
            for (size_t at = text->find(Root()); at != std::string::npos; at = text->find(Root(), at)) {
                text->replace(at, Root().size(), "<root>");
            }
        }
        return plan;
    }

    // A built-in package pkg.APPID whose main app is APPID.
    void AddBuiltIn(const std::string& appId, const std::string& version,
                    const std::string& removable = "true", const std::string& instantReset = "true") const {
        orvix::test::RunResult added =
            Host({"pkg", "add", "pkg." + appId, "--builtin", "--version", version, "--removable", removable,
                  "--app", appId, "--main", appId, "--meta",
                  "http://orvix.com/tv/metadata/prefer_instant_reset=" + instantReset});
        ASSERT_EQ(added.status, 0) << added.err;
    }

    // An entry of the library's built-in list, requiring each of `required` (app id, version).
    static Json::Value ListEntry(const std::string& appId,
                                 const std::vector<std::pair<std::string, std::string>>& required = {}) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = appId;
        entry["pkgId"] = "pkg." + appId;
        for (const auto& [id, version] : required) {
            entry["requires"][id]["version"] = version;
            entry["requires"][id]["pkgid"] = "pkg." + id;
        }
        return entry;
    }
};

}  // namespace plan_test
