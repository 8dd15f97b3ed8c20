// Built-in resets restarted while an install is ending: the library's callback ends the head app of a run
// that a new request stops at that moment, and must not carry that run's next step into the new one
// (which then completed twice and reported twice). The moment cannot be forced from outside, so the test
// makes it many times; each request must be answered exactly once.
#include <map>

#include "../reset/ResetFixture.h"

using namespace reset_test;

class BuiltInResetsRestartedWhileInstalling : public ResetFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "2"}; }
};

TEST_F(BuiltInResetsRestartedWhileInstalling, AnswerEachRequestExactlyOnce) {
    Json::Value behaviour(Json::objectValue);
    behaviour["builtin"]["install"]["delay_ms"] = 5;
    SetLibTakBehaviour(behaviour);
    const int kRounds = 30;
    for (int round = 0; round < kRounds; ++round) {
        // The mark of the last round is the upgrader's to clear; clearing it lets every round install.
        SetSetting("int", "db/built-in-app-upgrader/reset", "0");
        std::string base = std::to_string(round * 10);
        size_t installs = CallsOf("libtak_common", "InstallAppAPI").size();
        Start({"reset=biu_service_reset", "userdata=" + base + "1"});
        // The next request arrives about when the library answers the first install.
        ASSERT_TRUE(WaitForCall("libtak_common", "InstallAppAPI", std::chrono::seconds(20), installs + 1));
        Start({"reset=biu_app_reset", "userdata=" + base + "2"});
        Start({"reset=biu_service_reset", "userdata=" + base + "3"});
        EndProcess();
        ASSERT_FALSE(HasFatalFailure());
    }
    std::map<std::string, int> answers;
    for (const auto& call : CallsOf("innerserver", "process_result")) {
        ++answers[call["args"][2].asString()];
    }
    EXPECT_EQ(answers.size(), size_t{kRounds * 3});
    for (const auto& [cookie, count] : answers) {
        EXPECT_EQ(count, 1) << "request " << cookie;
    }
    EXPECT_GT(CallsOf("libtak_common", "InstallAppAPI").size(), 0u) << "no round got as far as an install";
}
