// The command's exit status and its one line on standard error, over a directory of pulled logs.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "HostFixture.h"

namespace {

const char kStart[] =
    "11-26 10:00:00.000 E/TAK(  500:  500): \033[33m../../src/Reset/src/main: main(8) > "
    "----------Reset main() start.---------\033[0m\n";

std::string Request(const std::string& time, const std::string& kind) {
    std::string head = "11-26 " + time + " I/TAK(  500:  500): \033[33m../../src/";
    return head + "Commons/Common/src/ProcessCore: m_GetControlData(390) > has key[reset] value[" + kind +
           "]\033[0m\n" + head + "Reset/src/ResetCore: m_HandleAppReset(101) > App Reset Start\033[0m\n";
}

std::string Result(const std::string& time) {
    return "11-26 " + time +
           " D/TAK(  500:  501): \033[34m../../src/Commons/Common/src/ProcessDbus: MethodCall(55) > "
           "MethodCall : ObjPath:[/org/orvix/tv/vardell/innerserver], MethodName:[process_result]"
           "\033[0m\n";
}

struct CommandCase {
    const char* name;
    std::vector<std::string> options;
    const char* log;  // nullptr: no log in the directory
    int status;
    const char* err;               // what standard error holds
    const char* out;               // what standard output holds
    const char* notOut = nullptr;  // what it must not
};

void PrintTo(const CommandCase& c, std::ostream* out) {
    *out << c.name;
}

class TheCommand : public ::testing::TestWithParam<CommandCase> {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tak_report_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    std::string m_dir;
};

TEST_P(TheCommand, ExitsAndComplainsAsTheLogsSay) {
    if (GetParam().log != nullptr) {
        std::ofstream(m_dir + "/tak-reset.log") << GetParam().log;
    }
    std::vector<std::string> argv = {std::string(TAK_BINARY_DIR) + "/src/tak-reset-report"};
    argv.insert(argv.end(), GetParam().options.begin(), GetParam().options.end());
    argv.push_back(m_dir);
    orvix::test::RunResult run = orvix::test::RunProgram(orvix::test::DeviceArgv(argv));
    EXPECT_EQ(run.status, GetParam().status) << run.err;
    EXPECT_NE(run.err.find(GetParam().err), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), *GetParam().err == '\0' ? 0 : 1) << run.err;
    EXPECT_NE(run.out.find(GetParam().out), std::string::npos) << run.out;
    if (GetParam().notOut != nullptr) {
        EXPECT_EQ(run.out.find(GetParam().notOut), std::string::npos) << run.out;
    }
}

const std::string kReported = kStart + Request("10:00:01.000", "tak_app_reset") + Result("10:00:02.000");
const std::string kUnreported = kReported + Request("10:00:03.000", "tak_service_reset");
// A line cut before its header ends, one that is not UTF-8, and the log cut in the middle of its last line.
const std::string kWithBadLines = "11-26 10:00\n\xff\n" + kReported + "11-26 10:00:03.0";

INSTANTIATE_TEST_SUITE_P(
    Cases, TheCommand,
    ::testing::Values(
        CommandCase{
            "EveryResetReported", {}, kReported.c_str(), 0, "", "result      tak_app_reset_result = 1"},
        CommandCase{"OneNotReported", {}, kUnreported.c_str(), 1, "", "result      none reported"},
        CommandCase{
            "LastShowsOnlyTheNewest", {"--last"}, kUnreported.c_str(), 1, "", "reset 2: service", "reset 1"},
        CommandCase{"BadLinesCounted",
                    {"--json"},
                    kWithBadLines.c_str(),
                    0,
                    "3 lines could not be read, 0 were of another process",
                    "\"outcome\" : \"reported\""},
        CommandCase{"NoLog", {}, nullptr, 2, "cannot read", ""},
        CommandCase{"BadOption", {"--colour"}, kReported.c_str(), 2, "Unknown option --colour", ""}),
    [](const ::testing::TestParamInfo<CommandCase>& info) { return info.param.name; });

// The history log's rotated copies are read too, oldest first: "NAME.2", "NAME.1", then "NAME".
TEST_F(TheCommand, ReadsRotatedHistoryLogsOldestFirst) {
    std::ofstream(m_dir + "/tak-reset.log") << kReported;
    // The history log is stamped in UTC; the platform log in local time.
    g_autoptr(GDateTime) local = g_date_time_new_local(2026, 11, 26, 10, 0, 1);
    g_autoptr(GDateTime) utc = g_date_time_to_utc(local);
    g_autofree gchar* stamp = g_date_time_format(utc, "%Y-%m-%dT%H:%M:%S:>");
    const std::string history = m_dir + "/tak_reset_history.log";
    std::ofstream(history + ".2") << stamp << "oldest\n";
    std::ofstream(history + ".1") << stamp << "older\n";
    std::ofstream(history) << stamp << "newest\n";

    orvix::test::RunResult run = orvix::test::RunProgram(
        orvix::test::DeviceArgv({std::string(TAK_BINARY_DIR) + "/src/tak-reset-report", "--json", m_dir}));
    ASSERT_EQ(run.status, 0) << run.err;
    const size_t oldest = run.out.find("\"oldest\""), older = run.out.find("\"older\""),
                 newest = run.out.find("\"newest\"");
    EXPECT_TRUE(oldest < older && older < newest && newest != std::string::npos) << run.out;
}

}  // namespace
