// What the plan tests share: a host root (from the apps-reset fixture, with its readers of what a reset
// did) and a runner of the plan command on it.
#pragma once

#include <json/json.h>

#include <sstream>
#include <string>
#include <vector>

#include "../reset/ResetFixture.h"

namespace plan_test {

struct PlanRun {
    int status = -1;
    std::string out;  // standard output, the root written as "<root>"
    std::string err;
};

class PlanFixture : public reset_test::ResetFixture {
protected:
    static std::string PlanPath() { return BinaryDir() + "/src/tak-reset-plan"; }

    // tak-reset-plan ARGS... on this root, with the platform log dropped below errors.
    PlanRun Plan(const std::vector<std::string>& args) const {
        std::vector<std::string> argv = {PlanPath()};
        argv.insert(argv.end(), args.begin(), args.end());
        orvix::test::RunResult run =
            orvix::test::RunProgram(argv, {{"ORVIX_HOST_ROOT", Root()}, {"ORVIX_LOG_LEVEL", "E"}});
        PlanRun plan{run.status, run.out, run.err};
        for (size_t at = plan.out.find(Root()); at != std::string::npos; at = plan.out.find(Root(), at)) {
            plan.out.replace(at, Root().size(), "<root>");
        }
        return plan;
    }

    // The --json plan, parsed; a failed run fails the test, bad JSON throws.
    Json::Value PlanJson(std::vector<std::string> args) const {
        args.insert(args.begin(), "--json");
        PlanRun run = Plan(args);
        EXPECT_EQ(run.status, 0) << run.err;
        Json::Value plan;
        std::istringstream(run.out) >> plan;
        return plan;
    }

    void AddPackage(const std::vector<std::string>& args) const {
        std::vector<std::string> command = {"pkg", "add"};
        command.insert(command.end(), args.begin(), args.end());
        orvix::test::RunResult added = Host(command);
        ASSERT_EQ(added.status, 0) << added.err;
    }
};

}  // namespace plan_test
