// What the plan tests share: a host root (from the apps-reset fixture, with its readers of what a reset
// did) and a runner of the plan command on it.
#pragma once

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
};

}  // namespace plan_test
