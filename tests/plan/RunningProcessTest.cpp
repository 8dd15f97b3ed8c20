// A request goes to the tak-reset that already runs: the plan names that process and, one line each, what
// of its past changes the request (a Corvane reset it ran, a built-in reset marked in process).
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "PlanFixture.h"

namespace {

using orvix::test::Count;
using plan_test::PlanFixture;

class APlanBesideARunningReset : public PlanFixture {
protected:
    // The notes of the plan for `reset`, one a line.
    std::string Notes(const std::string& reset) const {
        orvix::test::RunResult run = Plan({"reset=" + reset, "obj=tv", "method=m"});
        EXPECT_EQ(run.status, 0) << run.err;
        size_t at = run.out.find("Notes:\n");
        return at == std::string::npos ? "" : run.out.substr(at);
    }
    std::string Pid() const {
        orvix::host::ProcessId id;
        EXPECT_TRUE(orvix::host::ReadPidFile(Root() + "/run/tak-reset/tak-reset.pid", id));
        return std::to_string(id.pid);
    }
};

TEST_F(APlanBesideARunningReset, NamesTheProcessAndTheStateOfItThatChangesTheRequest) {
    EXPECT_EQ(Count(Notes("corvane_reset"), "already runs"), 0u);

    Start({"reset=corvane_reset"});
    ASSERT_TRUE(WaitForResult("corvane_reset_result"));
    const std::string process = "tak-reset (pid " + Pid() + ")";
    const std::string corvane = Notes("corvane_reset");
    EXPECT_EQ(Count(corvane, "  - " + process + " already runs: the request goes to it"), 1u) << corvane;
    EXPECT_EQ(Count(corvane, "  - " + process + " ran a Corvane reset at "), 1u) << corvane;
    EXPECT_EQ(Count(corvane, " UTC: it refuses this one, which then does nothing and reports no result\n"),
              1u);
    // Only an Android-apps board ends a later apps reset the Corvane way.
    EXPECT_EQ(Count(Notes("tak_app_reset"), "Corvane"), 0u);
    SetSystemFlag("android_on_orvix.support", true);
    EXPECT_EQ(Count(Notes("tak_app_reset"), process + " ran a Corvane reset at "), 1u);
    SetSystemFlag("android_on_orvix.support", false);
    EXPECT_EQ(Count(Notes("biu_app_reset"), "marked in process"), 0u);

    Start({"reset=biu_service_reset", "obj=tv", "method=m"});
    ASSERT_TRUE(WaitForResult("biu_service_reset_result"));
    const std::string builtIn = Notes("biu_app_reset");
    EXPECT_EQ(Count(builtIn,
                    "  - a built-in reset is marked in process (db/built-in-app-upgrader/reset = 1, "
                    "never cleared): this request stops one that " +
                        process + " has under way"),
              1u)
        << builtIn;
    EXPECT_EQ(Count(builtIn, "Corvane"), 0u);

    EndProcess();
    EXPECT_EQ(Count(Notes("corvane_reset"), "already runs"), 0u);

    // A later process did not run the Corvane reset of the history log (its lines are stamped to the
    // second, so the next one starts in a later second).
    const time_t ended = time(nullptr);
    ASSERT_TRUE(orvix::test::WaitUntil([&] { return time(nullptr) > ended; }));
    Start({"reset=tak_app_reset"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    const std::string later = Notes("corvane_reset");
    EXPECT_EQ(Count(later, "already runs"), 1u) << later;
    EXPECT_EQ(Count(later, "ran a Corvane reset"), 0u) << later;
}

}  // namespace
