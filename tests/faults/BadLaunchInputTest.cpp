// Hostile launch requests through the launch channel: a value with a NUL byte, values of 16 MiB, 10,000
// keys in one request. Each is refused or handled with a log line, never a crash, and the process serves
// the next request.
#include "FaultFixture.h"

using namespace fault_test;

class ABadLaunchRequest : public FaultFixture {
protected:
    std::string File(const std::string& name, const std::string& content) const {
        std::string path = Root() + "/" + name;
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
        return path;
    }
    void Launched(std::vector<std::string> args) const {
        args.insert(args.begin(), {"launch", "--raw"});
        orvix::test::RunResult launched = Host(args);
        ASSERT_EQ(launched.status, 0) << launched.err;
    }
};

TEST_F(ABadLaunchRequest, IsRefusedOrHandledWithALogLineAndTheProcessServesTheNextOne) {
    AddApps({{"app.one"}});
    Start({"reset=tak_app_reset", "userdata=1"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result"));
    orvix::host::ProcessId instance = TakReset();

    // As a C string this request would read "reset=tak_service_reset" and start a reset.
    Launched(
        {"--extra-file", "reset=" + File("nul", std::string("tak_service_reset\0tail", 22)), "userdata=2"});
    ASSERT_TRUE(WaitForLog("refusing a launch request: extra [reset] holds a NUL byte"));

    const std::string bigPath = File("big", std::string(16u << 20, 'r'));  // 16 MiB
    Launched({"--extra-file", "reset_reason=" + bigPath, "--extra-file", "caller_process_name=" + bigPath,
              "--extra-file", "unknown_key=" + bigPath, "reset=tak_app_reset", "userdata=3"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 2));
    // The reason is logged, cut to a line.
    EXPECT_EQ(CountInLog("Reason = rrrrrrrr"), 1u);

    std::vector<std::string> manyKeys = {"reset=tak_app_reset", "userdata=4"};
    for (int i = 0; i < 10000; ++i) {
        manyKeys.push_back("key" + std::to_string(i) + "=value" + std::to_string(i));
    }
    Launched(manyKeys);
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 3));
    orvix::host::ProcessId now = TakReset();
    EXPECT_TRUE(now.pid == instance.pid && now.startTime == instance.startTime) << "tak-reset was restarted";

    RunToEnd({"reset=tak_service_reset", "userdata=5"}, "tak_service_reset_result");
    EXPECT_EQ(ArgsOf("innerserver", "process_result"),
              (Lines{R"(["tak_app_reset_result",1,"1",""])", R"(["tak_app_reset_result",1,"3",""])",
                     R"(["tak_app_reset_result",1,"4",""])", R"(["tak_service_reset_result",1,"5",""])"}));
    EXPECT_EQ(CountInLog("EXEC finish"), 1u) << "more than one instance served the requests";

    // The same 16 MiB values as the first request of a new instance, which reads it from an fd.
    Launched({"--extra-file", "reset_reason=" + bigPath, "--extra-file", "caller_process_name=" + bigPath,
              "reset=tak_app_reset", "userdata=6"});
    ASSERT_TRUE(WaitForResult("tak_app_reset_result", 4));
    EndProcess();
    EXPECT_EQ(Results("tak_app_reset_result").back(), R"(["tak_app_reset_result",1,"6",""])");
}
