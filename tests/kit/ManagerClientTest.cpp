// The manager client's progress view, as a person sees it: `orvix-host client OBJ --foreground` runs on
// a pseudo-terminal, the test makes the progress calls the reset process makes, and reads back what the
// terminal shows.
#include <gtest/gtest.h>

#include <regex>

#include "HostFixture.h"
#include "PtyProgram.h"

namespace {

using orvix::test::PtyProgram;
using orvix::test::RunResult;

const char kClientName[] = "org.orvix.tv.vardell.managerclient.tv";

// The built-in reset's bar with `filled` of its 30 marks, up to the count after it.
std::string Bar(int filled) {
    return "built-in reset           [" + std::string(filled, '#') + std::string(30 - filled, '-') + "] ";
}

class AManagerClient : public orvix::test::HostFixture {
protected:
    std::unique_ptr<PtyProgram> OnATerminal() const {
        auto client = std::make_unique<PtyProgram>(
            std::vector<std::string>{OrvixHostPath(), "client", "tv", "--foreground"},
            std::vector<std::pair<std::string, std::string>>{{"ORVIX_HOST_ROOT", Root()}});
        EXPECT_TRUE(client->Started());
        EXPECT_TRUE(orvix::test::WaitUntil([&] { return ClientOnTheBus(client->Pid()); }))
            << client->Output();
        return client;
    }

    // True once the client on the bus is the process `pid`.
    bool ClientOnTheBus(pid_t pid) const {
        g_autoptr(GDBusConnection) bus = ConnectToBus();
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetConnectionUnixProcessID", g_variant_new("(s)", kClientName), G_VARIANT_TYPE("(u)"),
            G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
        guint32 owner = 0;
        if (reply != nullptr) {
            g_variant_get(reply, "(u)", &owner);
        }
        return owner == static_cast<guint32>(pid);
    }

    // One progress report, as the built-in reset sends it; it returns once the client has handled it.
    void Report(int state, int result) const {
        g_autoptr(GDBusConnection) bus = ConnectToBus();
        g_autoptr(GError) error = nullptr;
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            bus, kClientName, "/org/orvix/tv/vardell/managerclient/tv",
            "org.orvix.tv.vardell.managerclient.interface.tv", "tak_builtin_app_service_reset_result",
            g_variant_new("(iiii)", 7, state, result, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, 20000, nullptr,
            &error);
        EXPECT_EQ(error, nullptr) << state << ": " << (error != nullptr ? error->message : "");
    }
};

struct Step {
    int state;
    int result;
    std::string line;  // the line under the cursor afterwards; empty: a finished line above it instead
};

struct ViewCase {
    const char* name;
    std::vector<Step> steps;
    const char* finished;  // the last line the view ends with, a regular expression
};

void PrintTo(const ViewCase& c, std::ostream* out) {
    *out << c.name;
}

class TheProgressView : public AManagerClient, public ::testing::WithParamInterface<ViewCase> {};

TEST_P(TheProgressView, DrawsTheBarAtTheTotalAdvancesPerAppAndEndsWithTheCountAndTime) {
    auto client = OnATerminal();
    for (const Step& step : GetParam().steps) {
        Report(step.state, step.result);
        if (!step.line.empty()) {
            EXPECT_TRUE(client->WaitForOutput([&](const std::string&) {
                return client->CurrentLine() == step.line;
            })) << "after "
                << step.state << ": [" << client->CurrentLine() << "]";
        }
    }
    std::regex finished(GetParam().finished);
    auto lineAboveCursor = [&] {
        auto screen = client->Screen();
        return screen.size() >= 2 && screen.back().empty() &&
               std::regex_match(screen[screen.size() - 2], finished);
    };
    EXPECT_TRUE(client->WaitForOutput([&](const std::string&) { return lineAboveCursor(); }))
        << "screen ends with [" << client->Screen()[client->Screen().size() - 2] << "]";
    // A reset with nothing to do shows no bar at all, neither empty at 500 nor full at 502.
    bool anyBar = GetParam().steps.front().result > 0;
    std::string screen;
    for (const auto& line : client->Screen()) {
        screen += line + "\n";
    }
    EXPECT_EQ(screen.find('[') != std::string::npos, anyBar) << screen;
    EXPECT_EQ(client->Stop(), 0) << client->Output();
}

INSTANTIATE_TEST_SUITE_P(
    Resets, TheProgressView,
    ::testing::Values(
        ViewCase{"EveryAppDone",
                 {{500, 3, Bar(0) + "0/3"},
                  {501, 1, Bar(10) + "1/3"},
                  {501, 2, Bar(20) + "2/3"},
                  {501, 3, Bar(30) + "3/3"},
                  {502, 0, ""}},
                 R"(built-in reset +\[#{30}\] 3/3 done in \d+\.\d s)"},
        ViewCase{"NothingToReset",
                 {{500, 0, ""}, {502, 0, ""}},
                 R"(built-in reset: nothing to reset \(in \d+\.\d s\))"},
        // Two resets one after the other: the second starts from its own total and its own time.
        ViewCase{"TwoResetsInARow",
                 {{500, 1, Bar(0) + "0/1"},
                  {501, 1, Bar(30) + "1/1"},
                  {502, 0, ""},
                  {500, 2, Bar(0) + "0/2"},
                  {502, 0, ""}},
                 R"(built-in reset +\[-{30}\] 0/2 done in \d+\.\d s)"}),
    [](const ::testing::TestParamInfo<ViewCase>& info) { return std::string(info.param.name); });

TEST_F(AManagerClient, InTheForegroundTakesOverABackgroundClientOfTheSameName) {
    RunResult background = Host({"client", "tv"});
    ASSERT_EQ(background.status, 0) << background.err;
    orvix::host::ProcessId first;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", first));

    RunResult again = Host({"client", "tv"});
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.out.find("already runs (pid " + std::to_string(first.pid)), std::string::npos)
        << again.out;
    EXPECT_NE(again.out.find("--foreground"), std::string::npos) << again.out;

    auto client = OnATerminal();
    EXPECT_TRUE(client->WaitForText("stopped; this terminal shows its progress")) << client->Output();
    EXPECT_FALSE(orvix::host::IsRunning(first));
    Report(500, 1);
    EXPECT_TRUE(client->WaitForOutput([&](const std::string&) {
        return client->CurrentLine() == Bar(0) + "0/1";
    })) << client->Output();
    orvix::host::ProcessId second;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/managerclient.tv.pid", second));
    EXPECT_EQ(second.pid, client->Pid());
}

TEST_F(AManagerClient, InTheBackgroundWritesEveryStepAsALineOfItsLog) {
    ASSERT_EQ(Host({"client", "tv"}).status, 0);
    Report(500, 2);
    Report(501, 1);
    Report(501, 2);
    Report(502, 0);
    std::string log;
    EXPECT_TRUE(orvix::test::WaitUntil([&] {
        log = Host({"log", "managerclient.tv"}).out;
        return log.find("finished") != std::string::npos;
    })) << log;
    EXPECT_TRUE(std::regex_search(log, std::regex("built-in reset: 2 apps to reset\n"
                                                  "built-in reset: 1/2 done\n"
                                                  "built-in reset: 2/2 done\n"
                                                  "built-in reset: finished, 2/2 done in \\d+\\.\\d s\n")))
        << log;
}

}  // namespace
